#ifndef TABLEDB_INDEX_PARTITIONLIST_H
#define TABLEDB_INDEX_PARTITIONLIST_H

#include "index/rangeset.h"

#include <QList>
#include <QVector>
#include <QtGlobal>

#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>
#include <vector>

// A sequence cut into blocks of at most some 10000 elements, so that inserting
// or removing in the middle of millions of elements moves at most one block.
//
// The block vector always starts and ends with a null slot; iterators rely on
// them to step over both ends without bound checks. An empty list is exactly
// the two nulls.
//
// A list may keep a 64-bit key beside each element (setKeyFunction()): every
// operation moves the keys with their elements, and an element inserted
// without one gets the key function's value. Owners that keep the keys in
// order search them without reading what the elements point at.
//
// REQUIRES: T is relocatable (can be moved with a byte copy), as Record and
// MasterKey are. Not thread-safe: the owner's locking rules apply. Every change
// of the list invalidates all iterators.
template <typename T>
class PartitionList
{
public:
    struct Partition
    {
        T *data; // one reference per element is owned here
        T *end; // data + size, kept up to date
        int size;
        int capacity;
        PartitionList<T> *owner;
        quint64 *keys; // one per element while the list keeps keys, else null
        int base; // list position of the first element
    };

    // Gives the key of an element, for lists that keep keys.
    typedef quint64 (*KeyFunction)(const void *context, const T &value);

    class const_iterator;

    // Random access; arithmetic skips whole blocks, so `it + n` costs the
    // number of blocks passed, not n.
    class iterator
    {
    public:
        typedef std::random_access_iterator_tag iterator_category;
        typedef T value_type;
        typedef std::ptrdiff_t difference_type;
        typedef T *pointer;
        typedef T &reference;

        iterator() : slot(nullptr), element(nullptr) { }
        iterator(Partition *const *s, T *e) : slot(s), element(e) { }

        T &operator*() const { return *element; }
        T *operator->() const { return element; }
        T &operator[](difference_type n) const { return *(*this + n); }

        iterator &operator++()
        {
            if (++element == (*slot)->end) {
                ++slot;
                element = *slot ? (*slot)->data : nullptr;
            }
            return *this;
        }
        iterator operator++(int)
        {
            iterator old = *this;
            ++*this;
            return old;
        }
        iterator &operator--()
        {
            if (!*slot || element == (*slot)->data) {
                --slot;
                if (!*slot) {
                    element = nullptr;
                    return *this;
                }
                element = (*slot)->end;
            }
            --element;
            return *this;
        }
        iterator operator--(int)
        {
            iterator old = *this;
            --*this;
            return old;
        }
        iterator &operator+=(difference_type n)
        {
            PartitionList::advance(slot, element, n);
            return *this;
        }
        iterator &operator-=(difference_type n) { return *this += -n; }
        iterator operator+(difference_type n) const
        {
            iterator r = *this;
            return r += n;
        }
        friend iterator operator+(difference_type n, const iterator &it) { return it + n; }
        iterator operator-(difference_type n) const
        {
            iterator r = *this;
            return r += -n;
        }
        difference_type operator-(const iterator &o) const
        {
            return PartitionList::distance(o.slot, o.element, slot, element);
        }

        bool operator==(const iterator &o) const { return slot == o.slot && element == o.element; }
        bool operator!=(const iterator &o) const { return !(*this == o); }
        bool operator<(const iterator &o) const
        {
            return slot < o.slot || (slot == o.slot && element < o.element);
        }
        bool operator>(const iterator &o) const { return o < *this; }
        bool operator<=(const iterator &o) const { return !(o < *this); }
        bool operator>=(const iterator &o) const { return !(*this < o); }

    private:
        Partition *const *slot;
        T *element; // null at a null slot
        friend class const_iterator;
        friend class PartitionList;
    };

    class const_iterator
    {
    public:
        typedef std::random_access_iterator_tag iterator_category;
        typedef T value_type;
        typedef std::ptrdiff_t difference_type;
        typedef const T *pointer;
        typedef const T &reference;

        const_iterator() { }
        const_iterator(const iterator &it) : i(it) { }

        const T &operator*() const { return *i; }
        const T *operator->() const { return i.element; }
        const T &operator[](difference_type n) const { return i[n]; }

