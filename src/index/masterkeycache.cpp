#include "index/masterkeycache.h"

#include "runtime/tsan_p.h"

#include <cstring>

MasterKeyCache::Locker::Locker(QMutex *mutex) : m_mutex(mutex)
{
    m_mutex->lock();
    tsan::locked(m_mutex);
}

MasterKeyCache::Locker::~Locker()
{
    tsan::unlocking(m_mutex);
    m_mutex->unlock();
}

MasterKeyCache::MasterKeyCache() : m_seed(uint(qGlobalQHashSeed()))
{
    rebucket(m_maxCost);
}

MasterKeyCache::~MasterKeyCache()
{
    clear();
    delete m_spare;
}

void MasterKeyCache::rebucket(int entries)
{
    int size = 1;
    while (size < qMax(entries, 1))
        size *= 2;
    if (size == m_buckets.size())
        return;
    m_buckets.fill(nullptr, size);
    for (Node *node = m_first; node; node = node->next) {
        Node *&bucket = m_buckets[int(node->hash & uint(size - 1))];
        node->chain = bucket;
        bucket = node;
    }
}

MasterKeyCache::Node *MasterKeyCache::findNode(const char *key, int size, uint hash) const
{
    for (Node *node = m_buckets.at(int(hash & uint(m_buckets.size() - 1))); node;
         node = node->chain) {
        if (node->hash == hash && node->key.size() == size
            && std::memcmp(node->key.constData(), key, size_t(size)) == 0)
            return node;
    }
    return nullptr;
}

void MasterKeyCache::unlink(Node *node)
{
    (node->prev ? node->prev->next : m_first) = node->next;
    (node->next ? node->next->prev : m_last) = node->prev;
    node->prev = node->next = nullptr;
}

void MasterKeyCache::pushFront(Node *node)
{
    node->prev = nullptr;
    node->next = m_first;
    if (m_first)
        m_first->prev = node;
    m_first = node;
    if (!m_last)
        m_last = node;
}

void MasterKeyCache::drop(Node *node)
{
    unlink(node);
    Node **link = &m_buckets[int(node->hash & uint(m_buckets.size() - 1))];
    while (*link != node)
        link = &(*link)->chain;
    *link = node->chain;
    --m_totalCost;
    node->record = Record(); // the row is no longer held
    if (m_spare)
        delete node;
    else
        m_spare = node;
}

void MasterKeyCache::evictDownTo(int cost)
{
    while (m_last && m_totalCost > cost)
        drop(m_last);
}

void MasterKeyCache::setMaxCost(int maxCost)
{
    m_maxCost = maxCost;
    evictDownTo(qMax(maxCost, 0));
    rebucket(maxCost);
}

Record MasterKeyCache::object(const char *key, int size, bool *found)
{
    Node *node = findNode(key, size, masterKeyHash(key, size, m_seed));
    if (!node) {
        *found = false;
        return Record();
    }
    if (node != m_first) {
        unlink(node);
        pushFront(node);
    }
    *found = true;
    return node->record;
}

void MasterKeyCache::insert(const char *key, int size, const Record &record)
{
    const uint hash = masterKeyHash(key, size, m_seed);
    if (Node *old = findNode(key, size, hash))
        drop(old);
    if (m_maxCost < 1)
        return;
    evictDownTo(m_maxCost - 1);
    Node *node = m_spare;
    m_spare = nullptr;
    if (node && node->key.isDetached() && node->key.capacity() >= size) {
        node->key.resize(size);
        std::memcpy(node->key.data(), key, size_t(size));
    } else {
        if (!node)
            node = new Node { MasterKey(), Record(), nullptr, nullptr, nullptr, 0 };
        node->key = MasterKey(key, size);
    }
    node->record = record;
    node->hash = hash;
    Node *&bucket = m_buckets[int(hash & uint(m_buckets.size() - 1))];
    node->chain = bucket;
    bucket = node;
    pushFront(node);
    ++m_totalCost;
    // The row that the next eviction lets go of has mostly left the cache.
    if (m_totalCost >= m_maxCost && m_last) {
        if (const unsigned char *row = m_last->record.rowPtr())
            __builtin_prefetch(row, 1);
    }
}

void MasterKeyCache::remove(const MasterKey &key)
{
    if (Node *node = findNode(key.constData(), key.size(), qHash(key, m_seed)))
        drop(node);
}

void MasterKeyCache::clear()
{
    Node *node = m_first;
    while (node) {
        Node *next = node->next;
        delete node;
        node = next;
    }
    m_first = m_last = nullptr;
    m_buckets.fill(nullptr);
    rebucket(m_maxCost);
    m_totalCost = 0;
}
