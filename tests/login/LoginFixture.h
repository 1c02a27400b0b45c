#pragma once

#include "login/KVXCWLoginImpl.h"
#include "support/FakeHost.h"

#include <KVXCollaboration/KVXCollaborator.h>
#include <gtest/gtest.h>

namespace kvx::test {

/// The login manager in a host whose server accepts Anna, unless told otherwise.
class LoginFixture : public testing::Test {
protected:
    LoginFixture()
    {
        // Takes the place of the fake one, which the registry destroys.
        KVXCollaborator::getInstance()->setLoginManager(manager);
        host.login = nullptr;
        host.network.answer(QStringLiteral("login"), accepted());
    }

    static QJsonObject accepted()
    {
        return json(R"({"statuscode": 1, "Name": "Anna Weiss", "Email": "anna@example.com",
            "UserProductVersion": 2, "Role": {"RoleID": 4, "Name": "Estimators", "Administrator": 1},
            "companyAccount": "weiss-bau", "BrokerPort": "61700"})");
    }

    KVXErrorCode login(const QString &email = QStringLiteral("Anna@Example.com"))
    {
        return manager->login(email, QStringLiteral("pass wörd"), QStringLiteral("Pro"),
            QStringLiteral("4.2"), QStringLiteral("2"));
    }

    /// Exactly these lines, in this order, all from the login manager's source.
    void expectLog(const QList<QPair<int, QString>> &lines)
    {
        const QList<LogRecord> records = host.takeLog();
        ASSERT_EQ(records.size(), lines.size());
        for (int i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(records[i].level, lines[i].first);
            EXPECT_EQ(records[i].text.toStdString(), lines[i].second.toStdString());
            EXPECT_EQ(records[i].source.toStdString(), "KVXCWLoginImpl.cpp");
            EXPECT_TRUE(records[i].function.contains(QLatin1String("KVXCWLoginImpl::")))
                << records[i].function.toStdString();
        }
    }

    FakeHost host;
    KVXCWLoginImpl *manager = new KVXCWLoginImpl;
};

constexpr int Info = 20000;
constexpr int Warn = 30000;
constexpr int Error = 40000;

} // namespace kvx::test
