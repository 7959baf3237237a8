#ifndef TABLEDB_TABLE_TABLE_H
#define TABLEDB_TABLE_TABLE_H

#include "numeric/decimal.h"
#include "table/boardlist.h"
#include "table/columndef.h"
#include "table/field.h"
#include "table/record.h"

#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QVector>

class Index;
class MasterIndex;
class RecordsTrans;
class StringPool;
class TablePrivate;

// A table: its columns, its rows (held by the master index), its other indexes,
// and the one order in which changes reach them.
//
// Data operations take no lock: they rely on the caller's update bracket
// (TableUpdater) or TableLocker. The table owns its columns and master index,
// not the indexes of its lists, and not its StringPool.
class TABLEDB_EXPORT Table : public QObject
{
    Q_OBJECT

public:
    enum TransactionState {
        TransactionIdle = 0, // a new transaction runs at once
        TransactionPreprocess = 1, // indexes see old values; copies and master follow
        TransactionPostprocess = 2 // rows and master done, indexes being told
    };

    // A table with no columns, whose master index keeps rows in order of arrival.
    Table(const QString &name, const QString &title = QString(), QObject *parent = nullptr);
    ~Table() override;

    QString name() const;
    // The title, or the name when the title is empty.
    QString title() const;
    void setTitle(const QString &title);

    // Columns. Adding a column to a table with rows re-lays every row in place;
    // the caller must exclude all other users. Throws QString on an empty name
    // or a clashing definition, before anything changes.
    void addColumn(const TableColumnDef &def);
    void addColumn(const QString &name, const FieldDef &def, bool nullable = true,
                   const QString &title = QString(), bool flag = true,
                   const QString &description = QString());
    void addColumn(const QString &name, FieldType::Type type, int length = 0, bool nullable = true,
                   const QString &title = QString(), bool flag = true,
                   const QString &description = QString());
    int columnCount() const;
    int columnIndex(const QString &name) const; // -1 if unknown; case sensitive
    bool columnExists(const QString &name) const;
    QString columnName(int column) const;
    FieldType::Type columnType(int column) const;
    QString columnTypeName(int column) const;
    QString columnDescription(int column) const;
    QString columnTitle(int column) const; // the name when the title is empty
    void setColumnTitle(int column, const QString &title);
    const TableColumnDef &columnDef(int column) const;
    const TableColumnDef &columnDef(const QString &name) const; // no check of the name
    QList<ColumnDef> columns() const;
    QList<TableColumnDef *> fieldDefs() const;

    // Row blocks. Allocation failure gives null, never an exception.
    unsigned char *allocRow();
    void initRow(unsigned char *row);
    unsigned char *cloneRow(const unsigned char *row) const;
    void copyRowContent(unsigned char *dst, const unsigned char *src);
    // Inclusive column range; -1 means the first or the last column.
    void copyRowContent(unsigned char *dst, const unsigned char *src, int first, int last);
    void freeRow(unsigned char *row);
    uint64 rowLength() const;
    uint64 rowLengthUnaligned() const;
    uint64 rowSize() const;
    void hasRow(unsigned char *row);

    static bool ref(unsigned char *row);
    static bool deref(unsigned char *row);
    static int references(const unsigned char *row);
    static void setRefValue(unsigned char *row, int value);
    // Row blocks: [ref u32][reserved u32][Table *][cells, 8-aligned][null bitmap].
    static constexpr size_t RowTableOffset = 8;
    static constexpr size_t RowHeaderSize = 16;
    // Inline: every cell access starts here.
    static Table *tablePtr(const unsigned char *row)
    {
        return row ? *reinterpret_cast<Table *const *>(row + RowTableOffset) : nullptr;
    }
    // The first cell of a row block; the null bitmap lies rowLength() behind it.
    static unsigned char *cellsPtr(unsigned char *row) { return row + RowHeaderSize; }
    static Table **tablePPtr(unsigned char *row);

    static bool isNullPtr(const unsigned char *bits, int column);
    static void setNullPtr(unsigned char *bits, int column, bool isNull);
    static void copyNullPtr(unsigned char *dst, const unsigned char *src, int first, int last);

