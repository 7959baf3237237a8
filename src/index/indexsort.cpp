#include "index/indexsort.h"

#include "index/concurrentsort.h"
#include "index/indexsort_p.h"
#include "index/masterindex.h"
#include "index/radixsort_p.h"
#include "table/table.h"

#include <QMessageLogger>
#include <QScopedValueRollback>

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

namespace {

typedef PartitionList<Record>::const_iterator ConstIterator;

// A row with its key prefix, for the sorts of whole lists and batches.
struct KeyedRow
{
    quint64 key;
    Record row;
};

// An IndexSort whose virtual members are all IndexSort's own where IndexSort
// has one: the reference for telling whether another object overrides them.
class PlainIndexSort final : public IndexSort
{
public:
    PlainIndexSort() : IndexSort(static_cast<Table *>(nullptr), false) { }
    int compare(const Record &, const Record &) const override { return 0; }
};

// The function that a virtual call of `member` on `object` reaches, read from
// the object's virtual table as the Itanium C++ ABI lays it out; null where
// that layout is not known to hold.
template <typename Member>
const void *finalOverrider(const IndexSort *object, Member member)
{
#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__))
    struct Representation
    {
        std::ptrdiff_t ptr; // 1 + offset in the virtual table, for a virtual member
        std::ptrdiff_t adj;
    } m;
    static_assert(sizeof(member) == sizeof(m), "Itanium member function pointers");
    std::memcpy(&m, &member, sizeof m);
    if (!(m.ptr & 1))
        return nullptr;
    const char *self = reinterpret_cast<const char *>(object) + m.adj;
    const char *table = *reinterpret_cast<const char *const *>(self);
    return *reinterpret_cast<const void *const *>(table + m.ptr - 1);
#else
    Q_UNUSED(object);
    Q_UNUSED(member);
    return nullptr;
#endif
}

template <typename Member>
bool isOwn(const IndexSort *object, Member member)
{
    static const PlainIndexSort plain;
    const void *f = finalOverrider(object, member);
    return f && f == finalOverrider(&plain, member);
}

// Entries found by the address of their row: open addressing over at least
// twice as many slots as entries, each slot an entry number or -1.
class AddressTable
{
public:
    explicit AddressTable(int count)
    {
        while ((1 << m_bits) < 2 * count)
            ++m_bits;
        m_slots.assign(size_t(1) << m_bits, -1);
    }
    // For a walk that looks every element of a list up: with few entries
    // the slots are eight times as many, so that nearly every look meets an
    // empty slot at once and the branch is well predicted.
    static AddressTable forWalk(int count) { return AddressTable(count <= 8192 ? 8 * count : count); }
    // The first slot to look at for `row`, and the one after `slot`.
    size_t home(const Record &row) const
    {
        const quint64 address = quint64(quintptr(row.rowPtr()));
        return size_t(((address >> 3) * 0x9E3779B97F4A7C15ULL) >> (64 - m_bits));
    }
    size_t next(size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
    int &operator[](size_t slot) { return m_slots[slot]; }

private:
    int m_bits = 4;
    std::vector<int> m_slots;
};

} // namespace

IndexSort::IndexSort(Table *table, bool registered)
    : IndexList(table, registered), d(new IndexSortPrivate)
{
}

IndexSort::IndexSort(const QString &tableName, bool registered)
    : IndexList(tableName, registered), d(new IndexSortPrivate)
{
}

IndexSort::~IndexSort() = default;

QString IndexSort::getClassName() const
{
    return QStringLiteral("IndexSort");
}

IndexSort::KeyPrefixKind IndexSort::keyPrefixKind() const
{
    return NoKeyPrefix;
}

quint64 IndexSort::keyPrefix(const Record &) const
{
    return 0;
}

namespace {

// Above every NULL, which is 0; the clamp keeps the order.
quint64 aboveNull(quint64 prefix)
{
    return prefix ? prefix : 1;
}

// The first four UTF-16 units, big-endian, zero-padded: a shorter string is a
// prefix of a longer one, and zero is the lowest unit.
quint64 unitsPrefix(const QString &text)
{
    quint64 prefix = 0;
    const int n = qMin(text.size(), 4);
    for (int i = 0; i < 4; ++i)
        prefix = (prefix << 16) | (i < n ? text.at(i).unicode() : 0);
    return prefix;
}

// floor(mantissa * 10^(4 - scale)), clamped to 64 bits: exact integer steps,
// so that no rounding can turn two values round.
qint64 tenThousandths(qint64 mantissa, int scale)
{
    if (scale <= 4) {
        qint64 v = mantissa;
        for (int i = scale; i < 4; ++i) {
            if (v > std::numeric_limits<qint64>::max() / 10)
                return std::numeric_limits<qint64>::max();
            if (v < std::numeric_limits<qint64>::min() / 10)
                return std::numeric_limits<qint64>::min();
            v *= 10;
        }
        return v;
    }
    if (scale - 4 > 18)
        return mantissa < 0 ? -1 : 0;
    qint64 divisor = 1;
    for (int i = 4; i < scale; ++i)
        divisor *= 10;
    qint64 q = mantissa / divisor;
    if (mantissa % divisor != 0 && mantissa < 0)
        --q; // toward minus infinity
    return q;
}

} // namespace

quint64 IndexSort::prefixOf(const Field &field)
{
    if (field.isNull())
        return 0;
    switch (field.type()) {
    case FieldType::Integer:
        return aboveNull(prefixOf(qint64(field.asInteger())));
    case FieldType::Integer64:
    case FieldType::DateTime:
        return aboveNull(prefixOf(qint64(field.asInteger64())));
    case FieldType::Decimal: {
        const decimal &d = field.asDecimal();
        return aboveNull(prefixOf(tenThousandths(d.value(), d.scale())));
    }
    case FieldType::VarChar:
        return aboveNull(unitsPrefix(
                FieldType::varCharToStaticString(field.data(), field.length()).string()));
    case FieldType::String: // the cell holds a QString
        return aboveNull(unitsPrefix(*reinterpret_cast<const QString *>(field.data())));
    default:
        return 1;
    }
}

quint64 IndexSortPrivate::prefixOfRow(const void *index, const Record &row)
{
    return static_cast<const IndexSort *>(index)->keyPrefix(row);
}

bool IndexSortPrivate::isOwnAdd(const IndexSort *index)
{
    return isOwn(index, &IndexSort::add);
}

bool IndexSortPrivate::isOwnResort(const IndexSort *index)
{
    return isOwn(index, &IndexSort::resort);
}

void IndexSort::checkKeyPrefix()
{
    if (d->prefixChecked)
        return;
    d->prefixChecked = true;
    const KeyPrefixKind kind = keyPrefixKind();
    if (kind == NoKeyPrefix)
        return;
    d->exact = kind == ExactKeyPrefix;
    m_list.setKeyFunction(&IndexSortPrivate::prefixOfRow, this);
}

int IndexSort::compareKeyed(quint64 ka, const Record &a, quint64 kb, const Record &b) const
{
    if (ka != kb)
        return ka < kb ? -1 : 1;
    return d->exact ? 0 : compare(a, b);
}

quint64 IndexSort::keyAt(ConstIterator it) const
{
    return m_list.hasKeys() ? PartitionList<Record>::key(it) : 0;
}

quint64 IndexSort::prefixNow(const Record &row) const
{
    return m_list.hasKeys() ? keyPrefix(row) : 0;
}

std::pair<int, ConstIterator> IndexSort::bound(const Record &record, bool upper) const
{
    int lo = 0;
    int hi = count();
    ConstIterator loIt;
    if (m_list.hasKeys()) {
        // The prefixes narrow the search to the rows of an equal prefix.
        const quint64 key = keyPrefix(record);
        const auto first = m_list.keyBound(key, false, 0);
        if (d->exact)
            return upper ? m_list.keyBound(key, true, first.first) : first;
        lo = first.first;
        loIt = first.second;
        hi = m_list.keyBound(key, true, lo).first;
    } else {
        loIt = m_list.iteratorAt(lo);
    }
    // A binary search that carries its iterator along, so that no step walks
    // the blocks from the start again.
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const ConstIterator midIt = loIt + (mid - lo);
        const int c = compare(*midIt, record);
        if (upper ? c <= 0 : c < 0) {
            lo = mid + 1;
            loIt = midIt + 1;
        } else {
            hi = mid;
        }
    }
    return { lo, loIt };
}

