#ifndef TABLEDB_TABLE_RECORDSTRANS_P_H
#define TABLEDB_TABLE_RECORDSTRANS_P_H

#include "table/masterkeyform_p.h"
#include "table/recordstrans.h"

#include <QList>

#include <set>
#include <vector>

class MasterIndex;

// The entries of a transaction, one per key, in order of arrival, and the
// look-up that finds the entry of a key.
//
// How keys are told apart follows the table's master index, looked at when
// the first entry comes: where it has a MasterKeyForm, keys are hashed into
// an open-addressed table of entry numbers, so that an entry costs no
// allocation of its own; any other master is asked through compare(), in an
// ordered set. If the master changes, the look-up is made anew.
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
        bool after = false; // the key follows every entry: no look-up needed
        quint64 prefix[2] = { 0, 0 };
        uint hash = 0;
        int slot = -1;
        OrderedSet::iterator hint;
    };

    explicit RecordsTransPrivate(Table *table);
    // Copies the entries and the look-up; the ordered set is entered anew, its
    // compare bound to this object.
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
    void reserve(int rows);
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
    enum Mode { Unset, Hashed, Ordered };

    void sync();
    void detect();
    // Makes the look-up anew, with room for `room` more entries; rehash: the
    // mode changed, hashes and prefixes too. A failed allocation changes nothing.
    void reindex(bool rehash, int room = 0);

    Table *m_table;
    Mode m_mode = Unset;
    const MasterIndex *m_master = nullptr; // the master the look-up was made for
    int m_columnCount = 0; // of the table then: a new column may move cells
    MasterKeyForm m_form; // Hashed

    int m_live = 0;
    int m_room = 0; // live entries that reserve() asked the look-up to hold
    // Hashed: while keys come in rising order, a new key is told by its prefix
    // alone and the entries are already sorted; they are hashed at the first
    // key that does not rise.
    bool m_inOrder = true;
    quint64 m_lastPrefix[2] = { 0, 0 };
    std::vector<int> m_slots; // Hashed: entry number + 1; 0 free, -1 erased
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
