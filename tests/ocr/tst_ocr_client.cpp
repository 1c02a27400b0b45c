#include "frame/KVXServerInfo.h"
#include "resources/KVXCWOCRImpl.h"
#include "support/DrawnPage.h"
#include "support/FakeHost.h"
#include "support/LoopbackServer.h"
#include "support/ServerProcess.h"

#include <KVXNetwork/KVXNetwork.h>
#include <KVXOCRSDK/KVXOCRClient.h>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <atomic>
#include <gtest/gtest.h>

using namespace kvx::test;

namespace {

constexpr int longest = 50'000;

/// The server that all cases share, with one worker, so that what comes first is known.
ServerProcess &server()
{
    static const auto shared = [] {
        ServerProcess::Options options;
        options.settings["ocr.workers"] = "1";
        options.settings["disk.reserve"] = "0B";
        return std::make_unique<ServerProcess>(options);
    }();
    return *shared;
}

QJsonObject ask(const QString &path, QJsonObject request)
{
    QJsonObject reply;
    KVXNetwork::getInstance()->post(
        QString::fromStdString(server().url()) + path, request, reply, nullptr, nullptr);
    return reply;
}

/// A user who is logged in, and a bridge for him.
struct OcrClient : testing::Test {
    QTemporaryDir folder;
    std::unique_ptr<KVXCWOCRImpl> ocr;
    QStringList story; ///< what came, in order
    int waits = 0; ///< how often a waiting time was told; the job is submitted then

    void SetUp() override
    {
        static int number = 0;
        const QString email = QStringLiteral("user%1@example.com").arg(++number);
        server().addUser(email.toStdString(), "User", "correct horse");
        const QJsonObject login = ask(QStringLiteral("/kvx/service"),
            { { QStringLiteral("service"), QStringLiteral("login") },
                { QStringLiteral("Email"), email },
                { QStringLiteral("Password"), QStringLiteral("correct horse") },
                { QStringLiteral("Version"), QStringLiteral("1.0") },
                { QStringLiteral("FingerPrint"), QStringLiteral("device") },
                { QStringLiteral("serverApiVersion"), QStringLiteral("1") },
                { QStringLiteral("productType"), QString() } });
        ASSERT_EQ(login.value(QLatin1String("statuscode")).toInt(), 1);
        KVXServerInfo::getInstance()->setHost(QStringLiteral("127.0.0.1"));
        KVXServerInfo::getInstance()->setPort(QString::number(server().port()));
        makeBridge();
    }

    void TearDown() override
    {
        ocr.reset();
        KVXNetwork::getInstance()->clearSession();
    }

    void makeBridge()
    {
        ocr = std::make_unique<KVXCWOCRImpl>();
        QObject::connect(ocr.get(), &KVXCWOCR::pageOcred, ocr.get(),
            [this, here = QThread::currentThread()](
                const QString &file, int page, const QString &text) {
                EXPECT_EQ(QThread::currentThread(), here);
                note(file, QStringLiteral("page %1: %2").arg(page).arg(text.simplified()));
            });
        QObject::connect(ocr.get(), &KVXCWOCR::finished, ocr.get(),
            [this](const QString &file) { note(file, QStringLiteral("finished")); });
        QObject::connect(ocr.get(), &KVXCWOCR::remainTime, ocr.get(), [this] { ++waits; });
        QObject::connect(ocr.get(), &KVXCWOCR::error, ocr.get(),
            [this](const QString &file, int code, const QString &message) {
                note(file, QStringLiteral("error %1: %2").arg(code).arg(message));
            });
    }

    void note(const QString &file, const QString &what)
    {
        story.append(file.section(QLatin1Char('/'), -1) + QLatin1Char(' ') + what);
    }

    QString put(const QString &name, const std::string &bytes) const
    {
        const QString path = folder.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes.data(), static_cast<qint64>(bytes.size()));
        return path;
    }

    static KVXCWOCRParams *job(const QString &path, int type = KVXOCRParam::Text,
        const QStringList &languages = { QStringLiteral("eng") }, const QList<int> &pages = {})
    {
        return new KVXCWOCRParams { path, languages, type, pages };
    }

    bool waitFor(const QString &line)
    {
        return waitUntil([&] { return story.contains(line); }, longest);
    }
};

} // namespace

TEST_F(OcrClient, DocumentsComeBackPageByPage)
{
    const QString pdf
        = put(QStringLiteral("two.pdf"), pdfOf({ smallPage("First"), smallPage("Second") }));
    const QString png = put(QStringLiteral("one.png"), pictureOf(smallPage("Third"), "png"));
    ASSERT_TRUE(ocr->recognize({ job(pdf), job(png) }));
    EXPECT_TRUE(waitFor(QStringLiteral("one.png finished")));
    EXPECT_EQ(story,
        QStringList({ QStringLiteral("two.pdf page 0: First"),
            QStringLiteral("two.pdf page 1: Second"), QStringLiteral("two.pdf finished"),
            QStringLiteral("one.png page 0: Third"), QStringLiteral("one.png finished") }));
}