        const_iterator &operator++()
        {
            ++i;
            return *this;
        }
        const_iterator operator++(int)
        {
            const_iterator old = *this;
            ++i;
            return old;
        }
        const_iterator &operator--()
        {
            --i;
            return *this;
        }
        const_iterator operator--(int)
        {
            const_iterator old = *this;
            --i;
            return old;
        }
        const_iterator &operator+=(difference_type n)
        {
            i += n;
            return *this;
        }
        const_iterator &operator-=(difference_type n)
        {
            i -= n;
            return *this;
        }
        const_iterator operator+(difference_type n) const { return const_iterator(i + n); }
        friend const_iterator operator+(difference_type n, const const_iterator &it)
        {
            return it + n;
        }
        const_iterator operator-(difference_type n) const { return const_iterator(i - n); }
        difference_type operator-(const const_iterator &o) const { return i - o.i; }

        bool operator==(const const_iterator &o) const { return i == o.i; }
        bool operator!=(const const_iterator &o) const { return i != o.i; }
        bool operator<(const const_iterator &o) const { return i < o.i; }
        bool operator>(const const_iterator &o) const { return o.i < i; }
        bool operator<=(const const_iterator &o) const { return !(o.i < i); }
        bool operator>=(const const_iterator &o) const { return !(i < o.i); }

    private:
        iterator i;
        friend class PartitionList;
    };

    PartitionList();
    PartitionList(const PartitionList &other);
    PartitionList &operator=(const PartitionList &other);
    ~PartitionList();

    int count() const { return m_count; }
    int size() const { return m_count; }
    bool isEmpty() const { return m_count == 0; }
    // Number of blocks; for tests and statistics.
    int partitionCount() const { return m_partitions.size() - 2; }
    // Size of block `i`, 0 <= i < partitionCount().
    int partitionSize(int i) const { return m_partitions.at(i + 1)->size; }
    // Slots allocated in block `i`, 0 <= i < partitionCount().
    int partitionCapacity(int i) const { return m_partitions.at(i + 1)->capacity; }

    iterator begin()
    {
        Partition *const *s = m_partitions.constData() + 1;
        return iterator(s, *s ? (*s)->data : nullptr);
    }
    iterator end() { return iterator(m_partitions.constData() + m_partitions.size() - 1, nullptr); }
    const_iterator begin() const { return const_cast<PartitionList *>(this)->begin(); }
    const_iterator end() const { return const_cast<PartitionList *>(this)->end(); }
    const_iterator cbegin() const { return begin(); }
    const_iterator cend() const { return end(); }

    // Appends to the last block while it stays below 10000 elements, so append
    // alone fills a block to 9999 and never to 10000.
    void append(const T &value);
    void append(T &&value);
    // A position on a block boundary goes at the end of the earlier block. A
    // position past the end makes a new last block; a negative one counts as 0.
    void insert(int position, const T &value);
    // Opens one gap for all values; a block that reaches 10000 is split in
    // halves, one of 20000 or more into blocks of about 5000.
    void insert(int position, const QList<T> &values);
    // Inserts values[i] at places[i], a position in the list as it stands
    // before the call. REQUIRES: places non-decreasing and as many as values,
    // each at most count(). Values of one place keep their order. The blocks
    // come out as insert() of each place's values in turn would leave them,
    // but each block that takes values is moved once, not once per place.
    void insertRuns(const QVector<int> &places, const QList<T> &values);
    // A position out of range does nothing. Merges small neighbour blocks.
    void removeAt(int position);
    // Removes every range of the set in one pass over the blocks: each kept
    // element moves at most once. Positions past the end are ignored. Merges
    // small neighbours even when the set is empty.
    void removeRanges(const RangeSet<int> &ranges);
    void clear();

    // O(log blocks). A position out of range gives a reference to a static
    // empty T.
    const T &at(int position) const;
    // Linear search by operator==; -1 if absent.
    int indexOf(const T &value) const;
    // The iterator at `position`, 0..count(); O(log blocks).
    const_iterator iteratorAt(int position) const;

