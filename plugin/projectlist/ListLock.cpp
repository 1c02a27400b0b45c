#include "projectlist/ListLock.h"

namespace kvx {

ListLock::Writing::Writing(ListLock &lock)
    : m_lock(lock)
{
    // Only the owner itself can find its own identity here, so the test needs no further lock.
    if (m_lock.m_owner.load() != std::this_thread::get_id()) {
        m_lock.m_lock.lockForWrite();
        m_lock.m_owner.store(std::this_thread::get_id());
    }
    ++m_lock.m_depth;
}

ListLock::Writing::~Writing()
{
    if (--m_lock.m_depth > 0)
        return;
    m_lock.m_owner.store(std::thread::id());
    m_lock.m_lock.unlock();
}

} // namespace kvx
