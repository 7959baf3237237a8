#include "index/index.h"

#include "runtime/elapsed_p.h"

int64 Index::m_nsecsElapsedTotal = 0;

Index::Index() : m_nsecsElapsed(0) { }

Index::~Index() = default;

void Index::rebuild()
{
    clear();
    build();
}

void Index::preprocess(const QList<Record> &, const QList<Record> &, int, int,
                       const QList<Record> &, const QList<Record> &)
{
}

void Index::process(const QList<Record> &removed, const QList<Record> &updated, int first,
                    int last, const QList<Record> &inserted)
{
    timer.restart();
    for (const Record &record : removed)
        remove(record, -1);
    for (const Record &record : updated)
        update(record, first, last, -1);
    for (const Record &record : inserted) {
        if (filter(record))
            add(record);
    }
    m_nsecsElapsed += timer.nsecsElapsed();
    // A second reading on purpose: the total is the sum of its own readings.
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void Index::update(const Record &record, int, int, int index)
{
    remove(record, index);
    if (filter(record))
        add(record);
}

int Index::indexOf(const Record &) const
{
    return -1;
}

void Index::beginUpdate() { }

void Index::endUpdate() { }

void Index::dependentBeginUpdate(Table *) { }

void Index::dependentEndUpdate(Table *) { }

decimal Index::percentElapsed() const
{
    return elapsedPercent(m_nsecsElapsed, m_nsecsElapsedTotal);
}

void IndexDependBase::build()
{
    for (Index *index : m_dependentIndexes)
        index->build();
}

void IndexDependBase::clear()
{
    for (Index *index : m_dependentIndexes)
        index->clear();
}

void IndexDependBase::add(const Record &record)
{
    for (Index *index : m_dependentIndexes)
        index->add(record);
}

void IndexDependBase::remove(const Record &record, int position)
{
    for (Index *index : m_dependentIndexes)
        index->remove(record, position);
}

void IndexDependBase::update(const Record &record, int first, int last, int position)
{
    for (Index *index : m_dependentIndexes)
        index->update(record, first, last, position);
}

void IndexDependBase::preprocess(const QList<Record> &removed, const QList<Record> &updated,
                                 int first, int last, const QList<Record> &inserted,
                                 const QList<Record> &changed)
{
    for (Index *index : m_dependentIndexes)
        index->preprocess(removed, updated, first, last, inserted, changed);
}

void IndexDependBase::process(const QList<Record> &removed, const QList<Record> &updated,
                              int first, int last, const QList<Record> &inserted)
{
    for (Index *index : m_dependentIndexes)
        index->process(removed, updated, first, last, inserted);
}
