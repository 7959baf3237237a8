#ifndef TABLEDB_RUNTIME_RUNNABLE_H
#define TABLEDB_RUNTIME_RUNNABLE_H

#include "runtime/global.h"

#include <QMutex>
#include <QRunnable>

// A cooperative task for RunnableManager: a QRunnable with a stop flag that
// its run() is to poll through canRun() and leave soon after it turns false.
// A task stopped while still queued runs anyway and sees canRun() false at once.
// With autoDelete() on (the default) the manager deletes the task after run();
// with it off the task stays the caller's, who may delete it as soon as
// finished() arrives or a waiting stop returns.
class TABLEDB_EXPORT Runnable : public QRunnable
{
public:
    Runnable();
    ~Runnable() override;

    // Asks the task to stop. Thread-safe; never waits for the task.
    virtual void stop();
    // False once stop() was called. Thread-safe.
    virtual bool canRun() const;

private:
    Q_DISABLE_COPY(Runnable)

    mutable QMutex m_mutex; // guards m_canRun only
    bool m_canRun;
};

#endif // TABLEDB_RUNTIME_RUNNABLE_H
