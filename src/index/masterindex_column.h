#ifndef TABLEDB_INDEX_MASTERINDEX_COLUMN_H
#define TABLEDB_INDEX_MASTERINDEX_COLUMN_H

#include "index/masterindex_column_pure.h"
#include "index/masterindexkey.h"

extern template class TABLEDB_EXPORT MasterIndexKey<MasterIndex_Column_Pure>;

// A master index over key columns of any type, compared cell by cell, with a
// search by packed key beside it (see MasterIndexKey for where the two
// disagree). find() is the search through compare().
class TABLEDB_EXPORT MasterIndex_Column : public MasterIndexKey<MasterIndex_Column_Pure>
{
public:
    // Throw the QString "Column '%1' not found to create index." for an
    // unknown name; the numbers are taken unchecked.
    MasterIndex_Column(Table *table, const QString &column);
    MasterIndex_Column(Table *table, const QStringList &columns);
    MasterIndex_Column(Table *table, const QList<int> &columns);

    QString getClassName() const override; // "MasterIndex_Column"

    // The factories. create() makes the index and attaches it to nothing; a
    // failure is thrown as a QString (the fallback of the Fast kinds repeats
    // the same construction here, so nothing is logged).
    static MasterIndex *create(Table *table, const QStringList &columns);
    // create(), then the table's master index; the former one is deleted.
    static MasterIndex *createMasterIndex(Table *table, const QStringList &columns);
    // create(), then appended to the table's index list (indexAdded is
    // emitted) under `name`. Not filled: the caller builds it.
    static MasterIndex *createIndex(const QString &name, Table *table, const QStringList &columns);
};

#endif // TABLEDB_INDEX_MASTERINDEX_COLUMN_H
