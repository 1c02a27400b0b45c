#include "TemplateFixture.h"
#include "frame/KVXServerInfo.h"

#include <QJsonArray>
#include <functional>

using namespace kvx::test;

namespace {

class ReportTemplates : public TemplateTest {
protected:
    KVXTemplateInfo newInfo() const
    {
        KVXTemplateInfo info;
        info.name = QStringLiteral("Bill");
        info.type = 3;
        info.projectVersion = QStringLiteral("2026.1");
        return info;
    }
};

} // namespace

TEST_F(ReportTemplates, anUploadSendsTheInfoAndTheEncodedContent)
{
    KVXTemplateInfo info = newInfo();
    info.author = QStringLiteral("Ben Ito");
    info.authorEmail = QStringLiteral("ben@example.com");
    EXPECT_TRUE(templates.uploadTemplate(info, { { QStringLiteral("a"), 1 } }));
    // "{\n    \"a\": 1\n}\n", indented as the designer writes it.
    expectJson(host.network.takeRequest(), R"({"service":"reportTemplateUpload","name":"Bill",
        "type":3,"projectVersion":"2026.1","template":"ewogICAgImEiOiAxCn0K",
        "author":"Ben Ito","authorEmail":"ben@example.com"})");
    EXPECT_EQ(host.network.lastUrl().toStdString(), "http://127.0.0.1:8090/kvx/service");
    EXPECT_EQ(host.network.lastReceiver(), nullptr);
    EXPECT_EQ(host.network.lastProgress(), nullptr);
}

TEST_F(ReportTemplates, anUploadFillsAnEmptyAuthorAndAnEmptyEmailEachForItself)
{
    const auto authorOf = [this](const char *name, const char *email) {
        KVXTemplateInfo info = newInfo();
        info.author = QString::fromUtf8(name);
        info.authorEmail = QString::fromUtf8(email);
        templates.uploadTemplate(info, {});
        const QJsonObject request = host.network.takeRequest();
        EXPECT_EQ(request.value(QLatin1String("author")), QJsonValue(info.author));
        EXPECT_EQ(request.value(QLatin1String("authorEmail")), QJsonValue(info.authorEmail));
        return info.author.toStdString() + '|' + info.authorEmail.toStdString();
    };
    EXPECT_EQ(authorOf("", ""), "Anna Weiss|anna@example.com");
    EXPECT_EQ(authorOf("Ben Ito", ""), "Ben Ito|anna@example.com");
    EXPECT_EQ(authorOf("", "ben@example.com"), "Anna Weiss|ben@example.com");
    EXPECT_EQ(authorOf("Ben Ito", "ben@example.com"), "Ben Ito|ben@example.com");
    host.removeUser();
    EXPECT_EQ(authorOf("", ""), "|");
}

TEST_F(ReportTemplates, anUploadTakesIdentityDigestAndDatesFromTheReply)
{
    answer(R"({"statuscode":1,"templateID":"t9","md5":"d9","createDate":"c9",
        "lastModifyDate":"m9","name":"not read","type":99,"author":"not read"})");
    KVXTemplateInfo info = newInfo();
    EXPECT_TRUE(templates.uploadTemplate(info, {}));
    EXPECT_EQ(fields(info), "t9|3|Bill|Anna Weiss|anna@example.com|2026.1|d9|c9|m9");
}

TEST_F(ReportTemplates, anUploadWhoseReplyLacksThemEmptiesThem)
{
    answer(R"({"statuscode":1,"md5":5})");
    KVXTemplateInfo info = infoFromServer();
    EXPECT_TRUE(templates.uploadTemplate(info, {}));
    EXPECT_EQ(fields(info), "|3|Übersicht %1|Ben Ito|ben@example.com|2026.1|||");
}

TEST_F(ReportTemplates, aRefusedUploadKeepsTheAuthorThatWasFilledInAndNothingElse)
{
    answer(R"({"statuscode":641,"templateID":"t9","md5":"d9","":"taken"})");
    KVXTemplateInfo info = newInfo();
    EXPECT_FALSE(templates.uploadTemplate(info, {}));
    EXPECT_EQ(fields(info), "|3|Bill|Anna Weiss|anna@example.com|2026.1|||");
    expectError(641, "taken");
}

TEST_F(ReportTemplates, aDownloadDecodesTheTemplate)
{
    answer(R"({"statuscode":1,"template":"ewogICAgImEiOiAxCn0K"})");
    QJsonObject content;
    EXPECT_TRUE(templates.downloadTemplate(id, content));
    expectJson(content, R"({"a":1})");
    expectJson(
        host.network.takeRequest(), R"({"service":"reportTemplateDownload","templateID":"t1"})");
}

