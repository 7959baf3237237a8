#ifndef TABLEDB_MODEL_TABLEMODEL_P_H
#define TABLEDB_MODEL_TABLEMODEL_P_H

#include "model/rowsdiff_p.h"
#include "model/tablemodel.h"
#include "model/tablemodelrecorder_p.h"
#include "table/fieldtype.h"

#include <QElapsedTimer>
#include <QHash>
#include <QTimer>
#include <QVariant>

#include <memory>

class TableModelPrivate
{
public:
    using Rows = RowsDiff::Rows;

    struct Column
    {
        int table; // the table's column number
        QString title;
        FieldType::Type type;
    };

    // The cells of one row as last read, per model column.
    struct CachedRow
    {
        QVector<QString> text;
        QVector<QVariant> value;
    };

    explicit TableModelPrivate(TableModel *q);

    // Takes the table's columns, joins it through a recorder and reads the
    // view. Throws before anything changes if a column name is unknown.
    void attach(Table *table, const QStringList &names);
    // Lets go of the table: no rows, no columns.
    void detach();
    // REQUIRES: the table's lock.
    QVector<Column> readColumns() const;
    void readView(Rows &rows) const;

    // `always`: read the view even if nothing was recorded.
    void refresh(bool always);
    // The rows before and after matched by position.
    void applyByPosition(const Rows &after);
    // Removals, moves and insertions, then the cells written in place.
    void applyDiff(const RowsDiff &diff, const Rows &after);
    void emitWritten(const QVector<RowsDiff::Written> &written);
    void applyColumns(const QVector<Column> &fresh);
    void schedule();
    // TableModel::setIndex, with one of `newList` and `newVector`. A view of
    // the same table is matched by identity; one of another table resets the
    // model, unless a chosen column is unknown there, which throws first.
    void setIndex(Table *viewTable, IndexIterative *newList, IndexVector *newVector);

    // The row's cells, read under the lock together with its neighbours if
    // they are not at hand; null while the table's rows may have moved in
    // memory or when the table is gone.
    const CachedRow *cached(int row);
    CachedRow readRow(const unsigned char *row) const;

    TableModel *q;
    Table *table = nullptr; // not owned; null once deleted
    IndexIterative *list = nullptr; // the view; with `vector` null both, the master index
    IndexVector *vector = nullptr;
    QStringList names; // the chosen columns; empty for all
    QVector<Column> columns;
    std::unique_ptr<TableModelRecorder> recorder;
    // The view's rows as the model shows them: identities, read only under
    // the lock. Each one is alive, in the table or held by the recorder,
    // unless the recorder says that the rows were rebuilt.
    Rows rows;
    int shown = 0; // rowCount(): rows.size(), apart from within a refresh by position

    int interval = 50;
    QTimer timer;
    QElapsedTimer sinceRefresh;
    QElapsedTimer clock;
    // Per row, per model column: `clock` in ms at the refresh that showed the
    // cell's latest change, -1 for none.
    QHash<const unsigned char *, QVector<qint64>> changedAt;
    QHash<const unsigned char *, CachedRow> cache;
    bool refreshing = false; // within a refresh's signals
    bool readAnyway = false; // the next refresh reads the view even if nothing was recorded
    qint64 refreshes = 0;
    int64 nsecs = 0;
};

#endif // TABLEDB_MODEL_TABLEMODEL_P_H
