#include "runtime/runnablewrapper_p.h"

#include "runtime/runnable.h"
#include "runtime/runnablemanager.h"
#include "runtime/tsan_p.h"

#include <QMetaObject>
#include <QReadWriteLock>

RunnableWrapper::RunnableWrapper(Runnable *task, RunnableManager *manager,
                                 QList<RunnableWrapper *> *list, QReadWriteLock *lock)
    : m_task(task),
      m_finished(new QWaitCondition),
      m_manager(manager),
      m_list(list),
      m_lock(lock),
      m_deleteTask(task->autoDelete())
{
}

RunnableWrapper::~RunnableWrapper()
{
    if (m_deleteTask)
        delete m_task;
}

void RunnableWrapper::run()
{
    // Pairs with the release in startRunnable: the pool's queue is invisible to TSan.
    tsan::acquire(this);
    m_task->run();
    // Read now: once the waiters are woken, a task without auto-delete may be
    // deleted by its owner at any moment, before the pool deletes this wrapper.
    m_deleteTask = m_task->autoDelete();

    // Sent while still listed, so a fast receiver may see isRunning(h) true.
    QMetaObject::invokeMethod(m_manager, "finished", Qt::QueuedConnection,
                              Q_ARG(HRunnable, this));

    m_lock->lockForWrite();
    tsan::locked(m_lock);
    m_list->removeOne(this);
    tsan::unlocking(m_lock);
    m_lock->unlock();

    // Waiters registered on the condition before they let go of the read lock,
    // and the removal above needed that lock: no wake can be missed.
    m_finished->wakeAll();
}
