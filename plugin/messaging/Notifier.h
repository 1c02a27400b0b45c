#pragma once

#include "messaging/LinkCloser.h"

#include <QJsonObject>
#include <memory>
#include <thread>

class KVXCWMessage;

namespace kvx {

/// Emits a messager's notifications from a thread of its own, in the order given. For those that
/// arise on the receivers' own thread, where a blocking queued call would wait for itself.
class Notifier {
public:
    /// The messager is borrowed until leave() or the end.
    explicit Notifier(KVXCWMessage *messager);
    ~Notifier();
    Notifier(const Notifier &) = delete;
    Notifier &operator=(const Notifier &) = delete;

    /// The thread is created with the first one. As long as the system refuses a thread, messages
    /// wait for the next call.
    void post(const QJsonObject &message);
    /// Drops what waits, begins no further emission and waits for the one under way, as the closer
    /// of a link does. False at the deadline: then the emission is waiting for a receiver.
    bool leave(LinkCloser::Deadline deadline);

private:
    struct State;
    static void run(State &state);

    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

} // namespace kvx
