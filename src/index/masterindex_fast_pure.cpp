#include "index/masterindex_fast_pure.h"

#include "index/masterindex_fast_cached.h"

#include <typeinfo>

#include "table/table.h"

#include <cstring>

namespace {
const uint64 rowHeaderSize = 16; // ref, reserved, back pointer
}

MasterIndex_Fast_Pure::MasterIndex_Fast_Pure(Table *table, const QStringList &columns)
    : MasterIndex_Column_Pure(table, columns)
{
    setup();
}

MasterIndex_Fast_Pure::MasterIndex_Fast_Pure(Table *table, const QList<int> &columns)
    : MasterIndex_Column_Pure(table, columns)
{
    setup();
}

void MasterIndex_Fast_Pure::setup()
{
    if (m_columns.isEmpty())
        return;
    const int count = m_table ? m_table->columnCount() : 0;
    int expected = m_columns.first();
    m_keySize = 0;
    for (int column : qAsConst(m_columns)) {
        // The sequence is tested first: a column out of place is reported as
        // such, whatever its type.
        if (column != expected) {
            const QString name = column >= 0 && column < count ? m_table->columnName(column) : QString();
            throw QString(QStringLiteral("Columns must be sequenced: %1(%3) / %2")
                              .arg(column)
                              .arg(expected)
                              .arg(name));
        }
        if (column < 0 || column >= count)
            throw QString(QStringLiteral("Column '%1' not found to create index.").arg(column));
        const TableColumnDef &def = m_table->columnDef(column);
        switch (def.type) {
        case FieldType::Integer:
        case FieldType::Integer64:
        case FieldType::Decimal:
        case FieldType::XDecimal:
        case FieldType::VarChar:
        case FieldType::DateTime:
            break;
        default:
            throw QString(QStringLiteral("Type '%1' unsuported for %2")
                              .arg(QString::fromLatin1(FieldType::typeName(def.type)), def.name));
        }
        if (def.nullable)
            throw QString(QStringLiteral("Columns can't be nullable %1").arg(def.name));
        if (m_keySize == 0)
            m_keyOffset = def.offset + rowHeaderSize;
        m_keySize += keyWidth(&def);
        ++expected;
    }
}

int MasterIndex_Fast_Pure::compare(const Record &a, const Record &b) const
{
    return std::memcmp(a.rowPtr() + m_keyOffset, b.rowPtr() + m_keyOffset, size_t(m_keySize));
}

IndexSort::KeyPrefixKind MasterIndex_Fast_Pure::keyPrefixKind() const
{
    const std::type_info &type = typeid(*this);
    if (type != typeid(MasterIndex_Fast_Pure) && type != typeid(MasterIndex_Fast)
        && type != typeid(MasterIndex_Fast_Cached))
        return NoKeyPrefix;
    return m_keySize == sizeof(quint64) ? ExactKeyPrefix : PartialKeyPrefix;
}

MasterKey MasterIndex_Fast_Pure::keyRecord(const Record &record) const
{
    if (record.isNull())
        return MasterKey(int(m_keySize), '\0');
    return MasterKey(reinterpret_cast<const char *>(record.rowPtr() + m_keyOffset), int(m_keySize));
}
