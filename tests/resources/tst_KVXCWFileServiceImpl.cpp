#include "resources/KVXCWFileServiceImpl.h"

#include "frame/KVXServerInfo.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/KVXCWFileServiceProgress.h>
#include <QTemporaryDir>
#include <gtest/gtest.h>

namespace kvx::test {

class KVXCWFileServiceImplTest : public testing::Test {
protected:
    KVXCWFileServiceImplTest()
    {
        QFile file(local);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("content");
    }

    void answer(const char *reply)
    {
        for (const char *name : { "upload", "download", "hasupload" })
            host.network.answer(QLatin1String(name), json(reply));
    }

    /// Exactly this line, at INFO, from the file service's source; none for an empty text.
    void expectLog(const QString &text)
    {
        const QList<LogRecord> records = host.takeLog();
        ASSERT_EQ(records.size(), text.isEmpty() ? 0 : 1);
        for (const LogRecord &record : records) {
            EXPECT_EQ(record.level, 20000);
            EXPECT_EQ(record.text.toStdString(), text.toStdString());
            EXPECT_EQ(record.source.toStdString(), "KVXCWFileServiceImpl.cpp");
            EXPECT_TRUE(record.function.contains(QLatin1String("KVXCWFileServiceImpl::")));
        }
    }

    bool uploadProject(const QMap<QString, QVariant> &extra = {})
    {
        return service->upload(QStringLiteral("House %2"), QStringLiteral("{g1}"), local, extra);
    }
    bool uploadRequest(QJsonObject &request, bool withMd5)
    {
        return service->upload(
            QStringLiteral("ignored"), local, QStringLiteral("a.dat"), request, withMd5, &progress);
    }

    struct Progress : KVXCWFileServiceProgress {
        void setProgress(qint64, qint64) override { }
    };

    static constexpr const char *Md5 = "9a0364b9e99bb480dd25e1f0284c8555"; // of "content"

