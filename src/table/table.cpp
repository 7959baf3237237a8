#include "table/table.h"

#include "index/masterindex.h"
#include "numeric/stringpool.h"
#include "runtime/elapsed_p.h"
#include "table/table_p.h"

int64 Table::m_nsecsElapsedTotal = 0;

TablePrivate::TablePrivate(const QString &n, const QString &t) : name(n), title(t) { }

TablePrivate::~TablePrivate() = default;

void TablePrivate::cacheColumn(const QString &columnName)
{
    columnHash.insert(columnName, columns.size());
    columnMap.insert(columnName, columns.size());
}

QString Table::name() const
{
    return d->name;
}

QString Table::title() const
{
    return d->title.isEmpty() ? d->name : d->title;
}

void Table::setTitle(const QString &title)
{
    d->title = title;
}


Table::Table(const QString &name, const QString &title, QObject *parent)
    : QObject(parent), d(new TablePrivate(name, title)), m_nsecsElapsed(0)
{
    d->masterIndex = new MasterIndexOrdered(this);
}

Table::~Table()
{
    for (Index *index : qAsConst(d->indexes))
        index->clear();
    delete d->masterIndex;
    d->masterIndex = nullptr;
    qDeleteAll(d->columns);
    d->columns.clear();
    delete d;
    d = nullptr;
}

// --- indexes ---

MasterIndex *Table::masterIndex() const
{
    return d->masterIndex;
}

void Table::setMasterIndex(MasterIndex *index)
{
    if (d->masterIndex != index)
        delete d->masterIndex;
    d->masterIndex = index;
}

QList<Index *> Table::indexes() const
{
    return d->indexes;
}

void Table::addIndex(Index *index)
{
    d->indexes.append(index);
    emit indexAdded(index);
}

void Table::removeIndex(Index *index)
{
    d->indexes.removeAll(index);
    const QString name = d->namedIndexes.key(index);
    if (!name.isEmpty()) {
        for (auto it = d->namedIndexes.begin(); it != d->namedIndexes.end();) {
            if (it.value() == index)
                it = d->namedIndexes.erase(it);
            else
                ++it;
        }
    }
    emit indexRemoved(index);
}

void Table::setIndexes(const QList<Index *> &indexes)
{
    d->indexes = indexes;
}

Index *Table::namedIndex(const QString &name) const
{
    return d->namedIndexes.value(name, nullptr);
}

QString Table::indexName(Index *index) const
{
    return d->namedIndexes.key(index);
}

void Table::setIndexName(const QString &name, Index *index)
{
    d->namedIndexes.insert(name, index);
    emit indexNameUpdated(index, name);
}

QList<Index *> Table::dependentIndexes() const
{
    return d->dependentIndexes;
}

void Table::addDependentIndex(Index *index)
{
    d->dependentIndexes.append(index);
    emit dependentIndexAdded(index);
}

void Table::removeDependentIndex(Index *index)
{
    d->dependentIndexes.removeAll(index);
    emit dependentIndexRemoved(index);
}

// --- rows ---

int Table::rowCount() const
{
    return d->masterIndex->count();
}

void Table::appendRow()
{
    unsigned char *row = allocRow();
    if (!row)
        return;
    const Record record(row);
    d->masterIndex->add(record);
    const QList<Index *> indexes = d->indexes;
    for (Index *index : indexes) {
        if (index->filter(record))
            index->add(record);
    }
}

void Table::appendRow(unsigned char *row)
{
    const Record record(row);
    d->masterIndex->add(record);
    for (Index *index : qAsConst(d->indexes)) {
        if (index->filter(record))
            index->add(record);
    }
}

void Table::remove(const Record &record, int position)
{
    for (Index *index : qAsConst(d->indexes))
        index->remove(record, -1);
    d->masterIndex->remove(record, position);
}

void Table::clear()
{
    for (Index *index : qAsConst(d->indexes))
        index->clear();
    d->masterIndex->clear();
    if (m_stringPool)
        m_stringPool->shrink();
}

void Table::build()
{
    for (Index *index : qAsConst(d->indexes))
        index->build();
}

void Table::updated(const Record &record, int position)
{
    updated(record, -1, -1, position);
}

void Table::updated(const Record &record, int first, int last, int position)
{
    d->masterIndex->update(record, first, last, position);
    for (Index *index : qAsConst(d->indexes))
        index->update(record, first, last, -1);
}

void Table::updatedRow(int rowIndex)
{
    updated(at(rowIndex), -1, -1, -1);
}

Table::TransactionState Table::transactionState() const
{
    return d->transactionState;
}

// --- brackets and locks ---

void Table::beginUpdate()
{
    // Brackets nest; only the outermost acts.
    if (d->updateDepth.fetchAndAddOrdered(1) > 0)
        return;
    const QList<Index *> dependents = d->dependentIndexes;
    for (Index *index : dependents)
        index->dependentBeginUpdate(this);
    lock();
    d->masterIndex->beginUpdate();
    for (Index *index : qAsConst(d->indexes))
        index->beginUpdate();
}

void Table::endUpdate()
{
    if (d->updateDepth.fetchAndSubOrdered(1) - 1 > 0)
        return;
    d->masterIndex->endUpdate();
    for (Index *index : qAsConst(d->indexes))
        index->endUpdate();
    unlock();
    // Told outside the lock, so that a dependent may take its own table's lock.
    const QList<Index *> dependents = d->dependentIndexes;
    for (Index *index : dependents)
        index->dependentEndUpdate(this);
}

void Table::lock()
{
    d->mutex.lock();
}

void Table::unlock()
{
    d->mutex.unlock();
}

// --- statistics ---

int64 Table::nsecsElapsed() const
{
    return m_nsecsElapsed;
}

void Table::setNsecsElapsed(const int64 &nsecs)
{
    m_nsecsElapsed = nsecs;
}

int64 Table::nsecsElapsedTotal()
{
    return m_nsecsElapsedTotal;
}

decimal Table::percentElapsed() const
{
    return elapsedPercent(m_nsecsElapsed, m_nsecsElapsedTotal);
}

// --- strings ---

StringPool *Table::stringPool()
{
    if (!m_stringPool)
        m_stringPool = new StringPool(nullptr);
    return m_stringPool.data();
}

uint64 Table::stringPoolSize() const
{
    return m_stringPool ? uint64(m_stringPool->size()) : 0;
}
