#include "frame/KVXServerInfo.h"
#include "resources/KVXCWOCRImpl.h"
#include "support/FakeHost.h"

#include <KVXOCRSDK/KVXOCRClient.h>
#include <gtest/gtest.h>
#include <thread>

using namespace kvx::test;

namespace {

/// Notes what it is told and tells what the test says.
class RecordingClient : public KVXOCRClient {
public:
    ~RecordingClient() override
    {
        qDeleteAll(jobs);
        current = nullptr;
    }

    void setUrl(const QString &url) override { calls.append(QLatin1String("url ") + url); }
    void setWaitingInterval(int seconds) override
    {
        calls.append(QStringLiteral("interval %1").arg(seconds));
    }
    bool start(QList<KVXOCRParam *> list) override
    {
        calls.append(QStringLiteral("start %1").arg(list.size()));
        jobs += list;
        return verdict;
    }
    bool stop() override
    {
        calls.append(QStringLiteral("stop"));
        return verdict;
    }

    QStringList calls;
    QList<KVXOCRParam *> jobs;
    bool verdict = true;

    static RecordingClient *current;
};

RecordingClient *RecordingClient::current = nullptr;

struct Bridge : testing::Test {
    FakeHost host;
    std::unique_ptr<KVXCWOCR> ocr = std::make_unique<KVXCWOCRImpl>();
    RecordingClient &client = *RecordingClient::current;

    /// The path is shared with the element, so that its end can be seen.
    static KVXCWOCRParams *job(const QString &path)
    {
        return new KVXCWOCRParams { path, { QStringLiteral("deu") }, KVXOCRParam::Table, { 0, 2 } };
    }
    /// A text that nobody else holds a copy of, and that is no literal.
    static QString path(int number) { return QStringLiteral("/scans/%1.pdf").arg(number); }
};

} // namespace

KVXOCRClient *KVXOCRClient::create()
{
    RecordingClient::current = new RecordingClient;
    return RecordingClient::current;
}

TEST_F(Bridge, TheAddressIsTakenWhenItIsMadeAndStays)
{
    EXPECT_EQ(client.calls,
        QStringList(
            { QStringLiteral("url http://127.0.0.1:8090/kvx/ocr"), QStringLiteral("interval 0") }));
    KVXServerInfo::getInstance()->setHost(QStringLiteral("elsewhere"));
    ocr->recognize({});
    ocr->stop();
    EXPECT_EQ(
        client.calls.mid(2), QStringList({ QStringLiteral("start 0"), QStringLiteral("stop") }));
}

TEST_F(Bridge, EverySignalIsRelayedUnchanged)
{
    QStringList heard;
    QObject::connect(ocr.get(), &KVXCWOCR::pageOcred, ocr.get(),
        [&](const QString &file, int page, const QString &text) {
            heard.append(QStringLiteral("page %1 %2 %3").arg(file).arg(page).arg(text));
        });
    QObject::connect(ocr.get(), &KVXCWOCR::finished, ocr.get(),
        [&](const QString &file) { heard.append(QStringLiteral("finished %1").arg(file)); });
    QObject::connect(ocr.get(), &KVXCWOCR::error, ocr.get(),
        [&](const QString &file, int code, const QString &message) {
            heard.append(QStringLiteral("error %1 %2 %3").arg(file).arg(code).arg(message));
        });
    QObject::connect(ocr.get(), &KVXCWOCR::remainTime, ocr.get(),
        [&](int seconds) { heard.append(QStringLiteral("time %1").arg(seconds)); });
    emit client.pageOcred(path(1), 7, QStringLiteral("text"));
    emit client.error(path(2), 683, QStringLiteral("why"));
    emit client.waitingTime(42);
    emit client.finished(path(3));
    EXPECT_EQ(heard,
        QStringList({ QStringLiteral("page /scans/1.pdf 7 text"),
            QStringLiteral("error /scans/2.pdf 683 why"), QStringLiteral("time 42"),
            QStringLiteral("finished /scans/3.pdf") }));
}

TEST_F(Bridge, ASignalOfAnotherThreadArrivesOnTheHostsThread)
{
    const auto here = std::this_thread::get_id();
    bool arrivedHere = false;
    int seconds = 0;
    QObject::connect(ocr.get(), &KVXCWOCR::remainTime, ocr.get(), [&](int value) {
        arrivedHere = std::this_thread::get_id() == here;
        seconds = value;
    });
    std::thread([this] { emit client.waitingTime(5); }).join();
    EXPECT_EQ(seconds, 0);
    EXPECT_TRUE(waitUntil([&] { return seconds == 5; }));
    EXPECT_TRUE(arrivedHere);
}

TEST_F(Bridge, AJobIsHandedOnAsItIs)
{
    EXPECT_TRUE(ocr->recognize({ job(path(1)), job(path(2)) }));
    ASSERT_EQ(client.jobs.size(), 2);
    EXPECT_EQ(client.jobs[0]->filePath, path(1));
    EXPECT_EQ(client.jobs[1]->filePath, path(2));
    EXPECT_EQ(client.jobs[1]->languages, QStringList({ QStringLiteral("deu") }));
    EXPECT_EQ(client.jobs[1]->exportType, KVXOCRParam::Table);
    EXPECT_EQ(client.jobs[1]->pageIndexes, QList<int>({ 0, 2 }));
}

TEST_F(Bridge, AnEmptyListIsHandedOnToo)
{
    EXPECT_TRUE(ocr->recognize({}));
    EXPECT_EQ(client.calls.last(), QStringLiteral("start 0"));
}

TEST_F(Bridge, TheElementsAreFreedWhateverTheClientSays)
{
    for (const bool verdict : { true, false }) {
        client.verdict = verdict;
        const QString mine = path(verdict ? 1 : 2);
        EXPECT_EQ(ocr->recognize({ job(mine) }), verdict);
        EXPECT_FALSE(mine.isDetached()); // the client's job holds it
        qDeleteAll(client.jobs);
        client.jobs.clear();
        EXPECT_TRUE(mine.isDetached());
    }
}

TEST_F(Bridge, ANullElementBecomesANullJobAndTheOthersAreFreed)
{
    client.verdict = false;
    const QString mine = path(3);
    EXPECT_FALSE(ocr->recognize({ nullptr, job(mine), nullptr }));
    ASSERT_EQ(client.jobs.size(), 3);
    EXPECT_EQ(client.jobs[0], nullptr);
    EXPECT_EQ(client.jobs[1]->filePath, mine);
    EXPECT_EQ(client.jobs[2], nullptr);
    qDeleteAll(client.jobs);
    client.jobs.clear();
    EXPECT_TRUE(mine.isDetached());
}

TEST_F(Bridge, StopGivesTheClientsAnswer)
{
    EXPECT_TRUE(ocr->stop());
    client.verdict = false;
    EXPECT_FALSE(ocr->stop());
}

TEST_F(Bridge, TheClientEndsWithTheBridge)
{
    ocr.reset();
    EXPECT_EQ(RecordingClient::current, nullptr);
}

TEST_F(Bridge, WithoutAServerTheClientDecides)
{
    host.unconfigure();
    KVXCWOCRImpl bridge;
    EXPECT_TRUE(bridge.recognize({}));
    EXPECT_EQ(RecordingClient::current->calls.first(), QStringLiteral("url http://:/kvx/ocr"));
    RecordingClient::current = &client;
}
