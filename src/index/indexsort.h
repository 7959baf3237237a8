#ifndef TABLEDB_INDEX_INDEXSORT_H
#define TABLEDB_INDEX_INDEXSORT_H

#include "index/indexlist.h"

#include <QMap>

#include <memory>
#include <utility>
#include <vector>

class IndexSortPrivate;

// An index whose rows stand in the order of compare(): for two neighbours a
// before b, compare(a, b) <= 0. Equal keys are allowed and keep their order of
// arrival; a new row goes behind the rows of its key, and sorting is stable.
//
// Between a change of a row and the process() or update() that reports it, the
// order may not hold for that row; every search by identity copes with that.
//
// Deliberate deviation: batches find every removed and updated row where it
// really stands, also when its key jumped past its neighbours, so the view
// always holds exactly the rows that pass filter(), each once, in order. The
// older search by address paired such rows with strangers and lost or doubled
// rows. A row written in place must be reported (Table::updated, or a batch
// that pairs the row with itself) before a later batch pairs it with a clone.
class TABLEDB_EXPORT IndexSort : public IndexList
{
public:
    // The order as a less-than predicate, for the sorts.
    class LessThan
    {
    public:
        explicit LessThan(const IndexSort *index) : m_index(index) { }
        bool operator()(const Record &a, const Record &b) const
        {
            return m_index->compare(a, b) < 0;
        }

    private:
        const IndexSort *m_index;
    };

    // What keyPrefix() promises.
    enum KeyPrefixKind {
        NoKeyPrefix, // keyPrefix() is not used
        PartialKeyPrefix, // ordered with compare(); equal prefixes say nothing
        ExactKeyPrefix // equal prefixes also mean compare() == 0
    };

    IndexSort(Table *table, bool registered);
    IndexSort(const QString &tableName, bool registered);
    ~IndexSort() override;

    // Negative, 0 or positive. Must accept any two rows of the table, also rows
    // that are in no index, and must be safe on several threads at once: the
    // parallel sort calls it from pool threads. Must not write.
    virtual int compare(const Record &a, const Record &b) const = 0;

    // An optional 64-bit summary of a row's key that keeps the order, so that
    // searches and batches compare numbers instead of reading rows. The index
    // keeps the prefix of each row beside it, taken when the row was placed,
    // so a key search sees a row written in place but not yet reported as it
    // was. Searches and batches call compare() only between rows of equal
    // prefix, and never with ExactKeyPrefix; update() of one row and
    // searchFull() still compare rows. keyPrefixKind() is asked once, at the
    // index's first change, and must not change afterwards. NoKeyPrefix by
    // default.
    // REQUIRES: keyPrefix(a) < keyPrefix(b) implies compare(a, b) < 0, for any
    // two rows that compare() accepts; with ExactKeyPrefix also keyPrefix(a) ==
    // keyPrefix(b) implies compare(a, b) == 0. The same rules as for compare()
    // on threads and writes.
    virtual KeyPrefixKind keyPrefixKind() const;
    virtual quint64 keyPrefix(const Record &row) const;
    // Order-keeping prefixes of common values, for keyPrefix() overrides.
    static quint64 prefixOf(qint64 value) { return quint64(value) ^ (quint64(1) << 63); }
    // A prefix of a cell that keeps Field::compare()'s order among the cells of
    // one column, NULL lowest: partial, never exact. Integer, Integer64 and
    // DateTime by value, Decimal by its value in ten-thousandths rounded down,
    // VarChar and String by their first four UTF-16 units; other types give
    // the same prefix to every value.
    static quint64 prefixOf(const Field &field);

    // In the searches `from` is exclusive (-1 searches everything) and -1 as a
    // result means not found. O(log n) compares; they allocate nothing.

    // The row at search(record, from), or an empty Record.
    virtual Record find(const Record &record, int from) const;
    // The first row of an equal key after `from`.
    virtual int search(const Record &record, int from) const;
    // The last row of an equal key after `from`.
    virtual int searchLast(const Record &record, int from) const;
    // A linear walk for an order the key doesn't follow. The result counts the
    // rows stepped over from `from` + 1, so it is a position only for from = -1;
    // callers depend on that offset, so it is kept.
    virtual int searchFull(const Record &record, int from) const;
    // A full stable sort; does nothing on an empty index.
    virtual void resort();

    // IndexList::build(), then resort(). When add() is IndexSort's own, the
    // rows are appended and sorted once instead of placed one by one, which
    // gives the same order.
    void build() override;
    // Inserts behind the rows of an equal key; filter() is the caller's affair.
    void add(const Record &record) override;
    // Re-places one row. With index -1 the row is looked for by key and, if its
    // key has moved, by a linear scan, which logs a warning.
    void update(const Record &record, int first, int last, int index) override;
    // Finds a row even if its key changed since it was placed (linear fallback).
    int indexOf(const Record &record) const override;
    // Notes where the rows of `updated` stand while they hold their old
    // values, and which of them keep their key and filter(), so that process()
    // need not look for them again.
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first,
                    int last, const QList<Record> &inserted,
                    const QList<Record> &changed) override;
    // One batch: finds all affected rows at once, removes in one pass, sorts
    // what comes in and inserts it with one block insertion per place. An
    // updated row stays if its key is known unchanged, or if it is in order
    // with the nearest row kept before it and the nearest untouched row after
    // it; otherwise it goes behind the rows of its key.
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override;
    QString getClassName() const override;

    // The position of each row of `records`, or -1 for a row the index doesn't
    // hold; nothing else. Rows are found by key, and those whose key moved by
    // one linear walk for all of them together.
    QMap<Record, int> indexOfs(QList<Record> records) const;

protected:
    // Where a new row of this key goes: behind all rows of an equal key.
    int indexOfAdd(const Record &record) const;
    // True when a batch that writes only columns first..last (-1, -1: all) can
    // neither move a row of this index nor change its filter(); the updated
    // rows are then left where they stand, unlooked-at. False by default.
    virtual bool unaffectedBy(int first, int last) const;

private:
    friend class IndexSortPrivate;
    // The first position whose row is above `record` (upper) or not below it,
    // with its iterator.
    std::pair<int, PartitionList<Record>::const_iterator> bound(const Record &record,
                                                                bool upper) const;
    // Starts keeping key prefixes if the subclass gives them; writers call it.
    void checkKeyPrefix();
    // compare() of two rows with their prefixes (0 for an index without).
    int compareKeyed(quint64 ka, const Record &a, quint64 kb, const Record &b) const;
    // The stored prefix at `it`, 0 for an index without.
    quint64 keyAt(PartitionList<Record>::const_iterator it) const;
    // The prefix of `row`'s present values, 0 for an index without.
    quint64 prefixNow(const Record &row) const;
    // search() without the virtual call; without `byPrefix` it reads rows only.
    int searchFirst(const Record &record, int from, bool byPrefix = true) const;
    // Moves the row at `p` to where its key now belongs.
    void replace(const Record &record, int p);
    // The last step of process() for an index with prefixes: sorts the rows
    // that come in and inserts them with theirs.
    void placeKeyed(const std::vector<const Record *> &incoming);

    std::unique_ptr<IndexSortPrivate> d;
};

#endif // TABLEDB_INDEX_INDEXSORT_H
