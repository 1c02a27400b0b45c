#include "MessagingFixture.h"

#include <QJsonDocument>
#include <QThread>

namespace kvx::test {

class Delivery : public MessagingFixture {
protected:
    /// The only notification that comes of this text.
    QJsonObject received(const std::string &text)
    {
        Recorder recorder(messager.get());
        publisher.send(text);
        EXPECT_TRUE(recorder.waitFor(1));
        return recorder.count() == 1 ? recorder.at(0) : QJsonObject();
    }

    /// The text of the only record; of the network's log at INFO.
    QString logged()
    {
        const QList<LogRecord> records = host.takeLog();
        EXPECT_EQ(records.size(), 1);
        if (records.isEmpty())
            return {};
        EXPECT_EQ(records[0].level, 20000);
        EXPECT_EQ(records[0].source, QStringLiteral("KVXNetworkLog.cpp"));
        return records[0].text;
    }

    void SetUp() override { ASSERT_TRUE(start()) << messager->errorString().toStdString(); }

    Publisher publisher { topic.toStdString() };
};

TEST_F(Delivery, aTextMessageBecomesANotification)
{
    const QJsonObject expected = json(R"({"notifymsg_type": "notifymsg_role",
        "notifymsg_from": "bernd@example.com", "notifymsg_to": "", "notifymsg_content": {"a": 1}})");
    EXPECT_EQ(received(QJsonDocument(expected).toJson().toStdString()), expected);
    EXPECT_EQ(logged(),
        QStringLiteral("Recv message from ActiveMQ: message=")
            + QString::fromUtf8(QJsonDocument(expected).toJson(QJsonDocument::Compact)));
}

TEST_F(Delivery, theNotificationComesFromABrokerThread)
{
    std::atomic<QThread *> thread { nullptr };
    Receiver receiver(messager.get(), Qt::DirectConnection,
        [&](const QJsonObject &) { thread = QThread::currentThread(); });
    publisher.send(message(1));
    ASSERT_TRUE(waitBlocked([&] { return thread != nullptr; }));
    EXPECT_NE(thread, QThread::currentThread());
}

TEST_F(Delivery, queuedAndBlockingReceiversRunOnTheHostThread)
{
    QList<QThread *> threads;
    const auto note = [&](const QJsonObject &) { threads.append(QThread::currentThread()); };
    Receiver blocking(messager.get(), Qt::BlockingQueuedConnection, note);
    Receiver queued(messager.get(), Qt::AutoConnection, note);
    publisher.send(message(1));
    ASSERT_TRUE(waitUntil([&] { return threads.size() == 2; }));
    EXPECT_EQ(threads, (QList<QThread *> { QThread::currentThread(), QThread::currentThread() }));
}

TEST_F(Delivery, aBlockingReceiverHoldsBackTheNextMessage)
{
    Recorder arrivals(messager.get());
    QList<int> handled;
    QList<int> arrivedMeanwhile;
    Receiver blocking(
        messager.get(), Qt::BlockingQueuedConnection, [&](const QJsonObject &message) {
            handled.append(message.value(QStringLiteral("n")).toInt());
            arrivedMeanwhile.append(arrivals.count());
        });
    for (int i = 1; i <= 20; ++i)
        publisher.send(message(i));
    ASSERT_TRUE(waitUntil([&] { return handled.size() == 20; }));
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(handled[i], i + 1);
        EXPECT_EQ(arrivedMeanwhile[i], i + 1);
    }
}

TEST_F(Delivery, aTextOf300CharactersIsLoggedWhole)
{
    const std::string text = R"({"a":")" + std::string(300 - 8, 'x') + R"("})";
    ASSERT_EQ(text.size(), 300U);
    received(text);
    EXPECT_EQ(logged().toStdString(), "Recv message from ActiveMQ: message=" + text);
}

TEST_F(Delivery, aTextOf301CharactersIsLoggedShortened)
{
    const std::string text = R"({"a":")" + std::string(301 - 8, 'x') + R"("})";
    ASSERT_EQ(text.size(), 301U);
    EXPECT_EQ(received(text).value(QStringLiteral("a")).toString().size(), 293);
    EXPECT_EQ(logged().toStdString(),
        "Recv message from ActiveMQ: message=" + text.substr(0, 300) + "...");
}

