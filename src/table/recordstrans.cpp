#include "table/recordstrans.h"

#include "index/masterindex.h"
#include "table/recordstrans_p.h"
#include "table/table.h"

#include <QDebug>

#include <exception>

RecordsTrans::RecordsTrans(Table *table)
    : m_minColumn(2147483647),
      m_maxColumn(-1),
      d(nullptr),
      m_table(table),
      m_uncaughtAtCreation(std::uncaught_exceptions())
{
}

RecordsTrans::RecordsTrans(const RecordsTrans &other)
    : m_minColumn(other.m_minColumn),
      m_maxColumn(other.m_maxColumn),
      d(other.d ? new RecordsTransPrivate(*other.d) : nullptr),
      m_table(other.m_table),
      m_uncaughtAtCreation(std::uncaught_exceptions())
{
}

RecordsTrans &RecordsTrans::operator=(const RecordsTrans &other)
{
    if (this == &other)
        return *this;
    RecordsTransPrivate *copy = other.d ? new RecordsTransPrivate(*other.d) : nullptr;
    delete d;
    d = copy;
    m_minColumn = other.m_minColumn;
    m_maxColumn = other.m_maxColumn;
    m_table = other.m_table;
    return *this;
}

RecordsTrans::~RecordsTrans() noexcept
{
    if (std::uncaught_exceptions() <= m_uncaughtAtCreation) {
        // An exception from an index here ends the program: the destructor
        // cannot report it and the table is left mid-transaction.
        execute();
    } else {
        // Destroyed while another exception propagates: apply what is pending
        // as usual, but do not let a second failure terminate the first one's
        // unwinding.
        try {
            execute();
        } catch (...) {
            QMessageLogger().warning().noquote()
                << QStringLiteral("RecordsTrans: a transaction applied during stack unwinding "
                                  "failed and was dropped");
        }
    }
    delete d;
}

RecordsTransPrivate *RecordsTrans::data()
{
    if (!d)
        d = new RecordsTransPrivate(m_table);
    return d;
}

void RecordsTrans::clear()
{
    if (d)
        d->clear();
}

void RecordsTrans::reserve(int rows)
{
    if (rows > 0)
        data()->reserve(rows);
}

bool RecordsTrans::isEmpty() const
{
    return !d || d->isEmpty();
}

bool RecordsTrans::contains(const Record &record) const
{
    return d && !d->isEmpty() && !record.isNull() && d->locate(record).entry >= 0;
}

void RecordsTrans::extendColumns(int first, int last)
{
    m_minColumn = qMin(m_minColumn, first);
    m_maxColumn = qMax(m_maxColumn, last);
}

QList<Record> RecordsTrans::keysWithCode(int code, bool changes) const
{
    QList<Record> list;
    if (!d)
        return list;
    for (int e : d->sorted()) {
        const RecordsTransPrivate::Entry &entry = d->entries[size_t(e)];
        if (entry.code != code)
            continue;
        if (!changes)
            list.append(entry.key);
        else if (!entry.change.isNull())
            list.append(entry.change);
    }
    return list;
}

QList<Record> RecordsTrans::insertList() const
{
    return keysWithCode(RowInserted, false);
}

QList<Record> RecordsTrans::removeList() const
{
    return keysWithCode(RowRemoved, false);
}

QList<Record> RecordsTrans::updateList() const
{
    return keysWithCode(RowUpdated, false);
}

QList<Record> RecordsTrans::changeList() const
{
    return keysWithCode(RowUpdated, true);
}

void RecordsTrans::swap(RecordsTrans &other) noexcept
{
    qSwap(m_minColumn, other.m_minColumn);
    qSwap(m_maxColumn, other.m_maxColumn);
    qSwap(d, other.d);
    qSwap(m_table, other.m_table);
}