    // Keys. A non-null function makes the list keep keys and computes them
    // for the elements it holds; null drops them. The context is passed to the
    // function as it is. Copies of a list keep no keys.
    void setKeyFunction(KeyFunction function, const void *context);
    bool hasKeys() const { return m_keyFunction != nullptr; }
    // Computes every key afresh.
    void refreshKeys();
    // REQUIRES: hasKeys(), and `it` at an element.
    static quint64 key(const const_iterator &it)
    {
        const Partition *p = *it.i.slot;
        return p->keys[it.i.element - p->data];
    }
    static void setKey(const const_iterator &it, quint64 key)
    {
        Partition *p = *it.i.slot;
        p->keys[it.i.element - p->data] = key;
    }
    // insert() with the element's key given. REQUIRES: hasKeys().
    void insert(int position, const T &value, quint64 key);
    // insertRuns() of *values[i] with keys[i] its key, each copied once,
    // straight into its block. REQUIRES: hasKeys().
    void insertRuns(const QVector<int> &places, const std::vector<const T *> &values,
                    const QVector<quint64> &keys);
    // The first position in from..count() whose key is not below `key`, or
    // with `upper` above it, and its iterator; count() and end() if none.
    // O(log n) and reads only keys. REQUIRES: hasKeys(), and the keys from
    // `from` on in ascending order.
    std::pair<int, const_iterator> keyBound(quint64 key, bool upper, int from) const;
    // keyBound() for an answer that is likely close behind `from`, whose
    // iterator is `fromIt`: gallops out from there through its block first.
    std::pair<int, const_iterator> keyBoundNear(quint64 key, bool upper, int from,
                                                const const_iterator &fromIt) const;
    // Calls visit(position, element) for the elements from `from` (`fromIt`
    // its iterator) on, while their key is `key` and visit() returns true: a
    // walk of a run of equal keys in a tight loop over each block.
    // REQUIRES: hasKeys().
    template <typename Visit>
    void walkKeyRun(quint64 key, const const_iterator &fromIt, const Visit &visit) const
    {
        Partition *const *slot = fromIt.i.slot;
        if (!slot || !*slot)
            return;
        int at = int(fromIt.i.element - (*slot)->data);
        for (; *slot; ++slot, at = 0) {
            const Partition *p = *slot;
            for (; at < p->size; ++at) {
                if (p->keys[at] != key || !visit(p->base + at, p->data[at]))
                    return;
            }
        }
    }

private:
    Partition *newPartition(int capacity);
    void deletePartition(Partition *p); // releases its elements too
    static void reserve(Partition *p, int capacity);
    // Reallocates to exactly `capacity`, at least the size.
    static void resize(Partition *p, int capacity);
    // The capacity that a block cut from a larger one gets: room for some
    // growth, not for a whole block.
    static int cutCapacity(int size) { return size + size / 8 + 16; }
    // Moves all elements of `from` behind those of `to`; `from` ends empty.
    static void appendPartition(Partition *to, Partition *from);
    void splitAt(int slot); // when the block has reached the maximum size
    void mergeAround(int slot);
    // Sets the bases of the blocks from `slot` on.
    void rebase(int slot);
    // The slot of the block that holds `position` (0 <= position < count()).
    int slotOf(int position) const;
    // The insertions, with the i-th value and its key as `valueAt(i)` and
    // `keyAt(i)` give them.
    template <typename ValueAt, typename KeyAt>
    void insertSpan(int position, int count, const ValueAt &valueAt, const KeyAt &keyAt);
    template <typename ValueAt, typename KeyAt>
    void insertRunsOf(const QVector<int> &places, int count, const ValueAt &valueAt,
                      const KeyAt &keyAt);
    quint64 keyOf(const T &value) const { return m_keyFunction(m_keyContext, value); }
    // The first offset in [lo, hi) of block `p` whose key is not before(),
    // or hi. REQUIRES: the keys there ascend.
    template <typename Before>
    static int firstKeyNotBefore(const Partition *p, int lo, int hi, const Before &before)
    {
        while (lo < hi) {
            const int mid = lo + ((hi - lo) >> 1);
            if (before(p->keys[mid]))
                lo = mid + 1;
            else
                hi = mid;
        }
        return lo;
    }
    static void moveKeys(Partition *p, int to, int from, int count)
    {
        if (p->keys)
            std::memmove(p->keys + to, p->keys + from, size_t(count) * sizeof(quint64));
    }
    static void advance(Partition *const *&slot, T *&element, std::ptrdiff_t n);
    static std::ptrdiff_t distance(Partition *const *fromSlot, T *fromElement,
                                   Partition *const *toSlot, T *toElement);

    // The block of `position` and the offset `n` in it, as a walk from the
    // first block finds it; `intoEarlier` sends a boundary to the earlier
    // block, as insertion does. The walk starts at the block found last when
    // that one lies before the position, so repeated work in one place of a
    // long list does not walk all the blocks before it again.
    int locate(int position, bool intoEarlier, int &n);

    int m_count;
    int m_fingerSlot = 0; // the block found last, 0 for none; writers only
    int m_fingerBase = 0; // the list position of its first element
    int m_maxPartitionSize; // 10000
    int m_mergeThreshold; // 5000
    QVector<Partition *> m_partitions; // null, blocks..., null
    KeyFunction m_keyFunction = nullptr;
    const void *m_keyContext = nullptr;
};

template <typename T>
PartitionList<T>::PartitionList()
    : m_count(0), m_maxPartitionSize(10000), m_mergeThreshold(5000)
{
    m_partitions.reserve(8);
    m_partitions.append(nullptr);
    m_partitions.append(nullptr);
}

