#include "table/masterkeyform_p.h"

#include "index/masterindex_column.h"
#include "index/masterindex_column_cached.h"
#include "index/masterindex_fast.h"
#include "index/masterindex_fast_cached.h"
#include "table/table.h"

#include <cstring>
#include <typeinfo>

namespace {

quint64 load64(const unsigned char *p)
{
    quint64 w;
    std::memcpy(&w, p, 8);
    return w;
}

// Up to eight bytes from `p` as a big-endian number, zero-padded: numbers
// compare as memcmp compares the bytes.
quint64 bigEndianPrefix(const unsigned char *p, int size)
{
    quint64 w = 0;
    for (int i = 0; i < 8; ++i)
        w = (w << 8) | (i < size ? p[i] : 0u);
    return w;
}

quint64 mix(quint64 h, quint64 w)
{
    h = (h ^ w) * 0xff51afd7ed558ccdULL;
    return h ^ (h >> 32);
}

// A distinct stand-in for a null cell: its bytes are not looked at.
const quint64 NullCell = 0x6a09e667f3bcc909ULL;

} // namespace

MasterKeyForm MasterKeyForm::of(const MasterIndex *master, const Table *table)
{
    MasterKeyForm form;
    if (!master || !table)
        return form;
    // Only these classes are known to compare as told; a subclass may not.
    const std::type_info &type = typeid(*master);
    if (type == typeid(MasterIndex_Fast) || type == typeid(MasterIndex_Fast_Cached)
        || type == typeid(MasterIndex_Fast_Pure)) {
        const auto *fast = static_cast<const MasterIndex_Fast_Pure *>(master);
        form.m_kind = Bytes;
        form.m_keyOffset = int(fast->keyOffset());
        form.m_keySize = int(fast->keySize());
        form.m_prefixExact = form.m_keySize <= 16;
        return form;
    }
    if (type != typeid(MasterIndex_Column) && type != typeid(MasterIndex_Column_Cached)
        && type != typeid(MasterIndex_Column_Pure))
        return form;
    bool exact = master->columns().size() <= 2;
    for (int column : master->columns()) {
        if (column < 0 || column >= table->columnCount())
            return MasterKeyForm();
        const TableColumnDef &def = table->columnDef(column);
        const bool int32 = def.type == FieldType::Integer && def.len == 4;
        const bool int64 = (def.type == FieldType::Integer64 || def.type == FieldType::DateTime)
            && def.len == 8;
        if (!int32 && !int64)
            return MasterKeyForm();
        // A null cell and the lowest Integer64 share a prefix.
        exact = exact && (int32 || !def.nullable);
        form.m_cells.push_back({ int(Table::RowHeaderSize + def.offset), int(def.len),
                                 int(Table::RowHeaderSize + def.nullOffset), def.nullMask });
    }
    form.m_kind = Cells;
    form.m_prefixExact = exact;
    return form;
}

uint MasterKeyForm::hashOf(const unsigned char *row) const
{
    quint64 h = 0x9e3779b97f4a7c15ULL;
    if (m_kind == Bytes) {
        const unsigned char *key = row + m_keyOffset;
        int i = 0;
        for (; i + 8 <= m_keySize; i += 8)
            h = mix(h, load64(key + i));
        if (i < m_keySize)
            h = mix(h, bigEndianPrefix(key + i, m_keySize - i));
    } else {
        for (const Cell &cell : m_cells) {
            if ((row[cell.nullOffset] & cell.nullMask) != cell.nullMask) {
                h = mix(h, NullCell);
            } else if (cell.width == 4) {
                quint32 v;
                std::memcpy(&v, row + cell.offset, 4);
                h = mix(h, v);
            } else {
                h = mix(h, load64(row + cell.offset));
            }
        }
    }
    return uint(h) ^ uint(h >> 32);
}

bool MasterKeyForm::sameKey(const unsigned char *a, const unsigned char *b) const
{
    if (m_kind == Bytes)
        return std::memcmp(a + m_keyOffset, b + m_keyOffset, size_t(m_keySize)) == 0;
    for (const Cell &cell : m_cells) {
        const bool aNull = (a[cell.nullOffset] & cell.nullMask) != cell.nullMask;
        const bool bNull = (b[cell.nullOffset] & cell.nullMask) != cell.nullMask;
        if (aNull != bNull)
            return false;
        if (!aNull && std::memcmp(a + cell.offset, b + cell.offset, size_t(cell.width)) != 0)
            return false;
    }
    return true;
}

void MasterKeyForm::prefixOf(const unsigned char *row, quint64 *prefix) const
{
    prefix[0] = prefix[1] = 0;
    if (m_kind == Bytes) {
        const unsigned char *key = row + m_keyOffset;
        prefix[0] = bigEndianPrefix(key, m_keySize);
        if (m_keySize > 8)
            prefix[1] = bigEndianPrefix(key + 8, m_keySize - 8);
        return;
    }
    // Null first, as 0, then by value as the indexes order numbers: no
    // Integer comes down to 0, the lowest Integer64 does.
    for (size_t i = 0; i < m_cells.size() && i < 2; ++i) {
        const Cell &cell = m_cells[i];
        if ((row[cell.nullOffset] & cell.nullMask) != cell.nullMask)
            continue;
        if (cell.width == 4) {
            qint32 v;
            std::memcpy(&v, row + cell.offset, 4);
            prefix[i] = IndexSort::prefixOf(qint64(v));
        } else {
            prefix[i] = IndexSort::prefixOf(qint64(load64(row + cell.offset)));
        }
    }
}

bool MasterKeyForm::less(const MasterIndex *master, const Record &a, const Record &b) const
{
    if (m_kind == Bytes)
        return std::memcmp(a.rowPtr() + m_keyOffset, b.rowPtr() + m_keyOffset,
                           size_t(m_keySize))
            < 0;
    return master->compare(a, b) < 0;
}