TEST_F(ReportTemplates, aRefusedDownloadLeavesAnEmptyObject)
{
    answer(R"({"statuscode":640,"template":"e30=","":"There is no such report template."})");
    QJsonObject content { { QStringLiteral("old"), 1 } };
    EXPECT_FALSE(templates.downloadTemplate(id, content));
    EXPECT_TRUE(content.isEmpty());
    expectError(640, "There is no such report template.");
}

TEST_F(ReportTemplates, aTemplateThatCannotBeReadIsAnEmptyObjectAndASuccess)
{
    for (const char *base64 : { "", "!!!", "e30", "bm90IGpzb24=", // "not json"
             "WzEsMl0=", // [1,2]
             "NQ==", // 5
             "ewogICAgImEiOiA=" }) { // cut
        answer(QJsonObject { { QStringLiteral("statuscode"), 1 },
            { QStringLiteral("template"), QLatin1String(base64) } });
        QJsonObject content { { QStringLiteral("old"), 1 } };
        EXPECT_TRUE(templates.downloadTemplate(id, content)) << base64;
        EXPECT_TRUE(content.isEmpty()) << base64;
        expectError(0, "");
    }
    for (const char *reply : { R"({"statuscode":1})", R"({"statuscode":1,"template":{"a":1}})" }) {
        answer(reply);
        QJsonObject content;
        EXPECT_TRUE(templates.downloadTemplate(id, content)) << reply;
        EXPECT_TRUE(content.isEmpty()) << reply;
    }
}

TEST_F(ReportTemplates, contentComesBackAsItWasSent)
{
    const QJsonObject small = json(R"({"":"empty key","Größe":"äöü€ 😀 \u0000 \" \\ \n",
        "n":-1.5e300,"big":9007199254740991,"deep":[[[{"x":[null,true,false]}]]],"e":{}})");
    QJsonArray rows;
    const QString row = QString(1000, QChar(0x00e9));
    for (int i = 0; i < 5 * 1024; ++i)
        rows.append(row);
    const QJsonObject large { { QStringLiteral("rows"), rows } }; // above 5 MB
    for (const QJsonObject &content : { small, large, QJsonObject() }) {
        KVXTemplateInfo info = newInfo();
        EXPECT_TRUE(templates.uploadTemplate(info, content));
        QJsonObject reply { { QStringLiteral("statuscode"), 1 } };
        reply.insert(QStringLiteral("template"),
            host.network.takeRequest().value(QLatin1String("template")));
        answer(reply);
        QJsonObject back;
        EXPECT_TRUE(templates.downloadTemplate(id, back));
        host.network.takeRequests();
        EXPECT_TRUE(back == content);
    }
}

TEST_F(ReportTemplates, aQueryReadsAllFieldsInTheOrderOfTheArray)
{
    const std::string reply = R"({"statuscode":1,"reportTemplateArray":[)" + std::string(infoText)
        + R"(,{},{"type":2.5,"name":7},5,{"templateID":"t2","type":-4}]})";
    answer(reply.c_str());
    QList<KVXTemplateInfo> list { infoFromServer(), infoFromServer() };
    EXPECT_TRUE(templates.queryTemplates(list));
    expectJson(host.network.takeRequest(), R"({"service":"reportTemplateQuery"})");
    ASSERT_EQ(list.size(), 5);
    EXPECT_EQ(fields(list[0]), infoFields);
    EXPECT_EQ(fields(list[1]), "|0|||||||");
    EXPECT_EQ(fields(list[2]), "|0|||||||");
    EXPECT_EQ(fields(list[3]), "|0|||||||");
    EXPECT_EQ(fields(list[4]), "t2|-4|||||||");
}

TEST_F(ReportTemplates, aQueryWithoutTemplatesIsAnEmptyListAndASuccess)
{
    for (const char *reply : { R"({"statuscode":1,"reportTemplateArray":[]})",
             R"({"statuscode":1})", R"({"statuscode":1,"reportTemplateArray":{}})" }) {
        answer(reply);
        QList<KVXTemplateInfo> list { infoFromServer() };
        EXPECT_TRUE(templates.queryTemplates(list)) << reply;
        EXPECT_TRUE(list.isEmpty()) << reply;
    }
}