template <typename T>
PartitionList<T>::PartitionList(const PartitionList &other) : PartitionList()
{
    *this = other;
}

template <typename T>
PartitionList<T> &PartitionList<T>::operator=(const PartitionList &other)
{
    m_fingerSlot = 0;
    if (this == &other)
        return *this;
    clear();
    for (int s = 1; s < other.m_partitions.size() - 1; ++s) {
        const Partition *src = other.m_partitions.at(s);
        Partition *p = newPartition(qMax(src->size, m_maxPartitionSize + 2));
        for (const T *e = src->data; e != src->end; ++e)
            new (p->data + p->size++) T(*e);
        p->end = p->data + p->size;
        if (p->keys) {
            for (int i = 0; i < p->size; ++i)
                p->keys[i] = keyOf(p->data[i]);
        }
        m_partitions.insert(m_partitions.size() - 1, p);
    }
    m_count = other.m_count;
    rebase(1);
    return *this;
}

template <typename T>
PartitionList<T>::~PartitionList()
{
    clear();
}

template <typename T>
typename PartitionList<T>::Partition *PartitionList<T>::newPartition(int capacity)
{
    T *data = static_cast<T *>(qMallocAligned(size_t(capacity) * sizeof(T), 8));
    if (!data)
        qBadAlloc();
    quint64 *keys = nullptr;
    if (m_keyFunction) {
        keys = static_cast<quint64 *>(std::malloc(size_t(capacity) * sizeof(quint64)));
        if (!keys) {
            qFreeAligned(data);
            qBadAlloc();
        }
    }
    Partition *p = new Partition;
    p->data = data;
    p->end = p->data;
    p->size = 0;
    p->capacity = capacity;
    p->owner = this;
    p->keys = keys;
    p->base = 0;
    return p;
}

template <typename T>
void PartitionList<T>::deletePartition(Partition *p)
{
    for (T *e = p->data; e != p->end; ++e)
        e->~T();
    qFreeAligned(p->data);
    std::free(p->keys);
    delete p;
}

template <typename T>
void PartitionList<T>::reserve(Partition *p, int capacity)
{
    if (capacity <= p->capacity)
        return;
    // By half again, up to a full block, so that one element at a time does
    // not reallocate each time.
    capacity = qMax(capacity, qMin(p->owner->m_maxPartitionSize + 2, p->capacity + p->capacity / 2));
    resize(p, capacity);
}

template <typename T>
void PartitionList<T>::resize(Partition *p, int capacity)
{
    void *data = qReallocAligned(p->data, size_t(capacity) * sizeof(T),
                                 size_t(p->capacity) * sizeof(T), 8);
    if (!data)
        qBadAlloc();
    p->data = static_cast<T *>(data);
    p->end = p->data + p->size;
    if (p->keys) {
        void *keys = std::realloc(p->keys, size_t(capacity) * sizeof(quint64));
        if (!keys)
            qBadAlloc(); // the larger data block is harmless
        p->keys = static_cast<quint64 *>(keys);
    }
    p->capacity = capacity;
}

template <typename T>
void PartitionList<T>::appendPartition(Partition *to, Partition *from)
{
    reserve(to, to->size + from->size);
    std::memcpy(static_cast<void *>(to->end), static_cast<const void *>(from->data),
                size_t(from->size) * sizeof(T));
    if (to->keys)
        std::memcpy(to->keys + to->size, from->keys, size_t(from->size) * sizeof(quint64));
    to->size += from->size;
    to->end = to->data + to->size;
    from->size = 0;
    from->end = from->data;
}

template <typename T>
void PartitionList<T>::rebase(int slot)
{
    int s = qMax(slot, 1);
    int base = 0;
    if (s > 1 && m_partitions.at(s - 1))
        base = m_partitions.at(s - 1)->base + m_partitions.at(s - 1)->size;
    for (; s < m_partitions.size() && m_partitions.at(s); ++s) {
        m_partitions.at(s)->base = base;
        base += m_partitions.at(s)->size;
    }
}

template <typename T>
int PartitionList<T>::slotOf(int position) const
{
    // The last block whose base is not above the position.
    int lo = 1;
    int hi = m_partitions.size() - 2;
    while (lo < hi) {
        const int mid = lo + ((hi - lo + 1) >> 1);
        if (m_partitions.at(mid)->base <= position)
            lo = mid;
        else
            hi = mid - 1;
    }
    return lo;
}

template <typename T>
typename PartitionList<T>::const_iterator PartitionList<T>::iteratorAt(int position) const
{
    if (position <= 0)
        return begin();
    if (position >= m_count)
        return end();
    const int s = slotOf(position);
    const Partition *p = m_partitions.at(s);
    return const_iterator(iterator(m_partitions.constData() + s, p->data + (position - p->base)));
}

