#include "table/table.h"

#include "index/indexlimit.h"
#include "index/masterindex.h"
#include "numeric/stringpool.h"
#include "runtime/elapsed_p.h"
#include "runtime/tsan_p.h"
#include "table/recordstrans_p.h"
#include "table/table_p.h"

#include <QDeadlineTimer>
#include <QThread>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

int64 Table::m_nsecsElapsedTotal = 0;

namespace {

// A large transaction leaves much freed memory behind (clones, entries, range
// lists, sort buffers, some of it in pool threads' arenas) that the row
// allocator and the C library keep mapped; it goes back to the system here,
// at a cost far below the transaction's. Small transactions do not pay for
// the walk.
void returnFreedMemory(TablePrivate *d)
{
    const int rows = d->rowsProcessed;
    d->rowsProcessed = 0;
    if (rows < TablePrivate::TrimRows)
        return;
    d->rows.trim();
#if defined(__GLIBC__)
    malloc_trim(0);
#endif
}

// Lets go of the rows of a batch's list. Each release writes the count in the
// row's block, and after a large batch most of those blocks have left the
// cache: they are asked for some rows ahead, so that the misses overlap.
void releaseRows(QList<Record> &rows)
{
    if (!rows.isDetached()) { // shared: the other holder keeps the rows
        rows.clear();
        return;
    }
    constexpr int ahead = 8;
    const int n = rows.size();
    for (int i = 0; i < n; ++i) {
        if (i + ahead < n) {
            if (const unsigned char *row = rows.at(i + ahead).rowPtr())
                __builtin_prefetch(row, 1);
        }
        Record done = std::move(rows[i]);
    }
    rows.clear();
}

} // namespace

TablePrivate::TablePrivate(Table *table, const QString &n, const QString &t)
    : name(n), title(t), pendingTrans(table)
{
    rows.setBlockSize(rowSize);
    layoutChanged(table);
    tsan::recursiveLockCreated(&mutex);
}

TablePrivate::~TablePrivate()
{
    tsan::lockDestroyed(&mutex);
}

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
    : QObject(parent), d(new TablePrivate(this, name, title)), m_nsecsElapsed(0)
{
    d->masterIndex = new MasterIndexOrdered(this);
}

Table::~Table()
{
    // Work left pending by a failed transaction can no longer run; drop it
    // while the columns that free its rows still exist.
    d->pendingTrans.clear();
    for (Index *index : qAsConst(d->indexes))
        index->clear();
    delete d->masterIndex;
    d->masterIndex = nullptr;
    qDeleteAll(d->columns);
    d->columns.clear();
    m_columnDefs.clear();
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
    // Only the name that indexName() reports goes; further names of the same
    // index stay.
    const QString name = d->namedIndexes.key(index);
    if (!name.isEmpty())
        d->namedIndexes.remove(name);
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
    if (unsigned char *row = allocRow())
        appendRow(row);
}

