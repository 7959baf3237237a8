#ifndef TABLEDB_TABLE_RECORDSTRANS_P_H
#define TABLEDB_TABLE_RECORDSTRANS_P_H

#include "table/recordstrans.h"

#include <QList>

#include <set>
#include <vector>

class MasterIndex;

// The entries of a transaction, one per key, in order of arrival, and the
// look-up that finds the entry of a key.
//
// How keys are told apart follows the table's master index, looked at when
// the first entry comes: Bytes for the Fast kinds, which compare one run of
// key bytes with memcmp; Cells for the Column kinds over Integer, Integer64 and
// DateTime cells, whose compare says equal exactly when the null bits and the
// bytes are; both hash into an open-addressed table of entry numbers, so that
// an entry costs no allocation of its own. Any other master (a String cell
// compares by content, a subclass by its own rule) is asked through
// compare(), in an ordered set. If the master changes, the look-up is made
// anew.
class RecordsTransPrivate
{
public:
    struct Entry
    {
        Record key; // the row the entry stands under
        Record change; // RowUpdated: the clone with the new values, or null
        quint64 prefix[2]; // the start of the key in an order-preserving form
        uint hash;
        int code; // a RecordsTrans::Operation; 0 once erased
    };

    // Orders entry numbers, and rows against them, by the master's compare().
    struct KeyLess
    {
        using is_transparent = void;
        const RecordsTransPrivate *d;
        bool operator()(int a, int b) const;
        bool operator()(int a, const Record &b) const;
        bool operator()(const Record &a, int b) const;
    };
    typedef std::set<int, KeyLess> OrderedSet;

    // Where the entry of a key is (`entry`, -1 if none) and where one would go.
    struct Probe
    {
        int entry = -1;
        uint hash = 0;
        int slot = -1;
        OrderedSet::iterator hint;
    };

    explicit RecordsTransPrivate(Table *table);
    // Copies the entries and makes the look-up anew for this object.
    RecordsTransPrivate(const RecordsTransPrivate &other);
    RecordsTransPrivate &operator=(const RecordsTransPrivate &) = delete;

    bool isEmpty() const { return m_live == 0; }
    // REQUIRES: `key` is not null.
    Probe locate(const Record &key);
    // A new entry where `probe` (of locate(key), with nothing entered since)
    // says; its number.
    int add(const Probe &probe, Record key, int code, Record change = Record());
    void erase(int entry);
    void clear();
    // Whether some RowUpdated entry carries a clone.
    bool hasChanges() const;
    // The live entries' numbers in key order. The sort is done once and kept
    // until an entry comes or goes.
    const std::vector<int> &sorted() const;
    // The live entries' numbers in an order that merging may walk: arrival
    // where keys are hashed, key order where compare() decides.
    std::vector<int> walkOrder() const;

    // The lists for the table, the rows moved out of the entries (removals
    // are copied: an IndexLimit may add to that list). restore() moves them
    // back as they were taken, for a transaction that failed.
    void take(QList<Record> &removed, QList<Record> &updated, QList<Record> &inserted,
              QList<Record> &changed);
    void restore(QList<Record> &updated, QList<Record> &inserted, QList<Record> &changed);

    std::vector<Entry> entries;

private:
    enum Mode { Unset, Bytes, Cells, Ordered };
    struct Cell
    {
        int offset; // of the cell in the row block
        int width; // 4 or 8
        int nullOffset; // of its null byte in the row block
        unsigned char nullMask;
    };

    void sync();
    void detect();
    void reindex(bool rehash); // rehash: the mode changed, hashes and prefixes too
    uint hashOf(const unsigned char *row) const;
    bool sameKey(const unsigned char *a, const unsigned char *b) const;
    void prefixOf(const unsigned char *row, quint64 *prefix) const;
    bool keyLess(const Entry &a, const Entry &b) const; // past the prefixes

    Table *m_table;
    Mode m_mode = Unset;
    const MasterIndex *m_master = nullptr; // the master the look-up was made for
    int m_columnCount = 0; // of the table then: a new column may move cells
    int m_keyOffset = 0; // Bytes
    int m_keySize = 0;
    std::vector<Cell> m_cells; // Cells
    bool m_prefixExact = false; // the prefixes alone order distinct keys

    int m_live = 0;
    std::vector<int> m_slots; // Bytes, Cells: entry number + 1; 0 free, -1 erased
    int m_usedSlots = 0; // taken or erased
    OrderedSet m_ordered; // Ordered

    mutable std::vector<int> m_sorted;
    mutable bool m_sortedValid = false;

    // What take() moved, by list position, for restore().
    std::vector<int> m_takenUpdated;
    std::vector<int> m_takenInserted;
    std::vector<int> m_takenChanged;
};

#endif // TABLEDB_TABLE_RECORDSTRANS_P_H