template <typename T>
std::pair<int, typename PartitionList<T>::const_iterator>
PartitionList<T>::keyBound(quint64 key, bool upper, int from) const
{
    const int blocks = m_partitions.size() - 2;
    if (from < 0)
        from = 0;
    if (from >= m_count)
        return { m_count, end() };
    auto before = [key, upper](quint64 k) { return upper ? k <= key : k < key; };
    // The first block, from the one of `from` on, whose last key is not
    // before `key`; then the first such key in it.
    int lo = slotOf(from);
    int hi = blocks + 1; // the null slot: no block qualifies
    while (lo < hi) {
        const int mid = lo + ((hi - lo) >> 1);
        const Partition *p = m_partitions.at(mid);
        if (before(p->keys[p->size - 1]))
            lo = mid + 1;
        else
            hi = mid;
    }
    if (lo > blocks)
        return { m_count, end() };
    const Partition *p = m_partitions.at(lo);
    const int first = firstKeyNotBefore(p, qMax(from - p->base, 0), p->size, before);
    return { p->base + first,
             const_iterator(iterator(m_partitions.constData() + lo, p->data + first)) };
}

template <typename T>
std::pair<int, typename PartitionList<T>::const_iterator>
PartitionList<T>::keyBoundNear(quint64 key, bool upper, int from,
                               const const_iterator &fromIt) const
{
    if (from >= m_count)
        return { m_count, end() };
    auto before = [key, upper](quint64 k) { return upper ? k <= key : k < key; };
    Partition *const *slot = fromIt.i.slot;
    const int s = int(slot - m_partitions.constData());
    const Partition *p = *slot;
    const int last = p->size - 1;
    if (before(p->keys[last]))
        return keyBound(key, upper, p->base + p->size);
    // The answer is in this block, at `last` at the latest.
    int lo = from - p->base;
    int hi = last;
    for (int step = 1; lo + step - 1 < last; step *= 2) {
        const int probe = lo + step - 1;
        if (!before(p->keys[probe])) {
            hi = probe;
            break;
        }
        lo = probe + 1;
    }
    lo = firstKeyNotBefore(p, lo, hi, before);
    return { p->base + lo, const_iterator(iterator(m_partitions.constData() + s, p->data + lo)) };
}

template <typename T>
void PartitionList<T>::setKeyFunction(KeyFunction function, const void *context)
{
    m_keyFunction = function;
    m_keyContext = context;
    for (int s = 1; m_partitions.at(s); ++s) {
        Partition *p = m_partitions.at(s);
        std::free(p->keys);
        p->keys = nullptr;
        if (function) {
            p->keys = static_cast<quint64 *>(std::malloc(size_t(p->capacity) * sizeof(quint64)));
            if (!p->keys)
                qBadAlloc();
        }
    }
    if (function)
        refreshKeys();
}

template <typename T>
void PartitionList<T>::refreshKeys()
{
    if (!m_keyFunction)
        return;
    for (int s = 1; m_partitions.at(s); ++s) {
        Partition *p = m_partitions.at(s);
        for (int i = 0; i < p->size; ++i)
            p->keys[i] = keyOf(p->data[i]);
    }
}

template <typename T>
void PartitionList<T>::append(const T &value)
{
    append(T(value)); // `value` may live in the last block
}

template <typename T>
void PartitionList<T>::append(T &&value)
{
    T copy(std::move(value));
    Partition *last = m_partitions.at(m_partitions.size() - 2);
    if (!last || last->size + 1 >= m_maxPartitionSize) {
        last = newPartition(m_maxPartitionSize + 2);
        m_partitions.last() = last;
        m_partitions.append(nullptr);
        rebase(m_partitions.size() - 2);
    }
    reserve(last, last->size + 1);
    if (last->keys)
        last->keys[last->size] = keyOf(copy);
    new (last->end) T(std::move(copy));
    ++last->size;
    ++last->end;
    ++m_count;
}

template <typename T>
int PartitionList<T>::locate(int position, bool intoEarlier, int &n)
{
    int s = 1;
    int base = 0;
    if (m_fingerSlot > 0
        && (position > m_fingerBase || (position == m_fingerBase && (!intoEarlier || m_fingerSlot == 1)))) {
        s = m_fingerSlot;
        base = m_fingerBase;
    }
    n = position - base;
    for (; m_partitions.at(s); ++s) {
        const int size = m_partitions.at(s)->size;
        if (intoEarlier ? n <= size : n < size)
            break;
        n -= size;
    }
    m_fingerSlot = m_partitions.at(s) ? s : 0;
    m_fingerBase = position - n;
    return s;
}

