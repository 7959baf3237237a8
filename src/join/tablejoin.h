#ifndef TABLEDB_JOIN_TABLEJOIN_H
#define TABLEDB_JOIN_TABLEJOIN_H

#include "join/col.h"
#include "join/joininfo.h"
#include "join/recordsranges.h"
#include "join/tablejoindep.h"
#include "join/tablejoinmain.h"

#include <QList>
#include <QString>
#include <QStringList>

class Index;
class IndexDependBase;
class MasterIndex;
class QDir;
class QObject;
class Table;
class TableJoinPrivate;

// Widens an existing table, the join table, with copies of columns of other
// tables (the dependents) and keeps the copies up to date. A join row matches
// a dependent row when the key columns of the join's key index are equal; the
// dependent's columns of the same names hold its side of the key.
//
// Construction adds the copied columns to the join table (nullable whatever
// the source says; a name taken already becomes "name_", "<dependent>_name",
// "name2", "name3", ...; a requested name that a dependent lacks is not copied
// from it), fills them from the present rows, and attaches a TableJoinMain to
// the join table and a TableJoinDep to each dependent; the join owns both.
// The added columns stay in the join table for good: after the join is gone
// they keep their last values and are no longer maintained.
//
// Deliberate, beyond the bare join: construction checks its input before
// changing anything and throws, leaving every table as it was; a dependent
// table destroyed first nulls its copies and leaves the join working without
// it; a join table destroyed first detaches the join from the dependents.
//
// REQUIRES: no other thread uses the join table or a dependent table during
// construction and destruction.
class TABLEDB_EXPORT TableJoin
{
public:
    // The key is the join table's master index.
    TableJoin(Table *main, const QList<Table *> &dependents, const QStringList &columnNames,
        bool registerJoin = true);
    // The key is `main`, a key index in the index list of the join table
    // (e.g. by instrument over orders keyed by order number); the join's
    // index goes behind it into that list.
    TableJoin(MasterIndex *main, const QList<Table *> &dependents, const QStringList &columnNames,
        bool registerJoin = true);
    // Attached as dependent indexes: the keys are the base indexes, which
    // must be master indexes.
    TableJoin(IndexDependBase *main, const QList<IndexDependBase *> &dependents,
        const QStringList &columnNames, bool registerJoin = true);
    // Throws, before anything has changed:
    // - Exception naming the tables and the column, when a dependent lacks a
    //   key column, a source is not a master index of a table, a table is
    //   given twice or is its own dependent;
    // - QString "Column '%1' already exists for table '%2'." when a copied
    //   column's name would differ from a present one only in letter case.
    // With `registerJoin` the host's table registry is told of the join (with
    // no host installed nothing happens).

    // Detaches and deletes the join's indexes.
    ~TableJoin();

    // The join table; null once it has been destroyed.
    Table *table() const;
    // Where the join table is saved in `dir`, as TableIO names it. Empty once
    // the table is destroyed.
    QString fileName(const QDir &dir) const;
    // The join table of a join index, or null for any other index.
    static Table *table(Index *index);
    // Whether `index` is a join index; if so, and `isDependent` is given, it
    // tells which kind. For other indexes `*isDependent` is left as it is.
    static bool isJoinIndex(Index *index, bool *isDependent = nullptr);

    TableJoinMain *mainIndex() const;
    // In the order of the dependents given.
    QList<TableJoinDep *> dependentIndexes() const;

private:
    void init(MasterIndex *main, const QList<MasterIndex *> &dependents,
        const QStringList &columnNames, bool registerJoin, Table *mainTable,
        IndexDependBase *mainDepend, const QList<Table *> &depTables,
        const QList<IndexDependBase *> &depDepends);
    void check(MasterIndex *main, const QList<MasterIndex *> &dependents,
        const QStringList &columnNames) const;
    void setup(MasterIndex *main, const QList<MasterIndex *> &dependents,
        const QStringList &columnNames, bool registerJoin, Index **mainIndexOut,
        QList<Index *> *depIndexesOut);
    void setupIndex(Table *table, Index *index, bool isMain);
    void setupIndex(IndexDependBase *depend, Index *index, bool isMain);
    void build();
    void connectIndexes();
    void disconnectIndexes();
    void watchTables();
    void tableDestroyed(QObject *table);
    void release();
    static QList<MasterIndex *> typeToMaster(const QList<Table *> &tables);
    static QList<MasterIndex *> typeToMaster(const QList<IndexDependBase *> &depends);

    TableJoinPrivate *d_ptr;
    Q_DECLARE_PRIVATE(TableJoin)
    Q_DISABLE_COPY(TableJoin)
};

#endif // TABLEDB_JOIN_TABLEJOIN_H