TEST_F(OcrClient, TheBillComesBackAsATable)
{
    QString table;
    QObject::connect(ocr.get(), &KVXCWOCR::pageOcred, ocr.get(),
        [&](const QString &, int, const QString &text) { table = text; });
    const QString path = put(QStringLiteral("bill.png"), pictureOf(billPage(), "png"));
    ASSERT_TRUE(ocr->recognize({ job(path, KVXOCRParam::Table) }));
    EXPECT_TRUE(waitFor(QStringLiteral("bill.png finished")));
    EXPECT_TRUE(table.contains(
        QLatin1String("02.02.0010\tReinforced concrete C30/37\tm3\t312.25\t184.60\t57,641.35\n")))
        << table.toStdString();
}

TEST_F(OcrClient, ASearchablePdfLiesBesideItsSource)
{
    const QString path = put(QStringLiteral("scan.one.png"), pictureOf(smallPage(), "png"));
    ASSERT_TRUE(ocr->recognize({ job(path, KVXOCRParam::SearchablePdf) }));
    EXPECT_TRUE(waitFor(QStringLiteral("scan.one.png finished")));
    QFile document(folder.filePath(QStringLiteral("scan.one.ocr.pdf")));
    ASSERT_TRUE(document.open(QIODevice::ReadOnly));
    const std::string pdf = document.readAll().toStdString();
    EXPECT_EQ(pdfPages(pdf), 1);
    EXPECT_NE(pdfText(pdf, 0).find("Concrete"), std::string::npos);
}

TEST_F(OcrClient, WhatCannotBeDoneIsToldAndTheNextJobGoesOn)
{
    const QString text = put(QStringLiteral("a.txt"), "just text");
    const QString good = put(QStringLiteral("b.png"), pictureOf(smallPage("Fine"), "png"));
    const QString missing = folder.filePath(QStringLiteral("c.png"));
    ASSERT_TRUE(ocr->recognize(
        { job(text), job(missing), job(good, 0, { QStringLiteral("tlh") }), job(good) }));
    EXPECT_TRUE(waitFor(QStringLiteral("b.png finished")));
    EXPECT_EQ(story,
        QStringList({ QStringLiteral("a.txt error 680: The document cannot be read: it is neither "
                                     "PNG, JPEG, TIFF, BMP nor PDF."),
            QStringLiteral("c.png error 680: %1: there is no such file, or it cannot be read.")
                .arg(missing),
            QStringLiteral("b.png error 681: Recognition of \"tlh\" is not installed."),
            QStringLiteral("b.png page 0: Fine"), QStringLiteral("b.png finished") }));
}

TEST_F(OcrClient, APageThatFailsDoesNotEndTheJob)
{
    std::string tiff = tiffOf({ smallPage("First"), smallPage("Second") });
    // The first strip of packed bytes lies right behind the head.
    for (std::size_t i = 8; i < 200; ++i)
        tiff[i] = '\x55';
    const QString path = put(QStringLiteral("torn.tif"), tiff);
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_TRUE(waitFor(QStringLiteral("torn.tif finished")));
    ASSERT_EQ(story.size(), 3);
    EXPECT_TRUE(
        story[0].startsWith(QLatin1String("torn.tif error 683: Page 1 could not be recognised: ")))
        << story[0].toStdString();
    EXPECT_EQ(story[1], QStringLiteral("torn.tif page 1: Second"));
}

TEST_F(OcrClient, AJobWithoutAGoodPageEndsWithAnError)
{
    std::string png = pictureOf(smallPage(), "png");
    png.resize(png.size() / 2);
    const QString path = put(QStringLiteral("torn.png"), png);
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_TRUE(waitFor(QStringLiteral("torn.png error 680: The document cannot be read: none of "
                                       "its pages could be recognised.")));
    EXPECT_EQ(story.size(), 2) << story.join(QLatin1Char(' ')).toStdString();
}

TEST_F(OcrClient, NothingToDoIsDone)
{
    EXPECT_TRUE(ocr->recognize({}));
    EXPECT_TRUE(ocr->stop());
    EXPECT_TRUE(story.isEmpty());
}

TEST_F(OcrClient, ANullElementRefusesTheList)
{
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    EXPECT_FALSE(ocr->recognize({ job(path), nullptr }));
}

TEST_F(OcrClient, ASecondListIsRefusedWhileOneRuns)
{
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_FALSE(ocr->recognize({ job(path) }));
    EXPECT_FALSE(ocr->recognize({}));
    EXPECT_TRUE(waitFor(QStringLiteral("a.png finished")));
    EXPECT_TRUE(ocr->recognize({}));
}

TEST_F(OcrClient, WhoHearsOfTheEndMayStartAgain)
{
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    int ends = 0;
    QObject::connect(ocr.get(), &KVXCWOCR::finished, ocr.get(), [&] {
        if (++ends == 1) {
            EXPECT_TRUE(ocr->recognize({ job(path) }));
        }
    });
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_TRUE(waitUntil([&] { return ends == 2; }, longest));
}

