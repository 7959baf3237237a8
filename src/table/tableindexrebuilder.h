#ifndef TABLEDB_TABLE_TABLEINDEXREBUILDER_H
#define TABLEDB_TABLE_TABLEINDEXREBUILDER_H

#include "runtime/global.h"

#include <QList>
#include <QPair>
#include <QString>

class Index;
class Table;

// Takes all indexes off a table for its lifetime and puts them back rebuilt,
// group by group: join dependents first, then "IndexDepend..." classes, then
// the rest. Rows added meanwhile reach only the master index.
class TABLEDB_EXPORT TableIndexRebuilder
{
public:
    explicit TableIndexRebuilder(Table *table);
    ~TableIndexRebuilder();

    // A copy would put every index back twice.
    TableIndexRebuilder(const TableIndexRebuilder &) = delete;
    TableIndexRebuilder &operator=(const TableIndexRebuilder &) = delete;

protected:
    void detectIndexGroup(const QList<Index *> &list);

private:
    Table *table;
    QList<QPair<Index *, QString> *> savedIndexes;
    QList<Index *> joinDepGroup;
    QList<Index *> dependGroup;
    QList<Index *> otherGroup;
};

#endif // TABLEDB_TABLE_TABLEINDEXREBUILDER_H