int IndexSort::indexOfAdd(const Record &record) const
{
    return bound(record, true).first;
}

int IndexSort::searchFirst(const Record &record, int from, bool byPrefix) const
{
    int lo = qMax(from + 1, 0);
    int hi = count();
    int result = -1;
    if (lo >= hi)
        return -1;
    ConstIterator loIt;
    if (byPrefix && m_list.hasKeys()) {
        const quint64 key = keyPrefix(record);
        const auto first = m_list.keyBound(key, false, lo);
        if (d->exact)
            return first.first < hi && PartitionList<Record>::key(first.second) == key ? first.first
                                                                                      : -1;
        lo = first.first;
        loIt = first.second;
        hi = m_list.keyBound(key, true, lo).first;
        // A prefix that tells keys apart well has a run of one key: its
        // first row is the answer, found without the halving steps.
        if (lo < hi && compare(*loIt, record) == 0)
            return lo;
    } else {
        loIt = m_list.iteratorAt(lo);
    }
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const ConstIterator midIt = loIt + (mid - lo);
        const int c = compare(*midIt, record);
        if (c > 0) {
            hi = mid;
        } else if (c < 0) {
            lo = mid + 1;
            loIt = midIt + 1;
        } else {
            result = mid;
            hi = mid;
        }
    }
    return result;
}

