#include "index/index.h"
#include "runtime/runnablemanager.h"
#include "runtime/runnable.h"
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

// The three lists, and which of the rows 1 and 2 contains() admits.
QString stateOf(const WatchIndex &watch, const Record &one, const Record &two)
{
    QString admitted;
    if (watch.contains(one))
        admitted += QLatin1Char('1');
    if (watch.contains(two))
        admitted += QLatin1Char('2');
    return QStringLiteral("I[%1] R[%2] U[%3] C[%4]")
        .arg(keysOf(watch.inserted()), keysOf(watch.removed()), keysOf(watch.updated()), admitted);
}

} // namespace

// One watch period: what each sequence of calls leaves in the lists.
TEST(WatchIndex, PeriodRecordsWhatHappenedToEachRow)
{
    struct Case
    {
        const char *calls; // +n add, -n remove, ~n update, on rows 1 and 2
        const char *expected;
    };
    const Case cases[] = {
        { "", "I[] R[] U[] C[]" },
        { "+1", "I[1] R[] U[] C[1]" },
        { "~1 ~1", "I[] R[] U[1 1] C[1]" },
        { "-1 +1", "I[] R[] U[1] C[1]" }, // left and came back: changed
        { "+1 -1", "I[1] R[1] U[] C[1]" },
        { "-1 -1 +1", "I[] R[1] U[1] C[1]" }, // only the first removal is taken back
        { "-1 +1 -1", "I[] R[1] U[1] C[1]" },
        { "-2 +1 ~2", "I[1] R[2] U[2] C[12]" },
        { "-1", "I[] R[1] U[] C[]" }, // removed rows don't count for contains()
    };
    std::unique_ptr<Table> table(makeKeyedTable());
    const Record rows[] = { makeRow(table.get(), 1, 0), makeRow(table.get(), 2, 0) };
    const Record stranger = makeRow(table.get(), 1, 0); // key 1, another row
    WatchIndex watch(table.get());
    for (const Case &c : cases) {
        watch.rebuild();
        for (const QString &call : QString::fromLatin1(c.calls).split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const Record &row = rows[call.at(1).digitValue() - 1];
            switch (call.at(0).toLatin1()) {
            case '+': watch.add(row); break;
            case '-': watch.remove(row, 5); break;
            default: watch.update(row, 0, 1, 5); break;
            }
        }
        EXPECT_EQ(stateOf(watch, rows[0], rows[1]), QString::fromLatin1(c.expected)) << c.calls;
        EXPECT_FALSE(watch.contains(stranger)) << "identity, not key";
    }
    EXPECT_TRUE(watch.filter(rows[0]));
    EXPECT_EQ(watch.getClassName(), QStringLiteral("WatchIndex"));
}

// The same rules as the table delivers them, one transaction at a time.
TEST(WatchIndex, TableTransactionsAndANewWatch)
{
    std::unique_ptr<Table> table(makeKeyedTable());
    makeRow(table.get(), 9, 90).append();
    WatchIndex watch(table.get());
    watch.build();
    EXPECT_EQ(stateOf(watch, table->at(0), Record()), QStringLiteral("I[] R[] U[] C[]"))
        << "a watch starts empty, whatever the table holds";

    {
        RecordsTrans trans(table.get());
        for (int key : { 1, 2, 3 })
            RecordUpdater(makeRow(table.get(), key, key * 10), trans);
    }
    for (int value : { 21, 22 }) {
        RecordsTrans trans(table.get());
        RecordUpdater(table->at(1), trans).data(1) = value;
    }
    Record three = table->at(2);
    three.remove();
    three.append(); // the same row back within the period
    {
        RecordsTrans trans(table.get());
        RecordUpdater(table->at(0), trans).remove();
        RecordUpdater(table->at(3), trans).remove();
    }
    EXPECT_EQ(keysOf(watch.inserted()), QStringLiteral("1 2 3"));
    EXPECT_EQ(keysOf(watch.updated()), QStringLiteral("2 2 3"));
    EXPECT_EQ(keysOf(watch.removed()), QStringLiteral("1 9"));
    EXPECT_EQ(valueOf(watch.updated().at(1)), 22);

    // Nothing but the watch holds the removed row 9 now: it lives on in the
    // lists until the consumer lets go.
    EXPECT_EQ(valueOf(watch.removed().at(1)), 90);

    const WatchIndex copy(watch);
    watch.rebuild();
    EXPECT_EQ(stateOf(watch, table->at(0), table->at(1)), QStringLiteral("I[] R[] U[] C[]"));
    EXPECT_EQ(keysOf(copy.removed()), QStringLiteral("1 9")) << "a copy keeps its own lists";
    EXPECT_EQ(table->indexes(), QList<Index *> { &watch });

    makeRow(table.get(), 4, 40).append();
    EXPECT_EQ(keysOf(watch.inserted()), QStringLiteral("4"));
    EXPECT_EQ(copy.inserted().size(), 3) << "only the registered watch is told";
}

namespace {

// Picks up inserted rows under the table's lock until it has seen `expected`.
class Consumer : public Runnable
{
public:
    Consumer(Table *table, WatchIndex *watch, int expected)
        : m_table(table), m_watch(watch), m_expected(expected)
    {
        setAutoDelete(false);
    }

    void run() override
    {
        while (canRun() && seen.size() < m_expected) {
            {
                TableLocker locker(m_table);
                for (const Record &row : m_watch->inserted())
                    seen << keyOf(row);
                m_watch->clear();
            }
            QThread::yieldCurrentThread();
        }
    }

    QList<int> seen;

private:
    Table *m_table;
    WatchIndex *m_watch;
    int m_expected;
};

} // namespace

// A consumer on another thread reads and clears the lists while the table is
// written: each row is seen once, in order.
TEST(WatchIndex, ConsumerOnAnotherThreadSeesEveryRowOnce)
{
    const int rows = 2000;
    std::unique_ptr<Table> table(makeKeyedTable());
    WatchIndex watch(table.get());
    Consumer consumer(table.get(), &watch, rows);
    RunnableManager manager;
    const HRunnable handle = manager.startRunnable(&consumer, QThreadPool::globalInstance());

    for (int key = 0; key < rows; ++key) {
        TableUpdater updater(table.get());
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), key, 0), trans);
    }
    QElapsedTimer clock;
    clock.start();
    while (manager.isRunning(handle) && clock.elapsed() < 20000)
        QThread::msleep(1);
    manager.stopRunnable(handle, true);

    QList<int> expected;
    for (int key = 0; key < rows; ++key)
        expected << key;
    EXPECT_EQ(consumer.seen, expected);
    EXPECT_EQ(table->rowCount(), rows);
}
