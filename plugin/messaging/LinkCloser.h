#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace kvx {

struct BrokerLink;

/// Closes a broker link on a thread of its own. The library's close waits for the notification
/// that is being delivered, and that one may be waiting for the very thread that wants to close;
/// and a broker that no longer answers holds a close up as well.
/// The thread keeps the link alive until it is closed and no call is inside its listener. It goes
/// on when the closer is destroyed.
class LinkCloser {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Takes the calls of the link's listener away and begins to close. Throws std::runtime_error
    /// when the system refuses a thread; the link goes on then as if nothing had happened.
    explicit LinkCloser(std::shared_ptr<BrokerLink> link);
    ~LinkCloser();
    LinkCloser(const LinkCloser &) = delete;
    LinkCloser &operator=(const LinkCloser &) = delete;

    /// Both wait until the deadline at most and drop what is posted to the blocking receivers of
    /// the calling thread meanwhile. Closed: the close has returned. Finished: the thread has let
    /// go of the link.
    bool waitUntilClosed(Deadline deadline);
    bool waitUntilFinished(Deadline deadline);
    /// The library's text when the close failed.
    std::optional<std::string> failure() const;

    /// Closes and releases the link on the calling thread, for when there is no other. A link whose
    /// listener has a call inside at the deadline stays behind unclosed: that call may be waiting
    /// for this thread.
    static void closeHere(std::shared_ptr<BrokerLink> link, Deadline deadline);

private:
    struct State;
    bool wait(bool State::*reached, Deadline deadline);
    static void run(const std::shared_ptr<State> &state, std::shared_ptr<BrokerLink> link);

    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

} // namespace kvx