int IndexSort::search(const Record &record, int from) const
{
    return searchFirst(record, from);
}

int IndexSort::searchLast(const Record &record, int from) const
{
    int lo = qMax(from + 1, 0);
    int hi = count();
    int result = -1;
    if (lo >= hi)
        return -1;
    ConstIterator loIt;
    if (m_list.hasKeys()) {
        const quint64 key = keyPrefix(record);
        const auto first = m_list.keyBound(key, false, lo);
        const int end = m_list.keyBound(key, true, first.first).first;
        if (d->exact)
            return end > first.first ? end - 1 : -1;
        lo = first.first;
        loIt = first.second;
        hi = end;
        // As in searchFirst(): the run's last row first.
        if (lo < hi && compare(*m_list.iteratorAt(hi - 1), record) == 0)
            return hi - 1;
    } else {
        loIt = m_list.iteratorAt(lo);
    }
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const ConstIterator midIt = loIt + (mid - lo);
        const int c = compare(*midIt, record);
        if (c > 0) {
            hi = mid;
        } else {
            if (c == 0)
                result = mid;
            lo = mid + 1;
            loIt = midIt + 1;
        }
    }
    return result;
}

int IndexSort::searchFull(const Record &record, int from) const
{
    const int start = qMax(from + 1, 0);
    if (start >= count())
        return -1;
    int steps = 0;
    for (ConstIterator it = m_list.iteratorAt(start), e = end(); it != e; ++it, ++steps) {
        if (compare(*it, record) == 0)
            return steps;
    }
    return -1;
}

Record IndexSort::find(const Record &record, int from) const
{
    const int p = searchFirst(record, from);
    if (p == -1)
        return Record();
    return m_list.at(p);
}

void IndexSort::add(const Record &record)
{
    if (d->appending) {
        m_list.append(record);
        return;
    }
    checkKeyPrefix();
    if (m_list.hasKeys()) {
        const quint64 key = keyPrefix(record);
        m_list.insert(indexOfAdd(record), record, key);
        return;
    }
    m_list.insert(indexOfAdd(record), record);
}

void IndexSort::build()
{
    checkKeyPrefix();
    {
        // Appending in the master's order and one stable sort place every row
        // where add() would have: behind the rows of its key, in that order.
        const QScopedValueRollback<bool> appending(d->appending, IndexSortPrivate::isOwnAdd(this));
        IndexList::build();
    }
    resort();
    // A resort() of a subclass may have moved rows without their prefixes.
    if (m_list.hasKeys() && !IndexSortPrivate::isOwnResort(this))
        m_list.refreshKeys();
}

void IndexSort::resort()
{
    if (m_list.isEmpty())
        return;
    checkKeyPrefix();
    if (!m_list.hasKeys()) {
        ConcurrentSort::sort(m_list.begin(), m_list.end(), LessThan(this));
        return;
    }
    // Sorted beside their prefixes, then put back: the rows move, they are not
    // copied, so no reference is counted.
    std::vector<KeyedRow> rows;
    rows.reserve(size_t(m_list.count()));
    for (auto it = m_list.begin(), e = m_list.end(); it != e; ++it)
        rows.push_back({ PartitionList<Record>::key(it), std::move(*it) });
    const auto lessThan = [this](const KeyedRow &a, const KeyedRow &b) {
        return compareKeyed(a.key, a.row, b.key, b.row) < 0;
    };
    const bool sorted = std::is_sorted(rows.begin(), rows.end(), lessThan);
    if (!sorted)
        ConcurrentSort::sort(rows.begin(), rows.end(), lessThan);
    auto row = rows.begin();
    for (auto it = m_list.begin(), e = m_list.end(); it != e; ++it, ++row) {
        *it = std::move(row->row);
        PartitionList<Record>::setKey(it, row->key);
    }
}

