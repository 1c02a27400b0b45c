#include "messaging/BlockingReceivers.h"
#include "messaging/KVXCWMessageImpl.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <QCoreApplication>
#include <atomic>
#include <cms/Connection.h>
#include <cms/ConnectionFactory.h>
#include <cms/MessageProducer.h>
#include <cms/Session.h>
#include <cms/TextMessage.h>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

// A client of the broker in a process of its own: kvx_messaging_client <way> <port> <email>
// "hold" stays connected until it is killed; the other ways end while notifications are being
// delivered to a blocking receiver.

#if defined(__SANITIZE_THREAD__)
/// Ending with threads under way is what this process is for.
extern "C" const char *__tsan_default_options()
{
    return "report_thread_leaks=0";
}
#endif

namespace {

std::atomic<bool> delivering { false };
KVXCWMessageImpl *messager = nullptr; // of the registry; with "forget", of nobody

[[noreturn]] void fail(const QString &text)
{
    std::fprintf(stderr, "%s\n", qPrintable(text));
    std::_Exit(3);
}

void say(const char *text)
{
    std::puts(text);
    std::fflush(stdout);
}

void publish(const std::string &uri, const std::string &topic)
{
    const std::unique_ptr<cms::ConnectionFactory> factory(
        cms::ConnectionFactory::createCMSConnectionFactory(uri));
    const std::unique_ptr<cms::Connection> connection(factory->createConnection());
    const std::unique_ptr<cms::Session> session(connection->createSession());
    const std::unique_ptr<cms::Topic> destination(session->createTopic(topic));
    const std::unique_ptr<cms::MessageProducer> producer(
        session->createProducer(destination.get()));
    for (int i = 0; i < 50; ++i) {
        const std::unique_ptr<cms::Message> message(session->createTextMessage("{}"));
        producer->send(message.get());
    }
}

void onNotify(const QString &way)
{
    if (way == QLatin1String("exit-in-receiver")) {
        say("ending");
        std::exit(0);
    } else if (way == QLatin1String("quit-in-receiver")) {
        QCoreApplication::quit();
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 4)
        return 2;
    const QString way = arguments[1];
    const QString uri = QStringLiteral("tcp://127.0.0.1:") + arguments[2];
    const QString topic = QStringLiteral("kvx.test.") + arguments[3];

    auto *login = new kvx::test::FakeLogin;
    login->user = std::make_unique<KVXUser>(QStringLiteral("Anna"), arguments[3]);
    messager = new KVXCWMessageImpl;
    if (way != QLatin1String("forget"))
        KVXCollaborator::getInstance()->setMessager(messager);
    KVXCollaborator::getInstance()->setLoginManager(login);
    messager->setBrokerURI(uri);
    messager->setTopic(topic);
    if (!messager->start())
        fail(messager->errorString());

    QObject receiver;
    kvx::addBlockingReceiver(&receiver);
    // Without a receiver: called on the emitting thread, it must not go before the messager does.
    QObject::connect(
        messager, &KVXCWMessage::notify, [](const QJsonObject &) { delivering = true; });
    QObject::connect(
        messager, &KVXCWMessage::notify, &receiver, [way](const QJsonObject &) { onNotify(way); },
        Qt::BlockingQueuedConnection);

    if (way == QLatin1String("hold")) {
        say("ready");
        return application.exec();
    }
    std::thread(publish, uri.toStdString(), topic.toStdString()).join();
    if (way.endsWith(QLatin1String("-in-receiver"))) {
        application.exec();
    } else {
        while (!delivering)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    say("ending");
    kvx::removeBlockingReceiver(&receiver);
    if (way == QLatin1String("forget"))
        std::exit(0); // the receiver lives on, the dispatch thread waits for it for ever
    return 0;
}
