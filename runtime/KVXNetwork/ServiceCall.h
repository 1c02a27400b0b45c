#pragma once

#include "ProgressReport.h"

#include <QJsonObject>
#include <QString>

namespace kvx {

/// A service request as its caller made it, split into what is sent and what stays here.
struct ServiceCall {
    ServiceCall(const QString &to, const QJsonObject &request, void *receiver,
        KVXNetwork::ProgressFunction function);

    bool sendsFile() const;
    bool receivesFile() const;
    /// True for the save lock and the merge: what a dead kept connection can cost there is worth
    /// more than the time to make a new one. Within a save the last answer is milliseconds old.
    bool needsProvenConnection() const;

    const QString url;
    const QString service;
    const bool namesFile;
    const QString localFile;
    const bool isGet; ///< "HttpMethod" is "0"
    QJsonObject sent; ///< the request without the local path
    ProgressReport progress;
};

} // namespace kvx