int IndexSort::indexOf(const Record &record) const
{
    const ConstIterator last = end();
    const quint64 key = prefixNow(record);
    auto at = bound(record, false);
    for (ConstIterator it = at.second; it != last; ++it, ++at.first) {
        if (*it == record)
            return at.first;
        if (compareKeyed(keyAt(it), *it, key, record) > 0)
            break;
    }
    // The key changed since the row was placed.
    return m_list.indexOf(record);
}

void IndexSort::replace(const Record &record, int p)
{
    const Record row = record; // `record` may be the list's own element
    // A wrong position hint must not cost another row its place.
    if (p < 0 || p >= count() || m_list.at(p) != row)
        p = m_list.indexOf(row);
    if (p != -1)
        m_list.removeAt(p);
    m_list.insert(indexOfAdd(row), row);
}

void IndexSort::update(const Record &record, int, int, int index)
{
    checkKeyPrefix();
    if (!filter(record)) {
        remove(record, -1);
        return;
    }
    int p = index;
    if (p < -1 || p >= count())
        p = -1; // a hint outside the list says nothing
    if (p == -1) {
        bool found = false;
        // The row's own prefix is still the one of its old values, so with
        // prefixes it is looked for by its values, as compare() sees them.
        p = m_list.hasKeys() ? searchFirst(record, -1, false) : search(record, -1);
        if (p != -1 && p < count()) {
            const int n = count();
            for (ConstIterator it = m_list.iteratorAt(p);; ++it) {
                if (*it == record) {
                    found = true;
                    break;
                }
                if (compare(record, *it) != 0 || p + 1 >= n)
                    break;
                ++p;
            }
        }
        if (!found) {
            p = m_list.indexOf(record);
            if (p == -1) {
                add(record);
                return;
            }
            QMessageLogger(__FILE__, __LINE__, Q_FUNC_INFO).warning().noquote()
                    << "IndexSort::update"
                    << "Full search can impact the performance";
            replace(record, p);
            return;
        }
    }
    const ConstIterator at = m_list.iteratorAt(p);
    if (p != 0 && compare(*(at - 1), record) > 0) {
        replace(record, p);
        return;
    }
    if (p + 1 >= count() || compare(record, *(at + 1)) <= 0) {
        // Still in its place; its prefix follows its values. A hint is
        // trusted without a look, so only the row itself takes the prefix.
        if (m_list.hasKeys() && *at == record)
            PartitionList<Record>::setKey(at, keyPrefix(record));
        return;
    }
    replace(record, p);
}

bool IndexSort::unaffectedBy(int, int) const
{
    return false;
}

void IndexSortPrivate::dedupe(QVector<IndexSortEntry> &entries, bool keepKept)
{
    const int n = entries.size();
    if (n < 2)
        return;
    AddressTable seen(n); // the entries kept so far
    int out = 0;
    for (int i = 0; i < n; ++i) {
        for (size_t h = seen.home(*entries.at(i).row);; h = seen.next(h)) {
            const int at = seen[h];
            if (at < 0) {
                seen[h] = out;
                entries[out++] = entries.at(i);
                break;
            }
            if (*entries.at(at).row == *entries.at(i).row) {
                if (!keepKept && entries.at(at).position == IndexSortEntry::Kept)
                    entries[at].position = IndexSortEntry::Unknown;
                break;
            }
        }
    }
    entries.resize(out);
}

int IndexSortPrivate::findByKey(const IndexSort &index, const Record &row)
{
    // Rows of an equal key are walked only so far: a key shared by a great
    // many rows (an order of arrival) is better served by one walk for all.
    const int maxSteps = 64;
    const ConstIterator last = index.end();
    const quint64 key = index.prefixNow(row);
    auto at = index.bound(row, false);
    for (int steps = 0; at.second != last && steps < maxSteps; ++steps, ++at.first, ++at.second) {
        if (*at.second == row)
            return at.first;
        if (index.compareKeyed(key, row, index.keyAt(at.second), *at.second) != 0)
            break;
    }
    return IndexSortEntry::Unknown;
}

