#include "runtime/runnablemanager.h"

#include "runtime/runnablewrapper_p.h"
#include "runtime/tsan_p.h"

#include <QMetaType>
#include <QThreadPool>

namespace {

// Read access to the manager's list, told to TSan as well.
class ReadGuard
{
public:
    explicit ReadGuard(QReadWriteLock *lock) : m_lock(lock)
    {
        m_lock->lockForRead();
        tsan::lockedForRead(m_lock);
    }
    ~ReadGuard()
    {
        tsan::unlockingRead(m_lock);
        m_lock->unlock();
    }

    // Waits for `condition`; the read lock is given up during the wait.
    void wait(QWaitCondition *condition)
    {
        tsan::unlockingRead(m_lock);
        condition->wait(m_lock);
        tsan::lockedForRead(m_lock);
    }

private:
    Q_DISABLE_COPY(ReadGuard)
    QReadWriteLock *m_lock;
};

} // namespace

RunnableManager::RunnableManager()
{
    // Queued finished() needs the name; start-up registers it too, but a manager
    // may be made from another library's initialisers before that.
    qRegisterMetaType<HRunnable>("HRunnable");
    tsan::lockCreated(&m_lock);
}

RunnableManager::~RunnableManager()
{
    stopRunnables(true);
    tsan::lockDestroyed(&m_lock);
}

HRunnable RunnableManager::startRunnable(Runnable *task, QThreadPool *pool, int priority)
{
    RunnableWrapper *wrapper = new RunnableWrapper(task, this, &m_runnables, &m_lock);
    m_lock.lockForWrite();
    tsan::locked(&m_lock);
    m_runnables.append(wrapper);
    tsan::unlocking(&m_lock);
    m_lock.unlock();

    wrapper->setAutoDelete(true);
    tsan::release(wrapper);
    pool->start(wrapper, priority);
    return wrapper;
}

void RunnableManager::stopRunnable(HRunnable handle, bool wait)
{
    ReadGuard guard(&m_lock);
    RunnableWrapper *wrapper = nullptr;
    for (RunnableWrapper *w : qAsConst(m_runnables)) {
        if (w == handle) {
            wrapper = w;
            break;
        }
    }
    if (!wrapper)
        return;
    wrapper->task()->stop();
    if (wait) {
        // The copy keeps the condition alive after the pool deletes the wrapper.
        const QSharedPointer<QWaitCondition> finished = wrapper->finishedCondition();
        guard.wait(finished.data());
    }
}

void RunnableManager::stopRunnables(bool wait)
{
    ReadGuard guard(&m_lock);
    const QList<RunnableWrapper *> runnables = m_runnables;
    for (RunnableWrapper *w : runnables)
        w->task()->stop();
    if (!wait)
        return;
    while (!m_runnables.isEmpty()) {
        const QSharedPointer<QWaitCondition> finished = m_runnables.first()->finishedCondition();
        guard.wait(finished.data());
    }
}

bool RunnableManager::isRunning() const
{
    ReadGuard guard(&m_lock);
    return !m_runnables.isEmpty();
}

bool RunnableManager::isRunning(HRunnable handle) const
{
    ReadGuard guard(&m_lock);
    for (RunnableWrapper *w : m_runnables) {
        if (w == handle)
            return true;
    }
    return false;
}
