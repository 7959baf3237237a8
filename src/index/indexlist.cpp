#include "index/indexlist.h"

#include "index/masterindex.h"
#include "runtime/iapphub.h"
#include "table/table.h"

IndexList::IndexList(Table *table, bool registered)
    : m_table(table), m_registered(registered && table)
{
    if (m_registered)
        m_table->addIndex(this);
}

IndexList::IndexList(const QString &tableName, bool registered)
    : IndexList(IAppHub::findTable(tableName), registered)
{
}

IndexList::~IndexList()
{
    if (m_registered)
        m_table->removeIndex(this);
}

void IndexList::clear()
{
    m_list.clear();
}

void IndexList::build()
{
    if (!m_table)
        return;
    TableLocker locker(m_table);
    const MasterIndex *master = m_table->masterIndex();
    // A master index has nothing to fill itself from but its own rows.
    if (!master || static_cast<const Index *>(master) == this)
        return;
    const IndexIterative *source = master;
    for (auto it = source->begin(), end = source->end(); it != end; ++it) {
        const Record row = *it;
        if (filter(row))
            add(row);
    }
}

void IndexList::add(const Record &record)
{
    m_list.append(record);
}

void IndexList::remove(const Record &record, int index)
{
    if (index >= 0 && index < m_list.count() && m_list.at(index) == record) {
        m_list.removeAt(index);
        return;
    }
    const int p = indexOf(record);
    if (p != -1)
        m_list.removeAt(p);
}

bool IndexList::filter(const Record &) const
{
    return true;
}

bool IndexList::contains(const Record &record) const
{
    return indexOf(record) != -1;
}

int IndexList::indexOf(const Record &record) const
{
    return m_list.indexOf(record);
}

QString IndexList::getClassName() const
{
    return QStringLiteral("IndexList");
}

void IndexList::move(int from, int to, int destination)
{
    if (from == destination || destination == to)
        return;
    QList<Record> moving;
    if (from <= to) {
        moving.reserve(to - from + 1);
        for (int i = from; i <= to; ++i) {
            moving.append(m_list.at(from));
            m_list.removeAt(from);
        }
    }
    for (int i = 0; i < moving.size(); ++i) {
        // Positions past the end would already have produced empty rows.
        if (moving.at(i))
            m_list.insert(destination + i, moving.at(i));
    }
}

void IndexList::removeRanges(const RangeSet<int> &ranges)
{
    m_list.removeRanges(ranges);
}
