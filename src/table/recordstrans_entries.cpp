#include "table/recordstrans_p.h"

#include "index/masterindex.h"
#include "index/radixsort_p.h"
#include "table/table.h"

#include <algorithm>

// --- ordering through the master ---

bool RecordsTransPrivate::KeyLess::operator()(int a, int b) const
{
    return d->m_master->compare(d->entries[size_t(a)].key, d->entries[size_t(b)].key) < 0;
}

bool RecordsTransPrivate::KeyLess::operator()(int a, const Record &b) const
{
    return d->m_master->compare(d->entries[size_t(a)].key, b) < 0;
}

bool RecordsTransPrivate::KeyLess::operator()(const Record &a, int b) const
{
    return d->m_master->compare(a, d->entries[size_t(b)].key) < 0;
}

// --- construction ---

RecordsTransPrivate::RecordsTransPrivate(Table *table)
    : m_table(table), m_ordered(KeyLess { this })
{
}

RecordsTransPrivate::RecordsTransPrivate(const RecordsTransPrivate &other)
    : entries(other.entries),
      m_table(other.m_table),
      m_mode(other.m_mode),
      m_master(other.m_master),
      m_columnCount(other.m_columnCount),
      m_form(other.m_form),
      m_live(other.m_live),
      m_inOrder(other.m_inOrder),
      m_lastPrefix { other.m_lastPrefix[0], other.m_lastPrefix[1] },
      m_slots(other.m_slots),
      m_usedSlots(other.m_usedSlots),
      m_ordered(KeyLess { this }),
      m_takenUpdated(other.m_takenUpdated),
      m_takenInserted(other.m_takenInserted),
      m_takenChanged(other.m_takenChanged)
{
    // The set's order is the other's; entered from its end, each costs O(1).
    for (int e : other.m_ordered)
        m_ordered.insert(m_ordered.end(), e);
}

// --- kind of key ---

void RecordsTransPrivate::sync()
{
    if (m_mode != Unset && m_table->masterIndex() == m_master
        && m_table->columnCount() == m_columnCount)
        return;
    const Mode before = m_mode;
    detect();
    if (before != Unset || m_live > 0) {
        m_inOrder = false;
        reindex(true);
    }
}

void RecordsTransPrivate::detect()
{
    m_master = m_table->masterIndex();
    m_columnCount = m_table->columnCount();
    m_form = MasterKeyForm::of(m_master, m_table);
    m_mode = m_form.isHashed() ? Hashed : Ordered;
}

// --- look-up ---

RecordsTransPrivate::Probe RecordsTransPrivate::locate(const Record &key)
{
    sync();
    Probe probe;
    if (m_mode == Ordered) {
        probe.hint = m_ordered.lower_bound(key);
        if (probe.hint != m_ordered.end() && !m_ordered.key_comp()(key, *probe.hint))
            probe.entry = *probe.hint;
        return probe;
    }
    const unsigned char *row = key.rowPtr();
    m_form.prefixOf(row, probe.prefix);
    // Hashed while the row is at hand, also when no look-up needs it yet.
    probe.hash = m_form.hashOf(row);
    if (m_inOrder) {
        const bool rises = probe.prefix[0] != m_lastPrefix[0]
            ? probe.prefix[0] > m_lastPrefix[0]
            : probe.prefix[1] > m_lastPrefix[1];
        if (entries.empty() || rises) {
            probe.after = true;
            return probe;
        }
        m_inOrder = false;
        reindex(false);
    }
    if (m_slots.empty())
        return probe;
    const size_t mask = m_slots.size() - 1;
    int erased = -1;
    for (size_t slot = probe.hash & mask;; slot = (slot + 1) & mask) {
        const int at = m_slots[slot];
        if (at == 0) {
            probe.slot = erased >= 0 ? erased : int(slot);
            return probe;
        }
        if (at < 0) {
            if (erased < 0)
                erased = int(slot);
            continue;
        }
        const Entry &entry = entries[size_t(at - 1)];
        if (entry.hash == probe.hash && m_form.sameKey(entry.key.rowPtr(), row)) {
            probe.entry = at - 1;
            probe.slot = int(slot);
            return probe;
        }
    }
}

int RecordsTransPrivate::add(const Probe &probe, Record key, int code, Record change)
{
    const int e = int(entries.size());
    if (entries.capacity() == 0)
        entries.reserve(64); // fewer steps of growth for the usual batch
    // The look-up grows before the entry comes, so that a failed allocation
    // leaves the entries as they were. Below half full, erased slots counted,
    // so that probes stay short.
    const bool hashed = m_mode == Hashed && !probe.after;
    const bool grow = hashed && (probe.slot < 0 || 2 * size_t(m_usedSlots + 1) > m_slots.size());
    if (grow)
        reindex(false, qMax(1, m_room - m_live));
    entries.push_back({ std::move(key), std::move(change), { probe.prefix[0], probe.prefix[1] },
                        probe.hash, code });
    ++m_live;
    m_sortedValid = false;
    if (m_mode == Ordered) {
        try {
            m_ordered.insert(probe.hint, e);
        } catch (...) {
            entries.pop_back();
            --m_live;
            throw;
        }
        return e;
    }
    if (probe.after) {
        m_lastPrefix[0] = probe.prefix[0];
        m_lastPrefix[1] = probe.prefix[1];
        return e;
    }
    size_t slot = size_t(probe.slot);
    if (grow) {
        const size_t mask = m_slots.size() - 1;
        for (slot = probe.hash & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) { }
    }
    if (m_slots[slot] == 0)
        ++m_usedSlots;
    m_slots[slot] = e + 1;
    return e;
}