    FakeHost host;
    QTemporaryDir folder;
    const QString local = folder.filePath(QStringLiteral("p.kvxdb"));
    Progress progress;
    std::unique_ptr<KVXCWFileService> service = std::make_unique<KVXCWFileServiceImpl>();
};

TEST_F(KVXCWFileServiceImplTest, aRawDownloadFromAnAddressGoesToThatAddress)
{
    EXPECT_TRUE(service->download(
        QStringLiteral("http://x/y"), QStringLiteral("s"), QStringLiteral("l"), &progress));

    ASSERT_EQ(host.network.transfers.size(), 1);
    const FakeNetwork::Transfer &transfer = host.network.transfers[0];
    EXPECT_FALSE(transfer.upload);
    EXPECT_EQ(transfer.url, QStringLiteral("http://x/y"));
    EXPECT_EQ(transfer.serverFileName, QStringLiteral("s"));
    EXPECT_EQ(transfer.localFileName, QStringLiteral("l"));
    EXPECT_EQ(transfer.receiver, &progress);
    EXPECT_TRUE(transfer.progress == KVXCWFileServiceProgress::progress);
    expectLog(QStringLiteral("Download file. result=1, serverFileName=s, localFileName=l"));
}

TEST_F(KVXCWFileServiceImplTest, aRawDownloadGoesToTheConfiguredServer)
{
    host.network.transferResult = false;
    EXPECT_FALSE(service->download(QStringLiteral("s"), QStringLiteral("l"), nullptr));

    ASSERT_EQ(host.network.transfers.size(), 1);
    EXPECT_FALSE(host.network.transfers[0].upload);
    EXPECT_EQ(host.network.transfers[0].url, QStringLiteral("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(host.network.transfers[0].serverFileName, QStringLiteral("s"));
    EXPECT_EQ(host.network.transfers[0].localFileName, QStringLiteral("l"));
    EXPECT_EQ(host.network.transfers[0].receiver, nullptr);
    EXPECT_TRUE(host.network.transfers[0].progress == KVXCWFileServiceProgress::progress);
    expectLog(QStringLiteral("Download file. result=0, serverFileName=s, localFileName=l"));
}

TEST_F(KVXCWFileServiceImplTest, rawDownloadsAreMadeWithoutAServerConfigured)
{
    host.unconfigure();
    EXPECT_TRUE(service->download(QStringLiteral("s"), QStringLiteral("l"), nullptr));
    EXPECT_TRUE(service->download(
        QStringLiteral("http://x"), QStringLiteral("s"), QStringLiteral("l"), nullptr));

    ASSERT_EQ(host.network.transfers.size(), 2);
    EXPECT_EQ(host.network.transfers[0].url, QStringLiteral("http://:/kvx/service"));
    EXPECT_EQ(host.network.transfers[1].url, QStringLiteral("http://x"));
}

TEST_F(KVXCWFileServiceImplTest, aRawUploadGoesToTheConfiguredServer)
{
    for (const bool result : { true, false }) {
        host.network.transferResult = result;
        EXPECT_EQ(service->upload(QStringLiteral("l"), QStringLiteral("s"), &progress), result);
        expectLog(QStringLiteral("Upload file. result=%1, localFileName=l, serverFileName=s")
                      .arg(result ? 1 : 0));
    }
    ASSERT_EQ(host.network.transfers.size(), 2);
    const FakeNetwork::Transfer &transfer = host.network.transfers[0];
    EXPECT_TRUE(transfer.upload);
    EXPECT_EQ(transfer.url, QStringLiteral("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(transfer.serverFileName, QStringLiteral("s"));
    EXPECT_EQ(transfer.localFileName, QStringLiteral("l"));
    EXPECT_EQ(transfer.receiver, &progress);
    EXPECT_TRUE(transfer.progress == KVXCWFileServiceProgress::progress);
}

TEST_F(KVXCWFileServiceImplTest, aProjectDownloadNamesTheProjectFile)
{
    EXPECT_TRUE(service->download(
        QStringLiteral("House %2"), QStringLiteral("{g1}"), QStringLiteral("l.kvxdb")));

    EXPECT_EQ(host.network.takeRequest(),
        json(R"({"service": "download", "LocalFileName": "l.kvxdb", "FileName": "{g1}.KVX",
            "Name": "House %2", "ProjectGUID": "{g1}"})"));
    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://127.0.0.1:8090/kvx/service"));
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_TRUE(host.network.lastProgress() == nullptr);
    expectLog(QStringLiteral(
        "Download file. result=1, projectName=House %2, guid={g1}, localFileName=l.kvxdb"));
}

TEST_F(KVXCWFileServiceImplTest, aRefusedProjectDownloadIsLoggedWithResultZero)
{
    answer(R"({"statuscode": 310, "message": "no such project"})");
    EXPECT_FALSE(service->download(QStringLiteral("n"), QStringLiteral("g"), QStringLiteral("l")));
    expectLog(QStringLiteral("Download file. result=0, projectName=n, guid=g, localFileName=l"));
}

TEST_F(KVXCWFileServiceImplTest, aProjectUploadSendsEmailAndDigest)
{
    EXPECT_TRUE(uploadProject());

    QJsonObject expected = json(R"({"service": "upload", "FileName": "{g1}.KVX",
        "Name": "House %2", "Email": "anna@example.com", "ProjectGUID": "{g1}"})");
    expected.insert(QStringLiteral("LocalFileName"), local);
    expected.insert(QStringLiteral("md5"), QLatin1String(Md5));
    EXPECT_EQ(host.network.takeRequest(), expected);
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_TRUE(host.network.lastProgress() == nullptr);
    expectLog(
        QStringLiteral("Upload file. result=1, projectName=House %2, guid={g1}, projectFileName=")
        + local);
}

TEST_F(KVXCWFileServiceImplTest, aRefusedProjectUploadIsLoggedWithResultZero)
{
    answer(R"({"statuscode": 600})");
    EXPECT_FALSE(uploadProject());
    expectLog(
        QStringLiteral("Upload file. result=0, projectName=House %2, guid={g1}, projectFileName=")
        + local);
}

TEST_F(KVXCWFileServiceImplTest, extraKeysOfAProjectUploadReplaceTheOperationsOwn)
{
    EXPECT_TRUE(uploadProject({ { QStringLiteral("FileName"), QStringLiteral("other") },
        { QStringLiteral("service"), QStringLiteral("upload") }, { QStringLiteral("md5"), 5 },
        { QStringLiteral("LogVersion"), 7 }, { QStringLiteral("größe"), 1.5 },
        { QStringLiteral("Email"), QStringLiteral("ben@example.com") },
        { QStringLiteral("Final"), true } }));

    const QJsonObject request = host.network.takeRequest();
    EXPECT_EQ(request.value(QStringLiteral("FileName")), QStringLiteral("other"));
    EXPECT_EQ(request.value(QStringLiteral("Email")), QStringLiteral("ben@example.com"));
    EXPECT_EQ(request.value(QStringLiteral("md5")), QStringLiteral("5"));
    EXPECT_EQ(request.value(QStringLiteral("LogVersion")), QStringLiteral("7"));
    EXPECT_EQ(request.value(QStringLiteral("größe")), QStringLiteral("1.5"));
    EXPECT_EQ(request.value(QStringLiteral("Final")), QStringLiteral("true"));
    EXPECT_EQ(request.value(QStringLiteral("Name")), QStringLiteral("House %2"));
}

TEST_F(KVXCWFileServiceImplTest, anExtraKeyReplacesEvenTheService)
{
    EXPECT_TRUE(uploadProject({ { QStringLiteral("service"), QStringLiteral("stage") } }));
    EXPECT_EQ(host.network.takeServices(), QStringList { QStringLiteral("stage") });
}

TEST_F(KVXCWFileServiceImplTest, aRequestUploadAddsItsKeysToTheCallersObject)
{
    QJsonObject request = json(R"({"service": "x", "email": "y", "Kind": 3, "FileName": "z"})");
    EXPECT_TRUE(uploadRequest(request, true));

    QJsonObject expected = json(R"({"service": "upload", "FileName": "a.dat", "Kind": 3,
        "email": "anna@example.com"})");
    expected.insert(QStringLiteral("LocalFileName"), local);
    expected.insert(QStringLiteral("md5"), QLatin1String(Md5));
    EXPECT_EQ(host.network.takeRequest(), expected);
    EXPECT_EQ(request, expected);
    EXPECT_EQ(host.network.lastReceiver(), &progress);
    EXPECT_TRUE(host.network.lastProgress() == KVXCWFileServiceProgress::progress);
    expectLog(
        QStringLiteral("Upload file. result=1, localFileName=%1, serverFileName=a.dat").arg(local));
}

TEST_F(KVXCWFileServiceImplTest, aRequestUploadWithoutDigestLeavesTheCallersDigestAlone)
{
    QJsonObject without;
    uploadRequest(without, false);
    EXPECT_FALSE(host.network.takeRequest().contains(QStringLiteral("md5")));

    QJsonObject given = json(R"({"md5": "mine"})");
    uploadRequest(given, false);
    EXPECT_EQ(host.network.takeRequest().value(QStringLiteral("md5")), QStringLiteral("mine"));
}

TEST_F(KVXCWFileServiceImplTest, aRequestUploadIsMadeWithoutAServerConfigured)
{
    host.unconfigure();
    answer(R"({})");
    QJsonObject request;
    EXPECT_FALSE(uploadRequest(request, false));

    EXPECT_EQ(host.network.lastUrl(), QStringLiteral("http://:/kvx/service"));
    expectLog(
        QStringLiteral("Upload file. result=0, localFileName=%1, serverFileName=a.dat").arg(local));
}

TEST_F(KVXCWFileServiceImplTest, theUploadsSpellTheEmailKeyDifferently)
{
    uploadProject();
    const QJsonObject project = host.network.takeRequest();
    QJsonObject added;
    uploadRequest(added, false);
    const QJsonObject any = host.network.takeRequest();

    EXPECT_EQ(project.value(QStringLiteral("Email")), QStringLiteral("anna@example.com"));
    EXPECT_FALSE(project.contains(QStringLiteral("email")));
    EXPECT_EQ(any.value(QStringLiteral("email")), QStringLiteral("anna@example.com"));
    EXPECT_FALSE(any.contains(QStringLiteral("Email")));
}

TEST_F(KVXCWFileServiceImplTest, theExistenceQueryAsksByName)
{
    EXPECT_TRUE(service->hasUpload(local, QStringLiteral("a.dat"), false));

    EXPECT_EQ(host.network.takeRequest(), json(R"({"service": "hasupload", "FileName": "a.dat"})"));
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    expectLog(QString());
}

TEST_F(KVXCWFileServiceImplTest, theExistenceQueryAsksByContentWhereWanted)
{
    answer(R"({"statuscode": 606})");
    EXPECT_FALSE(service->hasUpload(local, QStringLiteral("a.dat"), true));

    QJsonObject expected = json(R"({"service": "hasupload", "FileName": "a.dat"})");
    expected.insert(QStringLiteral("md5"), QLatin1String(Md5));
    EXPECT_EQ(host.network.takeRequest(), expected);
    expectLog(QString());
}

TEST_F(KVXCWFileServiceImplTest, nothingIsSentOrLoggedWithoutAServerConfigured)
{
    host.unconfigure();
    EXPECT_FALSE(uploadProject());
    EXPECT_FALSE(service->download(QStringLiteral("n"), QStringLiteral("g"), QStringLiteral("l")));
    EXPECT_FALSE(service->upload(QStringLiteral("l"), QStringLiteral("s"), nullptr));
    EXPECT_FALSE(service->hasUpload(local, QStringLiteral("s"), true));

    expectNoRequest(host);
    EXPECT_TRUE(host.network.transfers.isEmpty());
    expectLog(QString());
}

TEST_F(KVXCWFileServiceImplTest, aFailedExchangeFailsAndIsLoggedWithResultZero)
{
    for (const char *name : { "upload", "download", "hasupload" })
        host.network.failPost(QLatin1String(name));

    EXPECT_FALSE(service->download(QStringLiteral("n"), QStringLiteral("g"), QStringLiteral("l")));
    expectLog(QStringLiteral("Download file. result=0, projectName=n, guid=g, localFileName=l"));

    QJsonObject request;
    EXPECT_FALSE(uploadRequest(request, false));
    expectLog(
        QStringLiteral("Upload file. result=0, localFileName=%1, serverFileName=a.dat").arg(local));

    EXPECT_FALSE(uploadProject());
    expectLog(
        QStringLiteral("Upload file. result=0, projectName=House %2, guid={g1}, projectFileName=")
        + local);

    EXPECT_FALSE(service->hasUpload(local, QStringLiteral("s"), true));
    expectLog(QString());
    EXPECT_EQ(host.network.postCount(), 4);
}

TEST_F(KVXCWFileServiceImplTest, aFailedDownloadLeavesTheFileThatWasThere)
{
    host.network.transferResult = false;
    host.network.failPost(QStringLiteral("download"));
    EXPECT_FALSE(
        service->download(QStringLiteral("http://x"), QStringLiteral("s"), local, &progress));
    EXPECT_FALSE(service->download(QStringLiteral("n"), QStringLiteral("g"), local));
    EXPECT_FALSE(service->download(QStringLiteral("s"), local, &progress));

    QFile file(local);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("content"));
}

TEST_F(KVXCWFileServiceImplTest, theStatusTruncates)
{
    const struct {
        const char *reply;
        bool ok;
    } cases[] = {
        { R"({"statuscode": 1.0})", true },
        { R"({"statuscode": 1.9})", true },
        { R"({"statuscode": 2})", false },
        { R"({"statuscode": 0.5})", false },
        { R"({"statuscode": "1"})", false },
        { R"({"statuscode": 1e300})", false },
        { R"({})", false },
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.reply);
        answer(one.reply);
        QJsonObject request;
        EXPECT_EQ(uploadProject(), one.ok);
        EXPECT_EQ(uploadRequest(request, false), one.ok);
        EXPECT_EQ(service->download(QStringLiteral("n"), QStringLiteral("g"), local), one.ok);
        EXPECT_EQ(service->hasUpload(local, QStringLiteral("s"), false), one.ok);
    }
}

TEST_F(KVXCWFileServiceImplTest, withoutAUserTheEmailIsEmpty)
{
    host.removeUser();
    uploadProject();
    EXPECT_EQ(host.network.takeRequest().value(QStringLiteral("Email")), QString());
}

TEST_F(KVXCWFileServiceImplTest, theDigestOfAMissingFileIsEmpty)
{
    service->upload(QStringLiteral("n"), QStringLiteral("g"), QStringLiteral("missing"), {});
    EXPECT_EQ(host.network.takeRequest().value(QStringLiteral("md5")), QString());
}

} // namespace kvx::test
