#ifndef TABLEDB_JOIN_JOINROWFINDER_P_H
#define TABLEDB_JOIN_JOINROWFINDER_P_H

#include "table/record.h"

#include <vector>

class IndexSort;
class MasterIndex;
struct RecordsRanges;

// What the join table's master find(row, -1) gives, for the join rows that a
// join is about to write. A search costs some twenty compares, each a cache
// miss on a row block. When the rows written are a good part of the table, one
// walk over the master notes which of them stand first among the rows of
// their key, which is exactly the row that find() gives; those come back
// without a search, the others from find() itself.
//
// Only for masters whose find() is the plain binary search of a list in
// compare() order, and whose compare() is a total order: a cached master
// remembers what it finds (and may answer with a row whose key has moved
// since), a subclass may find in its own way, and a NaN compares equal to
// every number.
// REQUIRES: the master does not change between expect() and the last find().
class JoinRowFinder
{
public:
    explicit JoinRowFinder(const MasterIndex *master);

    // Whether `master` qualifies: its find() gives the first row of the key.
    static bool findsBySearch(const MasterIndex *master);

    // Rows about to be asked for: the records of `ranges`, or the rows at the
    // positions of `ranges` in `index`.
    void expectRecords(const RecordsRanges &ranges);
    void expectPositions(const RecordsRanges &ranges, const IndexSort *index);
    // Walks the master if that costs less than searching for the rows expected.
    void prepare();

    // master->find(row, -1).
    Record find(const Record &row) const;

private:
    struct Slot
    {
        const unsigned char *row;
        bool first; // the first row of its key in the master
    };
    Slot *slotOf(const unsigned char *row);
    const Slot *slotOf(const unsigned char *row) const;

    const MasterIndex *m_master;
    bool m_eligible;
    bool m_walked = false;
    std::vector<const unsigned char *> m_expected;
    std::vector<Slot> m_slots; // open addressing by row address
};

#endif // TABLEDB_JOIN_JOINROWFINDER_P_H
