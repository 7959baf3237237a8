#include "model/tablemodel.h"

#include "index/indexvector.h"
#include "index/masterindex.h"
#include "model/celltext.h"
#include "model/tablemodel_p.h"
#include "numeric/datetime.h"
#include "numeric/decimal.h"
#include "numeric/xdecimal.h"
#include "table/table.h"

#include <algorithm>
#include <utility>

namespace {

// Removal runs, insertion runs and moved rows that a refresh tells one by
// one; beyond this many, one layout change says it all.
const int kFewSignals = 16;
// Rows read along with one that a view asks for: views ask row by row, from
// the top of what they show.
const int kReadBefore = 8;
const int kReadAfter = 56;
// A refresh lets go of all rows read once more than this many are kept.
const int kCachedRows = 4096;

// A counted handle on a row known by its address; only under the table's lock.
class RowHandle : public Record
{
public:
    explicit RowHandle(const unsigned char *row) : Record(const_cast<unsigned char *>(row)) { }
};

QVariant typedValue(const Field &cell)
{
    if (cell.isNull())
        return QVariant();
    switch (cell.type()) {
    case FieldType::Integer:
        return cell.asInteger();
    case FieldType::Integer64:
        return qlonglong(cell.asInteger64());
    case FieldType::Double:
        return cell.asDouble();
    case FieldType::Decimal:
        return QVariant::fromValue(cell.toDecimal());
    case FieldType::XDecimal:
        return QVariant::fromValue(cell.toXDecimal());
    case FieldType::DateTime:
        return QVariant::fromValue(cell.toDatetime());
    default:
        return cell.toString();
    }
}

bool isNumber(FieldType::Type type)
{
    switch (type) {
    case FieldType::Integer:
    case FieldType::Integer64:
    case FieldType::Double:
    case FieldType::Decimal:
    case FieldType::XDecimal:
        return true;
    default:
        return false;
    }
}

void checkColumns(Table *table, const QStringList &names)
{
    TableLocker locker(table);
    for (const QString &name : names) {
        if (table->columnIndex(name) < 0)
            throw QStringLiteral("Table '%1' has no column '%2'.").arg(table->name(), name);
    }
}

} // namespace

// --- TableModelPrivate ---

TableModelPrivate::TableModelPrivate(TableModel *model) : q(model)
{
    clock.start();
    // A child, so that it moves along with the model to another thread.
    timer.setParent(q);
    timer.setSingleShot(true);
    QObject::connect(&timer, &QTimer::timeout, q, [this] { refresh(std::exchange(readAnyway, false)); });
}

void TableModelPrivate::attach(Table *newTable, const QStringList &newNames)
{
    checkColumns(newTable, newNames);
    table = newTable;
    names = newNames;
    QObject::connect(table, &QObject::destroyed, q, &TableModel::tableDestroyed,
                     Qt::DirectConnection);
    recorder.reset(new TableModelRecorder(table, q));
    TableLocker locker(table);
    recorder->take();
    readView(rows);
    shown = rows.size();
    columns = readColumns();
}

void TableModelPrivate::detach()
{
    if (recorder && recorder->table())
        QObject::disconnect(table, &QObject::destroyed, q, &TableModel::tableDestroyed);
    recorder.reset();
    table = nullptr;
    list = nullptr;
    vector = nullptr;
    rows.clear();
    shown = 0;
    columns.clear();
    cache.clear();
    changedAt.clear();
    timer.stop();
}

QVector<TableModelPrivate::Column> TableModelPrivate::readColumns() const
{
    QVector<Column> result;
    auto add = [&](int column) {
        result.append({ column, table->columnTitle(column), table->columnType(column) });
    };
    if (names.isEmpty()) {
        for (int column = 0; column < table->columnCount(); ++column)
            add(column);
    } else {
        for (const QString &name : names)
            add(table->columnIndex(name));
    }
    return result;
}

void TableModelPrivate::readView(Rows &result) const
{
    result.clear();
    if (vector) {
        result.reserve(vector->count());
        for (int i = 0; i < vector->count(); ++i)
            result.append(vector->get(i).pointer());
        return;
    }
    const IndexIterative *source = list;
    if (!source)
        source = table->masterIndex();
    result.reserve(source->count());
    for (auto it = source->begin(), end = source->end(); it != end; ++it)
        result.append((*it).pointer());
}

