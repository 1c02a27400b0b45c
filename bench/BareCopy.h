#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

struct sqlite3;

namespace kvx::bench {

/// A project file with nothing but the database engine around it. Used by one thread at a time.
class BareCopy {
public:
    /// Throws std::runtime_error.
    explicit BareCopy(const QString &path);
    ~BareCopy();
    BareCopy(const BareCopy &) = delete;
    BareCopy &operator=(const BareCopy &) = delete;

    /// All in one transaction with one sync; nothing is checked. Throws std::runtime_error.
    void apply(const QList<QByteArray> &changesets);

private:
    void run(const char *sql);

    sqlite3 *m_connection = nullptr;
};

} // namespace kvx::bench
