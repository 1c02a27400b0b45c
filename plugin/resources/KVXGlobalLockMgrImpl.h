#pragma once

#include <KVXCollaboration/KVXGlobalLockMgr.h>

class ServiceReply;

/// Locks of the whole server. No lock is known or released here: expiry and logout are the
/// server's. Host thread. Without a server an operation returns false, sends nothing and leaves no
/// error.
class KVXGlobalLockMgrImpl : public KVXGlobalLockMgr {
    Q_OBJECT
public:
    using KVXGlobalLockMgr::KVXGlobalLockMgr;

    /// The holder texts change only when the exchange was carried. A refusal that names the author
    /// himself as holder is a success.
    bool GlobalLock(int lockType, QString &lockedAuthorName, QString &lockedAuthorEmail,
        int autoUnlockTime, bool logoutUnlock, const QString &authorName,
        const QString &authorEmail) override;
    bool GlobalUnlock(int lockType) override;

private:
    void noteRefusal(const ServiceReply &reply);
};
