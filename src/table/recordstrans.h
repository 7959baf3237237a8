#ifndef TABLEDB_TABLE_RECORDSTRANS_H
#define TABLEDB_TABLE_RECORDSTRANS_H

#include "table/record.h"

#include <QList>

class RecordsTransPrivate;
class Table;

// A set of intended inserts, updates and removals of one table, merged per key
// and handed to the table in one piece, so that each index does its work once.
//
// An update is pending as two images: the table's own block under RowUpdated,
// unchanged, and a clone with the new values beside it in the same entry, so
// that an updated row costs one entry and one clone. Entries are kept in order
// of arrival and put in key order once, when the lists are taken (not at all
// when the keys came in rising order). Where the master index compares keys
// by their bytes (the Fast kinds, and the Column kinds over Integer, Integer64
// and DateTime cells) a key is found by hash and an entry allocates nothing;
// other masters are asked through compare(), in O(log n) compares and a node
// per entry.
// A transaction is applied when executed or destroyed. It belongs to one thread
// and takes no lock: the caller holds the table's update bracket.
class TABLEDB_EXPORT RecordsTrans
{
public:
    enum Operation { RowInserted = 1, RowRemoved = 2, RowUpdated = 3 };

    explicit RecordsTrans(Table *table);
    // A copy holds the same rows and clones; each copy is applied when it goes.
    RecordsTrans(const RecordsTrans &other);
    RecordsTrans &operator=(const RecordsTrans &other);
    // Applies what is pending. An exception from an index while doing so ends
    // the program, unless the transaction is being destroyed by stack
    // unwinding: then the second exception is logged and dropped, so that the
    // first one reaches its handler.
    ~RecordsTrans() noexcept;

    // Forgets all pending work; the column range stays.
    void clear();
    // Room for `rows` more keys, for a transaction whose size is known ahead:
    // its entries and their look-up then grow once. Changes nothing else.
    void reserve(int rows);
    bool isEmpty() const;
    bool contains(const Record &record) const;

    // The inclusive range of columns that updates touch; maxColumn() <
    // minColumn() means that no range was stated, and all columns count.
    int minColumn() const { return m_minColumn; }
    int maxColumn() const { return m_maxColumn; }
    void extendColumns(int first, int last);
    Table *table() const { return m_table; }

    // Keys of the operations with that code, in key order. updateList() and
    // changeList() match position by position.
    QList<Record> insertList() const;
    QList<Record> removeList() const;
    QList<Record> updateList() const;
    QList<Record> changeList() const;

    // Merges by the per-key rules; `other` is not emptied.
    void merge(RecordsTrans &other);
    void merge(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
               const QList<Record> &inserted, const QList<Record> &changed);

    // Exchanges everything with `other` (both must be of the same table).
    void swap(RecordsTrans &other) noexcept;

protected:
    // States the range if it is unstated, then hands a non-empty transaction
    // to the table. Exceptions from indexes pass.
    void execute();
    void mergeInsertedRow(const Record &row);
    void mergeRemovedRow(const Record &row);
    void mergeUpdatedRow(const Record &row, const Record &change, int first, int last);

private:
    RecordsTransPrivate *data(); // made on first use
    QList<Record> keysWithCode(int code, bool changes) const;

    int m_minColumn;
    int m_maxColumn;
    RecordsTransPrivate *d; // null while nothing was ever entered
    Table *m_table;
    int m_uncaughtAtCreation; // to tell destruction by unwinding

    friend class RecordUpdater;
    friend class Table;
};

// Write access to one row within a transaction. Made on a key: a row of the
// table is cloned once per key and transaction (later updaters of that key
// share the clone); a key the table does not hold becomes an insert of the
// caller's row. Must not outlive the transaction.
class TABLEDB_EXPORT RecordUpdater : public Record
{
public:
    // `from` is passed on to the master index's find().
    RecordUpdater(const Record &key, RecordsTrans &trans, int from = -1);
    RecordUpdater(const RecordUpdater &other) = default;
    RecordUpdater(RecordUpdater &&other) = default;
    ~RecordUpdater() = default;

    // Whether the row was in the table when the updater was made.
    bool isFound() const { return m_found; }

    // Copies all columns (unless it is the same row) and states all columns.
    RecordUpdater &operator=(const Record &other);
    void copy(const Record &other);
    void copy(const Record &other, int first, int last);
    void setNull(int column);
    void setNull(const QString &name);
    // A pending insert is cancelled; anything else becomes a removal.
    void remove();

protected:
    // An updater on no row yet, for a subclass that finds the row in its own
    // way and then calls updateInMap() or insertInMap().
    explicit RecordUpdater(RecordsTrans &trans);

    void extendColumns(int first, int last);
    void findInMaster(const Record &key, int from);
    void updateInMap();
    void insertInMap(const Record &key);

private:
    RecordsTrans *m_trans;
    bool m_found;
    int m_node; // the number of the row's entry in the transaction, -1 for none
};

#endif // TABLEDB_TABLE_RECORDSTRANS_H
