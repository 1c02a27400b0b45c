#pragma once

#include <KVXCollaboration/KVXErrorCode.h>
#include <KVXExport.h>
#include <QObject>
#include <QString>
#include <QStringList>

class KVXUser;

/// Server address, login and the current user. Host thread; operations block while a request is
/// under way. The order of the virtual operations is binding.
class KVXCOLLABORATION_API KVXCWLogin : public QObject {
    Q_OBJECT
public:
    ~KVXCWLogin() override = default;

    /// Probes the addresses for a server; reports through searchServerProgress.
    virtual void searchServer(const QStringList &addresses, int port) = 0;
    /// API versions of the server there, joined by ","; empty when none answers.
    virtual QString serverVersion(const QString &host, int port) = 0;
    /// True when a server of this product answers there.
    virtual bool ping(const QString &host, int port) = 0;
    /// type is a KVXNetworkProxy::Type.
    virtual void setProxy(
        int type, const QString &host, int port, const QString &user, const QString &password)
        = 0;
    KVX_OVERLOADS2(virtual void setServer(const QString &host, const QString &port) = 0,
        virtual void setServer(const QString &host, const QString &port, int proxyType,
            const QString &proxyHost, int proxyPort, const QString &proxyUser,
            const QString &proxyPassword)
        = 0)
    /// Logs in and starts the messager. KVXOk; KVXAlreadyConnected when only the broker knows the
    /// user elsewhere; KVXFailed without a server or broker; else the server's refusal.
    virtual KVXErrorCode login(const QString &email, const QString &password,
        const QString &productType, const QString &version, const QString &serverApiVersion)
        = 0;
    /// Tries left after the last KVXLoginRefused.
    virtual int leftCount() const = 0;
    /// True when the server ended the session; then the messager is stopped.
    virtual bool logout(const QString &email) = 0;
    /// Null before the first successful login; afterwards the last user, also after a logout.
    /// Owned by the manager.
    virtual KVXUser *currentUser() const = 0;
    /// Ends a server search that runs on another thread.
    virtual void cancelSearch() = 0;
    virtual QString companyAccount() const = 0;
    /// The login without its closing log line.
    virtual KVXErrorCode serverLogin(const QString &email, const QString &password,
        const QString &productType, const QString &version, const QString &serverApiVersion)
        = 0;

Q_SIGNALS:
    void searchServerProgress(const QString &text, int done, int total);
};
