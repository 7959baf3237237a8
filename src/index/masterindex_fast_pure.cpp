#include "index/masterindex_fast_pure.h"

#include "index/masterindex_fast_cached.h"

#include <typeinfo>

#include "table/table.h"

#include <QSysInfo>

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

void MasterIndex_Fast_Pure::fitKeyPrefix(const QList<Record> &rows)
{
    m_fitBytes = 0;
    if (m_keySize <= sizeof(quint64) || rows.size() < 2
        || QSysInfo::ByteOrder != QSysInfo::LittleEndian) // the masks read words as bytes
        return;
    const int window = int(qMin<uint64>(m_keySize, sizeof m_fitShared));
    quint64 first[4] = {};
    std::memcpy(first, rows.first().rowPtr() + m_keyOffset, size_t(window));
    quint64 differ[4] = {};
    for (const Record &row : rows) {
        quint64 key[4] = {};
        std::memcpy(key, row.rowPtr() + m_keyOffset, size_t(window));
        for (int i = 0; i < 4; ++i)
            differ[i] |= key[i] ^ first[i];
    }
    const auto *varies = reinterpret_cast<const unsigned char *>(differ);
    int count = 0;
    int end = 0; // one past the last position of the prefix
    for (int at = 0; at < window && count < 8; ++at) {
        if (varies[at] != 0) {
            m_fitPositions[count++] = static_cast<unsigned char>(at);
            end = at + 1;
        }
    }
    if (count == 0 || end == count) // all keys alike, or no byte skipped
        return;
    m_fitCount = count;
    std::memset(m_fitSkipped, 0, sizeof m_fitSkipped);
    auto *skipped = reinterpret_cast<unsigned char *>(m_fitSkipped);
    for (int at = 0; at < end; ++at)
        skipped[at] = varies[at] != 0 ? 0 : 0xFF;
    for (int i = 0; i < 4; ++i)
        m_fitShared[i] = first[i] & m_fitSkipped[i];
    m_fitBytes = end;
}

quint64 MasterIndex_Fast_Pure::fittedPrefix(const unsigned char *key) const
{
    quint64 words[4] = {};
    std::memcpy(words, key, size_t(m_fitBytes));
    const auto *bytes = reinterpret_cast<const unsigned char *>(words);
    // The first skipped byte in which this key leaves the fitted ones.
    int cut = m_fitBytes;
    for (int i = 0; i < 4; ++i) {
        const quint64 leaves = (words[i] ^ m_fitShared[i]) & m_fitSkipped[i];
        if (leaves != 0) {
            cut = i * 8 + __builtin_ctzll(leaves) / 8;
            break;
        }
    }
    quint64 prefix = 0;
    int taken = 0;
    for (; taken < m_fitCount && m_fitPositions[taken] < cut; ++taken)
        prefix = prefix << 8 | bytes[m_fitPositions[taken]];
    if (taken == 8)
        return prefix;
    const int rest = 8 * (8 - taken);
    prefix = taken == 0 ? 0 : prefix << rest;
    if (cut < m_fitBytes && bytes[cut] > reinterpret_cast<const unsigned char *>(m_fitShared)[cut])
        prefix |= rest == 64 ? ~quint64(0) : (quint64(1) << rest) - 1;
    return prefix;
}

MasterKey MasterIndex_Fast_Pure::keyRecord(const Record &record) const
{
    if (record.isNull())
        return MasterKey(int(m_keySize), '\0');
    return MasterKey(reinterpret_cast<const char *>(record.rowPtr() + m_keyOffset), int(m_keySize));
}