void RecordsTransPrivate::reindex(bool rehash, int room)
{
    if (m_mode == Ordered) {
        OrderedSet ordered(KeyLess { this });
        for (size_t e = 0; e < entries.size(); ++e) {
            if (entries[e].code != 0)
                ordered.insert(ordered.end(), int(e));
        }
        m_ordered.swap(ordered);
        m_slots.clear();
        m_usedSlots = 0;
        return;
    }
    m_ordered.clear();
    if (m_inOrder) {
        m_slots.clear();
        m_usedSlots = 0;
        return;
    }
    size_t capacity = 128;
    while (capacity < 2 * size_t(m_live + room + 1))
        capacity *= 2;
    std::vector<int> table(capacity, 0);
    const size_t mask = capacity - 1;
    int used = 0;
    for (size_t e = 0; e < entries.size(); ++e) {
        Entry &entry = entries[e];
        if (entry.code == 0)
            continue;
        if (rehash) {
            entry.hash = m_form.hashOf(entry.key.rowPtr());
            m_form.prefixOf(entry.key.rowPtr(), entry.prefix);
        }
        size_t slot = entry.hash & mask;
        while (table[slot] != 0)
            slot = (slot + 1) & mask;
        table[slot] = int(e) + 1;
        ++used;
    }
    m_slots.swap(table);
    m_usedSlots = used;
}

void RecordsTransPrivate::erase(int e)
{
    Entry &entry = entries[size_t(e)];
    if (m_mode == Ordered) {
        m_ordered.erase(e);
    } else if (!m_slots.empty()) {
        const size_t mask = m_slots.size() - 1;
        for (size_t slot = entry.hash & mask;; slot = (slot + 1) & mask) {
            if (m_slots[slot] == 0)
                break;
            if (m_slots[slot] == e + 1) {
                m_slots[slot] = -1;
                break;
            }
        }
    }
    entry.key = Record();
    entry.change = Record();
    entry.code = 0;
    --m_live;
    m_sortedValid = false;
}

void RecordsTransPrivate::reserve(int rows)
{
    entries.reserve(entries.size() + size_t(rows));
    m_room = m_live + rows;
}

void RecordsTransPrivate::clear()
{
    // A large transaction gives its memory back; a small one keeps it for reuse.
    if (entries.capacity() > 4096)
        std::vector<Entry>().swap(entries);
    else
        entries.clear();
    if (m_slots.size() > 8192)
        std::vector<int>().swap(m_slots);
    else
        std::fill(m_slots.begin(), m_slots.end(), 0);
    m_usedSlots = 0;
    m_ordered.clear();
    m_live = 0;
    m_room = 0;
    m_inOrder = true;
    m_lastPrefix[0] = m_lastPrefix[1] = 0;
    m_mode = Unset;
    m_sortedValid = false;
    for (std::vector<int> *list : { &m_sorted, &m_takenUpdated, &m_takenInserted, &m_takenChanged }) {
        if (list->capacity() > 4096)
            std::vector<int>().swap(*list);
        else
            list->clear();
    }
}

bool RecordsTransPrivate::hasChanges() const
{
    for (const Entry &entry : entries) {
        if (entry.code == RecordsTrans::RowUpdated && !entry.change.isNull())
            return true;
    }
    return false;
}

// --- order ---

namespace {

struct Item
{
    quint64 prefix[2];
    int entry;
};

// Stable, by the prefixes: the second word first, then the first. Bytes in
// which all items agree are passed over (a key of a few thousand numbers
// differs in two of its sixteen).
void sortByPrefix(std::vector<Item> &items)
{
    std::vector<Item> scratch;
    radixSort(items, scratch, [](const Item &item) { return item.prefix[1]; });
    radixSort(items, scratch, [](const Item &item) { return item.prefix[0]; });
}

} // namespace

