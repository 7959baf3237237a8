#ifndef TABLEDB_INDEX_MASTERINDEX_FAST_PURE_H
#define TABLEDB_INDEX_MASTERINDEX_FAST_PURE_H

#include "index/masterindex_column_pure.h"

#include <QtEndian>

#include <cstring>

// A master index that compares one run of row memory with memcmp. The key
// columns must follow each other in the row, be of a fixed-width type
// (Integer, Integer64, Decimal, XDecimal, VarChar, DateTime) and not be
// nullable; the constructors throw a QString naming the first column that is
// not. The order is that of raw bytes: on a little-endian machine numbers do
// not sort numerically. It is a total order for searching, nothing more.
class TABLEDB_EXPORT MasterIndex_Fast_Pure : public MasterIndex_Column_Pure
{
public:
    MasterIndex_Fast_Pure(Table *table, const QStringList &columns);
    MasterIndex_Fast_Pure(Table *table, const QList<int> &columns);

    // One memcmp over the key bytes; no per-column dispatch.
    int compare(const Record &a, const Record &b) const override;
    // The first eight key bytes in memcmp order, exact for an eight-byte key.
    // None for a subclass, whose compare() may order otherwise.
    KeyPrefixKind keyPrefixKind() const override;
    quint64 keyPrefix(const Record &row) const override
    {
        quint64 bytes;
        std::memcpy(&bytes, row.rowPtr() + m_keyOffset, sizeof bytes);
        return qFromBigEndian(bytes);
    }

    // A copy of the key bytes. An empty Record gives zero bytes of the key's
    // length.
    MasterKey keyRecord(const Record &record) const;
    // memcmp of the row's key bytes, where they sit, with `key`, as
    // compareBytes(keyRecord(record), key) would give it; allocates nothing.
    // Hides the copying version of MasterIndex_Column_Pure.
    int compareRowKey(const Record &record, const MasterKey &key) const
    {
        if (record.isNull())
            return MasterIndex_Column_Pure::compareRowKey(record, key);
        const char *row = reinterpret_cast<const char *>(record.rowPtr() + m_keyOffset);
        const int n = int(m_keySize);
        if (key.size() >= n)
            return std::memcmp(row, key.constData(), size_t(n));
        const int c = std::memcmp(row, key.constData(), size_t(key.size()));
        return c != 0 ? c : 1; // never read past a short key
    }

    uint64 keyOffset() const { return m_keyOffset; }
    uint64 keySize() const { return m_keySize; }

private:
    void setup();

    uint64 m_keyOffset = 0; // from the start of the row block, header included
    uint64 m_keySize = 0;
};

#endif // TABLEDB_INDEX_MASTERINDEX_FAST_PURE_H
