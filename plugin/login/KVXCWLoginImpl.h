#pragma once

#include <KVXCollaboration/KVXCWLogin.h>
#include <QString>
#include <memory>
#include <vector>

class ServiceReply;

/// Login at the collaboration server. Writes the process's endpoint, keeps the current user and
/// starts and stops the registry's messager.
class KVXCWLoginImpl : public KVXCWLogin {
    Q_OBJECT
public:
    KVXCWLoginImpl();
    ~KVXCWLoginImpl() override;

    void searchServer(const QStringList &addresses, int port) override;
    QString serverVersion(const QString &host, int port) override;
    bool ping(const QString &host, int port) override;
    void setProxy(int type, const QString &host, int port, const QString &user,
        const QString &password) override;
    void setServer(const QString &host, const QString &port) override;
    void setServer(const QString &host, const QString &port, int proxyType,
        const QString &proxyHost, int proxyPort, const QString &proxyUser,
        const QString &proxyPassword) override;
    KVXErrorCode login(const QString &email, const QString &password, const QString &productType,
        const QString &version, const QString &serverApiVersion) override;
    int leftCount() const override;
    bool logout(const QString &email) override;
    KVXUser *currentUser() const override;
    void cancelSearch() override;
    QString companyAccount() const override;
    KVXErrorCode serverLogin(const QString &email, const QString &password,
        const QString &productType, const QString &version,
        const QString &serverApiVersion) override;

    /// The e-mail of the last successful login as it was typed; empty before it.
    const QString &loginEmail() const { return m_loginEmail; }

private:
    void acceptUser(const ServiceReply &reply, const QString &email, const QString &password);
    KVXErrorCode startMessager();

    KVXUser *m_currentUser = nullptr;
    int m_leftCount = 0;
    QString m_companyAccount;
    QString m_loginEmail;
    /// The users of all logins: hosts may still hold an earlier one.
    std::vector<std::unique_ptr<KVXUser>> m_users;
};