    // The row at that place of the master index.
    const Record &at(int index) const;
    Field data(int rowIndex, int column);
    // Clears the bit; no index is told.
    void setNull(int rowIndex, int column);

    // Indexes.
    MasterIndex *masterIndex() const;
    // Deletes the former master index if it is another object; no rows move over.
    void setMasterIndex(MasterIndex *index);
    QList<Index *> indexes() const;
    void addIndex(Index *index);
    void removeIndex(Index *index);
    Index *namedIndex(const QString &name) const;
    QString indexName(Index *index) const;
    void setIndexName(const QString &name, Index *index);
    QList<Index *> dependentIndexes() const;
    void addDependentIndex(Index *index);
    void removeDependentIndex(Index *index);

    // Rows. No lock of their own: the caller holds the update bracket.
    int rowCount() const;
    void appendRow();
    void appendRow(unsigned char *row);
    void appendList(const QList<Record> &list);
    void remove(const Record &record, int position);
    void clear();
    void build();
    void updated(const Record &record, int position);
    void updated(const Record &record, int first, int last, int position);
    void updatedRow(int rowIndex);

    // Transactions. Work arriving while a transaction is applied waits in the
    // pending transaction and runs after the state has gone back to idle.
    void process(RecordsTrans &trans);
    void process(QList<Record> &removed, QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted, const QList<Record> &changed);
    TransactionState transactionState() const;

    // Statistics.
    int64 nsecsElapsed() const;
    void setNsecsElapsed(const int64 &nsecs);
    static int64 nsecsElapsedTotal();
    // This table's share of all table time, in percent with two decimals.
    decimal percentElapsed() const;

    uint64 stringPoolSize() const;

signals:
    void indexAdded(Index *index);
    void indexRemoved(Index *index);
    void indexNameUpdated(Index *index, const QString &name);
    void dependentIndexAdded(Index *index);
    void dependentIndexRemoved(Index *index);

protected:
    unsigned int nullLength() const;
    Field dataPtr(unsigned char *row, int column)
    {
        return Field(m_columnDefs.constData()[column], row + RowHeaderSize);
    }
    void setIndexes(const QList<Index *> &indexes);
    void processSingleTransaction(RecordsTrans &trans);
    void processSingleTransaction(QList<Record> &removed, QList<Record> &updated, int first,
                                  int last, const QList<Record> &inserted,
                                  const QList<Record> &changed);
    void beginUpdate();
    void endUpdate();
    void lock();
    void unlock();

private:
    StringPool *stringPool();
    void drainPending();

    TablePrivate *d;
    QVector<TableColumnDef *> m_columnDefs; // as d's list, for the inline cell access
    QPointer<StringPool> m_stringPool;
    QElapsedTimer m_timer;
    int64 m_nsecsElapsed;
    static int64 m_nsecsElapsedTotal;

    Q_DISABLE_COPY(Table)
    friend class Field;
    friend class Record;
    friend class TableUpdater;
    friend class TableLocker;
    friend class TableIndexRebuilder;
    friend class TableIO; // shares the table's string pool while reading
};

// Opens the table's update bracket for its lifetime: dependents told, mutex
// taken, index brackets opened. Brackets nest; only the outermost acts.
class TABLEDB_EXPORT TableUpdater
{
public:
    explicit TableUpdater(Table *table) : m_table(table) { m_table->beginUpdate(); }
    ~TableUpdater() { m_table->endUpdate(); }

private:
    Table *m_table;
};

// Holds the table's recursive mutex for its lifetime. A thread that has to
// wait for it is let in before the writer's next bracket (TableUpdater) takes
// it again.
class TABLEDB_EXPORT TableLocker
{
public:
    explicit TableLocker(Table *table) : m_table(table) { m_table->lock(); }
    ~TableLocker() { m_table->unlock(); }

private:
    Table *m_table;
};

inline Field Record::data(int column)
{
    return Table::tablePtr(m_row)->dataPtr(m_row, column);
}

inline Field Record::data(int column) const
{
    return Table::tablePtr(m_row)->dataPtr(m_row, column);
}

#include "table/tableindexrebuilder.h"

#endif // TABLEDB_TABLE_TABLE_H
