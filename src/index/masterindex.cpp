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

bool MasterIndex::unaffectedBy(int first, int last) const
{
    if (m_columns.isEmpty() || first < 0 || last < 0)
        return false;
    for (int column : m_columns) {
        if (column >= first && column <= last)
            return false;
    }
    return true;
}
