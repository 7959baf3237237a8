#include "runtime/runnable.h"

#include "runtime/tsan_p.h"

Runnable::Runnable() : m_canRun(true)
{
    tsan::lockCreated(&m_mutex);
}

Runnable::~Runnable()
{
    tsan::lockDestroyed(&m_mutex);
}

void Runnable::stop()
{
    QMutexLocker locker(&m_mutex);
    tsan::locked(&m_mutex);
    m_canRun = false;
    tsan::unlocking(&m_mutex);
}

bool Runnable::canRun() const
{
    QMutexLocker locker(&m_mutex);
    tsan::locked(&m_mutex);
    const bool result = m_canRun;
    tsan::unlocking(&m_mutex);
    return result;
}
