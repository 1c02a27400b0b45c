#pragma once

#include <KVXCommon/IKVXSimpleTable.h>

namespace kvx {

/// A table as the server keeps it. Keys of the data other than "columns" and "rows" (the
/// revision, for one) are carried along unseen.
class SimpleTable : public IKVXSimpleTable {
public:
    SimpleTable(const QString &name, const QJsonObject &data);

    QString name() const override { return m_name; }
    QJsonObject toJson() const override;

private:
    const QString m_name;
    QJsonObject m_data;
};

} // namespace kvx