void IndexSortPrivate::findAllByKey(const IndexSort &index, const QVector<const Record *> &rows,
                                    QVector<int> &positions)
{
    positions.resize(rows.size());
    if (!index.m_list.hasKeys()) {
        for (int i = 0; i < rows.size(); ++i)
            positions[i] = findByKey(index, *rows.at(i));
        return;
    }
    struct Lookup
    {
        quint64 key;
        int row;
    };
    std::vector<Lookup> lookups;
    lookups.reserve(size_t(rows.size()));
    for (int i = 0; i < rows.size(); ++i)
        lookups.push_back({ index.keyPrefix(*rows.at(i)), i });
    std::vector<Lookup> scratch;
    radixSort(lookups, scratch, [](const Lookup &l) { return l.key; });
    // A row stands among the rows of its prefix. With a partial prefix its
    // key is first searched by compare() and walked for 64 rows, as
    // findByKey() does, until that fails for a row of the prefix. The rows
    // left over (all of them with an exact prefix) are looked for by address
    // in one walk of their prefix's run, shared by the batch's rows of that
    // prefix: runs differ, so a batch walks the list once at most, however
    // long the runs of equal keys.
    const bool exact = index.d->exact;
    const ConstIterator last = index.end();
    int from = 0;
    ConstIterator fromIt = index.begin();
    std::vector<int> pending; // places in `rows`
    for (size_t i = 0; i < lookups.size();) {
        const quint64 key = lookups[i].key;
        auto at = index.m_list.keyBoundNear(key, false, from, fromIt);
        from = at.first;
        fromIt = at.second;
        pending.clear();
        bool walk = exact; // the run is walked: the searches are over
        for (; i < lookups.size() && lookups[i].key == key; ++i) {
            const int r = lookups[i].row;
            positions[r] = walk ? int(IndexSortEntry::Unknown) : findByKey(index, *rows.at(r));
            if (positions[r] == IndexSortEntry::Unknown) {
                pending.push_back(r);
                walk = true;
            }
        }
        if (pending.empty() || at.second == last)
            continue;
        if (pending.size() == 1) { // no table for one row
            const int r = pending.front();
            const Record &row = *rows.at(r);
            index.m_list.walkKeyRun(key, at.second, [&](int position, const Record &element) {
                if (element != row)
                    return true;
                positions[r] = position;
                return false;
            });
            continue;
        }
        AddressTable table = AddressTable::forWalk(int(pending.size()));
        for (int r : pending) {
            size_t h = table.home(*rows.at(r));
            while (table[h] >= 0)
                h = table.next(h);
            table[h] = r;
        }
        size_t left = pending.size();
        index.m_list.walkKeyRun(key, at.second, [&](int position, const Record &element) {
            // A row listed twice has two entries: both take the place.
            for (size_t h = table.home(element); table[h] >= 0; h = table.next(h)) {
                const int r = table[h];
                if (*rows.at(r) == element && positions[r] == IndexSortEntry::Unknown) {
                    positions[r] = position;
                    --left;
                }
            }
            return left > 0;
        });
    }
}

