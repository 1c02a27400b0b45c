#include "messaging/Notifier.h"

#include "messaging/BlockingReceivers.h"
#include "messaging/CallGate.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <system_error>

namespace kvx {

struct Notifier::State {
    KVXCWMessage *messager = nullptr; ///< used inside the gate only
    CallGate gate;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<QJsonObject> waiting;
    bool ending = false;
};

Notifier::Notifier(KVXCWMessage *messager)
    : m_state(std::make_shared<State>())
{
    m_state->messager = messager;
}

Notifier::~Notifier()
{
    if (!m_thread.joinable())
        return;
    if (leave(LinkCloser::Deadline::min()))
        m_thread.join();
    else
        m_thread.detach(); // inside a receiver; it keeps its own state
}

void Notifier::post(const QJsonObject &message)
{
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->waiting.push_back(message);
    }
    m_state->changed.notify_one();
    if (m_thread.joinable())
        return;
    try {
        m_thread = std::thread([state = m_state] { run(*state); });
    } catch (const std::system_error &) {
        // Nobody is there to tell: this is how failures are told. The next one tries again.
    }
}

bool Notifier::leave(LinkCloser::Deadline deadline)
{
    m_state->gate.close();
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        m_state->ending = true;
    }
    m_state->changed.notify_one();
    return dropCallsUntil(deadline,
        [this](std::chrono::milliseconds limit) { return m_state->gate.waitUntilEmpty(limit); });
}

void Notifier::run(State &state)
{
    for (;;) {
        QJsonObject message;
        {
            std::unique_lock<std::mutex> lock(state.mutex);
            state.changed.wait(lock, [&] { return state.ending || !state.waiting.empty(); });
            if (state.ending)
                return;
            message = state.waiting.front();
            state.waiting.pop_front();
        }
        if (const CallGate::Pass pass { state.gate })
            emit state.messager->notify(message);
    }
}

} // namespace kvx
