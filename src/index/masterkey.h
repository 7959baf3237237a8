#ifndef TABLEDB_INDEX_MASTERKEY_H
#define TABLEDB_INDEX_MASTERKEY_H

#include "runtime/global.h"

#include <QByteArray>
#include <QHash>

// The packed bytes of a key as the row stores them: each key cell at its
// 8-aligned width, in key order, in the machine's byte order, null flags
// excluded. A String cell contributes its reference, not its characters.
// Equal when lengths and bytes are equal.
class TABLEDB_EXPORT MasterKey : public QByteArray
{
public:
    MasterKey() = default;
    MasterKey(const QByteArray &bytes) : QByteArray(bytes) { }
    MasterKey(const char *bytes, int size) : QByteArray(bytes, size) { }
    MasterKey(int size, char fill) : QByteArray(size, fill) { }
};

Q_DECLARE_TYPEINFO(MasterKey, Q_MOVABLE_TYPE);

// The XOR of the key's 32-bit little-endian words, then of `seed`. Key lengths
// are multiples of 8, but a trailing partial word is taken zero-padded.
TABLEDB_EXPORT uint qHash(const MasterKey &key, uint seed = 0) noexcept;
// The same hash of key bytes that are not in a MasterKey.
TABLEDB_EXPORT uint masterKeyHash(const char *bytes, int size, uint seed) noexcept;

#endif // TABLEDB_INDEX_MASTERKEY_H
