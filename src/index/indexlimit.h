#ifndef TABLEDB_INDEX_INDEXLIMIT_H
#define TABLEDB_INDEX_INDEXLIMIT_H

#include "index/indexsort.h"

class MasterIndex;

// A sorted index that caps its table's size: before each transaction the table
// asks it which rows to evict, and those are the first rows of its order.
// The table finds it by the index name "IndexLimit", which the constructor sets,
// so only one per table takes effect.
class TABLEDB_EXPORT IndexLimit : public IndexSort
{
public:
    IndexLimit(int limit, Table *table);

    // Takes effect at the next transaction; evicts nothing by itself.
    void setLimit(int limit) { m_limit = limit; }
    int limit() const { return m_limit; }

    // Adds to `removed`, in the master index's order, the rows to evict so that
    // the table keeps to its limit after a change of `delta` rows. A row that
    // is already leaving or being updated is skipped but still counts, so the
    // eviction can fall short and the table exceed its limit for a while.
    // REQUIRES: `removed` and `updated` in the master index's order.
    virtual void toRemove(int delta, QList<Record> &removed, const QList<Record> &updated);

    QString getClassName() const override;

protected:
    // Binary search of `list`, which is in the master index's order.
    bool containsRecord(const QList<Record> &list, const Record &record) const;

private:
    int m_limit;
    MasterIndex *m_master; // the table's master at construction; not owned
};

#endif // TABLEDB_INDEX_INDEXLIMIT_H
