#ifndef TABLEDB_INDEX_MASTERINDEX_FAST_H
#define TABLEDB_INDEX_MASTERINDEX_FAST_H

#include "index/masterindex_fast_pure.h"
#include "index/masterindexkey.h"

#include <memory>

class MasterKeyHash;

extern template class TABLEDB_EXPORT MasterIndexKey<MasterIndex_Fast_Pure>;

// A master index ordered by the raw bytes of adjacent, fixed-width,
// non-nullable key columns (see MasterIndex_Fast_Pure), with a search by
// packed key that agrees with its order. Beside its list it keeps the rows by
// their key bytes, so that findKey() from the start costs O(1) while no key is
// held twice.
class TABLEDB_EXPORT MasterIndex_Fast : public MasterIndexKey<MasterIndex_Fast_Pure>
{
public:
    // Throw a QString when the columns do not qualify.
    MasterIndex_Fast(Table *table, const QStringList &columns);
    MasterIndex_Fast(Table *table, const QList<int> &columns);
    ~MasterIndex_Fast() override;

    // The row of `key`, the first in order if several: from -1 and a key of
    // this index's length it is looked up by hash and allocates nothing,
    // otherwise it is searchKey()'s row. Hides MasterIndexKey::findKey.
    Record findKey(const MasterKey &key, int from) const;
    // findKey() of `size` key bytes that need not be in a MasterKey.
    Record findKeyBytes(const char *key, int size, int from) const;
    // A hint, changing nothing: starts loading what a find() of the key in
    // `record` from -1 reads first, so that a loop can ask some rows ahead.
    // `record` must be a row of this index's table (or of its layout).
    void prefetchFind(const Record &record) const;

    void add(const Record &record) override;
    void clear() override;
    void remove(const Record &record, int index) override;
    void removeRanges(const RangeSet<int> &ranges) override;
    void update(const Record &record, int first, int last, int index) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override;

    QString getClassName() const override; // "MasterIndex_Fast"

    // Fills an empty index with the rows of a table being read, which no one
    // looks at until the filler is done: each row goes into the list as it
    // comes, while it is still in the cache, and finish() sorts the list and
    // enters the keys once. The index ends as process() with all appended rows
    // as `inserted` leaves an empty index. finish() may throw std::bad_alloc;
    // call it before the filler goes (the destructor finishes an unfinished
    // filler, and a failure there ends the program).
    // REQUIRES: the index is empty and is not otherwise used meanwhile.
    class TABLEDB_EXPORT Filler
    {
    public:
        explicit Filler(MasterIndex_Fast *index);
        ~Filler();
        Filler(const Filler &) = delete;
        Filler &operator=(const Filler &) = delete;

        // Takes `row` over.
        void append(Record &&row);
        // Drops the rows appended after the first `n`.
        void keepFirst(int n);
        void finish();

    private:
        MasterIndex_Fast *m_index;
        bool m_done = false;
    };

    // create() falls back to a MasterIndex_Column when the columns do not
    // qualify, and logs the reason as a warning; the fallback's own failure
    // (an unknown column) is thrown. The other two as for MasterIndex_Column.
    static MasterIndex *create(Table *table, const QStringList &columns);
    static MasterIndex *createMasterIndex(Table *table, const QStringList &columns);
    static MasterIndex *createIndex(const QString &name, Table *table, const QStringList &columns);

private:
    // Enters the list's rows afresh: after a key was written in place.
    void rehash();
    // process() of an empty index given only new rows (a table being read).
    // REQUIRES: key prefixes.
    void fill(const QList<Record> &inserted);
    // Sorts the list beside its prefixes and enters its keys afresh.
    void sortFilled();

    std::unique_ptr<MasterKeyHash> m_keys;
};

#endif // TABLEDB_INDEX_MASTERINDEX_FAST_H
