#pragma once

#include <QReadWriteLock>
#include <atomic>
#include <thread>

namespace kvx {

/// The write lock of the project list. The thread that holds it passes through: a full
/// synchronisation and the closing of a project emit signals under it, and their receivers call
/// back into the list. It is free again when the outermost holder ends.
class ListLock {
public:
    /// Holds the lock for its own lifetime.
    class Writing {
    public:
        explicit Writing(ListLock &lock);
        ~Writing();
        Writing(const Writing &) = delete;
        Writing &operator=(const Writing &) = delete;

    private:
        ListLock &m_lock;
    };

    ListLock() = default;
    ListLock(const ListLock &) = delete;
    ListLock &operator=(const ListLock &) = delete;

private:
    QReadWriteLock m_lock;
    std::atomic<std::thread::id> m_owner {};
    int m_depth = 0; // the owner's
};

} // namespace kvx
