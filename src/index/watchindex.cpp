#include "index/watchindex.h"

#include "table/table.h"

WatchIndex::WatchIndex(Table *table)
    : m_table(table)
{
    if (m_table)
        m_table->addIndex(this);
}

WatchIndex::WatchIndex(const WatchIndex &other)
    : Index(other),
      m_inserted(other.m_inserted),
      m_removed(other.m_removed),
      m_updated(other.m_updated),
      m_table(other.m_table)
{
}

WatchIndex &WatchIndex::operator=(const WatchIndex &other)
{
    if (this == &other)
        return *this;
    if (m_table && m_table != other.m_table)
        m_table->removeIndex(this);
    Index::operator=(other);
    m_inserted = other.m_inserted;
    m_removed = other.m_removed;
    m_updated = other.m_updated;
    m_table = other.m_table;
    return *this;
}

WatchIndex::~WatchIndex()
{
    if (m_table)
        m_table->removeIndex(this);
}

void WatchIndex::clear()
{
    m_inserted.clear();
    m_removed.clear();
    m_updated.clear();
}

void WatchIndex::build()
{
    clear();
}

void WatchIndex::add(const Record &record)
{
    // A row that left and came back within one period has changed.
    const int i = m_removed.indexOf(record);
    if (i == -1) {
        m_inserted.append(record);
    } else {
        m_removed.removeAt(i);
        m_updated.append(record);
    }
}

void WatchIndex::remove(const Record &record, int)
{
    m_removed.append(record);
}

bool WatchIndex::filter(const Record &) const
{
    return true;
}

bool WatchIndex::contains(const Record &record) const
{
    return m_inserted.contains(record) || m_updated.contains(record);
}

void WatchIndex::update(const Record &record, int, int, int)
{
    m_updated.append(record);
}

QString WatchIndex::getClassName() const
{
    return QStringLiteral("WatchIndex");
}
