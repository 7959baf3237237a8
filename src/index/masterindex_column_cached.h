#ifndef TABLEDB_INDEX_MASTERINDEX_COLUMN_CACHED_H
#define TABLEDB_INDEX_MASTERINDEX_COLUMN_CACHED_H

#include "index/masterindex_column.h"
#include "index/masterindexcached.h"

extern template class TABLEDB_EXPORT MasterIndexCached<MasterIndex_Column>;

// MasterIndex_Column with a cache of found rows. Its find() takes the key
// path (packed bytes), not compare(): on columns whose byte order differs
// from their value order it may miss rows that MasterIndex_Column::find finds.
class TABLEDB_EXPORT MasterIndex_Column_Cached : public MasterIndexCached<MasterIndex_Column>
{
public:
    MasterIndex_Column_Cached(Table *table, const QString &column);
    MasterIndex_Column_Cached(Table *table, const QStringList &columns);
    MasterIndex_Column_Cached(Table *table, const QList<int> &columns);

    QString getClassName() const override; // "MasterIndex_Column_Cached"

    // As those of MasterIndex_Column.
    static MasterIndex *create(Table *table, const QStringList &columns);
    static MasterIndex *createMasterIndex(Table *table, const QStringList &columns);
    static MasterIndex *createIndex(const QString &name, Table *table, const QStringList &columns);
};

#endif // TABLEDB_INDEX_MASTERINDEX_COLUMN_CACHED_H
