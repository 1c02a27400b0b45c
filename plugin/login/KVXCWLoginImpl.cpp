#include "login/KVXCWLoginImpl.h"

#include "frame/KVXServerInfo.h"
#include "frame/Log.h"
#include "frame/ServiceRequest.h"
#include "login/ComputerName.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <KVXCollaboration/KVXCollaborator.h>
#include <KVXCollaboration/KVXRole.h>
#include <KVXCollaboration/KVXUser.h>
#include <KVXNetwork/KVXNetwork.h>

namespace {

void reportSearch(void *receiver, const QString &text, int done, int total)
{
    emit static_cast<KVXCWLoginImpl *>(receiver)->searchServerProgress(text, done, total);
}

KVXUser::KVXUserVersion userVersion(int number)
{
    // A number outside the enumeration must not become a value of it.
    return number >= KVXUser::UnknownVersion && number <= KVXUser::Professional
        ? static_cast<KVXUser::KVXUserVersion>(number)
        : KVXUser::UnknownVersion;
}

} // namespace

KVXCWLoginImpl::KVXCWLoginImpl() = default;

KVXCWLoginImpl::~KVXCWLoginImpl() = default;

void KVXCWLoginImpl::searchServer(const QStringList &addresses, int port)
{
    KVXNetwork::getInstance()->searchServer(addresses, port, this, reportSearch);
}

QString KVXCWLoginImpl::serverVersion(const QString &host, int port)
{
    return KVXNetwork::getInstance()->serverVersion(host, port);
}

bool KVXCWLoginImpl::ping(const QString &host, int port)
{
    return KVXNetwork::getInstance()->ping(host, port);
}

void KVXCWLoginImpl::setProxy(
    int type, const QString &host, int port, const QString &user, const QString &password)
{
    KVXServerInfo::getInstance()->setProxy(type, host, port, user, password);
}

void KVXCWLoginImpl::setServer(const QString &host, const QString &port)
{
    KVXServerInfo *server = KVXServerInfo::getInstance();
    server->setHost(host);
    server->setPort(port);
}

void KVXCWLoginImpl::setServer(const QString &host, const QString &port, int proxyType,
    const QString &proxyHost, int proxyPort, const QString &proxyUser, const QString &proxyPassword)
{
    setServer(host, port);
    setProxy(proxyType, proxyHost, proxyPort, proxyUser, proxyPassword);
}

KVXErrorCode KVXCWLoginImpl::login(const QString &email, const QString &password,
    const QString &productType, const QString &version, const QString &serverApiVersion)
{
    const KVXErrorCode code = serverLogin(email, password, productType, version, serverApiVersion);
    if (code == KVXOk)
        KVX_INFO("KVX server login successed.");
    else
        KVX_ERROR("[login]server login failed!code:%1, msg:%2", int(code), ErrorCodeToString(code));
    return code;
}

int KVXCWLoginImpl::leftCount() const
{
    return m_leftCount;
}

bool KVXCWLoginImpl::logout(const QString &email)
{
    const ServiceReply reply = ServiceRequest("logout").set("Email", email).post();
    if (!reply.ok()) {
        KVX_WARN("User logout failed: username=%1", email);
        return false;
    }
    if (KVXCWMessage *messager = KVXCollaborator::getInstance()->messager())
        messager->stop();
    KVX_INFO("User logout successed: username=%1", email);
    return true;
}

KVXUser *KVXCWLoginImpl::currentUser() const
{
    return m_currentUser;
}

void KVXCWLoginImpl::cancelSearch()
{
    KVXNetwork::getInstance()->cancelSearch();
}

QString KVXCWLoginImpl::companyAccount() const
{
    return m_companyAccount;
}

KVXErrorCode KVXCWLoginImpl::serverLogin(const QString &email, const QString &password,
    const QString &productType, const QString &version, const QString &serverApiVersion)
{
    const ServiceReply reply = ServiceRequest("login")
                                   .set("Email", email.toLower())
                                   .set("Password", password)
                                   .set("Version", version)
                                   .set("FingerPrint", kvx::computerName())
                                   .set("serverApiVersion", serverApiVersion)
                                   .set("productType", productType)
                                   .post();
    if (reply.ok()) {
        acceptUser(reply, email, password);
        return startMessager();
    }
    if (reply.status() == KVXLoginRefused)
        m_leftCount = reply.integer("leftcount");
    return static_cast<KVXErrorCode>(reply.status());
}

void KVXCWLoginImpl::acceptUser(
    const ServiceReply &reply, const QString &email, const QString &password)
{
    auto user = std::make_unique<KVXUser>(reply.text("Name"), reply.text("Email"));
    user->setPassword(password);
    user->setVersion(userVersion(reply.integer("UserProductVersion")));
    user->setRole(KVXRole::fromJson(reply["Role"].toObject()));
    m_currentUser = user.get();
    m_users.push_back(std::move(user));

    m_companyAccount = reply.text("companyAccount");
    m_loginEmail = email;
    const QString brokerPort = reply.text("BrokerPort");
    if (!brokerPort.isEmpty())
        KVXServerInfo::getInstance()->setBrokerPort(brokerPort);
}

KVXErrorCode KVXCWLoginImpl::startMessager()
{
    KVXCWMessage *messager = KVXCollaborator::getInstance()->messager();
    if (!messager)
        return KVXFailed;
    messager->setBrokerURI(KVXServerInfo::getInstance()->brokerUrl());
    messager->setTopic(QStringLiteral("com.orvane.kvx"));
    if (messager->start())
        return KVXOk;
    const QString error = messager->errorString();
    KVX_ERROR("[login]start messager failed! message:%1", error);
    return error.contains(QLatin1String("already connected")) ? KVXAlreadyConnected : KVXFailed;
}
