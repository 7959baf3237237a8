#ifndef TABLEDB_INDEX_MASTERKEYCACHE_H
#define TABLEDB_INDEX_MASTERKEYCACHE_H

#include "index/masterkey.h"
#include "table/record.h"

#include <QHash>
#include <QVector>
#include <QMutex>

// A least-recently-used map from packed key to row, each entry of cost 1, so
// that the total cost is the number of entries. It holds a reference to each
// row, and so keeps rows alive. Not thread-safe: MasterIndexCached guards it.
class TABLEDB_EXPORT MasterKeyCache
{
public:
    // Holds a cache's mutex for its lifetime, in a way that ThreadSanitizer
    // sees (it cannot see inside Qt's QMutex).
    class TABLEDB_EXPORT Locker
    {
    public:
        explicit Locker(QMutex *mutex);
        ~Locker();

    private:
        QMutex *m_mutex;
        Q_DISABLE_COPY(Locker)
    };

    MasterKeyCache(); // maxCost 100
    ~MasterKeyCache();

    int maxCost() const { return m_maxCost; }
    int totalCost() const { return m_totalCost; }
    // Sets the limit, evicts from the least recently used end down to it and
    // reserves the hash for max(maxCost, 1) entries.
    void setMaxCost(int maxCost);

    // The row of `key`, made the most recently used; an empty Record and
    // *found false on a miss. Allocates nothing.
    Record object(const MasterKey &key, bool *found) { return object(key.constData(), key.size(), found); }
    Record object(const char *key, int size, bool *found);
    // Whether `key` is cached, without touching the order.
    bool contains(const MasterKey &key) const
    {
        return findNode(key.constData(), key.size(), qHash(key, m_seed));
    }
    // Replaces any entry of `key`; with maxCost below 1 nothing is kept.
    // Otherwise evicts down to maxCost - 1 and adds at the most recent end.
    // Copies the key's bytes, so `key` may be raw data; allocates nothing
    // once the cache is full.
    void insert(const MasterKey &key, const Record &record)
    {
        insert(key.constData(), key.size(), record);
    }
    void insert(const char *key, int size, const Record &record);
    void remove(const MasterKey &key);
    void clear();

private:
    struct Node
    {
        MasterKey key; // owns its bytes
        Record record;
        Node *prev; // towards the most recently used end
        Node *next;
        Node *chain; // the next node of its bucket
        uint hash;
    };

    void unlink(Node *node);
    void pushFront(Node *node);
    void evictDownTo(int cost);
    void drop(Node *node);
    Node *findNode(const char *key, int size, uint hash) const;
    void rebucket(int entries);

    // Buckets of nodes chained through Node::chain, at least as many as
    // entries, so that an insertion allocates nothing once a node is spare.
    QVector<Node *> m_buckets;
    uint m_seed;
    Node *m_spare = nullptr; // a dropped node kept for the next insertion
    Node *m_first = nullptr; // most recently used
    Node *m_last = nullptr; // least recently used
    int m_maxCost = 100;
    int m_totalCost = 0;

    Q_DISABLE_COPY(MasterKeyCache)
};

#endif // TABLEDB_INDEX_MASTERKEYCACHE_H
