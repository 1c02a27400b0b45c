#pragma once

#include <KVXExport.h>
#include <QJsonObject>
#include <QObject>
#include <QString>

/// The broker connection of the process. start and stop: host thread. notify comes from broker
/// threads. The order of the virtual operations is binding.
class KVXCOLLABORATION_API KVXCWMessage : public QObject {
    Q_OBJECT
public:
    ~KVXCWMessage() override = default;

    /// Connects and listens; false after a broker error, told by errorString.
    virtual bool start() = 0;
    /// True when there was no connection or it is closed.
    virtual bool stop() = 0;
    virtual QString errorString() const = 0;

    void setBrokerURI(const QString &uri) { m_brokerURI = uri; }
    const QString &brokerURI() const { return m_brokerURI; }
    void setTopic(const QString &topic) { m_topic = topic; }
    const QString &topic() const { return m_topic; }
    /// Empty by default: clients connect without credentials.
    void setCredentials(const QString &userName, const QString &password)
    {
        m_userName = userName;
        m_password = password;
    }
    const QString &userName() const { return m_userName; }
    const QString &password() const { return m_password; }

Q_SIGNALS:
    /// One notification envelope: "notifymsg_type", "notifymsg_from", "notifymsg_to",
    /// "notifymsg_content".
    void notify(const QJsonObject &message);

private:
    QString m_brokerURI;
    QString m_userName;
    QString m_password;
    QString m_topic;
};
