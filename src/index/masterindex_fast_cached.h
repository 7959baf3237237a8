#ifndef TABLEDB_INDEX_MASTERINDEX_FAST_CACHED_H
#define TABLEDB_INDEX_MASTERINDEX_FAST_CACHED_H

#include "index/masterindex_fast.h"
#include "index/masterindexcached.h"

extern template class TABLEDB_EXPORT MasterIndexCached<MasterIndex_Fast>;

// MasterIndex_Fast with a cache of found rows.
class TABLEDB_EXPORT MasterIndex_Fast_Cached : public MasterIndexCached<MasterIndex_Fast>
{
public:
    MasterIndex_Fast_Cached(Table *table, const QStringList &columns);
    MasterIndex_Fast_Cached(Table *table, const QList<int> &columns);

    QString getClassName() const override; // "MasterIndex_Fast_Cached"

    // create() falls back to a MasterIndex_Column_Cached, logging the reason;
    // the other two as for MasterIndex_Column.
    static MasterIndex *create(Table *table, const QStringList &columns);
    static MasterIndex *createMasterIndex(Table *table, const QStringList &columns);
    static MasterIndex *createIndex(const QString &name, Table *table, const QStringList &columns);
};

#endif // TABLEDB_INDEX_MASTERINDEX_FAST_CACHED_H
