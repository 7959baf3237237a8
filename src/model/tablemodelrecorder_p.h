#ifndef TABLEDB_MODEL_TABLEMODELRECORDER_P_H
#define TABLEDB_MODEL_TABLEMODELRECORDER_P_H

#include "index/index.h"

#include <QList>
#include <QObject>
#include <QVector>

// What a table did to its rows since a model last looked. Rows are told
// apart by identity only.
struct TableModelChanges
{
    struct Written
    {
        const unsigned char *row;
        int first; // inclusive column range; 0 and INT_MAX for the whole row
        int last;
    };

    QVector<const unsigned char *> removed;
    QVector<const unsigned char *> inserted;
    QVector<Written> written;
    // The table cleared or rebuilt its indexes (a column added, a rebuild, a
    // read): what is recorded is void, and rows may have moved in memory.
    bool rebuilt = false;

    bool isEmpty() const
    {
        return removed.isEmpty() && inserted.isEmpty() && written.isEmpty() && !rebuilt;
    }
};

// The model's index on the table. Under the table's update bracket it only
// records what each call brings and, at the first record since the model last
// took them, asks the model (on the model's thread) to refresh. It holds the
// rows that left, this period's and those of the period the model is applying,
// so that no row made meanwhile takes a removed row's address before the model
// has let go of it, and so that the last reference to a row, which frees it
// through its table, goes under the table's lock. Every member is guarded by
// the table's lock.
class TableModelRecorder : public Index
{
public:
    // Joins the table's index list under the table's lock.
    TableModelRecorder(Table *table, QObject *model);
    // Leaves the list under the lock, unless the table is gone (forget()).
    ~TableModelRecorder() override;

    Table *table() const { return m_table; }
    // The table was deleted: nothing is left to leave.
    void forget() { m_table = nullptr; }

    // REQUIRES: the table's lock. What was recorded, leaving the record empty;
    // the rows that left stay held until the next take().
    TableModelChanges take();
    // REQUIRES: the table's lock. Whether rows may have moved in memory since
    // take(): then none of the model's rows may be read.
    bool rebuilt() const { return m_changes.rebuilt; }

    void clear() override;
    void build() override;
    void add(const Record &record) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override;
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    // It holds no rows.
    bool contains(const Record &record) const override;
    void update(const Record &record, int first, int last, int index) override;
    QString getClassName() const override;

private:
    void written(const Record &record, int first, int last);
    void notify();

    Table *m_table; // not owned
    QObject *m_model; // outlives this recorder
    TableModelChanges m_changes;
    QList<Record> m_removed; // the rows of m_changes.removed
    QList<Record> m_applying; // those of the last take()
    bool m_notified = false; // a request to refresh is on its way
};

#endif // TABLEDB_MODEL_TABLEMODELRECORDER_P_H
