#include "index/index.h"
#include "index/indexlimit.h"
#include "table/recordstrans.h"

#include "table/tabletestsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

namespace {

// Evicts the rows of the smallest keys.
class KeyLimit : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override
    {
        return (keyOf(a) > keyOf(b)) - (keyOf(a) < keyOf(b));
    }
};

class ValueVector : public IndexVector
{
public:
    using IndexVector::IndexVector;
    int compare(const Record &a, const Record &b) const override
    {
        return (valueOf(a) > valueOf(b)) - (valueOf(a) < valueOf(b));
    }
};

std::set<int> keySet(const QList<Record> &rows)
{
    std::set<int> out;
    for (const Record &r : rows)
        out.insert(keyOf(r));
    return out;
}

// A table capped by a limit, with a watch and a vector beside it.
class Evictions : public ::testing::Test
{
protected:
    Evictions() : table(makeKeyedTable()), limit(3, table.get()), watch(table.get()), vector(table.get()) { }

    QString vectorKeys() const
    {
        QStringList out;
        for (int i = 0; i < vector.count(); ++i)
            out << QString::number(keyOf(vector.get(i)));
        return out.join(QLatin1Char(' '));
    }
    QString watchLists() const
    {
        const auto keys = [](const QList<Record> &rows) {
            QStringList out;
            for (const Record &r : rows)
                out << QString::number(keyOf(r));
            return out.join(QLatin1Char(' '));
        };
        return QStringLiteral("I[%1] R[%2] U[%3]")
            .arg(keys(watch.inserted()), keys(watch.removed()), keys(watch.updated()));
    }
    std::set<int> tableKeys() const
    {
        std::set<int> out;
        for (int i = 0; i < table->rowCount(); ++i)
            out.insert(keyOf(table->at(i)));
        return out;
    }

    std::unique_ptr<Table> table;
    KeyLimit limit;
    WatchIndex watch;
    ValueVector vector;
};

} // namespace

TEST_F(Evictions, EveryIndexSeesTheEvictedRows)
{
    {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 10, 3), trans);
        RecordUpdater(makeRow(table.get(), 20, 2), trans);
        RecordUpdater(makeRow(table.get(), 30, 1), trans);
    }
    EXPECT_EQ(vectorKeys(), QStringLiteral("30 20 10"));
    EXPECT_EQ(watchLists(), QStringLiteral("I[10 20 30] R[] U[]"));
    watch.clear();

    // Row 10 would go first, but it is being updated: it stays, and no other
    // row goes in its place, so the table exceeds its limit for now.
    {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 40, 0), trans);
        RecordUpdater(table->at(0), trans).data(1) = 5;
    }
    EXPECT_EQ(table->rowCount(), 4);
    EXPECT_EQ(vectorKeys(), QStringLiteral("40 30 20 10"));
    EXPECT_EQ(watchLists(), QStringLiteral("I[40] R[] U[10]"));
    watch.clear();

    {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 5, 9), trans);
    }
    EXPECT_EQ(tableKeys(), (std::set<int> { 5, 30, 40 }));
    EXPECT_EQ(limit.count(), 3);
    EXPECT_EQ(vectorKeys(), QStringLiteral("40 30 5"));
    EXPECT_EQ(watchLists(), QStringLiteral("I[5] R[10 20] U[]"));
}

// Random transactions: the watch, replayed, gives the table's rows; the
// vector holds them in order; evicted rows come from the start of the limit's order.
TEST_F(Evictions, RandomTransactionsKeepEveryIndexInStep)
{
    limit.setLimit(8);
    std::mt19937 rng(7);
    std::set<int> used;
    for (int round = 0; round < 300; ++round) {
        const std::set<int> before = tableKeys();
        std::set<int> ownRemovals, ownUpdates;
        int inserts = 0;
        {
            RecordsTrans trans(table.get());
            for (int n = int(rng() % 4); n > 0; --n) {
                int key;
                do
                    key = int(rng() % 100000);
                while (!used.insert(key).second);
                RecordUpdater(makeRow(table.get(), key, int(rng() % 5)), trans);
                ++inserts;
            }
            for (int n = int(rng() % 3); n > 0 && table->rowCount() > 0; --n) {
                const Record row = table->at(int(rng() % table->rowCount()));
                if (ownRemovals.count(keyOf(row)) || ownUpdates.count(keyOf(row)))
                    continue;
                if (rng() % 2) {
                    RecordUpdater(row, trans).remove();
                    ownRemovals.insert(keyOf(row));
                } else {
                    RecordUpdater(row, trans).data(1) = int(rng() % 5);
                    ownUpdates.insert(keyOf(row));
                }
            }
        }
        const std::set<int> after = tableKeys();
        // Only rows that the transaction itself removes or updates are
        // skipped, and only they let the table exceed its limit.
        const int wanted = int(before.size()) + inserts - int(ownRemovals.size());
        if (inserts == 0 && ownRemovals.empty() && ownUpdates.empty()) {
            ASSERT_EQ(after, before) << "an empty transaction changes nothing";
        } else if (ownRemovals.empty() && ownUpdates.empty()) {
            ASSERT_EQ(int(after.size()), std::min(wanted, 8)) << "round " << round;
        } else {
            ASSERT_LE(after.size(), 8 + ownRemovals.size() + ownUpdates.size()) << "round " << round;
        }

        std::set<int> replayed = before;
        for (int key : keySet(watch.removed()))
            ASSERT_EQ(replayed.erase(key), 1u) << "round " << round;
        for (int key : keySet(watch.inserted()))
            replayed.insert(key);
        ASSERT_EQ(replayed, after) << "round " << round;
        for (int key : keySet(watch.updated()))
            ASSERT_EQ(ownUpdates.count(key), 1u) << "round " << round;

        // Evicted: gone without being asked to; they precede every row that
        // stayed without an update.
        for (int key : keySet(watch.removed())) {
            if (ownRemovals.count(key))
                continue;
            for (int kept : before) {
                if (after.count(kept) && !ownUpdates.count(kept)) {
                    ASSERT_LT(key, kept) << "round " << round;
                }
            }
        }

        ASSERT_EQ(limit.count(), int(after.size()));
        ASSERT_EQ(vector.count(), int(after.size()));
        std::set<int> inVector;
        for (int i = 0; i < vector.count(); ++i) {
            inVector.insert(keyOf(vector.get(i)));
            if (i > 0) {
                ASSERT_LE(valueOf(vector.get(i - 1)), valueOf(vector.get(i))) << "round " << round;
            }
        }
        ASSERT_EQ(inVector, after) << "round " << round;
        watch.clear();
    }
}