TEST_F(ReportTemplates, aFailedQueryEmptiesTheListToo)
{
    answer(R"({"statuscode":2,"reportTemplateArray":[{}],"":"not logged in"})");
    QList<KVXTemplateInfo> list { infoFromServer() };
    EXPECT_FALSE(templates.queryTemplates(list));
    EXPECT_TRUE(list.isEmpty());
    expectError(2, "not logged in");

    host.unconfigure();
    list = { infoFromServer() };
    EXPECT_FALSE(templates.queryTemplates(list));
    EXPECT_TRUE(list.isEmpty());
}

TEST_F(ReportTemplates, aDeletionSendsTheIdentifiersInTheirOrder)
{
    EXPECT_TRUE(templates.deleteTemplates({ QStringLiteral("t2"), QStringLiteral("t1") }));
    expectJson(host.network.takeRequest(),
        R"({"service":"reportTemplateDelete","templateIDArray":["t2","t1"]})");
    answer(R"({"statuscode":300,"":"no right"})");
    EXPECT_FALSE(templates.deleteTemplates({ id }));
    expectError(300, "no right");
}

TEST_F(ReportTemplates, aDeletionOfNothingIsSentAllTheSame)
{
    EXPECT_TRUE(templates.deleteTemplates({}));
    expectJson(
        host.network.takeRequest(), R"({"service":"reportTemplateDelete","templateIDArray":[]})");
}

TEST_F(ReportTemplates, theDeletionOfOneIsADeletionOfAListThroughTheVirtualOperation)
{
    EXPECT_TRUE(templates.deleteTemplate(id));
    expectJson(host.network.takeRequest(),
        R"({"service":"reportTemplateDelete","templateIDArray":["t1"]})");

    struct Counting : KVXReportTemplateMgrImpl {
        QStringList deleted;
        bool deleteTemplates(const QStringList &templateIDs) override
        {
            deleted += templateIDs;
            return false;
        }
    } counting;
    EXPECT_FALSE(counting.deleteTemplate(id));
    EXPECT_EQ(counting.deleted, QStringList { id });
    expectNoRequest(host);
}

TEST_F(ReportTemplates, aRenamingSendsIdentifierAndName)
{
    EXPECT_TRUE(templates.renameTemplate(id, QStringLiteral("Neu")));
    expectJson(host.network.takeRequest(),
        R"({"service":"reportTemplateRename","templateID":"t1","name":"Neu"})");
    answer(R"({"statuscode":641,"":"taken"})");
    EXPECT_FALSE(templates.renameTemplate(id, QStringLiteral("Neu")));
    expectError(641, "taken");
}

TEST_F(ReportTemplates, anExistingTemplateIsDescribed)
{
    answer(QJsonObject { { QStringLiteral("statuscode"), 1 },
        { QStringLiteral("reportTemplateInfo"), infoObject() } });
    bool exists = false;
    KVXTemplateInfo info;
    EXPECT_TRUE(templates.templateExist(QStringLiteral("Übersicht %1"), exists, info));
    EXPECT_TRUE(exists);
    EXPECT_EQ(fields(info), infoFields);
    expectJson(
        host.network.takeRequest(), R"({"service":"reportTemplateExist","name":"Übersicht %1"})");

    exists = false;
    info = {};
    EXPECT_TRUE(templates.templateExistByID(id, exists, info));
    EXPECT_TRUE(exists);
    EXPECT_EQ(fields(info), infoFields);
    expectJson(
        host.network.takeRequest(), R"({"service":"reportTemplateExistByID","templateID":"t1"})");
    expectError(0, "");
}

TEST_F(ReportTemplates, aMissingTemplateIsToldByTheStatusWhileTheCallReturnsTrue)
{
    answer(R"({"statuscode":640,"reportTemplateInfo":{"templateID":"t9"},"":"none"})");
    for (const bool byId : { false, true }) {
        bool exists = true;
        KVXTemplateInfo info = infoFromServer();
        EXPECT_TRUE(byId ? templates.templateExistByID(id, exists, info)
                         : templates.templateExist(id, exists, info));
        EXPECT_FALSE(exists);
        EXPECT_EQ(fields(info), infoFields);
        expectError(640, "none");
    }
}

TEST_F(ReportTemplates, aFailedExchangeReadsAsAMissingTemplate)
{
    host.network.failPost(QStringLiteral("reportTemplateExist"));
    bool exists = true;
    KVXTemplateInfo info;
    EXPECT_TRUE(templates.templateExist(id, exists, info));
    EXPECT_FALSE(exists);
    expectError(0, "");
}

