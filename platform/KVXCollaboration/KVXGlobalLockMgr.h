#pragma once

#include <KVXExport.h>
#include <QObject>
#include <QString>

/// Locks of the whole server, one of each type. Host thread. The order of the virtual operations
/// is binding.
class KVXCOLLABORATION_API KVXGlobalLockMgr : public QObject {
    Q_OBJECT
public:
    explicit KVXGlobalLockMgr(QObject *parent = nullptr)
        : QObject(parent)
    {
    }
    ~KVXGlobalLockMgr() override = default;

    /// Takes the lock for the author (empty: the current user) for autoUnlockTime minutes.
    /// The two holder texts name who holds it now.
    virtual bool GlobalLock(int lockType, QString &lockedAuthorName, QString &lockedAuthorEmail,
        int autoUnlockTime, bool logoutUnlock, const QString &authorName,
        const QString &authorEmail)
        = 0;
    virtual bool GlobalUnlock(int lockType) = 0;

    /// Of the last operation; 0 and empty after a success.
    int errorCode() const { return m_errorCode; }
    const QString &errorText() const { return m_errorText; }
    void clearErrorInfo()
    {
        m_errorCode = 0;
        m_errorText.clear();
    }

protected:
    int m_errorCode = 0;
    QString m_errorText;
};