template <typename T>
void PartitionList<T>::insert(int position, const T &value)
{
    insert(position, value, m_keyFunction ? keyOf(value) : 0);
}

template <typename T>
void PartitionList<T>::insert(int position, const T &value, quint64 key)
{
    int n = 0;
    const int s = locate(qMax(position, 0), true, n);
    Partition *p = m_partitions.at(s);
    if (!p) {
        p = newPartition(m_maxPartitionSize + 2);
        m_partitions[s] = p;
        m_partitions.append(nullptr);
        n = 0;
    }
    // Copy first: `value` may live in this very block, which may move.
    T copy(value);
    reserve(p, p->size + 1);
    std::memmove(static_cast<void *>(p->data + n + 1), static_cast<const void *>(p->data + n),
                 size_t(p->size - n) * sizeof(T));
    new (p->data + n) T(std::move(copy));
    moveKeys(p, n + 1, n, p->size - n);
    if (p->keys)
        p->keys[n] = key;
    ++p->size;
    ++p->end;
    ++m_count;
    if (p->size >= m_maxPartitionSize)
        splitAt(s);
    rebase(s);
}

template <typename T>
void PartitionList<T>::insert(int position, const QList<T> &values)
{
    insertSpan(position, values.size(), [&values](int i) -> const T & { return values.at(i); },
               [this, &values](int i) { return keyOf(values.at(i)); });
}

template <typename T>
template <typename ValueAt, typename KeyAt>
void PartitionList<T>::insertSpan(int position, int count, const ValueAt &valueAt,
                                  const KeyAt &keyAt)
{
    m_fingerSlot = 0;
    const int k = count;
    if (k == 0)
        return;
    int n = qMax(position, 0);
    int s = 1;
    for (; m_partitions.at(s); ++s) {
        if (n <= m_partitions.at(s)->size)
            break;
        n -= m_partitions.at(s)->size;
    }
    Partition *p = m_partitions.at(s);
    if (!p) {
        p = newPartition(qMax(m_maxPartitionSize + 2, k));
        m_partitions[s] = p;
        m_partitions.append(nullptr);
        n = 0;
    }
    reserve(p, p->size + k);
    std::memmove(static_cast<void *>(p->data + n + k), static_cast<const void *>(p->data + n),
                 size_t(p->size - n) * sizeof(T));
    moveKeys(p, n + k, n, p->size - n);
    T *dst = p->data + n;
    for (int i = 0; i < k; ++i) {
        if (p->keys)
            p->keys[dst - p->data] = keyAt(i);
        new (dst++) T(valueAt(i));
    }
    p->size += k;
    p->end = p->data + p->size;
    m_count += k;
    if (p->size >= m_maxPartitionSize)
        splitAt(s);
    rebase(s);
}

template <typename T>
void PartitionList<T>::insertRuns(const QVector<int> &places, const QList<T> &values)
{
    insertRunsOf(places, values.size(), [&values](int i) -> const T & { return values.at(i); },
                 [this, &values](int i) { return m_keyFunction ? keyOf(values.at(i)) : 0; });
}

template <typename T>
void PartitionList<T>::insertRuns(const QVector<int> &places, const std::vector<const T *> &values,
                                  const QVector<quint64> &keys)
{
    insertRunsOf(places, int(values.size()),
                 [&values](int i) -> const T & { return *values[size_t(i)]; },
                 [&keys](int i) { return keys.at(i); });
}