TEST_F(Delivery, charactersAreCountedNotBytes)
{
    const QString text = QStringLiteral("{\"a\":\"%1\"}").arg(QString(300 - 8, QChar(0xE9)));
    received(text.toStdString());
    EXPECT_FALSE(logged().endsWith(QLatin1String("...")));
}

TEST_F(Delivery, aPlaceholderInAMessageIsLoggedAsItIs)
{
    received(R"({"a":"%1 %2"})");
    EXPECT_EQ(logged(), QStringLiteral("Recv message from ActiveMQ: message={\"a\":\"%1 %2\"}"));
}

TEST_F(Delivery, textThatIsNoJsonObjectGivesAnEmptyOne)
{
    for (const char *text :
        { "", "no json", "[1,2]", "\"x\"", "7", "null", R"({"a":1)", R"({"a":1} x)", "\xFF\xFE" }) {
        SCOPED_TRACE(text);
        EXPECT_EQ(received(text), QJsonObject());
        EXPECT_EQ(logged(), QStringLiteral("Recv message from ActiveMQ: message={}"));
    }
}

TEST_F(Delivery, textNestedTooDeepGivesAnEmptyObject)
{
    const std::string deep = R"({"a":)" + std::string(100000, '[') + std::string(100000, ']') + '}';
    EXPECT_EQ(received(deep), QJsonObject());
}

TEST_F(Delivery, javasModifiedUtf8IsUnderstood)
{
    // A smile in two surrogates, a euro sign, NUL.
    const QJsonObject object
        = received("{\"a\":\"\xED\xA0\xBD\xED\xB8\x80 \xE2\x82\xAC \xC0\x80.\"}");
    const QString text = object.value(QStringLiteral("a")).toString();
    EXPECT_EQ(
        text, QString::fromUtf8("\xF0\x9F\x98\x80 \xE2\x82\xAC ") + QChar(0) + QLatin1Char('.'));
}

TEST_F(Delivery, plainUtf8IsUnderstood)
{
    EXPECT_EQ(received("{\"a\":\"\xF0\x9F\x98\x80\"}").value(QStringLiteral("a")).toString(),
        QString::fromUtf8("\xF0\x9F\x98\x80"));
}

TEST_F(Delivery, aLargeMessageArrivesWhole)
{
    const std::string filling(4 << 20, 'x');
    EXPECT_EQ(
        received(R"({"a":")" + filling + R"("})").value(QStringLiteral("a")).toString().size(),
        int(filling.size()));
}

TEST_F(Delivery, aMessageThatIsNoTextGivesOneErrorLineAndNoNotification)
{
    Recorder recorder(messager.get());
    testing::internal::CaptureStderr();
    publisher.sendPlain();
    publisher.send(message(2));
    ASSERT_TRUE(recorder.waitFor(1));
    const std::string errors = testing::internal::GetCapturedStderr();

    EXPECT_EQ(recorder.count(), 1);
    EXPECT_EQ(recorder.at(0).value(QStringLiteral("n")).toInt(), 2);
    const QList<LogRecord> records = host.takeLog();
    ASSERT_EQ(records.size(), 3);
    const QString line
        = QStringLiteral("Recv message from ActiveMQ, But is unsupported message type: name=");
    ASSERT_TRUE(records[0].text.startsWith(line)) << records[0].text.toStdString();
    const QString name = records[0].text.mid(line.size());
    EXPECT_TRUE(name.contains(QLatin1String("::"))) << name.toStdString(); // not mangled
    EXPECT_EQ(records[0].level, 40000);
    EXPECT_EQ(records[0].source, QStringLiteral("KVXNetworkLog.cpp"));
    EXPECT_EQ(records[1].text, line + name);
    EXPECT_EQ(records[1].level, 40000);
    EXPECT_EQ(records[1].source, QStringLiteral("KVXCWMessageImpl.cpp"));
    EXPECT_TRUE(records[1].function.contains(QLatin1String("KVXCWMessageImpl::")));
    EXPECT_EQ(errors, "Unsupported message type received: " + name.toStdString() + "\n");
}

} // namespace kvx::test