void IndexSortPrivate::locate(const IndexSort &index, QVector<IndexSortEntry> &entries)
{
    const int n = index.count();
    // Places noted before the batch's copy step are checked in order of
    // position, so that one iterator walks the list once.
    std::vector<int> noted;
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).position >= 0)
            noted.push_back(i);
    }
    if (!noted.empty()) {
        std::vector<int> scratch;
        radixSort(noted, scratch, [&entries](int i) { return quint64(entries.at(i).position); });
        ConstIterator it = index.begin();
        int at = 0;
        for (int i : noted) {
            IndexSortEntry &e = entries[i];
            if (e.position >= n) {
                e.position = IndexSortEntry::Unknown;
                continue;
            }
            it += e.position - at;
            at = e.position;
            if (*it != *e.row)
                e.position = IndexSortEntry::Unknown;
        }
    }

    // By key, then one walk by identity for the rows whose key moved.
    QVector<int> unknown;
    QVector<const Record *> rows;
    for (int i = 0; i < entries.size(); ++i) {
        if (entries.at(i).position == IndexSortEntry::Unknown) {
            unknown.append(i);
            rows.append(entries.at(i).row);
        }
    }
    QVector<int> found;
    findAllByKey(index, rows, found);
    QVector<int> missed;
    for (int u = 0; u < unknown.size(); ++u) {
        IndexSortEntry &e = entries[unknown.at(u)];
        e.position = found.at(u);
        if (e.position == IndexSortEntry::Unknown) {
            e.position = IndexSortEntry::NotFound;
            missed.append(unknown.at(u));
        }
    }
    if (missed.isEmpty())
        return;
    // The walk looks each row of the list up among the missed ones by address.
    AddressTable table = AddressTable::forWalk(missed.size());
    for (int m : qAsConst(missed)) {
        size_t h = table.home(*entries.at(m).row);
        while (table[h] >= 0)
            h = table.next(h);
        table[h] = m;
    }
    int left = missed.size();
    int p = 0;
    for (ConstIterator it = index.begin(), last = index.end(); it != last && left > 0; ++it, ++p) {
        for (size_t h = table.home(*it); table[h] >= 0; h = table.next(h)) {
            if (*entries.at(table[h]).row == *it) {
                IndexSortEntry &e = entries[table[h]];
                if (e.position == IndexSortEntry::NotFound) {
                    e.position = p;
                    --left;
                }
                break;
            }
        }
    }
}

QMap<Record, int> IndexSort::indexOfs(QList<Record> records) const
{
    QVector<IndexSortEntry> entries;
    entries.reserve(records.size());
    for (const Record &row : qAsConst(records))
        entries.append({ &row, IndexSortEntry::Unknown, -1 });
    IndexSortPrivate::dedupe(entries, true);
    IndexSortPrivate::locate(*this, entries);
    QMap<Record, int> result;
    for (const IndexSortEntry &e : qAsConst(entries))
        result.insert(*e.row, e.position);
    return result;
}

void IndexSort::preprocess(const QList<Record> &removed, const QList<Record> &updated, int first,
                           int last, const QList<Record> &, const QList<Record> &changed)
{
    checkKeyPrefix();
    d->updated.clear();
    d->places.clear();
    d->removed.clear();
    d->removedPlaces.clear();
    if (updated.isEmpty() || unaffectedBy(first, last))
        return;
    d->places.resize(updated.size());
    QVector<int> sought; // places in `updated`
    QVector<const Record *> rows;
    for (int i = 0; i < updated.size(); ++i) {
        const Record &row = updated.at(i);
        int place = IndexSortEntry::Unknown;
        // A row paired with itself already holds its new values: process()
        // looks for it.
        if (i < changed.size() && changed.at(i) != row) {
            const Record &next = changed.at(i);
            const quint64 key = prefixNow(row);
            if (filter(row) && filter(next) && compareKeyed(key, row, prefixNow(next), next) == 0) {
                place = IndexSortEntry::Kept;
            } else {
                sought.append(i);
                rows.append(&row);
            }
        }
        d->places[i] = place;
    }
    if (!rows.isEmpty()) {
        for (const Record &row : removed)
            rows.append(&row);
    }
    QVector<int> found;
    IndexSortPrivate::findAllByKey(*this, rows, found);
    for (int s = 0; s < sought.size(); ++s)
        d->places[sought.at(s)] = found.at(s);
    d->updated = updated;
    d->removedPlaces = found.mid(sought.size());
    d->removed = removed;
}

