#include "index/indexvector.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <algorithm>

namespace {

// The index that resort() is sorting; lessThan() reads it.
IndexVector *sortingIndex = nullptr;

} // namespace

IndexVector::IndexVector(Table *table)
    : m_table(table)
{
    if (m_table)
        m_table->addIndex(this);
}

IndexVector::IndexVector(const IndexVector &other)
    : Index(other), m_table(other.m_table), m_vector(other.m_vector)
{
}

IndexVector &IndexVector::operator=(const IndexVector &other)
{
    if (this == &other)
        return *this;
    if (m_table && m_table != other.m_table)
        m_table->removeIndex(this);
    Index::operator=(other);
    m_table = other.m_table;
    m_vector = other.m_vector;
    return *this;
}

IndexVector::~IndexVector()
{
    if (m_table)
        m_table->removeIndex(this);
}

int IndexVector::search(const Record &record, int from) const
{
    for (int i = qMax(from + 1, 0); i < m_vector.count(); ++i) {
        if (compare(record, m_vector.at(i)) == 0)
            return i;
    }
    return -1;
}

void IndexVector::resort()
{
    sortingIndex = this;
    std::stable_sort(m_vector.begin(), m_vector.end(), &IndexVector::lessThan);
}

bool IndexVector::lessThan(const Record &a, const Record &b)
{
    return sortingIndex->compare(a, b) < 0;
}

void IndexVector::clear()
{
    m_vector.resize(0);
}

void IndexVector::build()
{
    if (!m_table)
        return;
    TableLocker locker(m_table);
    const IndexIterative *source = m_table->masterIndex();
    if (!source)
        return;
    for (auto it = source->begin(), end = source->end(); it != end; ++it) {
        const Record row = *it;
        if (filter(row))
            add(row);
    }
}

void IndexVector::add(const Record &record)
{
    int i = 0;
    while (i < m_vector.count() && compare(m_vector.at(i), record) <= 0)
        ++i;
    m_vector.insert(i, record);
}

void IndexVector::remove(const Record &record, int)
{
    const int i = m_vector.indexOf(record);
    if (i != -1)
        m_vector.remove(i);
}

bool IndexVector::filter(const Record &) const
{
    return true;
}

bool IndexVector::contains(const Record &record) const
{
    return search(record, -1) != -1;
}

QString IndexVector::getClassName() const
{
    return QStringLiteral("IndexVector");
}
