#ifndef TABLEDB_JOIN_JOINROWFINDER_P_H
#define TABLEDB_JOIN_JOINROWFINDER_P_H

#include "index/masterindex_fast.h"
#include "table/masterkeyform_p.h"
#include "table/record.h"

#include <vector>

class IndexSort;
class MasterIndex;
struct RecordsRanges;

// What the join table's master find(row, -1) gives, for the join rows that a
// join is about to write. A search costs some twenty compares, each a cache
// miss on a row block. When the rows written are a good part of the table, one
// walk over the master notes which of them stand first among the rows of
// their key, which is exactly the row that find() gives; those need no
// search, the others still ask find().
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

    // Whether find(row, -1) is known to give `row` itself.
    bool isFirst(const Record &row) const;
    // master->find(row, -1).
    Record find(const Record &row) const;
    // Starts loading what find(row) reads, for a row asked for soon.
    void prefetch(const Record &row) const
    {
        if (m_fast && !isFirst(row))
            m_fast->prefetchFind(row);
    }

private:
    void mark(std::vector<quint64> &bits, const unsigned char *row) const;
    bool isMarked(const std::vector<quint64> &bits, const unsigned char *row) const;

    const MasterIndex *m_master;
    const MasterIndex_Fast *m_fast; // a master that can prefetch its search
    MasterKeyForm m_form; // to tell neighbours apart without compare()
    bool m_eligible;
    bool m_walked = false;
    std::vector<const unsigned char *> m_expected;
    // Rows by address, a bit for each 16 bytes from the lowest row expected.
    const unsigned char *m_low = nullptr;
    std::vector<quint64> m_expectedBits;
    std::vector<quint64> m_firstBits; // of these, those first among their key
};

#endif // TABLEDB_JOIN_JOINROWFINDER_P_H