TEST_F(ReportTemplates, aSuccessNeedsTheExchangeAndTheStatus)
{
    const auto tryAll = [this](const char *reply, bool carried) {
        for (const char *service : services) {
            host.network.handle(
                QLatin1String(service), [reply, carried](const QJsonObject &, QJsonObject &out) {
                    out = json(reply);
                    return carried;
                });
        }
        KVXTemplateInfo info;
        QJsonObject content;
        QList<KVXTemplateInfo> list;
        const bool results[]
            = { templates.uploadTemplate(info, {}), templates.downloadTemplate(id, content),
                  templates.queryTemplates(list), templates.deleteTemplates({ id }),
                  templates.deleteTemplate(id), templates.renameTemplate(id, id) };
        for (const bool result : results)
            EXPECT_EQ(result, results[0]) << reply;
        return results[0];
    };
    EXPECT_TRUE(tryAll(R"({"statuscode":1})", true));
    EXPECT_TRUE(tryAll(R"({"statuscode":1.9})", true));
    EXPECT_FALSE(tryAll(R"({"statuscode":0.9})", true));
    EXPECT_FALSE(tryAll(R"({"statuscode":2})", true));
    EXPECT_FALSE(tryAll(R"({"statuscode":"1"})", true));
    EXPECT_FALSE(tryAll("{}", true));
    EXPECT_FALSE(tryAll(R"({"statuscode":1})", false));
    expectError(1, "");
    EXPECT_FALSE(tryAll(R"({"statuscode":642.7,"":"bad"})", false));
    expectError(642, "bad");
    EXPECT_FALSE(tryAll("{}", false));
    expectError(0, "");
}

TEST_F(ReportTemplates, theErrorTextStandsUnderTheEmptyKeyOnly)
{
    answer(R"({"statuscode":640,"error":"NoSuchTemplate","message":"not read"})");
    EXPECT_FALSE(templates.deleteTemplate(id));
    expectError(640, "");
    answer(R"({"statuscode":640,"":{"text":"x"}})");
    EXPECT_FALSE(templates.deleteTemplate(id));
    expectError(640, "");
}

TEST_F(ReportTemplates, eachOperationForgetsTheLastErrorAndWithoutAServerSendsNothing)
{
    bool exists = true;
    KVXTemplateInfo info = newInfo();
    QJsonObject content;
    QList<KVXTemplateInfo> list;
    const std::function<bool()> operations[] = {
        [&] { return templates.uploadTemplate(info, {}); },
        [&] { return templates.downloadTemplate(id, content); },
        [&] { return templates.queryTemplates(list); },
        [&] { return templates.deleteTemplates({ id }); },
        [&] { return templates.deleteTemplate(id); },
        [&] { return templates.renameTemplate(id, id); },
        [&] { return templates.templateExist(id, exists, info); },
        [&] { return templates.templateExistByID(id, exists, info); },
    };
    for (const auto &operation : operations) {
        host.network.answer(
            QStringLiteral("reportTemplateDelete"), json(R"({"statuscode":300,"":"no right"})"));
        KVXServerInfo::getInstance()->setHost(QStringLiteral("127.0.0.1"));
        KVXServerInfo::getInstance()->setPort(QStringLiteral("8090"));
        EXPECT_FALSE(templates.deleteTemplate(id));
        expectError(300, "no right");
        host.unconfigure();
        host.network.takeRequests();
        content = { { QStringLiteral("old"), 1 } };
        EXPECT_FALSE(operation());
        expectError(0, "");
        expectNoRequest(host);
    }
    EXPECT_TRUE(exists);
    EXPECT_EQ(fields(info), "|3|Bill|||2026.1|||");
}

TEST_F(ReportTemplates, aDownloadWithoutAServerEmptiesTheObject)
{
    host.unconfigure();
    QJsonObject content { { QStringLiteral("old"), 1 } };
    EXPECT_FALSE(templates.downloadTemplate(id, content));
    EXPECT_TRUE(content.isEmpty());
}

TEST_F(ReportTemplates, nothingIsLogged)
{
    answer(R"({"statuscode":640})");
    templates.deleteTemplate(id);
    bool exists = false;
    KVXTemplateInfo info;
    templates.templateExist(id, exists, info);
    EXPECT_TRUE(host.takeLog().isEmpty());
}

TEST_F(ReportTemplates, belongsToItsParent)
{
    QObject parent;
    EXPECT_EQ((new KVXReportTemplateMgrImpl(&parent))->parent(), &parent);
}
