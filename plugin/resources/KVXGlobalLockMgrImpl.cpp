#include "resources/KVXGlobalLockMgrImpl.h"

#include "frame/ServiceRequest.h"
#include "login/CurrentUser.h"

bool KVXGlobalLockMgrImpl::GlobalLock(int lockType, QString &lockedAuthorName,
    QString &lockedAuthorEmail, int autoUnlockTime, bool logoutUnlock, const QString &authorName,
    const QString &authorEmail)
{
    clearErrorInfo();
    const QString name = authorName.isEmpty() ? kvx::currentUserName() : authorName;
    const QString email = authorEmail.isEmpty() ? kvx::currentUserEmail() : authorEmail;
    const ServiceReply reply = ServiceRequest("GlobalLock")
                                   .set("lockType", lockType)
                                   .set("lockedAuthorName", name)
                                   .set("lockedAuthorEmail", email)
                                   .set("autoUnlockTime", autoUnlockTime)
                                   .set("logoutUnlock", logoutUnlock)
                                   .post();
    if (!reply.sent())
        return false;
    if (reply.carried()) {
        lockedAuthorName = reply.text("lockedAuthorName");
        lockedAuthorEmail = reply.text("lockedAuthorEmail");
        if (reply.ok())
            return true;
    }
    // Kept as is: after a failed exchange these are the caller's own texts.
    if (lockedAuthorName == name && lockedAuthorEmail == email)
        return true;
    noteRefusal(reply);
    return false;
}

bool KVXGlobalLockMgrImpl::GlobalUnlock(int lockType)
{
    clearErrorInfo();
    const ServiceReply reply = ServiceRequest("GlobalUnlock").set("lockType", lockType).post();
    if (reply.carried() && reply.ok())
        return true;
    noteRefusal(reply);
    return false;
}

void KVXGlobalLockMgrImpl::noteRefusal(const ServiceReply &reply)
{
    m_errorCode = reply.status();
    // Kept as is: the text stands under the key without characters, not under "error".
    m_errorText = reply.text("");
}
