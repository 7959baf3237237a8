#ifndef TABLEDB_TABLE_TABLE_P_H
#define TABLEDB_TABLE_TABLE_P_H

#include "table/recordstrans.h"
#include "table/rowallocator_p.h"
#include "table/table.h"

#include <QAtomicInt>
#include <QHash>
#include <QMap>
#include <QMutex>
#include <QWaitCondition>
#include <QVector>

class TablePrivate
{
public:
    TablePrivate(Table *table, const QString &name, const QString &title);
    ~TablePrivate();

    // Enters `name` as the number of the column about to be appended.
    void cacheColumn(const QString &name);
    // Remakes stringCells and blankRow after the columns changed.
    void layoutChanged(Table *table);

    // First, so that it goes last: every other member may still free rows.
    RowAllocator rows;
    QString name;
    QString title;
    MasterIndex *masterIndex = nullptr; // owned
    QList<Index *> indexes; // not owned
    QMap<QString, Index *> namedIndexes;
    QList<Index *> dependentIndexes; // not owned
    QList<TableColumnDef *> columns; // owned
    uint64 rowLength = 0;
    uint64 rowSize = 16;
    // Kept with the columns, for the row paths: where the String cells sit
    // (byte offsets in the row), and a row as initRow() leaves it but for its
    // strings, which each row makes for itself.
    QVector<uint64> stringCells;
    QByteArray blankRow;
    // Both always kept; columnIndex() walks the tree while it is small.
    QHash<QString, int> columnHash;
    QMap<QString, int> columnMap;
    QAtomicInt updateDepth;
    Table::TransactionState transactionState = Table::TransactionIdle;
    RecordsTrans pendingTrans; // work that arrived during a transaction
    int rowsProcessed = 0; // by the outermost process() call so far
    // From this many rows in one process() call, freed heap is returned.
    static const int TrimRows = 50000;
    QMutex mutex { QMutex::Recursive };
    // Threads waiting for `mutex` while another holds it. A writer that opens
    // its next bracket lets them in first (see letWaitersIn in table.cpp):
    // the mutex is not fair, and a writer running transactions back to back
    // would otherwise take it again before a woken reader can.
    QAtomicInt lockWaiters;
    QMutex waitersMutex; // guards the wake-up below, not the counter
    QWaitCondition waiterIn;
    // The thread that holds `mutex`, and how deeply; a writer that holds it
    // already has no one to let in. Only the holder writes them.
    QAtomicPointer<void> owner;
    int ownerDepth = 0;
};

#endif // TABLEDB_TABLE_TABLE_P_H
