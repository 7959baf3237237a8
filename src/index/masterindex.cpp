#include "index/masterindex.h"

#include "table/table.h"

MasterIndex::MasterIndex(Table *table) : IndexSort(table, false) { }

QString MasterIndex::getClassName() const
{
    return QStringLiteral("MasterIndex");
}

QStringList MasterIndex::columnNames() const
{
    QStringList names;
    names.reserve(m_columns.size());
    for (int column : m_columns)
        names.append(m_table->columnName(column));
    return names;
}

Record MasterIndex::findRecord(const QString &text) const
{
    const Record key = fromText(text);
    return find(key, -1);
}