void IndexSort::process(const QList<Record> &removed, const QList<Record> &updated, int first,
                        int last, const QList<Record> &inserted)
{
    timer.restart();
    checkKeyPrefix();
    const bool keyed = m_list.hasKeys();

    // Every removed and updated row once, by identity; a removed row wins.
    QVector<IndexSortEntry> entries;
    entries.reserve(removed.count() + updated.count());
    const bool notedRemoved = IndexSortPrivate::isNoted(d->removed, d->removedPlaces, removed);
    for (int i = 0; i < removed.size(); ++i) {
        entries.append({ &removed.at(i),
                         notedRemoved ? d->removedPlaces.at(i) : int(IndexSortEntry::Unknown), -1 });
    }
    d->removed.clear();
    d->removedPlaces.clear();
    const bool unaffected = unaffectedBy(first, last);
    // preprocess() saw this very batch if it shares the list.
    const bool noted = IndexSortPrivate::isNoted(d->updated, d->places, updated);
    for (int i = 0; i < updated.size(); ++i) {
        // A batch that cannot move a row leaves the updated rows where they
        // stand; only one that fails filter() after all is looked for.
        if (unaffected) {
            if (!filter(updated.at(i)))
                entries.append({ &updated.at(i), IndexSortEntry::Unknown, i });
            continue;
        }
        entries.append({ &updated.at(i), noted ? d->places.at(i) : int(IndexSortEntry::Unknown), i });
    }
    d->updated.clear();
    d->places.clear();
    IndexSortPrivate::dedupe(entries, unaffected);

    QVector<char> passes(entries.size(), 0);
    for (int k = 0; k < entries.size(); ++k) {
        IndexSortEntry &e = entries[k];
        if (e.order < 0)
            continue;
        passes[k] = filter(*e.row);
        if (!passes[k] && e.position == IndexSortEntry::Kept)
            e.position = IndexSortEntry::Unknown; // it leaves, so it must be found
    }
    IndexSortPrivate::locate(*this, entries);

    // Rows that may leave their place, by position; the rows that come in.
    std::vector<std::pair<int, int>> touched; // position, entry
    std::vector<int> replaced; // places in `updated`
    for (int k = 0; k < entries.size(); ++k) {
        const IndexSortEntry &e = entries.at(k);
        if (e.position == IndexSortEntry::Kept)
            continue;
        if (e.position >= 0)
            touched.push_back({ e.position, k });
        else if (e.order >= 0 && passes.at(k))
            replaced.push_back(e.order);
    }
    {
        std::vector<std::pair<int, int>> scratch;
        radixSort(touched, scratch,
                  [](const std::pair<int, int> &t) { return quint64(t.first); });
    }

    // A touched row that passes filter() stays if it is in order with the
    // nearest row kept before it and the first untouched row after its run of
    // touched neighbours: then every kept row is in order with the next one.
    // A row that stays takes the prefix of its new values.
    RangeSet<int> ranges;
    const int n = count();
    ConstIterator it = begin();
    int at = 0;
    for (int i = 0; i < int(touched.size());) {
        int j = i;
        while (j + 1 < int(touched.size())
               && touched.at(size_t(j) + 1).first == touched.at(size_t(j)).first + 1)
            ++j;
        const int a = touched.at(size_t(i)).first;
        const int b = touched.at(size_t(j)).first;
        it += a - at;
        at = a;
        const Record *before = a > 0 ? &*(it - 1) : nullptr;
        quint64 beforeKey = before ? keyAt(it - 1) : 0;
        const ConstIterator afterIt = it + (b + 1 - a);
        const Record *after = b + 1 < n ? &*afterIt : nullptr;
        const quint64 afterKey = after ? keyAt(afterIt) : 0;
        for (int t = i; t <= j; ++t) {
            const int k = touched.at(size_t(t)).second;
            const IndexSortEntry &e = entries.at(k);
            bool stays = e.order >= 0 && passes.at(k);
            quint64 key = 0;
            if (stays) {
                key = prefixNow(*e.row);
                stays = (!before || compareKeyed(key, *e.row, beforeKey, *before) >= 0)
                        && (!after || compareKeyed(key, *e.row, afterKey, *after) <= 0);
            }
            if (stays) {
                before = e.row;
                beforeKey = key;
                if (keyed)
                    PartitionList<Record>::setKey(it + (e.position - a), key);
                continue;
            }
            ranges.add(e.position, e.position + 1);
            if (e.order >= 0 && passes.at(k))
                replaced.push_back(e.order);
        }
        i = j + 1;
    }

    // New rows first, then re-placed ones in the order of `updated`: the sort
    // is stable, so this is their order among equal keys.
    std::vector<const Record *> incoming;
    incoming.reserve(size_t(inserted.count() + replaced.size()));
    for (const Record &row : inserted) {
        if (filter(row))
            incoming.push_back(&row);
    }
    {
        std::vector<int> scratch;
        radixSort(replaced, scratch, [](int i) { return quint64(i); });
    }
    for (int i : replaced)
        incoming.push_back(&updated.at(i));

    m_list.removeRanges(ranges);

    if (!incoming.empty() && keyed) {
        placeKeyed(incoming);
    } else if (!incoming.empty()) {
        QList<Record> pending;
        pending.reserve(int(incoming.size()));
        for (const Record *row : incoming)
            pending.append(*row);
        const LessThan lessThan(this);
        // Rows often arrive in key order (appends, one key for a whole batch):
        // one pass of compares then spares the sort and its thread hand-off.
        if (!std::is_sorted(pending.begin(), pending.end(), lessThan))
            ConcurrentSort::sort(pending.begin(), pending.end(), lessThan);

        // Each row's place is its upper bound among the rows that stay, so rows
        // of an equal key stay in front. `pending` is sorted, so the bound is
        // usually close to the previous one: gallop out from it first, then
        // search the last step's span.
        QVector<int> places;
        places.reserve(pending.size());
        const ConstIterator stop = end();
        ConstIterator start = begin();
        int startPlace = 0;
        for (const Record &row : qAsConst(pending)) {
            ConstIterator u = start;
            int place = startPlace;
            std::ptrdiff_t length = 0;
            for (std::ptrdiff_t step = 1; u != stop; step *= 2) {
                const ConstIterator probe = u + (step - 1); // stops at end()
                if (probe == stop) {
                    length = stop - u;
                    break;
                }
                if (lessThan(row, *probe)) {
                    length = step - 1;
                    break;
                }
                u = probe + 1;
                place += int(step);
            }
            while (length > 0) {
                const std::ptrdiff_t half = length >> 1;
                const ConstIterator mid = u + half;
                if (lessThan(row, *mid)) {
                    length = half;
                } else {
                    u = mid + 1;
                    place += int(half + 1);
                    length -= half + 1;
                }
            }
            start = u;
            startPlace = place;
            places.append(place);
        }
        // The blocks come out as one insertion per place would leave them.
        m_list.insertRuns(places, pending);
    }

    m_nsecsElapsed += timer.nsecsElapsed();
    // A second reading on purpose, as in Index::process.
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void IndexSort::placeKeyed(const std::vector<const Record *> &incoming)
{
    struct Incoming
    {
        quint64 key;
        const Record *row;
    };
    // Stable by prefix, then by compare() where prefixes tie: the order that
    // LessThan gives.
    std::vector<Incoming> rows;
    rows.reserve(incoming.size());
    for (const Record *row : incoming)
        rows.push_back({ keyPrefix(*row), row });
    const bool exact = d->exact;
    const auto lessThan = [this](const Incoming &a, const Incoming &b) {
        return compareKeyed(a.key, *a.row, b.key, *b.row) < 0;
    };
    if (!std::is_sorted(rows.begin(), rows.end(), lessThan)) {
        // By prefix, then where prefixes tie by compare(), each run alone.
        std::vector<Incoming> scratch;
        radixSort(rows, scratch, [](const Incoming &r) { return r.key; });
        for (size_t i = 0; !exact && i < rows.size();) {
            size_t j = i + 1;
            while (j < rows.size() && rows[j].key == rows[i].key)
                ++j;
            if (j - i > 1) {
                if (j - i < size_t(ConcurrentSort::parallelThreshold))
                    std::stable_sort(rows.begin() + i, rows.begin() + j, lessThan);
                else
                    ConcurrentSort::sort(rows.begin() + i, rows.begin() + j, lessThan);
            }
            i = j;
        }
    }

    // Each row's place is its upper bound among the rows that stay, searched
    // from the previous row's place on.
    QVector<int> places;
    QVector<quint64> keys;
    std::vector<const Record *> values;
    places.reserve(int(rows.size()));
    keys.reserve(int(rows.size()));
    values.reserve(rows.size());
    int from = 0;
    ConstIterator fromIt = begin();
    for (const Incoming &r : rows) {
        auto upper = m_list.keyBoundNear(r.key, true, from, fromIt);
        if (!exact) {
            const auto lower = m_list.keyBoundNear(r.key, false, from, fromIt);
            int lo = lower.first;
            ConstIterator loIt = lower.second;
            int hi = upper.first;
            while (lo < hi) {
                const int mid = lo + ((hi - lo) >> 1);
                const ConstIterator midIt = loIt + (mid - lo);
                if (compare(*r.row, *midIt) >= 0) {
                    lo = mid + 1;
                    loIt = midIt + 1;
                } else {
                    hi = mid;
                }
            }
            upper = { lo, loIt };
        }
        from = upper.first;
        fromIt = upper.second;
        places.append(from);
        keys.append(r.key);
        values.push_back(r.row);
    }
    m_list.insertRuns(places, values, keys);
}
