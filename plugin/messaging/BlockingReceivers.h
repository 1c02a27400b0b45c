#pragma once

#include <chrono>
#include <functional>

class QObject;

namespace kvx {

/// The objects of this module that receive notifications through a blocking queued connection: a
/// broker thread waits inside its emission until their slot has run. They enter themselves in
/// their constructor and leave in their destructor. Any thread.
void addBlockingReceiver(QObject *receiver);
void removeBlockingReceiver(QObject *receiver);

/// Drops the calls posted to those of them that live on the calling thread, which lets the
/// emitting thread go on. The thread that closes the broker connection must do so: it cannot run
/// the slots meanwhile, and the close waits for the emission.
void dropCallsToBlockingReceivers();

/// Does so again and again until wait, which waits for the given time at most, says that it has
/// come to an end. False when the deadline passed before.
bool dropCallsUntil(std::chrono::steady_clock::time_point deadline,
    const std::function<bool(std::chrono::milliseconds)> &wait);

} // namespace kvx