template <typename T>
template <typename ValueAt, typename KeyAt>
void PartitionList<T>::insertRunsOf(const QVector<int> &places, int count,
                                    const ValueAt &valueAt, const KeyAt &keyAt)
{
    m_fingerSlot = 0;
    struct Gap
    {
        int at; // offset in the block as it stands, before any pending gap
        int from; // first of the gap's values
        int count;
    };
    std::vector<Gap> gaps; // pending for block s, ascending
    int pending = 0;
    int s = 1;
    int base = 0; // list position of block s's first element
    // Opens all pending gaps of block s in one pass from the back.
    auto flush = [&]() {
        if (gaps.empty())
            return;
        Partition *p = m_partitions.at(s);
        reserve(p, p->size + pending);
        int shift = pending;
        int tail = p->size;
        for (int g = int(gaps.size()) - 1; g >= 0; --g) {
            const Gap &gap = gaps[size_t(g)];
            std::memmove(static_cast<void *>(p->data + gap.at + shift),
                         static_cast<const void *>(p->data + gap.at),
                         size_t(tail - gap.at) * sizeof(T));
            moveKeys(p, gap.at + shift, gap.at, tail - gap.at);
            shift -= gap.count;
            tail = gap.at;
            T *dst = p->data + gap.at + shift;
            for (int v = gap.from; v < gap.from + gap.count; ++v) {
                if (p->keys)
                    p->keys[dst - p->data] = keyAt(v);
                new (dst++) T(valueAt(v));
            }
        }
        p->size += pending;
        p->end = p->data + p->size;
        m_count += pending;
        gaps.clear();
        pending = 0;
    };
    int inserted = 0;
    for (int i = 0; i < count;) {
        int j = i + 1;
        while (j < count && places.at(j) == places.at(i))
            ++j;
        const int position = qMax(places.at(i), 0) + inserted;
        // The block insert() would choose: a boundary goes to the earlier one.
        int n = position - base;
        while (m_partitions.at(s) && n > m_partitions.at(s)->size + pending) {
            const int size = m_partitions.at(s)->size + pending;
            flush();
            base += size;
            n -= size;
            ++s;
        }
        if (!m_partitions.at(s)) {
            // Only an empty list or a place past the end gets here.
            flush();
            insertSpan(position, j - i,
                       [&valueAt, i](int v) -> const T & { return valueAt(i + v); },
                       [&keyAt, i](int v) { return keyAt(i + v); });
        } else {
            gaps.push_back({ n - pending, i, j - i });
            pending += j - i;
            if (m_partitions.at(s)->size + pending >= m_maxPartitionSize) {
                flush();
                splitAt(s);
            }
        }
        inserted += j - i;
        i = j;
    }
    flush();
    rebase(1);
}

template <typename T>
void PartitionList<T>::splitAt(int s)
{
    // In halves; a block grown far past the maximum by a bulk insertion goes
    // into blocks of about half the maximum, so that no later change of one
    // element moves a huge block.
    Partition *p = m_partitions.at(s);
    const int size = p->size;
    const int half = m_maxPartitionSize / 2;
    const int pieces = size < 2 * m_maxPartitionSize ? 2 : (size + half - 1) / half;
    const auto pieceStart = [size, pieces](int i) { return int(qint64(size) * i / pieces); };
    for (int i = pieces - 1; i >= 1; --i) {
        const int from = pieceStart(i);
        const int rest = pieceStart(i + 1) - from;
        Partition *q = newPartition(cutCapacity(rest));
        std::memcpy(static_cast<void *>(q->data), static_cast<const void *>(p->data + from),
                    size_t(rest) * sizeof(T));
        if (p->keys)
            std::memcpy(q->keys, p->keys + from, size_t(rest) * sizeof(quint64));
        q->size = rest;
        q->end = q->data + rest;
        m_partitions.insert(s + 1, q);
    }
    p->size = pieceStart(1);
    p->end = p->data + p->size;
    if (p->capacity > cutCapacity(p->size))
        resize(p, cutCapacity(p->size));
    rebase(s);
}

template <typename T>
void PartitionList<T>::removeAt(int position)
{
    if (position < 0)
        return;
    int n = 0;
    const int s = locate(position, false, n);
    Partition *p = m_partitions.at(s);
    if (!p)
        return;
    // A block that goes or merges moves the bases: then forget the block found.
    const int base = m_fingerBase;
    m_fingerSlot = 0;
    p->data[n].~T();
    std::memmove(static_cast<void *>(p->data + n), static_cast<const void *>(p->data + n + 1),
                 size_t(p->size - n - 1) * sizeof(T));
    moveKeys(p, n, n + 1, p->size - n - 1);
    --p->size;
    --p->end;
    --m_count;
    if (p->size == 0) {
        m_partitions.remove(s);
        deletePartition(p);
        rebase(s);
        return;
    }
    const int blocks = m_partitions.size();
    mergeAround(s);
    rebase(s - 1);
    if (m_partitions.size() == blocks) {
        m_fingerSlot = s;
        m_fingerBase = base;
    }
}

template <typename T>
void PartitionList<T>::mergeAround(int s)
{
    Partition *p = m_partitions.at(s);
    Partition *next = m_partitions.at(s + 1);
    if (next && p->size + next->size < m_mergeThreshold) {
        appendPartition(p, next);
        m_partitions.remove(s + 1);
        deletePartition(next);
    }
    Partition *prev = m_partitions.at(s - 1);
    if (prev && prev->size + p->size < m_mergeThreshold) {
        appendPartition(prev, p);
        m_partitions.remove(s);
        deletePartition(p);
    }
}

