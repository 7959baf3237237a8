#ifndef TABLEDB_RUNTIME_RUNNABLEMANAGER_H
#define TABLEDB_RUNTIME_RUNNABLEMANAGER_H

#include "runtime/global.h"
#include "runtime/runnable.h"

#include <QList>
#include <QObject>
#include <QReadWriteLock>

class QThreadPool;
class RunnableWrapper;

// The handle of a started task, registered with QMetaType as "HRunnable" (a
// typedef of void *) so that it travels in queued signals. Valid while
// RunnableManager::isRunning(handle) says so; compare it, never dereference it.
typedef void *HRunnable;

// Runs cooperative tasks on a QThreadPool, keeps the list of tasks in flight,
// asks them to stop and can wait for them. Every end of a task is reported by
// finished(), queued to the manager's thread.
//
// startRunnable, stopRunnable(s) and isRunning may be called from any thread.
// The destructor stops every task and waits for all of them, so a manager never
// dies with tasks in flight; a task that ignores canRun() delays it.
class TABLEDB_EXPORT RunnableManager : public QObject
{
    Q_OBJECT

public:
    RunnableManager();
    ~RunnableManager() override;

    // Queues `task` on `pool` at `priority`. The task's autoDelete() decides
    // whether the manager deletes it after its run().
    // REQUIRES: task and pool not null; the task is not started elsewhere.
    HRunnable startRunnable(Runnable *task, QThreadPool *pool, int priority = 0);

    // Asks the task of `handle` to stop; an unknown handle is ignored. With
    // `wait`, returns once the task has left the list (its run() is over).
    // REQUIRES with `wait`: not called from inside that task's run().
    void stopRunnable(HRunnable handle, bool wait);
    // Asks every task in flight to stop; with `wait`, returns when none is left,
    // including tasks started meanwhile. REQUIRES with `wait`: not called from a
    // task of this manager.
    void stopRunnables(bool wait);

    // Whether any task is in flight.
    bool isRunning() const;
    // Whether `handle` is in flight. It may still be true in a slot of
    // finished(handle): the signal is sent just before the task leaves the list.
    bool isRunning(HRunnable handle) const;

Q_SIGNALS:
    // The task of `handle` is over, whether it ran through or was stopped.
    void finished(HRunnable handle);

private:
    Q_DISABLE_COPY(RunnableManager)

    QList<RunnableWrapper *> m_runnables; // tasks in flight
    mutable QReadWriteLock m_lock; // over m_runnables; non-recursive
};

#endif // TABLEDB_RUNTIME_RUNNABLEMANAGER_H
