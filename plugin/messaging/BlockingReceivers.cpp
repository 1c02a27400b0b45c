#include "messaging/BlockingReceivers.h"

#include <QCoreApplication>
#include <QEvent>
#include <QThread>
#include <algorithm>
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
    // Dropping an event runs no foreign code, so the lock may be held; it keeps the objects alive.
    Receivers &receivers = blockingReceivers();
    const std::lock_guard<std::mutex> lock(receivers.mutex);
    for (QObject *receiver : receivers.objects) {
        // Only these: without a receiver named, the host's own queued calls would go as well.
        if (receiver->thread() == QThread::currentThread())
            QCoreApplication::removePostedEvents(receiver, QEvent::MetaCall);
    }
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
