#pragma once

#include "resources/KVXReportTemplateMgrImpl.h"
#include "support/FakeHost.h"

#include <QJsonDocument>
#include <gtest/gtest.h>

namespace kvx::test {

class TemplateTest : public testing::Test {
protected:
    static constexpr const char *services[] = { "reportTemplateUpload", "reportTemplateDownload",
        "reportTemplateQuery", "reportTemplateDelete", "reportTemplateRename",
        "reportTemplateExist", "reportTemplateExistByID" };

    void answer(const char *reply) { answer(json(reply)); }
    void answer(const QJsonObject &reply)
    {
        for (const char *service : services)
            host.network.answer(QLatin1String(service), reply);
    }

    void expectError(int code, const char *text)
    {
        EXPECT_EQ(templates.errorCode(), code);
        EXPECT_EQ(templates.errorText().toStdString(), text);
    }

    /// All nine fields, in their declared order.
    static std::string fields(const KVXTemplateInfo &info)
    {
        return QStringList { info.templateID, QString::number(info.type), info.name, info.author,
            info.authorEmail, info.projectVersion, info.md5, info.createDate, info.lastModifyDate }
            .join(QLatin1Char('|'))
            .toStdString();
    }

    static KVXTemplateInfo infoFromServer()
    {
        return { QStringLiteral("t1"), 3, QStringLiteral("Übersicht %1"), QStringLiteral("Ben Ito"),
            QStringLiteral("ben@example.com"), QStringLiteral("2026.1"), QStringLiteral("d1"),
            QStringLiteral("2026-11-20 09:30:00"), QStringLiteral("2026-11-21 14:05:07") };
    }
    static QJsonObject infoObject() { return json(infoText); }
    static constexpr const char *infoText = R"({"templateID":"t1","type":3,"name":"Übersicht %1",
        "author":"Ben Ito","authorEmail":"ben@example.com","projectVersion":"2026.1","md5":"d1",
        "createDate":"2026-11-20 09:30:00","lastModifyDate":"2026-11-21 14:05:07"})";
    static constexpr const char *infoFields
        = "t1|3|Übersicht %1|Ben Ito|ben@example.com|2026.1|d1|2026-11-20 09:30:00|"
          "2026-11-21 14:05:07";

    FakeHost host;
    KVXReportTemplateMgrImpl templates;
    const QString id = QStringLiteral("t1");
};

} // namespace kvx::test
