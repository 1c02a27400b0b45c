#pragma once

#include "ContractFile.h"

#include <QJsonObject>
#include <QList>
#include <QString>

namespace kvx::test {

/// What an operation of the plug-in did when it was called as an exchange says.
struct CallOutcome {
    QList<QJsonObject> requests; ///< in the order in which they were posted
    QString url; ///< of the last one
    QJsonValue result;
};

/// Makes the manager, calls the operation, answers with the exchange's reply; every other service
/// is answered as "others" says, and fails the test where it says nothing. Throws
/// std::runtime_error for an operation that is not known.
CallOutcome performCall(const Exchange &exchange);

/// The operations that exchanges may name.
QStringList knownOperations();

} // namespace kvx::test
