#include "index/index.h"
#include "index/indexlimit.h"
#include "runtime/runnable.h"
#include "runtime/runnablemanager.h"
#include "table/recordstrans.h"

#include "table/tabletestsupport.h"

#include <QElapsedTimer>
#include <QThread>
#include <QThreadPool>

#include <gtest/gtest.h>

#include <memory>

namespace {

QString keysOf(const QList<Record> &rows)
{
    QStringList out;
    for (const Record &r : rows)
        out << QString::number(keyOf(r));
    return out.join(QLatin1Char(' '));
}

QString listsOf(const WatchIndex &watch)
{
    return QStringLiteral("I[%1] R[%2] U[%3]")
        .arg(keysOf(watch.inserted()), keysOf(watch.removed()), keysOf(watch.updated()));
}

class KeyLimit : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override { return keyOf(a) - keyOf(b); }
};

class ValueVector : public IndexVector
{
public:
    using IndexVector::IndexVector;
    int compare(const Record &a, const Record &b) const override { return valueOf(a) - valueOf(b); }
};

} // namespace

// One watch period: what each sequence of calls leaves in the lists, and
// which of the rows contains() admits.
TEST(WatchIndex, PeriodRecordsWhatHappenedToEachRow)
{
    const struct
    {
        const char *calls; // +n add, -n remove, ~n update, of rows 1 and 2
        const char *lists;
        const char *admitted;
    } cases[] = {
        { "+1", "I[1] R[] U[]", "1" },
        { "~1 ~1", "I[] R[] U[1 1]", "1" },
        { "-1 +1", "I[] R[] U[1]", "1" }, // left and came back: changed
        { "+1 -1", "I[1] R[1] U[]", "1" },
        { "-1 -1 +1", "I[] R[1] U[1]", "1" }, // one removal taken back
        { "-2 +1 ~2", "I[1] R[2] U[2]", "12" },
        { "-1", "I[] R[1] U[]", "" },
    };
    std::unique_ptr<Table> table(makeKeyedTable());
    const Record rows[] = { makeRow(table.get(), 1, 0), makeRow(table.get(), 2, 0) };
    WatchIndex watch(table.get());
    for (const auto &c : cases) {
        watch.rebuild();
        for (const QString &call : QString::fromLatin1(c.calls).split(QLatin1Char(' '))) {
            const Record &row = rows[call.at(1).digitValue() - 1];
            if (call.at(0) == QLatin1Char('+'))
                watch.add(row);
            else if (call.at(0) == QLatin1Char('-'))
                watch.remove(row, 5);
            else
                watch.update(row, 0, 1, 5);
        }
        QString admitted;
        for (int i : { 0, 1 })
            admitted += watch.contains(rows[i]) ? QString::number(i + 1) : QString();
        EXPECT_EQ(listsOf(watch), QLatin1String(c.lists)) << c.calls;
        EXPECT_EQ(admitted, QLatin1String(c.admitted)) << c.calls;
        EXPECT_FALSE(watch.contains(makeRow(table.get(), 1, 0))) << "identity, not key";
    }
}

// A limit, a watch and a vector on one table: evicted rows reach every index.
TEST(WatchIndex, SeesTheRowsThatALimitEvicts)
{
    std::unique_ptr<Table> table(makeKeyedTable());
    KeyLimit limit(3, table.get());
    WatchIndex watch(table.get());
    ValueVector vector(table.get());
    const auto apply = [&](std::initializer_list<std::pair<int, int>> inserts, int updatedValue) {
        RecordsTrans trans(table.get());
        for (const auto &row : inserts)
            RecordUpdater(makeRow(table.get(), row.first, row.second), trans);
        if (updatedValue)
            RecordUpdater(table->at(0), trans).data(1) = updatedValue;
    };
    const auto state = [&] {
        QList<Record> shown;
        for (int i = 0; i < vector.count(); ++i)
            shown << vector.get(i);
        return listsOf(watch) + QStringLiteral(" V[%1]").arg(keysOf(shown));
    };
    apply({ { 10, 3 }, { 20, 2 }, { 30, 1 } }, 0);
    EXPECT_EQ(state(), QStringLiteral("I[10 20 30] R[] U[] V[30 20 10]"));
    watch.rebuild();
    // Row 10 would go first, but it is being updated: it stays, and no other
    // row goes in its place.
    apply({ { 40, 0 } }, 5);
    EXPECT_EQ(state(), QStringLiteral("I[40] R[] U[10] V[40 30 20 10]"));
    watch.clear();
    apply({ { 5, 9 } }, 0);
    EXPECT_EQ(state(), QStringLiteral("I[5] R[10 20] U[] V[40 30 5]"));
    EXPECT_EQ(limit.count(), 3);
    // Nothing but the watch holds the evicted rows: they live until clear().
    EXPECT_EQ(valueOf(watch.removed().at(1)), 2);
    watch.rebuild();
    EXPECT_EQ(state(), QStringLiteral("I[] R[] U[] V[40 30 5]"));
}

namespace {

// Takes the inserted rows under the table's lock until it has seen `expected`.
struct Consumer : Runnable
{
    Consumer(Table *table, WatchIndex *watch, int expected) : table(table), watch(watch), expected(expected)
    {
        setAutoDelete(false);
    }
    void run() override
    {
        while (canRun() && seen.size() < expected) {
            {
                TableLocker locker(table);
                for (const Record &row : watch->inserted())
                    seen << keyOf(row);
                watch->clear();
            }
            QThread::yieldCurrentThread();
        }
    }
    Table *table;
    WatchIndex *watch;
    int expected;
    QList<int> seen;
};

} // namespace

// A consumer task reads and clears the lists while the table is written:
// each row is seen once, in order.
TEST(WatchIndex, ConsumerOnAnotherThreadSeesEveryRowOnce)
{
    const int rows = 2000;
    std::unique_ptr<Table> table(makeKeyedTable());
    WatchIndex watch(table.get());
    Consumer consumer(table.get(), &watch, rows);
    RunnableManager manager;
    const HRunnable handle = manager.startRunnable(&consumer, QThreadPool::globalInstance());
    QList<int> expected;
    for (int key = 0; key < rows; ++key) {
        TableUpdater updater(table.get());
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), key, 0), trans);
        expected << key;
    }
    QElapsedTimer clock;
    clock.start();
    while (manager.isRunning(handle) && clock.elapsed() < 20000)
        QThread::msleep(1);
    manager.stopRunnable(handle, true);
    EXPECT_EQ(consumer.seen, expected);
}
