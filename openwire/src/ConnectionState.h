#pragma once

#include "BrokerUri.h"
#include "EventThread.h"
#include "Transport.h"

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cms {
class AsyncCallback;
class ExceptionListener;
} // namespace cms

namespace kvx::openwire {

class SessionState;

struct Credentials {
    std::string userName;
    std::string password;
};

/// A connection apart from its handle: owned together by the handle, the sessions and the threads,
/// so that none of them is ever left with something that is gone.
class ConnectionState : public TransportListener,
                        public std::enable_shared_from_this<ConnectionState> {
public:
    /// Opens the socket and starts the threads. Throws cms::CMSException.
    static std::shared_ptr<ConnectionState> open(const BrokerUri &uri, Credentials credentials);

    /// For open() only.
    ConnectionState(const BrokerUri &uri, Credentials credentials);

    const BrokerUri &uri() const { return m_uri; }
    const Credentials &credentials() const { return m_credentials; }
    Transport &transport() { return m_transport; }

    void setClientId(const std::string &clientId);
    std::string clientId() const;

    /// Tells the broker who this is, once. Closes the socket when it refuses.
    void logIn();

    std::shared_ptr<SessionState> openSession();
    void forgetSession(std::int64_t id);
    void start();
    void stop();
    void close();

    void setExceptionListener(cms::ExceptionListener *listener);
    cms::ExceptionListener *exceptionListener() const;

    /// Hands an answer to a send's callback on the thread for events.
    void complete(cms::AsyncCallback *callback, const std::exception_ptr &failure);

    void onDispatch(MessageDispatch dispatch) override;
    void onConsumerControl(const ConsumerControl &control) override;
    void onConnectionError(const std::exception_ptr &failure) override;
    void onLost(const std::exception_ptr &failure) override;

private:
    using Sessions = std::vector<std::shared_ptr<SessionState>>;

    void checkOpen() const;
    Sessions sessions() const;
    std::shared_ptr<SessionState> session(std::int64_t id) const;
    void leaveBroker();
    void postFailure(const std::exception_ptr &failure);
    void callExceptionListener(const std::exception_ptr &failure);

    const BrokerUri m_uri;
    const Credentials m_credentials;
    const std::string m_id;
    Transport m_transport;
    EventThread m_events;

    std::mutex m_loginMutex; // held during a login; close() never takes it
    std::atomic<bool> m_loggedIn { false };
    std::atomic<std::int32_t> m_loginCommand { 0 };

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    std::string m_clientId;
    std::map<std::int64_t, std::weak_ptr<SessionState>> m_sessions;
    std::int64_t m_lastSession = 0;
    cms::ExceptionListener *m_exceptionListener = nullptr;
    bool m_listenerBusy = false;
    bool m_inUse = false;
    bool m_started = false;
    bool m_closing = false;
    bool m_closed = false;
};

} // namespace kvx::openwire
