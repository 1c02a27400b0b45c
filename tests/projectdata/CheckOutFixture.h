#pragma once

#include "projectdata/ProjectFixture.h"

#include <QJsonArray>

namespace kvx::test {

/// Check-outs in one open project at version 0.
class CheckOut : public ProjectFixture {
protected:
    CheckOut() { open(0); }

    static constexpr int module = 4;

    QJsonObject info(const QJsonValue &id, const QString &email, const QJsonValue &state) const
    {
        return { { QStringLiteral("ID"), id }, { QStringLiteral("Email"), email },
            { QStringLiteral("Name"), QStringLiteral("Name of ") + email },
            { QStringLiteral("State"), state } };
    }
    QJsonObject reply(double code, const QJsonArray &infos) const
    {
        QJsonObject object = status(code);
        object.insert(QStringLiteral("CheckoutInfo"), infos);
        return object;
    }
    void answer(double code, const QJsonArray &infos)
    {
        host.network.answer(QStringLiteral("checkout"), reply(code, infos));
    }
    QJsonObject request(const char *service, const QJsonObject &keys) const
    {
        QJsonObject object = keys;
        object.insert(QStringLiteral("service"), QLatin1String(service));
        object.insert(QStringLiteral("ProjectGUID"), guid);
        object.insert(QStringLiteral("Email"), QStringLiteral("anna@example.com"));
        return object;
    }

    const QString me = QStringLiteral("anna@example.com");
    const QString other = QStringLiteral("ben@example.com");
    KVXItemCheckState holder;
};

} // namespace kvx::test
