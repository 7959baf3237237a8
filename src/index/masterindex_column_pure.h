#ifndef TABLEDB_INDEX_MASTERINDEX_COLUMN_PURE_H
#define TABLEDB_INDEX_MASTERINDEX_COLUMN_PURE_H

#include "index/masterindex.h"
#include "index/masterkey.h"

#include <cstring>

// A master index over key columns of any type, ordered cell by cell with
// Field::compare. Its class name stays that of MasterIndex; the final classes
// (MasterIndex_Column and the rest) name themselves.
//
// The constructors by name throw the QString "Column '%1' not found to create
// index." for an unknown name. The one by numbers takes them unchecked.
class TABLEDB_EXPORT MasterIndex_Column_Pure : public MasterIndex
{
public:
    MasterIndex_Column_Pure(Table *table, const QString &column);
    MasterIndex_Column_Pure(Table *table, const QStringList &columns);
    MasterIndex_Column_Pure(Table *table, const QList<int> &columns);

    // The first non-zero Field::compare of the key cells, in key order.
    int compare(const Record &a, const Record &b) const override;
    // The first key cell's prefixOf(Field): exact for a key of one Integer
    // column, partial otherwise. None for a subclass of another name, whose
    // compare() may order otherwise.
    KeyPrefixKind keyPrefixKind() const override;
    quint64 keyPrefix(const Record &row) const override
    {
        return m_columns.isEmpty() ? 0 : prefixOf(row.data(m_columns.first()));
    }
    // Field::toString of the key cells joined with ","; no escaping, so a
    // comma inside a value does not come back through fromText.
    QString toText(const Record &record) const override;
    // Throws the QString "Master index can't restore from text. Incorrect
    // columns numbers: %1 != %2" when the parts (split at every ",") are not
    // as many as the key columns; each part is assigned as text.
    Record fromText(const QString &text) const override;

    // The packed key of the row; all zero bytes of the key's length for an
    // empty Record. Allocates the QByteArray.
    MasterKey keyRecord(const Record &record) const;
    // memcmp of the row's packed key with `key`, over the row key's length; a
    // shorter `key` orders before a row key that begins with it.
    int compareRowKey(const Record &record, const MasterKey &key) const
    {
        const MasterKey rowKey = keyRecord(record);
        const int n = rowKey.size();
        if (key.size() >= n)
            return std::memcmp(rowKey.constData(), key.constData(), size_t(n));
        const int c = std::memcmp(rowKey.constData(), key.constData(), size_t(key.size()));
        return c != 0 ? c : 1; // never read past a short key
    }

protected:
    // The byte width that a key cell takes: its width rounded up to 8.
    static int keyWidth(const TableColumnDef *def) { return int((def->len + 7) & ~uint64(7)); }
};

#endif // TABLEDB_INDEX_MASTERINDEX_COLUMN_PURE_H