TEST_F(OcrClient, StopEndsTheJobOnTheServerAndNothingComesAfter)
{
    const QString noise = put(QStringLiteral("noise.pdf"), noisePdf());
    ASSERT_TRUE(ocr->recognize({ job(noise) }));
    ASSERT_TRUE(waitUntil([&] { return waits > 0; }, longest));
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(ocr->stop());
    EXPECT_LT(timer.elapsed(), 5'000);
    EXPECT_TRUE(ocr->stop());
    // The one worker is free again.
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_TRUE(waitFor(QStringLiteral("a.png finished")));
    EXPECT_TRUE(story.filter(QStringLiteral("noise.pdf")).isEmpty());
}

TEST_F(OcrClient, TheBridgeMayGoWhileTheClientWorks)
{
    const QString noise = put(QStringLiteral("noise.pdf"), noisePdf());
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(ocr->recognize({ job(noise) }));
        const int before = waits;
        if (i > 0) {
            waitUntil([&] { return waits > before || !story.isEmpty(); }, longest);
        }
        QElapsedTimer timer;
        timer.start();
        ocr.reset();
        EXPECT_LT(timer.elapsed(), 5'000);
        makeBridge();
    }
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    // The server may still be ending what was given up.
    for (int i = 0; i < 100 && !story.contains(QStringLiteral("a.png finished")); ++i) {
        story.clear();
        ASSERT_TRUE(ocr->recognize({ job(path) }));
        ASSERT_TRUE(waitUntil([&] { return !story.isEmpty(); }, longest));
        waitUntil([&] { return story.contains(QStringLiteral("a.png finished")); },
            story.first().contains(QLatin1String("error")) ? 100 : longest);
    }
    EXPECT_TRUE(story.contains(QStringLiteral("a.png finished")));
}

TEST_F(OcrClient, TheBridgeMayGoInTheMiddleOfItsOwnSignal)
{
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    QObject context;
    bool gone = false;
    QObject::connect(ocr.get(), &KVXCWOCR::pageOcred, &context, [&] {
        ocr.release()->deleteLater();
        gone = true;
    });
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_TRUE(waitUntil([&] { return gone; }, longest));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    makeBridge();
}

TEST_F(OcrClient, AJobOutlivesARestartOfTheServer)
{
    const QString path = put(QStringLiteral("three.pdf"),
        pdfOf({ smallPage("First"), smallPage("Second"), smallPage("Third") }));
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    ASSERT_TRUE(waitUntil([&] { return waits > 0; }, longest));
    server().kill();
    server().start();
    EXPECT_TRUE(waitFor(QStringLiteral("three.pdf finished")));
    EXPECT_EQ(story.filter(QStringLiteral("page")).size(), 3)
        << story.join(QLatin1Char(' ')).toStdString();
}

TEST_F(OcrClient, WithoutASessionTheServersReasonIsTold)
{
    KVXNetwork::getInstance()->clearSession();
    const QString path = put(QStringLiteral("a.png"), pictureOf(smallPage(), "png"));
    ASSERT_TRUE(ocr->recognize({ job(path) }));
    EXPECT_TRUE(waitFor(QStringLiteral("a.png error 2: You are not logged in, or your session has "
                                       "ended. Please log in again.")));
}

TEST(OcrClientAlone, WithoutAServerItRefuses)
{
    const std::unique_ptr<KVXOCRClient> client(KVXOCRClient::create());
    QStringList languages;
    QList<int> pages;
    const auto job = [&] {
        return new KVXOCRParam(
            languages, KVXOCRParam::Text, pages, QStringLiteral("/nowhere/a.png"));
    };
    EXPECT_FALSE(client->start({ job() }));
    client->setUrl(QStringLiteral("http://:/kvx/ocr"));
    EXPECT_FALSE(client->start({ job() }));
}

TEST(OcrClientAlone, AnUploadThatHangsHoldsNobodyUp)
{
    std::atomic<bool> reached { false };
    LoopbackServer peer;
    peer.handleHead("/kvx/ocr", [&reached](const LoopbackServer::Request &, auto &connection) {
        reached = true;
        connection.wait(120'000);
        return true;
    });
    QTemporaryDir folder;
    const QString path = folder.filePath(QStringLiteral("a.png"));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("anything");
    file.close();
    const std::unique_ptr<KVXOCRClient> client(KVXOCRClient::create());
    client->setUrl(QString::fromStdString(peer.url("/kvx/ocr")));
    int errors = 0;
    QObject::connect(client.get(), &KVXOCRClient::error, client.get(), [&] { ++errors; });
    QStringList languages;
    QList<int> pages;
    ASSERT_TRUE(client->start({ new KVXOCRParam(languages, KVXOCRParam::Text, pages, path) }));
    ASSERT_TRUE(waitUntil([&] { return reached.load(); }));
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(client->stop()); // it ends by itself, or with the process
    EXPECT_LT(timer.elapsed(), 5'000);
    EXPECT_TRUE(client->stop());
    waitUntil([&] { return errors > 0; }, 200);
    EXPECT_EQ(errors, 0);
}