void TableModelPrivate::refresh(bool always)
{
    timer.stop();
    if (!table)
        return;
    if (refreshing) {
        // A slot that refreshes from within a refresh's signals.
        readAnyway |= always;
        timer.start(0);
        return;
    }
    QElapsedTimer spent;
    spent.start();
    TableModelChanges changes;
    Rows after;
    QVector<Column> freshColumns;
    {
        TableLocker locker(table);
        changes = recorder->take();
        if (changes.isEmpty() && !always)
            return;
        readView(after);
        freshColumns = readColumns();
        if (changes.rebuilt) {
            // The old addresses may be gone: the new rows take their places
            // before any view can ask for a cell again.
            rows = after;
        }
    }
    refreshing = true;
    sinceRefresh.start();
    for (const unsigned char *row : qAsConst(changes.removed)) {
        cache.remove(row);
        changedAt.remove(row);
    }
    for (const unsigned char *row : qAsConst(changes.inserted))
        cache.remove(row);
    for (const TableModelChanges::Written &w : qAsConst(changes.written))
        cache.remove(w.row);

    if (changes.rebuilt) {
        applyByPosition(after);
    } else {
        const RowsDiff diff(rows, after, changes);
        if (diff.matched())
            applyDiff(diff, after);
        else
            applyByPosition(after);
    }
    applyColumns(freshColumns);
    if (cache.size() > kCachedRows)
        cache.clear();
    ++refreshes;
    nsecs += spent.nsecsElapsed();
    refreshing = false;
    emit q->refreshed();
}

void TableModelPrivate::applyByPosition(const Rows &after)
{
    rows = after;
    cache.clear();
    changedAt.clear();
    if (after.size() < shown) {
        q->beginRemoveRows(QModelIndex(), after.size(), shown - 1);
        shown = after.size();
        q->endRemoveRows();
    } else if (after.size() > shown) {
        q->beginInsertRows(QModelIndex(), shown, after.size() - 1);
        shown = after.size();
        q->endInsertRows();
    }
    if (shown > 0 && !columns.isEmpty())
        emit q->dataChanged(q->index(0, 0), q->index(shown - 1, columns.size() - 1));
}

void TableModelPrivate::applyDiff(const RowsDiff &diff, const Rows &after)
{
    const QVector<int> &oldToNew = diff.oldToNew();
    const QVector<int> &newToOld = diff.newToOld();
    const qint64 now = clock.elapsed();
    auto stamp = [&](const unsigned char *row, int first, int last) {
        QVector<qint64> &times = changedAt[row];
        while (times.size() < columns.size())
            times.append(-1);
        for (int c = 0; c < columns.size(); ++c) {
            if (columns[c].table >= first && columns[c].table <= last)
                times[c] = now;
        }
    };
    for (int j = 0; j < after.size(); ++j) {
        if (newToOld[j] < 0)
            stamp(after[j], 0, INT_MAX);
    }
    for (const RowsDiff::Written &w : diff.written())
        stamp(after[w.row], w.first, w.last);

    const QVector<QPair<int, int>> removedRuns = diff.removedRuns();
    const QVector<QPair<int, int>> insertedRuns = diff.insertedRuns();
    if (removedRuns.size() + insertedRuns.size() + diff.movedCount() <= kFewSignals) {
        for (int r = removedRuns.size() - 1; r >= 0; --r) {
            const QPair<int, int> run = removedRuns[r];
            q->beginRemoveRows(QModelIndex(), run.first, run.second);
            rows.remove(run.first, run.second - run.first + 1);
            shown = rows.size();
            q->endRemoveRows();
        }
        // Each moved row goes right behind the row that precedes it among those
        // that stay; taken in their new order, that row is already in place.
        int previous = -1;
        for (int j = 0; j < after.size() && diff.movedCount() > 0; ++j) {
            if (newToOld[j] < 0)
                continue;
            if (diff.moved()[j]) {
                const int from = rows.indexOf(after[j]);
                const int to = previous < 0 ? 0 : rows.indexOf(after[previous]) + 1;
                if (to != from && to != from + 1) {
                    q->beginMoveRows(QModelIndex(), from, from, QModelIndex(), to);
                    if (from < to)
                        std::rotate(rows.begin() + from, rows.begin() + from + 1, rows.begin() + to);
                    else
                        std::rotate(rows.begin() + to, rows.begin() + from, rows.begin() + from + 1);
                    q->endMoveRows();
                }
            }
            previous = j;
        }
        for (const QPair<int, int> &run : insertedRuns) {
            q->beginInsertRows(QModelIndex(), run.first, run.second);
            rows.insert(run.first, run.second - run.first + 1, nullptr);
            std::copy(after.begin() + run.first, after.begin() + run.second + 1,
                      rows.begin() + run.first);
            shown = rows.size();
            q->endInsertRows();
        }
    } else {
        emit q->layoutAboutToBeChanged(QList<QPersistentModelIndex>(),
                                       QAbstractItemModel::VerticalSortHint);
        const QModelIndexList from = q->persistentIndexList();
        QModelIndexList to;
        to.reserve(from.size());
        for (const QModelIndex &index : from) {
            const int row = index.row() < oldToNew.size() ? oldToNew[index.row()] : -1;
            to.append(row < 0 ? QModelIndex() : q->createIndex(row, index.column()));
        }
        rows = after;
        shown = rows.size();
        q->changePersistentIndexList(from, to);
        emit q->layoutChanged(QList<QPersistentModelIndex>(), QAbstractItemModel::VerticalSortHint);
    }
    Q_ASSERT(rows == after);
    emitWritten(diff.written());
}

