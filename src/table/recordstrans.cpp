#include "table/recordstrans.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <QDebug>

#include <exception>

bool RecordsTransKey::operator<(const RecordsTransKey &other) const
{
    const MasterIndex *master = Table::tablePtr(m_record.rowPtr())->masterIndex();
    return master->compare(m_record, other.m_record) < 0;
}

RecordsTrans::RecordsTrans(Table *table)
    : m_minColumn(2147483647),
      m_maxColumn(-1),
      m_table(table),
      m_uncaughtAtCreation(std::uncaught_exceptions())
{
}

RecordsTrans::RecordsTrans(const RecordsTrans &other)
    : m_minColumn(other.m_minColumn),
      m_maxColumn(other.m_maxColumn),
      m_operations(other.m_operations),
      m_changes(other.m_changes),
      m_table(other.m_table),
      m_uncaughtAtCreation(std::uncaught_exceptions())
{
}

RecordsTrans &RecordsTrans::operator=(const RecordsTrans &other)
{
    m_minColumn = other.m_minColumn;
    m_maxColumn = other.m_maxColumn;
    m_operations = other.m_operations;
    m_changes = other.m_changes;
    m_table = other.m_table;
    return *this;
}

RecordsTrans::~RecordsTrans() noexcept
{
    if (std::uncaught_exceptions() <= m_uncaughtAtCreation) {
        // An exception from an index here ends the program: the destructor
        // cannot report it and the table is left mid-transaction.
        execute();
        return;
    }
    // Destroyed while another exception propagates: apply what is pending as
    // usual, but do not let a second failure terminate the first one's unwinding.
    try {
        execute();
    } catch (...) {
        QMessageLogger().warning().noquote()
            << QStringLiteral("RecordsTrans: a transaction applied during stack unwinding failed "
                              "and was dropped");
    }
}

void RecordsTrans::clear()
{
    m_operations.clear();
    m_changes.clear();
}

bool RecordsTrans::contains(const Record &record) const
{
    return m_operations.contains(record);
}

void RecordsTrans::extendColumns(int first, int last)
{
    m_minColumn = qMin(m_minColumn, first);
    m_maxColumn = qMax(m_maxColumn, last);
}

namespace {
QList<Record> keysWithCode(const RecordsTrans::Map &map, int code)
{
    QList<Record> list;
    for (auto it = map.cbegin(), end = map.cend(); it != end; ++it) {
        if (it.value() == code)
            list.append(it.key());
    }
    return list;
}
} // namespace

QList<Record> RecordsTrans::insertList() const
{
    return keysWithCode(m_operations, RowInserted);
}

QList<Record> RecordsTrans::removeList() const
{
    return keysWithCode(m_operations, RowRemoved);
}

QList<Record> RecordsTrans::updateList() const
{
    return keysWithCode(m_operations, RowUpdated);
}

QList<Record> RecordsTrans::changeList() const
{
    return keysWithCode(m_changes, RowUpdated);
}

void RecordsTrans::swap(RecordsTrans &other) noexcept
{
    qSwap(m_minColumn, other.m_minColumn);
    qSwap(m_maxColumn, other.m_maxColumn);
    m_operations.swap(other.m_operations);
    m_changes.swap(other.m_changes);
    qSwap(m_table, other.m_table);
}

void RecordsTrans::execute()
{
    if (m_maxColumn < m_minColumn) {
        m_minColumn = 0;
        m_maxColumn = m_table->columnCount() - 1;
    }
    if (!m_operations.isEmpty())
        m_table->process(*this);
}

void RecordsTrans::mergeInsertedRow(const Record &row)
{
    auto it = m_operations.find(row);
    if (it == m_operations.end()) {
        m_operations.insert(row, RowInserted);
        return;
    }
    if (it.value() == RowUpdated)
        m_changes.remove(row);
    // The new block replaces the old key row in the same place.
    it = m_operations.erase(it);
    m_operations.insert(it, row, RowInserted);
}

void RecordsTrans::mergeRemovedRow(const Record &row)
{
    auto it = m_operations.find(row);
    if (it == m_operations.end()) {
        m_operations.insert(row, RowRemoved);
        return;
    }
    switch (it.value()) {
    case RowUpdated:
        it.value() = RowRemoved;
        m_changes.remove(row);
        break;
    case RowInserted:
        // Not cancelled: a removal of that key remains pending.
        it.value() = RowRemoved;
        break;
    default:
        break;
    }
}