void RecordsTrans::execute()
{
    if (m_maxColumn < m_minColumn) {
        m_minColumn = 0;
        m_maxColumn = m_table->columnCount() - 1;
    }
    if (!isEmpty())
        m_table->process(*this);
}

void RecordsTrans::mergeInsertedRow(const Record &row)
{
    if (row.isNull())
        return;
    RecordsTransPrivate *p = data();
    const RecordsTransPrivate::Probe probe = p->locate(row);
    if (probe.entry < 0) {
        p->add(probe, row, RowInserted);
        return;
    }
    // The new block replaces the old key row in the same place; a pending
    // change goes with the old entry.
    RecordsTransPrivate::Entry &entry = p->entries[size_t(probe.entry)];
    entry.key = row;
    entry.code = RowInserted;
    entry.change = Record();
}

void RecordsTrans::mergeRemovedRow(const Record &row)
{
    if (row.isNull())
        return;
    RecordsTransPrivate *p = data();
    const RecordsTransPrivate::Probe probe = p->locate(row);
    if (probe.entry < 0) {
        p->add(probe, row, RowRemoved);
        return;
    }
    RecordsTransPrivate::Entry &entry = p->entries[size_t(probe.entry)];
    switch (entry.code) {
    case RowUpdated:
        entry.code = RowRemoved;
        entry.change = Record();
        break;
    case RowInserted:
        // Not cancelled: a removal of that key remains pending.
        entry.code = RowRemoved;
        break;
    default:
        break;
    }
}

void RecordsTrans::mergeUpdatedRow(const Record &row, const Record &change, int first, int last)
{
    if (row.isNull())
        return;
    RecordsTransPrivate *p = data();
    const RecordsTransPrivate::Probe probe = p->locate(row);
    if (probe.entry < 0) {
        p->add(probe, row, RowUpdated, change);
        return;
    }
    RecordsTransPrivate::Entry &entry = p->entries[size_t(probe.entry)];
    switch (entry.code) {
    case RowRemoved:
        entry.code = RowUpdated;
        entry.change = change;
        break;
    case RowInserted:
        // The pending row is the one to be inserted; the update is dropped.
        break;
    case RowUpdated:
        if (entry.change.isNull())
            entry.change = change;
        else if (entry.change != change)
            // This update's columns land in the clone already pending.
            m_table->copyRowContent(entry.change.rowPtr(), change.rowPtr(), first, last);
        break;
    default:
        break;
    }
}

void RecordsTrans::merge(RecordsTrans &other)
{
    if (other.isEmpty())
        return;
    if (other.d->hasChanges())
        extendColumns(other.m_minColumn, other.m_maxColumn);
    const int first = other.m_minColumn;
    const int last = other.m_maxColumn;
    auto mergeOne = [&](const Record &key, int code, const Record &change) {
        switch (code) {
        case RowInserted:
            mergeInsertedRow(key);
            break;
        case RowRemoved:
            mergeRemovedRow(key);
            break;
        case RowUpdated:
            mergeUpdatedRow(key, change.isNull() ? key.clone() : change, first, last);
            break;
        default:
            break;
        }
    };
    const std::vector<int> order = other.d->walkOrder();
    if (&other == this) {
        // Merging into itself changes the entries walked: walk a copy.
        std::vector<RecordsTransPrivate::Entry> entries;
        entries.reserve(order.size());
        for (int e : order)
            entries.push_back(d->entries[size_t(e)]);
        for (const RecordsTransPrivate::Entry &entry : entries)
            mergeOne(entry.key, entry.code, entry.change);
        return;
    }
    for (int e : order) {
        const RecordsTransPrivate::Entry &entry = other.d->entries[size_t(e)];
        mergeOne(entry.key, entry.code, entry.change);
    }
}

