#ifndef TABLEDB_INDEX_INDEXSORT_P_H
#define TABLEDB_INDEX_INDEXSORT_P_H

#include "index/indexsort.h"

#include <QList>
#include <QVector>

// One row that a batch asks about, with what is known of its place.
struct IndexSortEntry
{
    // Values of `position` besides a real place.
    enum { NotFound = -1, Unknown = -2, Kept = -3 };

    const Record *row; // borrowed from the caller's lists
    int position;
    int order; // place in `updated`, -1 for a removed row
};

class IndexSortPrivate
{
public:
    // What preprocess() learnt while the rows of `updated` still held their old
    // values: one IndexSortEntry position per row, Kept for a row whose key and
    // filter() did not change. `updated` shares the caller's list, so that
    // process() can tell that it is given the same batch.
    QList<Record> updated;
    QVector<int> places;
    // Likewise for `removed`, looked up with them so that both share one walk
    // of a long run of equal keys.
    QList<Record> removed;
    QVector<int> removedPlaces;
    // Whether `places` were noted for `given` itself: the list preprocess()
    // kept shares its data with it.
    static bool isNoted(const QList<Record> &kept, const QVector<int> &places,
                        const QList<Record> &given)
    {
        return places.size() == given.size() && kept.constBegin() == given.constBegin();
    }

    bool prefixChecked = false; // keyPrefixKind() asked
    bool exact = false; // ExactKeyPrefix
    bool appending = false; // build() fills the list and sorts it once

    // The list's key function: the owner's keyPrefix().
    static quint64 prefixOfRow(const void *index, const Record &row);
    // Whether the object's final overrider of a virtual member of IndexSort is
    // IndexSort's own. False where that cannot be told.
    static bool isOwnAdd(const IndexSort *index);
    static bool isOwnResort(const IndexSort *index);

    // One entry per row, the first of each in the order given. A row that
    // `updated` lists more than once ends with the values of its last pair, so
    // no pair alone can say that it keeps its key: unless `keepKept`, such a
    // row loses its Kept mark and is looked at.
    static void dedupe(QVector<IndexSortEntry> &entries, bool keepKept);
    // The position of `row` found by its key and identity, or Unknown.
    static int findByKey(const IndexSort &index, const Record &row);
    // findByKey() of each row, into `positions`. With exact prefixes the rows
    // are looked up in the order of their prefixes, each search starting where
    // the last one ended, so that a batch walks the list about once.
    static void findAllByKey(const IndexSort &index, const QVector<const Record *> &rows,
                             QVector<int> &positions);
    // Gives every entry that isn't Kept its position in `index`, or NotFound.
    // Exact: positions from preprocess() are checked, the others are looked for
    // by key and then, for rows whose key moved, by one walk over the list.
    static void locate(const IndexSort &index, QVector<IndexSortEntry> &entries);
};

#endif // TABLEDB_INDEX_INDEXSORT_P_H
