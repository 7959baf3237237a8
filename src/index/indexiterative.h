#ifndef TABLEDB_INDEX_INDEXITERATIVE_H
#define TABLEDB_INDEX_INDEXITERATIVE_H

#include "index/partitionlist.h"
#include "table/record.h"

class Table;

// What a list-shaped index shows to those who only want to walk it.
// REQUIRES: the caller holds the table's lock while iterating.
class TABLEDB_EXPORT IndexIterative
{
public:
    virtual ~IndexIterative();

    virtual PartitionList<Record>::const_iterator begin() const = 0;
    virtual PartitionList<Record>::const_iterator end() const = 0;
    virtual int count() const = 0;
    virtual Table *table() = 0;
    virtual const Table *table() const = 0;
};

#endif // TABLEDB_INDEX_INDEXITERATIVE_H
