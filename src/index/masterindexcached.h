#ifndef TABLEDB_INDEX_MASTERINDEXCACHED_H
#define TABLEDB_INDEX_MASTERINDEXCACHED_H

#include "index/masterkeycache.h"
#include "index/partitionlist.h"

#include <QMutex>

#include <type_traits>
#include <utility>

class MasterIndex_Fast;

// A key master index with a least-recently-used cache from packed key to row
// in front of its key search; 1000 entries unless setCacheSize() says
// otherwise. The cache holds a reference to each row it keeps.
//
// find() and findKey() may run on several threads at once: the mutex guards
// the cache only, and the key search runs outside it. A miss is not
// remembered; a found row is. Entries are dropped for rows that leave the
// index (remove, removeRanges, the removed rows of process, clear), each by
// the key the row has at that moment. A row updated in place keeps the
// entry of its old key, which goes on pointing at it.
template <typename T>
class MasterIndexCached : public T
{
public:
    template <typename... Args>
    explicit MasterIndexCached(Args &&...args) : T(std::forward<Args>(args)...)
    {
        setup();
    }
    ~MasterIndexCached() override
    {
        MasterKeyCache::Locker locker(&m_mutex);
        m_cache.clear();
    }

    // Evicts the least recently used entries down to `size` at once. With 0
    // nothing is cached.
    void setCacheSize(int size)
    {
        MasterKeyCache::Locker locker(&m_mutex);
        m_cache.setMaxCost(size);
    }
    int cacheSize() const
    {
        MasterKeyCache::Locker locker(&m_mutex);
        return m_cache.maxCost();
    }
    // The number of cached keys.
    int cacheCount() const
    {
        MasterKeyCache::Locker locker(&m_mutex);
        return m_cache.totalCost();
    }
    // Whether `key` is cached; does not count as a use.
    bool isCached(const MasterKey &key) const
    {
        MasterKeyCache::Locker locker(&m_mutex);
        return m_cache.contains(key);
    }

    // findKey(keyRecord(record), from). The Fast kind reads the key where it
    // sits in `record` and allocates nothing once the cache is full.
    Record find(const Record &record, int from) const override
    {
        if constexpr (std::is_base_of<MasterIndex_Fast, T>::value) {
            if (!record.isNull()) {
                const char *key = reinterpret_cast<const char *>(record.rowPtr()) + this->keyOffset();
                const int size = int(this->keySize());
                {
                    MasterKeyCache::Locker locker(&m_mutex);
                    bool found = false;
                    Record hit = m_cache.object(key, size, &found);
                    if (found)
                        return hit;
                }
                Record row = T::findKeyBytes(key, size, from);
                if (row) {
                    MasterKeyCache::Locker locker(&m_mutex);
                    m_cache.insert(key, size, row);
                }
                return row;
            }
        }
        return findKey(this->keyRecord(record), from);
    }

    // A cached row whatever `from` says; otherwise the key search, whose
    // result is cached when a row is found. A hit allocates nothing.
    Record findKey(const MasterKey &key, int from) const
    {
        {
            MasterKeyCache::Locker locker(&m_mutex);
            bool found = false;
            Record hit = m_cache.object(key, &found);
            if (found)
                return hit;
        }
        Record row = T::findKey(key, from);
        if (row) {
            MasterKeyCache::Locker locker(&m_mutex);
            m_cache.insert(key, row);
        }
        return row;
    }

    void clear() override
    {
        T::clear();
        MasterKeyCache::Locker locker(&m_mutex);
        m_cache.clear();
    }

    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override
    {
        T::process(removed, updated, first, last, inserted);
        if (removed.isEmpty())
            return;
        QList<MasterKey> keys;
        keys.reserve(removed.size());
        for (const Record &row : removed)
            keys.append(this->keyRecord(row));
        MasterKeyCache::Locker locker(&m_mutex);
        for (const MasterKey &key : qAsConst(keys))
            m_cache.remove(key);
    }

    void remove(const Record &record, int index) override
    {
        T::remove(record, index);
        const MasterKey key = this->keyRecord(record);
        MasterKeyCache::Locker locker(&m_mutex);
        m_cache.remove(key);
    }

    void removeRanges(const RangeSet<int> &ranges) override
    {
        // The keys are taken while the rows still stand at those places.
        PartitionList<MasterKey> keys;
        const int n = this->count();
        for (int i = 0; i < ranges.rangeCount(); ++i) {
            const int begin = qBound(0, ranges.rangeBegin(i), n);
            const int end = qBound(0, ranges.rangeEnd(i), n);
            auto it = this->begin() + begin;
            for (int p = begin; p < end; ++p, ++it)
                keys.append(this->keyRecord(*it));
        }
        T::removeRanges(ranges);
        MasterKeyCache::Locker locker(&m_mutex);
        for (const MasterKey &key : keys)
            m_cache.remove(key);
    }

private:
    void setup() { setCacheSize(1000); }

    mutable MasterKeyCache m_cache;
    mutable QMutex m_mutex; // guards m_cache only; not recursive
};

#endif // TABLEDB_INDEX_MASTERINDEXCACHED_H
