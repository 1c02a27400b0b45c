#include "MessagingFixture.h"

#include <QProcess>

// The broker's own Java client as the sender.

namespace kvx::test {

class JavaPublisher : public MessagingFixture {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(start()) << messager->errorString().toStdString();
        peer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        peer.start(QStringLiteral(KVX_PEER_JAVA),
            { QStringLiteral("-cp"), QStringLiteral(KVX_PEER_CLASSPATH), QStringLiteral("JmsPeer"),
                QString::fromStdString(broker().uri()), topic, topic + QStringLiteral(".back") });
        ASSERT_EQ(answer(), "connected");
    }

    void TearDown() override
    {
        peer.closeWriteChannel();
        EXPECT_TRUE(peer.waitForFinished(20000));
    }

    QByteArray answer()
    {
        while (!peer.canReadLine() && peer.waitForReadyRead(30000)) { }
        return peer.readLine().trimmed();
    }

    void order(const QByteArray &text)
    {
        peer.write(text + '\n');
        ASSERT_EQ(answer(), "ok") << text.toStdString();
    }

    void sendText(const QString &text)
    {
        QByteArray units;
        for (const QChar unit : text)
            units += QByteArray::number(unit.unicode(), 16).rightJustified(4, '0');
        order("text " + units);
    }

    QProcess peer;
};

TEST_F(JavaPublisher, textOfAnyCharactersArrives)
{
    Recorder recorder(messager.get());
    const QString texts[] = { QStringLiteral("plain"), QStringLiteral("Größe \u20ac \u4e2d"),
        QString::fromUtf8("\xF0\x9F\x98\x80 \xF4\x8F\xBF\xBF"),
        QStringLiteral("a") + QChar(0) + QStringLiteral("z") };
    int count = 0;
    for (const QString &text : texts) {
        sendText(QStringLiteral("{\"a\":\"%1\"}").arg(text));
        ASSERT_TRUE(recorder.waitFor(++count));
        EXPECT_EQ(recorder.at(count - 1).value(QStringLiteral("a")).toString(), text);
    }
}

TEST_F(JavaPublisher, compressedTextArrives)
{
    Recorder recorder(messager.get());
    order("compress on");
    const QString text(2000, QLatin1Char('x'));
    sendText(QStringLiteral("{\"a\":\"%1\"}").arg(text));
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_EQ(recorder.at(0).value(QStringLiteral("a")).toString(), text);
}

TEST_F(JavaPublisher, aTextMessageWithoutTextGivesAnEmptyObject)
{
    Recorder recorder(messager.get());
    order("null");
    ASSERT_TRUE(recorder.waitFor(1));
    EXPECT_EQ(recorder.at(0), QJsonObject());
}

TEST_F(JavaPublisher, otherKindsOfMessagesGiveOneErrorLineAndNoNotification)
{
    Recorder recorder(messager.get());
    for (const char *kind : { "bytes 16", "map", "stream", "object", "plain" }) {
        SCOPED_TRACE(kind);
        const int before = recorder.count();
        host.takeLog();
        testing::internal::CaptureStderr();
        order(kind);
        sendText(QStringLiteral("{\"n\":1}"));
        EXPECT_TRUE(recorder.waitFor(before + 1));
        const QString errors = QString::fromStdString(testing::internal::GetCapturedStderr());

        EXPECT_EQ(recorder.count(), before + 1);
        EXPECT_EQ(errors.count(QLatin1Char('\n')), 1) << errors.toStdString();
        EXPECT_TRUE(errors.startsWith(QLatin1String("Unsupported message type received: ")));
        EXPECT_TRUE(errors.contains(QLatin1String("Message"))) << errors.toStdString();
        int lines = 0;
        for (const LogRecord &record : host.takeLog()) {
            if (record.level == 40000) {
                ++lines;
                EXPECT_TRUE(record.text.startsWith(QLatin1String(
                    "Recv message from ActiveMQ, But is unsupported message type: name=")));
            }
        }
        EXPECT_EQ(lines, 2); // the network's log and the module's
    }
    EXPECT_EQ(messager->errorString(), QString());
}

} // namespace kvx::test
