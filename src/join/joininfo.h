#ifndef TABLEDB_JOIN_JOININFO_H
#define TABLEDB_JOIN_JOININFO_H

#include "join/col.h"

#include <QVector>

class MasterIndex;
class Table;
class TableJoinDep;

// What a join knows of its join table; made by TableJoin, shared with its
// TableJoinMain.
struct JoinMainInfo
{
    MasterIndex *master = nullptr; // the key of the join: its columns are the key columns
    MasterIndex *tableMaster = nullptr; // the join table's own master index
    Table *table = nullptr; // the join table, `master`'s table; null once it is destroyed
    QVector<int> keyColumns; // master's columns, ascending
};

// What a join knows of one dependent table; made by TableJoin, shared with its
// TableJoinMain, and read by this dependent's TableJoinDep.
struct JoinDepInfo
{
    MasterIndex *depMaster = nullptr; // the dependent's master; null once its table is destroyed
    MasterIndex *mainMaster = nullptr; // JoinMainInfo::master
    QVector<Col> depToMain; // key columns: target dependent, source join column; in key order
    QVector<Col> depToMainSorted; // the same by source
    QVector<Col> mainToDep; // key columns: target join column, source dependent column
    QVector<Col> mainToDepSorted; // the same by source
    QVector<Col> copyColumns; // target join column, source dependent column; ascending targets
    QVector<Col> copyColumnsSorted; // the same by source
    Table *table = nullptr; // the join table
    Table *depTable = nullptr; // depMaster's table; null once it is destroyed
    TableJoinDep *index = nullptr; // the index on the dependent table
};

#endif // TABLEDB_JOIN_JOININFO_H
