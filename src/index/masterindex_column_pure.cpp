#include "index/masterindex_column_pure.h"

#include "index/masterindex_column_cached.h"
#include "table/table.h"

#include <QStringRef>
#include <QVector>

#include <cstring>
#include <typeinfo>

namespace {

const size_t rowHeaderSize = 16; // ref, reserved, back pointer

int columnOrThrow(const Table *table, const QString &name)
{
    const int column = table ? table->columnIndex(name) : -1;
    if (column < 0)
        throw QString(QStringLiteral("Column '%1' not found to create index.").arg(name));
    return column;
}

} // namespace

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table *table, const QString &column)
    : MasterIndex(table)
{
    m_columns.append(columnOrThrow(table, column));
}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table *table, const QStringList &columns)
    : MasterIndex(table)
{
    for (const QString &name : columns)
        m_columns.append(columnOrThrow(table, name));
}

MasterIndex_Column_Pure::MasterIndex_Column_Pure(Table *table, const QList<int> &columns)
    : MasterIndex(table)
{
    m_columns = columns;
}

int MasterIndex_Column_Pure::compare(const Record &a, const Record &b) const
{
    for (int column : m_columns) {
        const int c = a.data(column).compare(b.data(column));
        if (c != 0)
            return c;
    }
    return 0;
}

IndexSort::KeyPrefixKind MasterIndex_Column_Pure::keyPrefixKind() const
{
    const std::type_info &type = typeid(*this);
    if (type != typeid(MasterIndex_Column_Pure) && type != typeid(MasterIndex_Column)
        && type != typeid(MasterIndex_Column_Cached))
        return NoKeyPrefix;
    if (m_columns.isEmpty())
        return ExactKeyPrefix; // every row compares equal
    const bool oneInteger = m_columns.size() == 1 && m_table
            && m_table->columnType(m_columns.first()) == FieldType::Integer;
    return oneInteger ? ExactKeyPrefix : PartialKeyPrefix;
}

QString MasterIndex_Column_Pure::toText(const Record &record) const
{
    if (record.isNull())
        return QString();
    QStringList parts;
    parts.reserve(m_columns.size());
    for (int column : m_columns)
        parts.append(record.data(column).toString());
    return parts.join(QLatin1Char(','));
}

Record MasterIndex_Column_Pure::fromText(const QString &text) const
{
    const QVector<QStringRef> parts = text.splitRef(QLatin1Char(','), Qt::KeepEmptyParts);
    if (parts.size() != m_columns.size())
        throw QString(QStringLiteral("Master index can't restore from text. Incorrect columns numbers: %1 != %2")
                          .arg(parts.size())
                          .arg(m_columns.size()));
    Record row(m_table);
    for (int i = 0; i < parts.size(); ++i) {
        Field field = row.data(m_columns.at(i));
        field = parts.at(i);
    }
    return row;
}

MasterKey MasterIndex_Column_Pure::keyRecord(const Record &record) const
{
    const QList<TableColumnDef *> defs = m_table->fieldDefs();
    int size = 0;
    for (int column : m_columns)
        size += keyWidth(defs.at(column));
    MasterKey key(size, '\0');
    if (record.isNull())
        return key;
    const unsigned char *cells = record.rowPtr() + rowHeaderSize;
    char *out = key.data();
    for (int column : m_columns) {
        const TableColumnDef *def = defs.at(column);
        const int width = keyWidth(def);
        std::memcpy(out, cells + def->offset, size_t(width));
        out += width;
    }
    return key;
}