const std::vector<int> &RecordsTransPrivate::sorted() const
{
    if (m_sortedValid)
        return m_sorted;
    m_sorted.clear();
    m_sorted.reserve(size_t(m_live));
    m_sortedValid = true;
    if (m_mode == Ordered) {
        m_sorted.assign(m_ordered.begin(), m_ordered.end());
        return m_sorted;
    }
    if (m_inOrder) {
        for (size_t e = 0; e < entries.size(); ++e) {
            if (entries[e].code != 0)
                m_sorted.push_back(int(e));
        }
        return m_sorted;
    }
    std::vector<Item> items;
    items.reserve(size_t(m_live));
    for (size_t e = 0; e < entries.size(); ++e) {
        const Entry &entry = entries[e];
        if (entry.code != 0)
            items.push_back({ { entry.prefix[0], entry.prefix[1] }, int(e) });
    }
    auto samePrefix = [](const Item &a, const Item &b) {
        return a.prefix[0] == b.prefix[0] && a.prefix[1] == b.prefix[1];
    };
    auto less = [this](const Item &a, const Item &b) {
        if (a.prefix[0] != b.prefix[0])
            return a.prefix[0] < b.prefix[0];
        if (a.prefix[1] != b.prefix[1])
            return a.prefix[1] < b.prefix[1];
        if (!m_form.isPrefixExact()) {
            const Record &x = entries[size_t(a.entry)].key;
            const Record &y = entries[size_t(b.entry)].key;
            if (m_form.less(m_master, x, y))
                return true;
            if (m_form.less(m_master, y, x))
                return false;
        }
        return a.entry < b.entry; // equal keys only if one was written since it came
    };
    // Rows often come in key order already, as from a walk over the master.
    if (!std::is_sorted(items.begin(), items.end(), less)) {
        if (items.size() < 256) {
            std::sort(items.begin(), items.end(), less);
        } else {
            // In order of arrival, so that equal prefixes stay in that order.
            sortByPrefix(items);
            for (auto run = items.begin(); !m_form.isPrefixExact() && run != items.end();) {
                auto end = run + 1;
                while (end != items.end() && samePrefix(*run, *end))
                    ++end;
                if (end - run > 1)
                    std::sort(run, end, less);
                run = end;
            }
        }
    }
    for (const Item &item : items)
        m_sorted.push_back(item.entry);
    return m_sorted;
}

std::vector<int> RecordsTransPrivate::walkOrder() const
{
    if (m_mode == Ordered)
        return std::vector<int>(m_ordered.begin(), m_ordered.end());
    std::vector<int> order;
    order.reserve(size_t(m_live));
    for (size_t e = 0; e < entries.size(); ++e) {
        if (entries[e].code != 0)
            order.push_back(int(e));
    }
    return order;
}

// --- handing over to the table ---

namespace {

// Moves `row` to the end of `list` without touching its count.
void moveAppend(QList<Record> &list, Record &row)
{
    list.append(Record());
    qSwap(list.last(), row);
}

} // namespace

void RecordsTransPrivate::take(QList<Record> &removed, QList<Record> &updated,
                               QList<Record> &inserted, QList<Record> &changed)
{
    m_takenUpdated.clear();
    m_takenInserted.clear();
    m_takenChanged.clear();
    const std::vector<int> &order = sorted();
    int counts[4] = { 0, 0, 0, 0 };
    for (int e : order)
        ++counts[entries[size_t(e)].code & 3];
    removed.reserve(counts[RecordsTrans::RowRemoved]);
    updated.reserve(counts[RecordsTrans::RowUpdated]);
    changed.reserve(counts[RecordsTrans::RowUpdated]);
    inserted.reserve(counts[RecordsTrans::RowInserted]);
    m_takenUpdated.reserve(size_t(counts[RecordsTrans::RowUpdated]));
    m_takenInserted.reserve(size_t(counts[RecordsTrans::RowInserted]));
    m_takenChanged.reserve(size_t(counts[RecordsTrans::RowUpdated]));
    for (int e : order) {
        Entry &entry = entries[size_t(e)];
        switch (entry.code) {
        case RecordsTrans::RowInserted:
            m_takenInserted.push_back(e);
            moveAppend(inserted, entry.key);
            break;
        case RecordsTrans::RowRemoved:
            removed.append(entry.key);
            break;
        case RecordsTrans::RowUpdated:
            m_takenUpdated.push_back(e);
            moveAppend(updated, entry.key);
            if (!entry.change.isNull()) {
                m_takenChanged.push_back(e);
                moveAppend(changed, entry.change);
            }
            break;
        default:
            break;
        }
    }
    // The moved keys are gone from the entries: nothing may look them up.
    std::fill(m_slots.begin(), m_slots.end(), 0);
    m_usedSlots = 0;
    m_ordered.clear();
}

void RecordsTransPrivate::restore(QList<Record> &updated, QList<Record> &inserted,
                                  QList<Record> &changed)
{
    for (size_t i = 0; i < m_takenUpdated.size() && int(i) < updated.size(); ++i)
        qSwap(entries[size_t(m_takenUpdated[i])].key, updated[int(i)]);
    for (size_t i = 0; i < m_takenInserted.size() && int(i) < inserted.size(); ++i)
        qSwap(entries[size_t(m_takenInserted[i])].key, inserted[int(i)]);
    for (size_t i = 0; i < m_takenChanged.size() && int(i) < changed.size(); ++i)
        qSwap(entries[size_t(m_takenChanged[i])].change, changed[int(i)]);
    m_takenUpdated.clear();
    m_takenInserted.clear();
    m_takenChanged.clear();
    reindex(false);
}