void RecordsTrans::merge(const QList<Record> &removed, const QList<Record> &updated, int first,
                         int last, const QList<Record> &inserted, const QList<Record> &changed)
{
    if (!changed.isEmpty())
        extendColumns(first, last);
    for (const Record &row : removed)
        mergeRemovedRow(row);
    for (int i = 0; i < updated.size() && i < changed.size(); ++i)
        mergeUpdatedRow(updated.at(i), changed.at(i), first, last);
    for (const Record &row : inserted)
        mergeInsertedRow(row);
}

// --- RecordUpdater ---

RecordUpdater::RecordUpdater(const Record &key, RecordsTrans &trans, int from)
    : m_trans(&trans), m_found(false), m_node(-1)
{
    findInMaster(key, from);
}

RecordUpdater::RecordUpdater(RecordsTrans &trans) : m_trans(&trans), m_found(false), m_node(-1) { }

void RecordUpdater::findInMaster(const Record &key, int from)
{
    Record::operator=(m_trans->m_table->masterIndex()->find(key, from));
    if (!isNull())
        updateInMap();
    else
        insertInMap(key);
}

void RecordUpdater::updateInMap()
{
    RecordsTransPrivate *d = m_trans->data();
    m_found = true;
    const RecordsTransPrivate::Probe probe = d->locate(*this);
    if (probe.entry < 0) {
        // The table's row goes into the entry, the updater onto its clone.
        Record change = clone();
        Record row;
        qSwap(row, *static_cast<Record *>(this));
        m_node = d->add(probe, std::move(row), RecordsTrans::RowUpdated, std::move(change));
        Record::operator=(d->entries[size_t(m_node)].change);
        return;
    }
    m_node = probe.entry;
    RecordsTransPrivate::Entry &entry = d->entries[size_t(m_node)];
    switch (entry.code) {
    case RecordsTrans::RowRemoved:
        entry.code = RecordsTrans::RowUpdated;
        Q_FALLTHROUGH();
    case RecordsTrans::RowUpdated:
        // Successive updaters of one key share one clone.
        if (entry.change.isNull())
            entry.change = clone();
        Record::operator=(entry.change);
        break;
    default:
        // RowInserted: write to the row that will be inserted.
        break;
    }
}

void RecordUpdater::insertInMap(const Record &key)
{
    if (key.isNull())
        return;
    RecordsTransPrivate *d = m_trans->data();
    const RecordsTransPrivate::Probe probe = d->locate(key);
    if (probe.entry >= 0) {
        m_node = probe.entry;
        Record::operator=(d->entries[size_t(m_node)].key);
        return;
    }
    Record::operator=(key);
    m_node = d->add(probe, key, RecordsTrans::RowInserted);
}

RecordUpdater &RecordUpdater::operator=(const Record &other)
{
    copy(other);
    return *this;
}

void RecordUpdater::copy(const Record &other)
{
    Record::copy(other);
    extendColumns(0, table()->columnCount() - 1);
}

void RecordUpdater::copy(const Record &other, int first, int last)
{
    Record::copy(other, first, last);
    extendColumns(first, last);
}

void RecordUpdater::setNull(int column)
{
    data(column).setNull();
    extendColumns(column, column);
}

void RecordUpdater::setNull(const QString &name)
{
    const int column = table()->columnIndex(name);
    if (column >= 0)
        setNull(column);
}

void RecordUpdater::remove()
{
    RecordsTransPrivate *d = m_trans->d;
    // An entry erased or emptied since is no longer this updater's.
    if (!d || m_node < 0 || size_t(m_node) >= d->entries.size()
        || d->entries[size_t(m_node)].code == 0)
        return;
    RecordsTransPrivate::Entry &entry = d->entries[size_t(m_node)];
    if (entry.code == RecordsTrans::RowInserted) {
        d->erase(m_node);
        m_node = -1;
        m_found = false;
        return;
    }
    entry.code = RecordsTrans::RowRemoved;
    entry.change = Record();
}

void RecordUpdater::extendColumns(int first, int last)
{
    m_trans->extendColumns(first, last);
}