void RecordsTrans::mergeUpdatedRow(const Record &row, const Record &change, int first, int last)
{
    auto it = m_operations.find(row);
    if (it == m_operations.end()) {
        m_operations.insert(row, RowUpdated);
        m_changes.insert(change, RowUpdated);
        return;
    }
    switch (it.value()) {
    case RowRemoved:
        it.value() = RowUpdated;
        m_changes.insert(change, RowUpdated);
        break;
    case RowInserted:
        // The pending row is the one to be inserted; the update is dropped.
        break;
    case RowUpdated: {
        auto pending = m_changes.find(change);
        if (pending == m_changes.end()) {
            m_changes.insert(change, RowUpdated);
        } else {
            // This update's columns land in the clone already pending, which
            // keeps its place in the map.
            const Record &existing = pending.key();
            if (existing != change)
                m_table->copyRowContent(const_cast<unsigned char *>(existing.rowPtr()),
                                        change.rowPtr(), first, last);
            pending.value() = RowUpdated;
        }
        break;
    }
    default:
        break;
    }
}

void RecordsTrans::merge(RecordsTrans &other)
{
    if (!other.m_changes.isEmpty())
        extendColumns(other.m_minColumn, other.m_maxColumn);
    // A copy, so that the walk is stable even when `other` is this transaction.
    const Map operations = other.m_operations;
    const Map changes = other.m_changes;
    for (auto it = operations.cbegin(), end = operations.cend(); it != end; ++it) {
        const Record &key = it.key();
        switch (it.value()) {
        case RowInserted:
            mergeInsertedRow(key);
            break;
        case RowRemoved:
            mergeRemovedRow(key);
            break;
        case RowUpdated: {
            auto change = changes.find(key);
            const Record changed = change != changes.end() ? Record(change.key()) : key.clone();
            mergeUpdatedRow(key, changed, other.m_minColumn, other.m_maxColumn);
            break;
        }
        default:
            break;
        }
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
    : m_trans(&trans), m_found(false), m_node(trans.m_operations.end())
{
    findInMaster(key, from);
}

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
    RecordsTrans::Map &operations = m_trans->m_operations;
    RecordsTrans::Map &changes = m_trans->m_changes;
    auto cloneIntoChanges = [&] {
        Record::operator=(clone());
        changes.insert(*this, RecordsTrans::RowUpdated);
    };

    m_node = operations.find(*this);
    if (m_node == operations.end()) {
        m_node = operations.insert(*this, RecordsTrans::RowUpdated);
        cloneIntoChanges();
    } else {
        switch (m_node.value()) {
        case RecordsTrans::RowRemoved:
            m_node.value() = RecordsTrans::RowUpdated;
            cloneIntoChanges();
            break;
        case RecordsTrans::RowUpdated: {
            // Successive updaters of one key share one clone.
            auto pending = changes.find(*this);
            if (pending != changes.end())
                Record::operator=(pending.key().record());
            else
                cloneIntoChanges();
            break;
        }
        default:
            // RowInserted: write to the row that will be inserted.
            break;
        }
    }
    m_found = true;
}

void RecordUpdater::insertInMap(const Record &key)
{
    RecordsTrans::Map &operations = m_trans->m_operations;
    m_node = operations.lowerBound(key);
    if (m_node != operations.end() && !(RecordsTransKey(key) < m_node.key())) {
        Record::operator=(m_node.key().record());
        return;
    }
    Record::operator=(key);
    m_node = operations.insert(m_node, key, RecordsTrans::RowInserted);
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
    RecordsTrans::Map &operations = m_trans->m_operations;
    if (m_node == operations.end())
        return;
    if (m_node.value() == RecordsTrans::RowInserted) {
        operations.erase(m_node);
        m_node = operations.end();
        m_found = false;
        return;
    }
    m_node.value() = RecordsTrans::RowRemoved;
    m_trans->m_changes.remove(m_node.key());
}

void RecordUpdater::extendColumns(int first, int last)
{
    m_trans->extendColumns(first, last);
}
