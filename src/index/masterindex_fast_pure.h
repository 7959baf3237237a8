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
    // None for a subclass, whose compare() may order otherwise. A longer key
    // may have its prefix fitted to the keys that fill an empty list (see
    // fitKeyPrefix()).
    KeyPrefixKind keyPrefixKind() const override;
    quint64 keyPrefix(const Record &row) const override
    {
        if (m_fitBytes > 0)
            return fittedPrefix(row.rowPtr() + m_keyOffset);
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

protected:
    // Fits the prefix of a key longer than eight bytes to `rows`, which are
    // about to fill the empty list. Key bytes that all of them share say
    // nothing about their order, so the prefix skips them and takes the
    // first eight bytes in which they differ: a key of a few boards and
    // codes, say, is told apart by its prefix instead of by compare(). A key
    // that differs later in a skipped byte gets a prefix cut there, filled
    // with ones if it is above the shared byte and with zeros if below,
    // which keeps the order for any key: the fit only makes prefixes tell
    // apart more of the keys it has seen. Only the first 32 key bytes count.
    // REQUIRES: an empty list; no other list keyed by this index's prefixes.
    void fitKeyPrefix(const QList<Record> &rows);

private:
    void setup();
    quint64 fittedPrefix(const unsigned char *key) const;

    uint64 m_keyOffset = 0; // from the start of the row block, header included
    uint64 m_keySize = 0;
    // The fitted prefix: 0 for the first eight key bytes. Otherwise the
    // bytes read from each key, with the positions that make the prefix and
    // those skipped with the value every fitted key has there.
    int m_fitBytes = 0;
    int m_fitCount = 0; // positions in m_fitPositions
    unsigned char m_fitPositions[8] = {};
    quint64 m_fitShared[4] = {}; // the skipped bytes' values
    quint64 m_fitSkipped[4] = {}; // 0xFF in each skipped byte
};

#endif // TABLEDB_INDEX_MASTERINDEX_FAST_PURE_H
