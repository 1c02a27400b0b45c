#pragma once

#include "projectdata/ProjectFixture.h"
#include "projectlist/KVXCWProjectListImpl.h"
#include "users/KVXCWUserImpl.h"

#include <KVXCollaboration/KVXCWMessage.h>
#include <QJsonArray>
#include <functional>

namespace kvx::test {

/// A transport that gives the replies of a list in turn, as often as one operation may ask; then
/// the server cannot be reached. An operation that has no end of its own shows as a lost server.
class ReplyList : public FakeNetwork {
public:
    void setReplies(const QJsonArray &replies);
    bool post(const QString &url, const QJsonObject &request, QJsonObject &reply, void *receiver,
        ProgressFunction progress) override;

private:
    QJsonArray m_replies;
    int m_asked = 0;
};

/// A host with every manager that reads what comes from the network, filled by an honest server,
/// and one project open: "{11111111-1111-1111-1111-111111111111}", version 3. Made anew for each
/// input, so that a finding needs no other input than its own.
class FuzzedHost {
public:
    /// The messager is given to the registry; null: one without a broker.
    explicit FuzzedHost(std::unique_ptr<KVXCWMessage> messager = nullptr);
    ~FuzzedHost();

    static const QString guid;
    FakeDatabase database;
    FakeInfo info;
    FakeHost host;
    ReplyList network;
    KVXCWProjectListImpl *list = nullptr; // owned by the registry, as the others
    KVXCWUserImpl *users = nullptr;
    QPointer<KVXCWProjectDataImpl> projectData;
    QPointer<KVXCWIDManagerImpl> items;
    KVXCWMessage *messager = nullptr;

    /// A file of this process that may be sent and replaced.
    QString localFile() const;
};

/// The objects of a JSON array, or the one object; an empty object for anything else.
QJsonArray objectsOf(const QByteArray &text);

} // namespace kvx::test
