#pragma once

#include "KVXSQLite/CommandFile.h"
#include "KVXSQLite/KVXProjectDatabase.h"
#include "KVXSQLite/Statement.h"

#include <KVXSQLite/IKVXSQLiteModel.h>
#include <KVXSQLite/IKVXSQLiteModelCommandFile.h>
#include <QStringList>
#include <QTemporaryDir>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <csignal>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <sys/resource.h>

namespace kvx::test {

using kvx::sqlite::Bytes;
using kvx::sqlite::Failure;
using Database = std::unique_ptr<KVXProjectDatabase>;
using Choice = KVXProjectDatabase::ClashChoice;

extern const QString testGuid;
extern const QString testSchema;

/// A folder with project files in it, and the short words the cases are written in.
class ProjectFiles : public testing::Test {
protected:
    QString file(const char *name) const;
    /// A sealed new project with a few rows, at version -1.
    Database project(const char *name);
    Database open(
        const QString &path, KVXProjectDatabase::Origin origin = KVXProjectDatabase::Origin::Local);
    /// The file as it would come from the server.
    Database download(const Database &source, const char *name);
    QString copyOf(const QString &path, const char *name) const;

    /// One edit that runs the statements.
    static bool sql(const Database &database, const std::string &statements);
    static std::string value(const Database &database, const std::string &query);
    /// A save as the synchroniser makes it; the command file's path.
    QString publish(const Database &database);
    QString prepare(const Database &database);
    static int execute(const Database &database, const QString &commandFile);
    /// Statements on the file by a plain connection, as another program would.
    static void outside(const QString &path, const std::string &statements);
    /// A command file of this payload that passes for version `version` of the project.
    QString forge(const Database &database, int version, const Bytes &payload);

    QString error;
    Failure failure = Failure::None;

private:
    QTemporaryDir m_folder;
    int m_logs = 0;
};

/// Files of this process cannot grow beyond the limit while the object lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes)
    {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &m_before);
        const rlimit limited { bytes, m_before.rlim_max };
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &m_before); }

private:
    rlimit m_before {};
};

Bytes readFile(const QString &path);
void writeFile(const QString &path, const Bytes &bytes);
/// The changeset of the statements on a database that `schema` creates.
Bytes changesetOf(const std::string &schema, const std::string &statements, bool patchset = false);

} // namespace kvx::test
