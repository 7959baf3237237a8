#ifndef TABLEDB_MODEL_TABLEMODEL_H
#define TABLEDB_MODEL_TABLEMODEL_H

#include "runtime/global.h"

#include <QAbstractTableModel>
#include <QStringList>

#include <memory>

class IndexIterative;
class IndexVector;
class Table;
class TableModelPrivate;

// A read-only item model over one view of one table: an IndexSort, IndexList,
// IndexLimit or IndexVector, or the table's master index. Row i of the model
// is row i of the view; the columns are the table's, or a chosen few.
//
// Threads: transactions run on any thread; the model belongs to its QObject's
// thread and is used only there. It follows the table through an index of its
// own that, under the table's update bracket, only records which rows came,
// left or changed and which columns were written. The model takes that record
// and refreshes on its own thread, at most once per refresh interval, turning
// it into the smallest signals that say what happened: rowsRemoved,
// rowsInserted and rowsMoved when a few rows change places, dataChanged per
// run of rows and columns written in place, and one layout change with the
// persistent indexes remapped when a batch changes places wholesale. It never
// resets while the table lives, so selections and scroll positions survive
// every transaction. Rows are read only under the table's lock (TableLocker),
// briefly: at a refresh, and when a view asks for cells not read since.
//
// REQUIRES: the index outlives the model, or is replaced through setIndex()
// first, or goes together with its table before the model's next refresh.
// The table may be deleted on the model's thread while the model lives; the
// model then has no rows and no columns. Adding a column to the table,
// like any other use, needs the table's lock (TableUpdater) while the model
// lives; the column then appears at the next refresh when the model shows all
// columns. Rows are told apart by identity; only where the table rebuilds its
// indexes (a column added, TableIndexRebuilder, a table read from a file) are
// the rows before and after matched by their positions.
class TABLEDB_EXPORT TableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Role {
        // qint64: milliseconds since the refresh that showed the cell's latest
        // change, or that brought its row in; invalid for cells unchanged
        // since the model began. For delegates that flash changed cells.
        ChangedAgoRole = Qt::UserRole + 1
    };

    // `columns`: the names of the columns to show, in that order; empty shows
    // all of the table's, and columns added later as well. An unknown name
    // throws the QString "Table '<table>' has no column '<name>'.".
    // Over the table's master index, whichever it is at each refresh.
    explicit TableModel(Table *table, const QStringList &columns = QStringList(),
                        QObject *parent = nullptr);
    // Over a list-shaped index (IndexList, IndexSort, IndexLimit, a master index).
    explicit TableModel(IndexIterative *index, const QStringList &columns = QStringList(),
                        QObject *parent = nullptr);
    explicit TableModel(IndexVector *index, const QStringList &columns = QStringList(),
                        QObject *parent = nullptr);
    ~TableModel() override;

    // Null once the table is deleted.
    Table *table() const;
    // Shows another view; its rows are matched with the present ones by
    // identity, so a view of another order comes in as one layout change.
    // The former index may be deleted afterwards. A view of another table
    // resets the model. The columns stay as they are.
    void setIndex(IndexIterative *index);
    void setIndex(IndexVector *index);
    // The table's column number behind a model column, -1 out of range.
    int tableColumn(int column) const;

    // Milliseconds between refreshes, 50 by default. 0 refreshes after every
    // transaction through a queued call (coalesced while one is pending).
    int refreshInterval() const;
    void setRefreshInterval(int msecs);
    // Refreshes run since the model began (those that found nothing recorded
    // do not count), and the nanoseconds spent in them, the slots that their
    // signals reached included.
    qint64 refreshCount() const;
    int64 nsecsElapsed() const;

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    int columnCount(const QModelIndex &parent = QModelIndex()) const override;
    // DisplayRole: the cell's text as CellText::text gives it (empty for
    // NULL). EditRole: the typed value, with the registered decimal, xdecimal
    // and datetime types; invalid for NULL. TextAlignmentRole: numbers to the
    // right. ChangedAgoRole: see above.
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    // Horizontal: the column's title (its name when untitled).
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

public slots:
    // Applies what the table did since the last refresh, now, and reads the
    // whole view even if nothing was recorded (a view sorted anew by hand).
    // Takes the table's lock; may be called while holding it.
    void refresh();

signals:
    // After every refresh that counts (see refreshCount()).
    void refreshed();

private slots:
    void changesRecorded();
    void tableDestroyed();

private:
    std::unique_ptr<TableModelPrivate> d;
    friend class TableModelPrivate;
};

#endif // TABLEDB_MODEL_TABLEMODEL_H
