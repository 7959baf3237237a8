#ifndef TABLEDB_INDEX_MASTERINDEX_FAST_H
#define TABLEDB_INDEX_MASTERINDEX_FAST_H

#include "index/masterindex_fast_pure.h"
#include "index/masterindexkey.h"

extern template class TABLEDB_EXPORT MasterIndexKey<MasterIndex_Fast_Pure>;

// A master index ordered by the raw bytes of adjacent, fixed-width,
// non-nullable key columns (see MasterIndex_Fast_Pure), with a search by
// packed key that agrees with its order.
class TABLEDB_EXPORT MasterIndex_Fast : public MasterIndexKey<MasterIndex_Fast_Pure>
{
public:
    // Throw a QString when the columns do not qualify.
    MasterIndex_Fast(Table *table, const QStringList &columns);
    MasterIndex_Fast(Table *table, const QList<int> &columns);

    QString getClassName() const override; // "MasterIndex_Fast"

    // create() falls back to a MasterIndex_Column when the columns do not
    // qualify, and logs the reason as a warning; the fallback's own failure
    // (an unknown column) is thrown. The other two as for MasterIndex_Column.
    static MasterIndex *create(Table *table, const QStringList &columns);
    static MasterIndex *createMasterIndex(Table *table, const QStringList &columns);
    static MasterIndex *createIndex(const QString &name, Table *table, const QStringList &columns);
};

#endif // TABLEDB_INDEX_MASTERINDEX_FAST_H