void TableModelPrivate::emitWritten(const QVector<RowsDiff::Written> &written)
{
    static const QVector<int> roles { Qt::DisplayRole, Qt::EditRole, TableModel::ChangedAgoRole };
    // One signal per run of consecutive rows written over the same columns,
    // cut where the model's columns are not among them.
    for (int i = 0; i < written.size();) {
        const RowsDiff::Written &head = written[i];
        int j = i;
        while (j + 1 < written.size() && written[j + 1].row == written[j].row + 1
               && written[j + 1].first == head.first && written[j + 1].last == head.last)
            ++j;
        auto hit = [&](int c) { return columns[c].table >= head.first && columns[c].table <= head.last; };
        for (int c = 0; c < columns.size(); ++c) {
            if (!hit(c))
                continue;
            int e = c;
            while (e + 1 < columns.size() && hit(e + 1))
                ++e;
            emit q->dataChanged(q->index(head.row, c), q->index(written[j].row, e), roles);
            c = e;
        }
        i = j + 1;
    }
}

void TableModelPrivate::applyColumns(const QVector<Column> &fresh)
{
    const int known = qMin(columns.size(), fresh.size());
    for (int c = 0; c < known; ++c) {
        if (columns[c].title != fresh[c].title) {
            columns[c].title = fresh[c].title;
            emit q->headerDataChanged(Qt::Horizontal, c, c);
        }
    }
    if (fresh.size() > columns.size()) {
        q->beginInsertColumns(QModelIndex(), columns.size(), fresh.size() - 1);
        columns = fresh;
        cache.clear();
        q->endInsertColumns();
    }
}

void TableModelPrivate::schedule()
{
    if (!table)
        return;
    if (interval <= 0) {
        refresh(false);
        return;
    }
    if (timer.isActive())
        return;
    const qint64 wait = sinceRefresh.isValid() ? interval - sinceRefresh.elapsed() : 0;
    timer.start(int(qBound<qint64>(0, wait, interval)));
}

void TableModelPrivate::setIndex(Table *viewTable, IndexIterative *newList, IndexVector *newVector)
{
    if (viewTable == table) {
        list = newList;
        vector = newVector;
        refresh(true);
        return;
    }
    checkColumns(viewTable, names);
    q->beginResetModel();
    detach();
    list = newList;
    vector = newVector;
    attach(viewTable, names);
    q->endResetModel();
}

