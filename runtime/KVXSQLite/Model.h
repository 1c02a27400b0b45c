#pragma once

#include "KVXSQLite/Schema.h"

#include <KVXSQLite/IKVXSQLiteModel.h>
#include <functional>

namespace kvx::sqlite {

class CommandFile;

/// The model of one open project; `execute` itself is the project's.
class Model : public IKVXSQLiteModel {
public:
    using Execute = std::function<bool(CommandFile *commandFile, int mode)>;

    Model(Connection &connection, const Schema &schema, Execute execute);

    int execute(IKVXSQLiteModelCommandFile *commandFile, int mode) override;
    QStringList tables() override;
    int highestId(const QString &table, int min, int max) override;

private:
    Connection &m_connection; // the host's: IDs of an open edit count as used
    const Schema &m_schema;
    Execute m_execute;
};

} // namespace kvx::sqlite
