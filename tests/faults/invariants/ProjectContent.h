#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QVector>

namespace kvx::test {

/// What a project file holds, seen through a copy of it: the file itself is not touched.
struct ProjectContent {
    QString guid;
    int version = -2;
    int pending = 0; ///< edits that are not published
    QByteArray published; ///< digest of the content without them, hexadecimal
    QString fault; ///< why it cannot be read, or what is damaged

    /// A client's copy; its unpublished edits are taken back in the picture.
    static ProjectContent ofCopy(const QString &file);
    /// A file as the server publishes it: what it was uploaded with counts as published.
    static ProjectContent ofUpload(const QString &file);
};

/// A project as its base and its change logs make it.
class ProjectReplay {
public:
    /// `logs`: the archives by version, the first one following the base.
    ProjectReplay(const QString &base, const QMap<int, QString> &logs);

    /// Digest of the content at each version from the base on, hexadecimal.
    const QMap<int, QByteArray> &digests() const { return m_digests; }
    const QString &fault() const { return m_fault; }

private:
    QMap<int, QByteArray> m_digests;
    QString m_fault;
};

} // namespace kvx::test