const TableModelPrivate::CachedRow *TableModelPrivate::cached(int row)
{
    if (!table || row >= rows.size())
        return nullptr;
    auto it = cache.constFind(rows[row]);
    if (it != cache.constEnd())
        return &it.value();
    TableLocker locker(table);
    if (recorder->rebuilt())
        return nullptr;
    const int end = qMin(rows.size(), row + kReadAfter);
    for (int r = qMax(0, row - kReadBefore); r < end; ++r) {
        if (!cache.contains(rows[r]))
            cache.insert(rows[r], readRow(rows[r]));
    }
    return &cache.constFind(rows[row]).value();
}

TableModelPrivate::CachedRow TableModelPrivate::readRow(const unsigned char *address) const
{
    RowHandle row(address);
    CachedRow result;
    result.text.reserve(columns.size());
    result.value.reserve(columns.size());
    for (const Column &column : columns) {
        const Field cell = row.data(column.table);
        result.text.append(CellText::text(cell));
        result.value.append(typedValue(cell));
    }
    return result;
}

// --- TableModel ---

TableModel::TableModel(Table *table, const QStringList &columns, QObject *parent)
    : QAbstractTableModel(parent), d(new TableModelPrivate(this))
{
    d->attach(table, columns);
}

TableModel::TableModel(IndexIterative *index, const QStringList &columns, QObject *parent)
    : QAbstractTableModel(parent), d(new TableModelPrivate(this))
{
    d->list = index;
    d->attach(index->table(), columns);
}

TableModel::TableModel(IndexVector *index, const QStringList &columns, QObject *parent)
    : QAbstractTableModel(parent), d(new TableModelPrivate(this))
{
    d->vector = index;
    d->attach(index->table(), columns);
}

TableModel::~TableModel()
{
    // Off the table's list before anything else of the model goes.
    d->recorder.reset();
}

Table *TableModel::table() const
{
    return d->table;
}

void TableModel::setIndex(IndexIterative *index)
{
    d->setIndex(index->table(), index, nullptr);
}

void TableModel::setIndex(IndexVector *index)
{
    d->setIndex(index->table(), nullptr, index);
}

int TableModel::tableColumn(int column) const
{
    return column >= 0 && column < d->columns.size() ? d->columns[column].table : -1;
}

int TableModel::refreshInterval() const
{
    return d->interval;
}

void TableModel::setRefreshInterval(int msecs)
{
    d->interval = qMax(0, msecs);
    if (d->timer.isActive()) {
        d->timer.stop();
        d->schedule();
    }
}

qint64 TableModel::refreshCount() const
{
    return d->refreshes;
}

int64 TableModel::nsecsElapsed() const
{
    return d->nsecs;
}

int TableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : d->shown;
}

int TableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : d->columns.size();
}

QVariant TableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= d->shown || index.column() >= d->columns.size())
        return QVariant();
    const int column = index.column();
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole: {
        const TableModelPrivate::CachedRow *row = d->cached(index.row());
        if (!row || column >= row->text.size())
            return QVariant();
        return role == Qt::DisplayRole ? QVariant(row->text[column]) : row->value[column];
    }
    case Qt::TextAlignmentRole:
        return int((isNumber(d->columns[column].type) ? Qt::AlignRight : Qt::AlignLeft)
                   | Qt::AlignVCenter);
    case ChangedAgoRole: {
        if (index.row() >= d->rows.size())
            return QVariant();
        const auto it = d->changedAt.constFind(d->rows[index.row()]);
        if (it == d->changedAt.constEnd() || column >= it->size() || it->at(column) < 0)
            return QVariant();
        return qint64(d->clock.elapsed() - it->at(column));
    }
    default:
        return QVariant();
    }
}

QVariant TableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole && section >= 0
        && section < d->columns.size())
        return d->columns[section].title;
    return QAbstractTableModel::headerData(section, orientation, role);
}

Qt::ItemFlags TableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

void TableModel::refresh()
{
    d->refresh(true);
}

void TableModel::changesRecorded()
{
    d->schedule();
}

void TableModel::tableDestroyed()
{
    if (!d->table)
        return;
    // The table has run its destructor: nothing of it may be touched.
    beginResetModel();
    d->recorder->forget();
    d->detach();
    endResetModel();
}
