#include "messaging/LinkCloser.h"

#include "messaging/BlockingReceivers.h"
#include "messaging/BrokerLink.h"

#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <vector>

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
    try {
        m_thread = std::thread([state = m_state, link]() mutable { run(state, std::move(link)); });
    } catch (const std::system_error &error) {
        throw std::runtime_error("No thread could be started: " + error.code().message());
    }
    link->listener.gate().close(); // the thread may not have come to it yet
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
    link->listener.gate().close();
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

void LinkCloser::closeHere(std::shared_ptr<BrokerLink> link, Deadline deadline)
{
    CallGate &gate = link->listener.gate();
    gate.close();
    const bool empty = dropCallsUntil(
        deadline, [&gate](std::chrono::milliseconds limit) { return gate.waitUntilEmpty(limit); });
    if (empty) {
        run(std::make_shared<State>(), std::move(link));
        return;
    }
    static std::vector<std::shared_ptr<BrokerLink>> &leftBehind
        = *new std::vector<std::shared_ptr<BrokerLink>>; // until the process ends
    leftBehind.push_back(std::move(link));
}

} // namespace kvx
