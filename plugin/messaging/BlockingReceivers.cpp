#include "messaging/BlockingReceivers.h"

#include <QCoreApplication>
#include <QEvent>
#include <QThread>
#include <algorithm>
#include <iterator>
#include <mutex>
#include <vector>

namespace kvx {

namespace {

struct Receivers {
    std::mutex mutex;
    std::vector<QObject *> objects;
};

Receivers &blockingReceivers()
{
    static Receivers &instance = *new Receivers; // never destroyed: used until the last thread ends
    return instance;
}

} // namespace

void addBlockingReceiver(QObject *receiver)
{
    Receivers &receivers = blockingReceivers();
    const std::lock_guard<std::mutex> lock(receivers.mutex);
    receivers.objects.push_back(receiver);
}

void removeBlockingReceiver(QObject *receiver)
{
    Receivers &receivers = blockingReceivers();
    const std::lock_guard<std::mutex> lock(receivers.mutex);
    auto &objects = receivers.objects;
    objects.erase(std::remove(objects.begin(), objects.end(), receiver), objects.end());
}

void dropCallsToBlockingReceivers()
{
    std::vector<QObject *> here;
    {
        Receivers &receivers = blockingReceivers();
        const std::lock_guard<std::mutex> lock(receivers.mutex);
        std::copy_if(receivers.objects.begin(), receivers.objects.end(), std::back_inserter(here),
            [](QObject *receiver) { return receiver->thread() == QThread::currentThread(); });
    }
    // Outside the lock: an event may take the last copy of its arguments along. The objects of
    // this thread cannot go meanwhile. Only they are named: without a receiver the host's own
    // queued calls would go as well.
    for (QObject *receiver : here)
        QCoreApplication::removePostedEvents(receiver, QEvent::MetaCall);
}

bool dropCallsUntil(std::chrono::steady_clock::time_point deadline,
    const std::function<bool(std::chrono::milliseconds)> &wait)
{
    do {
        // The emission can reach the next receiver at any time: a matter of looking often.
        dropCallsToBlockingReceivers();
        if (wait(std::chrono::milliseconds(1)))
            return true;
    } while (std::chrono::steady_clock::now() < deadline);
    return false;
}

} // namespace kvx
