#ifndef TABLEDB_TABLE_MASTERKEYFORM_P_H
#define TABLEDB_TABLE_MASTERKEYFORM_P_H

#include "runtime/global.h"

#include <vector>

class MasterIndex;
class Record;
class Table;

// How a master index tells keys apart, where it does so by the bytes of its
// rows: the Fast kinds compare one run of key bytes with memcmp; the Column
// kinds over Integer, Integer64 and DateTime cells say equal exactly when the
// null bits agree and the non-null cells' bytes do. Such keys can be hashed
// and compared where they sit, without the master. Any other master (a
// String cell compares by content, a Double NaN equals every number, a
// subclass has its own rule) has no form here: isHashed() is false.
class MasterKeyForm
{
public:
    MasterKeyForm() = default;
    // The form of `master`, a master of `table`.
    static MasterKeyForm of(const MasterIndex *master, const Table *table);

    bool isHashed() const { return m_kind != None; }
    // The prefixes alone order distinct keys: no key needs a whole compare.
    bool isPrefixExact() const { return m_prefixExact; }

    // REQUIRES (all): isHashed(), rows of the table whose form this is.
    uint hashOf(const unsigned char *row) const;
    bool sameKey(const unsigned char *a, const unsigned char *b) const;
    // The start of the key as two numbers that order as the master does: a
    // row whose prefix is lower has the lower key.
    void prefixOf(const unsigned char *row, quint64 *prefix) const;
    // The whole compare, for prefixes that tie.
    bool less(const MasterIndex *master, const Record &a, const Record &b) const;

private:
    enum Kind { None, Bytes, Cells };
    struct Cell
    {
        int offset; // of the cell in the row block
        int width; // 4 or 8
        int nullOffset; // of its null byte in the row block
        unsigned char nullMask;
    };

    Kind m_kind = None;
    bool m_prefixExact = false;
    int m_keyOffset = 0; // Bytes
    int m_keySize = 0;
    std::vector<Cell> m_cells; // Cells
};

#endif // TABLEDB_TABLE_MASTERKEYFORM_P_H
