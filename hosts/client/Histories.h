#pragma once

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <mutex>
#include <optional>

namespace kvx::host {

/// What the server said of the versions of projects, and what the local copies hold. A server that
/// was put back to an earlier state and went on from there has other content under numbers that a
/// copy has already: told what the copy knows, it says so instead of a version. Any thread.
class Histories {
public:
    /// The server's digest over all versions of a project up to this one.
    struct Point {
        int version = -1;
        QString chain;
    };

    /// What the local copy of a project knows; none for a copy that knows nothing.
    void know(const QString &guid, const std::optional<Point> &point);
    std::optional<Point> known(const QString &guid) const;
    /// The last that the server said of a project.
    std::optional<Point> latest(const QString &guid) const;

    /// The request as it goes out.
    QJsonObject amended(const QJsonObject &request) const;
    void learn(const QJsonObject &request, const QJsonObject &reply);

private:
    mutable std::mutex m_mutex; ///< guards what follows; by GUIDs in lower case
    QHash<QString, Point> m_known;
    QHash<QString, Point> m_latest;
};

} // namespace kvx::host
