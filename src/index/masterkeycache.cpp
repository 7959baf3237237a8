#include "index/masterkeycache.h"

#include "runtime/tsan_p.h"

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

MasterKeyCache::MasterKeyCache() = default;

MasterKeyCache::~MasterKeyCache()
{
    clear();
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
    m_hash.remove(node->key);
    --m_totalCost;
    delete node;
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
    m_hash.reserve(qMax(maxCost, 1));
}

Record MasterKeyCache::object(const MasterKey &key, bool *found)
{
    const auto it = m_hash.constFind(key);
    if (it == m_hash.constEnd()) {
        *found = false;
        return Record();
    }
    Node *node = it.value();
    if (node != m_first) {
        unlink(node);
        pushFront(node);
    }
    *found = true;
    return node->record;
}

void MasterKeyCache::insert(const MasterKey &key, const Record &record)
{
    const auto it = m_hash.constFind(key);
    if (it != m_hash.constEnd())
        drop(it.value());
    if (m_maxCost < 1)
        return;
    evictDownTo(m_maxCost - 1);
    Node *node = new Node { key, record, nullptr, nullptr };
    pushFront(node);
    m_hash.insert(key, node);
    ++m_totalCost;
}

void MasterKeyCache::remove(const MasterKey &key)
{
    const auto it = m_hash.constFind(key);
    if (it != m_hash.constEnd())
        drop(it.value());
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
    m_hash.clear();
    m_hash.reserve(qMax(m_maxCost, 1));
    m_totalCost = 0;
}