template <typename T>
void PartitionList<T>::removeRanges(const RangeSet<int> &ranges)
{
    m_fingerSlot = 0;
    const QList<int> &b = ranges.boundaries();
    const int rangeCount = b.size() / 2;
    int r = 0;
    int blockStart = 0; // in the numbering before any removal
    int removed = 0;
    for (int s = 1; m_partitions.at(s) && r < rangeCount; ++s) {
        Partition *p = m_partitions.at(s);
        const int size = p->size;
        const int blockEnd = blockStart + size;
        int read = 0; // first element not yet placed
        int write = 0; // where the next kept element goes
        bool touched = false;
        while (r < rangeCount && b.at(2 * r) < blockEnd) {
            const int lo = qBound(read, b.at(2 * r) - blockStart, size);
            const int hi = qBound(lo, b.at(2 * r + 1) - blockStart, size);
            if (touched) {
                std::memmove(static_cast<void *>(p->data + write),
                             static_cast<const void *>(p->data + read),
                             size_t(lo - read) * sizeof(T));
                moveKeys(p, write, read, lo - read);
                write += lo - read;
            } else {
                write = lo;
                touched = true;
            }
            for (int i = lo; i < hi; ++i)
                p->data[i].~T();
            read = hi;
            if (b.at(2 * r + 1) > blockEnd)
                break; // the range goes on in the next block
            ++r;
        }
        if (touched) {
            std::memmove(static_cast<void *>(p->data + write),
                         static_cast<const void *>(p->data + read),
                         size_t(size - read) * sizeof(T));
            moveKeys(p, write, read, size - read);
            write += size - read;
            p->size = write;
            p->end = p->data + write;
            removed += size - write;
        }
        blockStart = blockEnd;
    }
    m_count -= removed;

    int s = 1;
    while (Partition *p = m_partitions.at(s)) {
        if (p->size == 0) {
            m_partitions.remove(s);
            deletePartition(p);
            continue;
        }
        while (Partition *next = m_partitions.at(s + 1)) {
            if (p->size + next->size >= m_mergeThreshold)
                break;
            appendPartition(p, next);
            m_partitions.remove(s + 1);
            deletePartition(next);
        }
        ++s;
    }
    rebase(1);
}

template <typename T>
void PartitionList<T>::clear()
{
    m_fingerSlot = 0;
    for (int s = 1; s < m_partitions.size() - 1; ++s)
        deletePartition(m_partitions.at(s));
    m_partitions.resize(2);
    m_partitions[0] = nullptr;
    m_partitions[1] = nullptr;
    m_count = 0;
}

template <typename T>
const T &PartitionList<T>::at(int position) const
{
    if (position >= 0 && position < m_count) {
        const Partition *p = m_partitions.at(slotOf(position));
        return p->data[position - p->base];
    }
    static const T empty = T();
    return empty;
}

template <typename T>
int PartitionList<T>::indexOf(const T &value) const
{
    int base = 0;
    for (int s = 1; m_partitions.at(s); ++s) {
        const Partition *p = m_partitions.at(s);
        for (const T *e = p->data; e != p->end; ++e) {
            if (*e == value)
                return base + int(e - p->data);
        }
        base += p->size;
    }
    return -1;
}

template <typename T>
void PartitionList<T>::advance(Partition *const *&slot, T *&element, std::ptrdiff_t n)
{
    if (n > 0) {
        while (*slot) {
            const std::ptrdiff_t left = (*slot)->end - element;
            if (n < left) {
                element += n;
                return;
            }
            n -= left;
            ++slot;
            element = *slot ? (*slot)->data : nullptr;
            if (n == 0)
                return;
        }
        // Past the end: stay at end().
    } else if (n < 0) {
        n = -n;
        for (;;) {
            const std::ptrdiff_t before = *slot ? element - (*slot)->data : 0;
            if (n <= before) {
                element -= n;
                return;
            }
            n -= before;
            --slot;
            if (!*slot) {
                element = nullptr; // before the first element
                return;
            }
            element = (*slot)->end;
        }
    }
}

template <typename T>
std::ptrdiff_t PartitionList<T>::distance(Partition *const *fromSlot, T *fromElement,
                                          Partition *const *toSlot, T *toElement)
{
    if (fromSlot == toSlot)
        return toElement - fromElement;
    if (toSlot < fromSlot)
        return -distance(toSlot, toElement, fromSlot, fromElement);
    std::ptrdiff_t d = *fromSlot ? (*fromSlot)->end - fromElement : 0;
    for (Partition *const *s = fromSlot + 1; s != toSlot; ++s)
        d += (*s)->size;
    if (*toSlot)
        d += toElement - (*toSlot)->data;
    return d;
}

#endif // TABLEDB_INDEX_PARTITIONLIST_H
