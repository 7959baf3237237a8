#ifndef TABLEDB_RUNTIME_RUNNABLEWRAPPER_P_H
#define TABLEDB_RUNTIME_RUNNABLEWRAPPER_P_H

#include <QList>
#include <QRunnable>
#include <QSharedPointer>
#include <QWaitCondition>

class QReadWriteLock;
class Runnable;
class RunnableManager;

// What RunnableManager actually puts on the pool: runs the task, reports its
// end, takes itself out of the manager's list and wakes the waiters. Its
// address is the task's HRunnable. The pool deletes it after run().
class RunnableWrapper : public QRunnable
{
public:
    RunnableWrapper(Runnable *task, RunnableManager *manager, QList<RunnableWrapper *> *list,
                    QReadWriteLock *lock);
    // Deletes the task if its autoDelete() was on when its run() returned.
    ~RunnableWrapper() override;

    void run() override;

    Runnable *task() const { return m_task; }
    // Waiters copy it so that it outlives the wrapper.
    QSharedPointer<QWaitCondition> finishedCondition() const { return m_finished; }

private:
    Q_DISABLE_COPY(RunnableWrapper)

    Runnable *m_task;
    QSharedPointer<QWaitCondition> m_finished; // woken once the task is over
    RunnableManager *m_manager; // receiver of finished()
    QList<RunnableWrapper *> *m_list; // the manager's list of tasks in flight
    QReadWriteLock *m_lock; // the manager's lock over that list
    bool m_deleteTask; // the task's autoDelete(), taken before its end is reported
};

#endif // TABLEDB_RUNTIME_RUNNABLEWRAPPER_P_H
