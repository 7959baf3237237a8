#include "model/tablemodelrecorder_p.h"

#include "table/table.h"

#include <QMetaObject>

#include <climits>

TableModelRecorder::TableModelRecorder(Table *table, QObject *model)
    : m_table(table), m_model(model)
{
    // The writer walks the index list under the lock.
    TableLocker locker(m_table);
    m_table->addIndex(this);
}

TableModelRecorder::~TableModelRecorder()
{
    if (!m_table)
        return;
    TableLocker locker(m_table);
    m_table->removeIndex(this);
    m_removed.clear();
    m_applying.clear();
}

TableModelChanges TableModelRecorder::take()
{
    TableModelChanges changes;
    qSwap(changes, m_changes);
    m_applying.clear();
    qSwap(m_applying, m_removed);
    m_notified = false;
    return changes;
}

void TableModelRecorder::notify()
{
    if (m_notified)
        return;
    m_notified = true;
    // By name: the call and its event are made inside Qt.
    QMetaObject::invokeMethod(m_model, "changesRecorded", Qt::QueuedConnection);
}

void TableModelRecorder::clear()
{
    // The rows may be about to move in memory (Table::addColumn): let go of
    // them before that.
    m_changes = TableModelChanges();
    m_changes.rebuilt = true;
    m_removed.clear();
    m_applying.clear();
    notify();
}

void TableModelRecorder::build()
{
    m_changes.rebuilt = true;
    notify();
}

void TableModelRecorder::add(const Record &record)
{
    m_changes.inserted.append(record.pointer());
    notify();
}

void TableModelRecorder::remove(const Record &record, int)
{
    m_changes.removed.append(record.pointer());
    m_removed.append(record);
    notify();
}

void TableModelRecorder::written(const Record &record, int first, int last)
{
    // -1 stands for the first or the last column; a range with no columns in
    // it is taken as the whole row.
    if (first > last && last >= 0)
        first = 0, last = -1;
    m_changes.written.append({ record.pointer(), qMax(first, 0), last < 0 ? INT_MAX : last });
}

void TableModelRecorder::update(const Record &record, int first, int last, int)
{
    written(record, first, last);
    notify();
}

void TableModelRecorder::process(const QList<Record> &removed, const QList<Record> &updated,
                                 int first, int last, const QList<Record> &inserted)
{
    timer.restart();
    if (!removed.isEmpty() || !updated.isEmpty() || !inserted.isEmpty()) {
        m_removed.append(removed);
        m_changes.removed.reserve(m_changes.removed.size() + removed.size());
        for (const Record &row : removed)
            m_changes.removed.append(row.pointer());
        for (const Record &row : updated)
            written(row, first, last);
        m_changes.inserted.reserve(m_changes.inserted.size() + inserted.size());
        for (const Record &row : inserted)
            m_changes.inserted.append(row.pointer());
        notify();
    }
    m_nsecsElapsed += timer.nsecsElapsed();
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

bool TableModelRecorder::filter(const Record &) const
{
    return true;
}

bool TableModelRecorder::contains(const Record &) const
{
    return false;
}

QString TableModelRecorder::getClassName() const
{
    return QStringLiteral("TableModelRecorder");
}
