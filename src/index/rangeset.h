#ifndef TABLEDB_INDEX_RANGESET_H
#define TABLEDB_INDEX_RANGESET_H

#include <QList>

#include <algorithm>

// Ascending, disjoint half-open ranges kept as one boundary list: begin0, end0,
// begin1, end1, ... in strictly ascending order. Ranges that touch are merged,
// so even indexes always hold begins and odd ones ends.
template <typename T>
class RangeSet
{
public:
    // Adds [begin, end), merging it with every range it overlaps or touches.
    // An empty range (end not above begin) adds nothing. O(1) behind the last
    // range, otherwise O(log n) searches plus the list's insert and erase.
    void add(const T &begin, const T &end);

    const QList<T> &boundaries() const { return m_boundaries; }
    int rangeCount() const { return m_boundaries.size() / 2; }
    T rangeBegin(int i) const { return m_boundaries.at(2 * i); }
    T rangeEnd(int i) const { return m_boundaries.at(2 * i + 1); }
    bool isEmpty() const { return m_boundaries.isEmpty(); }
    void clear() { m_boundaries.clear(); }

    bool operator==(const RangeSet &o) const { return m_boundaries == o.m_boundaries; }
    bool operator!=(const RangeSet &o) const { return m_boundaries != o.m_boundaries; }

private:
    QList<T> m_boundaries;
};

template <typename T>
void RangeSet<T>::add(const T &begin, const T &end)
{
    if (!(begin < end))
        return;
    // Ranges added in ascending order, the usual case, go on the end.
    if (m_boundaries.isEmpty() || m_boundaries.last() < begin) {
        m_boundaries.append(begin);
        m_boundaries.append(end);
        return;
    }
    if (m_boundaries.last() == begin) {
        m_boundaries.last() = end;
        return;
    }
    const auto first = m_boundaries.begin();
    const int i = int(std::lower_bound(first, m_boundaries.end(), begin) - first);
    const int j = int(std::lower_bound(first + i, m_boundaries.end(), end) - first);
    const int size = m_boundaries.size();

    T newBegin = begin;
    int firstOut = i;
    int insertAt = i;
    if (i & 1) { // inside a range or on its end
        newBegin = m_boundaries.at(i - 1);
        firstOut = insertAt = i - 1;
    }
    T newEnd = end;
    int lastOut = j;
    if (j & 1) { // inside a range
        newEnd = m_boundaries.at(j);
        lastOut = j + 1;
    } else if (j < size && m_boundaries.at(j) == end) { // touches the next range
        newEnd = m_boundaries.at(j + 1);
        lastOut = j + 2;
    }
    if (firstOut < size && lastOut > firstOut)
        m_boundaries.erase(m_boundaries.begin() + firstOut, m_boundaries.begin() + lastOut);
    m_boundaries.insert(insertAt, newBegin);
    m_boundaries.insert(insertAt + 1, newEnd);
}

#endif // TABLEDB_INDEX_RANGESET_H
