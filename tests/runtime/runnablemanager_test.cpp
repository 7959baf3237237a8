#include "runtime/runnablemanager.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSemaphore>
#include <QThread>
#include <QThreadPool>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

namespace {

struct Counters
{
    std::atomic<int> runs{0}, destroyed{0};
    std::atomic<int> ranWhileAllowed{0}; // canRun() was true when run() began
};

// Polls canRun() for up to `spins` short sleeps, as a well-behaved task does.
class PollingTask : public Runnable
{
public:
    PollingTask(Counters *counters, int spins = 1000000) : m_counters(counters), m_spins(spins) { }
    ~PollingTask() override { ++m_counters->destroyed; }
    void run() override
    {
        m_counters->ranWhileAllowed += canRun();
        for (int i = 0; i < m_spins && canRun(); ++i)
            QThread::usleep(200);
        ++m_counters->runs;
    }

private:
    Counters *m_counters;
    int m_spins;
};

// Ignores canRun() and waits for the test to let it go; the test owns it.
struct StubbornTask : Runnable
{
    StubbornTask() { setAutoDelete(false); }
    void run() override { started.release(); release.acquire(); finished = true; }
    QSemaphore started, release;
    std::atomic<bool> finished{false};
};

// Delivers queued signals until `done` holds or five seconds passed.
bool waitUntil(const std::function<bool()> &done)
{
    QElapsedTimer timer;
    timer.start();
    while (!done() && timer.elapsed() < 5000)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    return done();
}

} // namespace

TEST(RunnableManager, ManyTasksFromTwoThreadsEachRunAndReportOnce)
{
    QThreadPool pool;
    pool.setMaxThreadCount(4);
    Counters counters;
    std::atomic<int> signalled{0};
    const int perThread = 300;
    {
        RunnableManager manager;
        // An idle manager answers at once, even for unknown handles.
        int unknown = 0;
        EXPECT_FALSE(manager.isRunning(&unknown));
        manager.stopRunnable(&unknown, true);
        manager.stopRunnables(true);
        QObject::connect(&manager, &RunnableManager::finished, [&](HRunnable h) {
            EXPECT_NE(h, nullptr);
            ++signalled;
        });
        auto starter = [&] {
            for (int i = 0; i < perThread; ++i)
                manager.startRunnable(new PollingTask(&counters, i % 3), &pool, i % 2);
        };
        std::thread a(starter), b(starter);
        a.join();
        b.join();
        manager.stopRunnables(true);
        EXPECT_FALSE(manager.isRunning());
        EXPECT_TRUE(waitUntil([&] { return signalled == 2 * perThread; }));
    }
    pool.waitForDone();
    QCoreApplication::processEvents(); // a second report would arrive now
    EXPECT_EQ(signalled, 2 * perThread);
    EXPECT_EQ(counters.runs, 2 * perThread);
    EXPECT_EQ(counters.destroyed, 2 * perThread);
}

TEST(RunnableManager, StopOneWithAndWithoutWaiting)
{
    QThreadPool pool;
    Counters counters;
    RunnableManager manager;
    std::atomic<int> signalled{0};
    QObject::connect(&manager, &RunnableManager::finished, [&](HRunnable) { ++signalled; });

    PollingTask *kept = new PollingTask(&counters);
    kept->setAutoDelete(false); // stays ours after its end
    const HRunnable first = manager.startRunnable(kept, &pool, 0);
    const HRunnable second = manager.startRunnable(new PollingTask(&counters), &pool, 0);
    EXPECT_TRUE(manager.isRunning(first));

    manager.stopRunnable(first, true);
    EXPECT_FALSE(manager.isRunning(first));
    EXPECT_EQ(counters.runs, 1); // its run() was over when the wait ended
    EXPECT_TRUE(manager.isRunning(second));

    manager.stopRunnable(second, false);
    EXPECT_TRUE(waitUntil([&] { return !manager.isRunning(); }));
    // Stopped tasks report their end too.
    EXPECT_TRUE(waitUntil([&] { return signalled == 2; }));
    pool.waitForDone();
    QCoreApplication::processEvents();
    EXPECT_EQ(signalled, 2);
    EXPECT_EQ(counters.destroyed, 1);
    EXPECT_FALSE(kept->canRun());
    delete kept;
}

// One pool thread, held by a task that ignores the stop: the queued tasks
// behind it still run, see the stop at once, and the manager's destruction
// waits for all of them.
TEST(RunnableManager, QueuedTasksSeeTheStopAndDestructionWaitsForAStubbornOne)
{
    QThreadPool pool;
    pool.setMaxThreadCount(1);
    Counters counters;
    StubbornTask blocker;
    auto *manager = new RunnableManager;
    manager->startRunnable(&blocker, &pool, 0);
    blocker.started.acquire();
    for (int i = 0; i < 20; ++i)
        manager->startRunnable(new PollingTask(&counters), &pool, 0);
    manager->stopRunnables(false);
    std::atomic<bool> destroyed{false};
    std::thread stopper([&] {
        delete manager;
        destroyed = true;
    });
    QThread::msleep(50);
    EXPECT_FALSE(destroyed);
    EXPECT_FALSE(blocker.finished);
    blocker.release.release();
    stopper.join();
    EXPECT_TRUE(blocker.finished);
    EXPECT_EQ(counters.runs, 20);
    EXPECT_EQ(counters.ranWhileAllowed, 0);
    pool.waitForDone();
    EXPECT_EQ(counters.destroyed, 20); // each task deleted once, before `counters` goes
}
