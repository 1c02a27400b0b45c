#include "messaging/LinkCloser.h"

#include "messaging/BlockingReceivers.h"
#include "messaging/BrokerLink.h"

#include <condition_variable>
#include <mutex>

namespace kvx {

struct LinkCloser::State {
    std::mutex mutex;
    std::condition_variable changed;
    bool closed = false;
    bool finished = false;
    std::optional<std::string> failure;

    void reach(bool State::*step)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        this->*step = true;
        changed.notify_all();
    }
};

LinkCloser::LinkCloser(std::shared_ptr<BrokerLink> link)
    : m_state(std::make_shared<State>())
{
    link->listener.gate().close();
    m_thread = std::thread(
        [state = m_state, held = std::move(link)]() mutable { run(state, std::move(held)); });
}

LinkCloser::~LinkCloser()
{
    bool finished = false;
    {
        const std::lock_guard<std::mutex> lock(m_state->mutex);
        finished = m_state->finished;
    }
    if (finished)
        m_thread.join();
    else
        m_thread.detach();
}

namespace {

/// Waits for the listener that is running; the library may have given its thread up.
void takeListenersAway(const BrokerLink &link)
{
    try {
        link.connection->setExceptionListener(nullptr);
        if (link.consumer)
            link.consumer->setMessageListener(nullptr);
    } catch (const std::exception &) {
        // A library that refuses this after the close has waited for its threads there.
    }
}

} // namespace

void LinkCloser::run(const std::shared_ptr<State> &state, std::shared_ptr<BrokerLink> link)
{
    try {
        link->connection->close();
    } catch (const std::exception &error) {
        const std::lock_guard<std::mutex> lock(state->mutex);
        state->failure = error.what();
    }
    state->reach(&State::closed);
    takeListenersAway(*link);
    link->listener.gate().waitUntilEmpty();
    link.reset();
    state->reach(&State::finished);
}

bool LinkCloser::waitUntilClosed(Deadline deadline)
{
    return wait(&State::closed, deadline);
}

bool LinkCloser::waitUntilFinished(Deadline deadline)
{
    return wait(&State::finished, deadline);
}

bool LinkCloser::wait(bool State::*reached, Deadline deadline)
{
    return dropCallsUntil(deadline, [this, reached](std::chrono::milliseconds limit) {
        std::unique_lock<std::mutex> lock(m_state->mutex);
        return m_state->changed.wait_for(lock, limit, [&] { return (*m_state).*reached; });
    });
}

std::optional<std::string> LinkCloser::failure() const
{
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    return m_state->failure;
}

} // namespace kvx