void Table::appendRow(unsigned char *row)
{
    const Record record(row);
    d->masterIndex->add(record);
    // A copy of the list: an index may register another one while adding.
    const QList<Index *> indexes = d->indexes;
    for (Index *index : indexes) {
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

void Table::appendList(const QList<Record> &list)
{
    // Two lists: an IndexLimit adds to `removed`, which must not show in `updated`.
    QList<Record> removed;
    QList<Record> updated;
    process(removed, updated, -1, -1, list, QList<Record>());
}

// --- transactions ---

void Table::process(RecordsTrans &trans)
{
    m_timer.restart();
    if (d->transactionState != TransactionIdle) {
        // Called from an index: runs after the current pass, not inside it.
        d->pendingTrans.merge(trans);
    } else {
        processSingleTransaction(trans);
        drainPending();
        returnFreedMemory(d);
    }
    m_nsecsElapsed += m_timer.nsecsElapsed();
    m_nsecsElapsedTotal += m_timer.nsecsElapsed();
}

void Table::process(QList<Record> &removed, QList<Record> &updated, int first, int last,
                    const QList<Record> &inserted, const QList<Record> &changed)
{
    if (d->transactionState != TransactionIdle) {
        d->pendingTrans.merge(removed, updated, first, last, inserted, changed);
        return;
    }
    processSingleTransaction(removed, updated, first, last, inserted, changed);
    drainPending();
    returnFreedMemory(d);
}

void Table::drainPending()
{
    // Runs until the indexes stop producing work; each round starts with a
    // clean pending transaction that has no range.
    while (!d->pendingTrans.isEmpty()) {
        RecordsTrans next(this);
        next.swap(d->pendingTrans);
        processSingleTransaction(next);
    }
}

void Table::processSingleTransaction(RecordsTrans &trans)
{
    // The rows move from the entries into the lists, uncounted; should an
    // index throw, they go back, and the transaction stays as it was.
    struct Lists
    {
        ~Lists()
        {
            if (taken) {
                taken->restore(updated, inserted, changed);
                return;
            }
            for (QList<Record> *rows : { &changed, &inserted, &updated, &removed })
                releaseRows(*rows);
        }
        QList<Record> removed, updated, inserted, changed;
        RecordsTransPrivate *taken = nullptr;
    } lists;
    if (trans.d) {
        lists.taken = trans.d; // also if taking fails half-way
        trans.d->take(lists.removed, lists.updated, lists.inserted, lists.changed);
    }
    processSingleTransaction(lists.removed, lists.updated, trans.minColumn(), trans.maxColumn(),
                             lists.inserted, lists.changed);
    lists.taken = nullptr;
    trans.clear();
}

void Table::processSingleTransaction(QList<Record> &removed, QList<Record> &updated, int first,
                                     int last, const QList<Record> &inserted,
                                     const QList<Record> &changed)
{
    if (Index *limit = d->namedIndexes.value(QStringLiteral("IndexLimit"), nullptr))
        static_cast<IndexLimit *>(limit)->toRemove(inserted.size() - removed.size(), removed,
                                                   updated);

    d->rowsProcessed += removed.size() + updated.size() + inserted.size();
    d->transactionState = TransactionPreprocess;
    for (Index *index : qAsConst(d->indexes))
        index->preprocess(removed, updated, first, last, inserted, changed);

    // From here on the old values are gone: the indexes keep pointing at the
    // table's own blocks, which now take the new values.
    const int pairs = qMin(updated.size(), changed.size());
    constexpr int ahead = 8; // the rows written next are asked for, the misses overlap
    for (int i = 0; i < pairs; ++i) {
        if (i + ahead < pairs) {
            if (unsigned char *row = const_cast<unsigned char *>(updated.at(i + ahead).rowPtr())) {
                __builtin_prefetch(row, 1);
                __builtin_prefetch(row + RowHeaderSize + d->rowLength, 1); // the null bits
            }
        }
        const Record &target = updated.at(i);
        const Record &source = changed.at(i);
        if (target != source)
            copyRowContent(const_cast<unsigned char *>(target.rowPtr()), source.rowPtr(), first,
                           last);
    }

    d->masterIndex->process(removed, updated, first, last, inserted);
    d->transactionState = TransactionPostprocess;
    for (Index *index : qAsConst(d->indexes))
        index->process(removed, updated, first, last, inserted);
    d->transactionState = TransactionIdle;
}

Table::TransactionState Table::transactionState() const
{
    return d->transactionState;
}

// --- brackets and locks ---

namespace {

// Before a writer takes the lock for a new bracket: threads that wait for it
// (readers under TableLocker) get it first. A woken waiter may need a while
// to be scheduled on a busy machine; the bound is only a safety net, since a
// waiter held up by another holder of the lock holds the writer up as well.
void letWaitersIn(TablePrivate *d)
{
    if (d->lockWaiters.loadAcquire() == 0 || d->owner.loadRelaxed() == QThread::currentThreadId())
        return;
    QMutexLocker locker(&d->waitersMutex);
    QDeadlineTimer deadline(20);
    while (d->lockWaiters.loadAcquire() > 0) {
        if (!d->waiterIn.wait(&d->waitersMutex, deadline))
            break;
    }
}

} // namespace

void Table::beginUpdate()
{
    // Brackets nest; only the outermost acts.
    if (d->updateDepth.fetchAndAddOrdered(1) > 0)
        return;
    const QList<Index *> dependents = d->dependentIndexes;
    for (Index *index : dependents)
        index->dependentBeginUpdate(this);
    letWaitersIn(d);
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
    if (!d->mutex.tryLock()) {
        d->lockWaiters.ref();
        d->mutex.lock();
        d->lockWaiters.deref();
        QMutexLocker locker(&d->waitersMutex);
        d->waiterIn.wakeAll();
    }
    tsan::locked(&d->mutex);
    if (d->ownerDepth++ == 0)
        d->owner.storeRelaxed(QThread::currentThreadId());
}

void Table::unlock()
{
    if (--d->ownerDepth == 0)
        d->owner.storeRelaxed(nullptr);
    tsan::unlocking(&d->mutex);
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
