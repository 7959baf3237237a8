#include "numeric/stringpool.h"

#include "runtime/tsan_p.h"

StringPool::StringPool(QObject *parent) : QObject(parent)
{
    m_strings.max_load_factor(1.0f);
    m_strings.rehash(8);
    tsan::lockCreated(&m_mutex);
}

StringPool::~StringPool()
{
    tsan::lockDestroyed(&m_mutex);
}

const QString &StringPool::insert(const QString &s)
{
    tsan::MutexLocker locker(&m_mutex);
    return *m_strings.insert(s).first;
}

const QString &StringPool::insert(QString &&s)
{
    tsan::MutexLocker locker(&m_mutex);
    // emplace would move `s` into a node even when the string is present.
    auto it = m_strings.find(s);
    if (it != m_strings.end())
        return *it;
    return *m_strings.insert(std::move(s)).first;
}

uint64 StringPool::size() const
{
    return m_strings.size();
}

int StringPool::ref_count(const QString &s) const
{
    auto it = m_strings.find(s);
    if (it == m_strings.end())
        return 0;
    return const_cast<QString &>(*it).data_ptr()->ref.atomic.loadRelaxed();
}

void StringPool::shrink()
{
    tsan::MutexLocker locker(&m_mutex);
    for (auto it = m_strings.begin(); it != m_strings.end();) {
        if (const_cast<QString &>(*it).data_ptr()->ref.atomic.loadRelaxed() == 1)
            it = m_strings.erase(it);
        else
            ++it;
    }
}

StringPool *StringPool::global()
{
    static StringPool pool(nullptr);
    return &pool;
}
