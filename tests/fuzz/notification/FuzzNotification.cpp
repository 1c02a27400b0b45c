#include "../Require.h"
#include "FuzzedHost.h"
#include "JsonMutator.h"
#include "Messages.h"
#include "messaging/KVXCWMessageImpl.h"
#include "resources/KVXReportTemplateMgrImpl.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QCoreApplication>
#include <QJsonDocument>
#include <cstdint>
#include <thread>

using namespace kvx::test;
using namespace kvx::openwire;

namespace {

std::unique_ptr<PlainMessage> messageOf(const QByteArray &text)
{
    MessageData data;
    data.type = TextMessageType;
    const auto size = static_cast<std::uint32_t>(text.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        data.content += static_cast<char>(size >> shift & 0xff);
    data.content += text.toStdString();
    return makeReceived(data);
}

/// What the managers are answered when they ask on account of a message: what it tells.
QJsonArray repliesTo(const QJsonArray &messages)
{
    QJsonArray replies;
    for (const QJsonValue &message : messages) {
        QJsonObject reply = message[QStringLiteral("notifymsg_content")].toObject();
        reply.insert(QStringLiteral("statuscode"), 1);
        replies.append(reply);
    }
    return replies;
}

void receive(KVXCWMessageImpl &messager, const QList<QByteArray> &texts)
{
    std::atomic<bool> returned { false };
    std::thread dispatcher([&] {
        for (const QByteArray &text : texts)
            messager.onMessage(messageOf(text).get());
        returned = true;
    });
    require(waitUntil([&returned] { return returned.load(); }, 4000), "a notification is handled");
    dispatcher.join();
    QCoreApplication::processEvents();
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(
    std::uint8_t *data, std::size_t size, std::size_t maxSize, unsigned int seed)
{
    return mutateJson(data, size, maxSize, seed);
}

/// The text of a message, or an array of messages one after the other, from the broker's thread to
/// all managers that listen, with a project open.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QJsonArray messages = objectsOf(text);
    QList<QByteArray> texts;
    if (QJsonDocument::fromJson(text).isArray()) {
        for (const QJsonValue &message : messages)
            texts.append(QJsonDocument(message.toObject()).toJson(QJsonDocument::Compact));
    } else {
        texts.append(text);
    }
    auto owned = std::make_unique<KVXCWMessageImpl>();
    KVXCWMessageImpl &messager = *owned;
    FuzzedHost host(std::move(owned));
    KVXReportTemplateMgrImpl templates;
    host.network.setReplies(repliesTo(messages));
    receive(messager, texts);
    require(!host.list->isUpdating(), "every bracket is closed");
    host.list->closeProject(FuzzedHost::guid);
    return 0;
}
