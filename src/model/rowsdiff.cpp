#include "model/rowsdiff_p.h"

#include <algorithm>

RowsDiff::RowTable::RowTable(int capacity)
{
    int size = 16;
    while (size < 2 * capacity)
        size <<= 1;
    m_keys.fill(nullptr, size);
    m_entries.resize(size);
    m_mask = size - 1;
}

int RowsDiff::RowTable::slot(const unsigned char *row) const
{
    // Blocks are 8-aligned; the multiply spreads the remaining bits.
    const quint64 h = (quint64(quintptr(row)) >> 3) * Q_UINT64_C(0x9E3779B97F4A7C15);
    return int(h >> 32) & m_mask;
}

RowsDiff::Entry *RowsDiff::RowTable::find(const unsigned char *row)
{
    for (int i = slot(row);; i = (i + 1) & m_mask) {
        if (m_keys[i] == row)
            return &m_entries[i];
        if (!m_keys[i])
            return nullptr;
    }
}

void RowsDiff::RowTable::grow()
{
    QVector<const unsigned char *> keys(2 * m_keys.size(), nullptr);
    QVector<Entry> entries(2 * m_keys.size());
    qSwap(keys, m_keys);
    qSwap(entries, m_entries);
    m_mask = m_keys.size() - 1;
    for (int i = 0; i < keys.size(); ++i) {
        if (!keys[i])
            continue;
        int j = slot(keys[i]);
        while (m_keys[j])
            j = (j + 1) & m_mask;
        m_keys[j] = keys[i];
        m_entries[j] = entries[i];
    }
}

RowsDiff::Entry &RowsDiff::RowTable::insert(const unsigned char *row)
{
    if (2 * (m_size + 1) > m_keys.size())
        grow();
    for (int i = slot(row);; i = (i + 1) & m_mask) {
        if (m_keys[i] == row)
            return m_entries[i];
        if (!m_keys[i]) {
            m_keys[i] = row;
            ++m_size;
            return m_entries[i];
        }
    }
}

RowsDiff::RowsDiff(const Rows &before, const Rows &after, const TableModelChanges &changes)
{
    // Rows are often written many times over between two readings: the
    // table starts small and grows.
    const int recorded = changes.removed.size() + changes.inserted.size() + changes.written.size();
    {
        RowTable table(qMin(recorded, 1024));
        enter(table, changes);
        if (walk(before, after, table)) {
            findMoves();
            return;
        }
    }
    if (!m_matched)
        return;
    RowTable table(before.size() + after.size());
    enter(table, changes);
    for (const unsigned char *row : before)
        table.insert(row);
    for (const unsigned char *row : after)
        table.insert(row);
    if (walk(before, after, table))
        findMoves();
}

void RowsDiff::enter(RowTable &table, const TableModelChanges &changes)
{
    // A row that left or came and is found in both readings all the same
    // (it left and came back) counts as written all over.
    for (const unsigned char *row : changes.removed) {
        Entry &e = table.insert(row);
        e.first = 0;
        e.last = INT_MAX;
    }
    for (const unsigned char *row : changes.inserted) {
        Entry &e = table.insert(row);
        e.first = 0;
        e.last = INT_MAX;
    }
    for (const TableModelChanges::Written &w : changes.written) {
        Entry &e = table.insert(w.row);
        e.first = qMin(e.first, w.first);
        e.last = qMax(e.last, w.last);
    }
}

bool RowsDiff::walk(const Rows &before, const Rows &after, RowTable &table)
{
    m_oldToNew.fill(-1, before.size());
    m_newToOld.fill(-1, after.size());
    m_written.clear();
    // Positions in `after` of the rows that nothing recorded.
    QVector<int> untouched;
    untouched.reserve(after.size() - qMin(after.size(), table.size()));
    for (int j = 0; j < after.size(); ++j) {
        Entry *e = table.find(after[j]);
        if (!e) {
            untouched.append(j);
            continue;
        }
        if (e->after >= 0) {
            m_matched = false;
            return false;
        }
        e->after = j;
    }
    int k = 0;
    for (int i = 0; i < before.size(); ++i) {
        Entry *e = table.find(before[i]);
        if (e) {
            if (e->before >= 0) {
                m_matched = false;
                return false;
            }
            e->before = i;
            if (e->after >= 0) {
                m_oldToNew[i] = e->after;
                m_newToOld[e->after] = i;
                if (e->first <= e->last)
                    m_written.append({ e->after, e->first, e->last });
            }
            continue;
        }
        if (k == untouched.size() || after[untouched[k]] != before[i])
            return false;
        m_oldToNew[i] = untouched[k];
        m_newToOld[untouched[k]] = i;
        ++k;
    }
    if (k != untouched.size())
        return false;
    std::sort(m_written.begin(), m_written.end(),
              [](const Written &a, const Written &b) { return a.row < b.row; });
    return true;
}

void RowsDiff::findMoves()
{
    // A longest increasing run of old positions, taken in the new order: its
    // rows stay put and every other row that stayed is moved. Rows mostly keep
    // their order, so most steps only extend the run.
    QVector<int> at; // positions in `after` of the rows that stayed
    at.reserve(m_newToOld.size());
    for (int j = 0; j < m_newToOld.size(); ++j) {
        if (m_newToOld[j] >= 0)
            at.append(j);
    }
    QVector<int> tails; // per run length, the index into `at` that ends the lowest run
    QVector<int> previous(at.size(), -1);
    auto value = [&](int i) { return m_newToOld[at[i]]; };
    for (int i = 0; i < at.size(); ++i) {
        const int v = value(i);
        int length;
        if (tails.isEmpty() || value(tails.last()) < v) {
            length = tails.size();
            tails.append(i);
        } else {
            length = int(std::lower_bound(tails.begin(), tails.end(), v,
                                          [&](int t, int x) { return value(t) < x; })
                         - tails.begin());
            tails[length] = i;
        }
        previous[i] = length > 0 ? tails[length - 1] : -1;
    }
    m_moved.fill(true, m_newToOld.size());
    for (int i = tails.isEmpty() ? -1 : tails.last(); i >= 0; i = previous[i])
        m_moved[at[i]] = false;
    m_movedCount = at.size() - tails.size();
    for (int j = 0; j < m_newToOld.size(); ++j) {
        if (m_newToOld[j] < 0)
            m_moved[j] = false;
    }
}

QVector<QPair<int, int>> RowsDiff::runs(const QVector<int> &map)
{
    QVector<QPair<int, int>> result;
    for (int p = 0; p < map.size(); ++p) {
        if (map[p] >= 0)
            continue;
        if (!result.isEmpty() && result.last().second == p - 1)
            result.last().second = p;
        else
            result.append({ p, p });
    }
    return result;
}
