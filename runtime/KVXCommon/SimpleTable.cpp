#include "SimpleTable.h"

#include <QJsonArray>

namespace kvx {

namespace {

const QLatin1String ColumnsKey("columns");
const QLatin1String RowsKey("rows");

QJsonArray textCells(const QJsonArray &cells)
{
    QJsonArray texts;
    for (const QJsonValue &cell : cells)
        texts.append(cell.isString() ? cell : QJsonValue(cell.toVariant().toString()));
    return texts;
}

} // namespace

SimpleTable::SimpleTable(const QString &name, const QJsonObject &data)
    : m_name(name)
    , m_data(data)
{
    QJsonArray rows;
    for (const QJsonValue &row : data.value(RowsKey).toArray())
        rows.append(textCells(row.toArray()));
    m_data.insert(ColumnsKey, textCells(data.value(ColumnsKey).toArray()));
    m_data.insert(RowsKey, rows);
}

QJsonObject SimpleTable::toJson() const
{
    return { { QStringLiteral("tablename"), m_name }, { QStringLiteral("tabledata"), m_data } };
}

} // namespace kvx

IKVXSimpleTable *IKVXSimpleTable::fromJson(const QJsonObject &object)
{
    return new kvx::SimpleTable(object.value(QLatin1String("tablename")).toString(),
        object.value(QLatin1String("tabledata")).toObject());
}
