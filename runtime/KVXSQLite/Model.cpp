#include "KVXSQLite/Model.h"

#include "KVXSQLite/CommandFile.h"
#include "KVXSQLite/Connection.h"

#include <QStringList>
#include <sqlite3.h>

namespace kvx::sqlite {

Model::Model(Connection &connection, const Schema &schema, Execute execute)
    : m_connection(connection)
    , m_schema(schema)
    , m_execute(std::move(execute))
{
}

int Model::execute(IKVXSQLiteModelCommandFile *commandFile, int mode)
{
    return m_execute(dynamic_cast<CommandFile *>(commandFile), mode) ? 1 : 0;
}

QStringList Model::tables()
{
    QStringList names;
    for (const Table &table : m_schema.tables())
        names.append(QString::fromStdString(table.name));
    return names;
}

int Model::highestId(const QString &table, int min, int max)
{
    const Table *found = m_schema.find(table.toStdString());
    if (!found || found->integerKey < 0 || !m_connection.handle())
        return -1;
    const std::string column = quoted(found->columns[static_cast<std::size_t>(found->integerKey)]);
    const std::string sql = "SELECT max(" + column + ") FROM " + quoted(found->name) + " WHERE "
        + column + " BETWEEN ? AND ?";
    Statement select(m_connection.handle(), sql.c_str());
    const bool used
        = select.bind(min).bind(max).step() == SQLITE_ROW && select.type(0) == SQLITE_INTEGER;
    return used ? static_cast<int>(select.integer(0)) : -1;
}

} // namespace kvx::sqlite
