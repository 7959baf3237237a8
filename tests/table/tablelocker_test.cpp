// Readers holding TableLocker on other threads see whole transactions: one
// thread updates a keyed table in transactions while two others walk sorted
// views and check every row and neighbouring pair. A quarter of the updates
// replace a row by its twin (key s <-> s + rows) in one transaction, so a
// reader that saw half of one would find a slot empty or twice.
// TABLEDB_LOAD_ROWS and TABLEDB_LOAD_UPDATES scale a run down (sanitizer
// builds); walks are paced to about 32 per reader, as each holds the lock.

#include "tabletestsupport.h"

#include "index/indexsort.h"
#include "table/recordstrans.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <thread>
#include <vector>

namespace {

enum Column { Key, Seq, Check, Inverse };

int seqOf(const Record &r) { return FieldType::getInt(r.data(Seq).data()); }

// A row whose check cells come from two different updates is not whole.
int64 checkValue(int key, int seq) { return int64(key) * 1000003 + int64(seq) * 7919 + 1; }

void writeRow(const Record &r, int key, int seq)
{
    FieldType::setInt(r.data(Seq).data(), seq);
    FieldType::setInt64(r.data(Check).data(), checkValue(key, seq));
    FieldType::setInt64(r.data(Inverse).data(), ~checkValue(key, seq));
}

bool isWhole(const Record &r)
{
    const int64 check = FieldType::getInt64(r.data(Check).data());
    return check == checkValue(keyOf(r), seqOf(r))
           && FieldType::getInt64(r.data(Inverse).data()) == ~check;
}

int cmp(int64 a, int64 b) { return (a > b) - (a < b); }
int orElse(int first, int second) { return first ? first : second; }

// Views by key up and down and by group take every row; the others leave rows
// out, move them by their update, or move them in and out by a filter on it.
enum class Order { Key, KeyDescending, Group, EvenKeysDescending, LastUpdate, SelectedByUpdate };

class View : public IndexSort
{
public:
    View(Table *t, Order order) : IndexSort(t, true), m_order(order) { }

    int compare(const Record &a, const Record &b) const override
    {
        const int byKey = cmp(keyOf(a), keyOf(b));
        switch (m_order) {
        case Order::Key:
            return byKey;
        case Order::Group:
            return orElse(cmp(keyOf(a) % 97, keyOf(b) % 97), byKey);
        case Order::LastUpdate:
            return orElse(cmp(seqOf(a), seqOf(b)), byKey);
        default:
            return -byKey;
        }
    }
    bool filter(const Record &r) const override
    {
        return m_order == Order::EvenKeysDescending ? keyOf(r) % 2 == 0
               : m_order == Order::SelectedByUpdate ? seqOf(r) % 3 == 1
                                                     : true;
    }

private:
    Order m_order;
};

int envOr(const char *name, int fallback)
{
    const char *text = std::getenv(name);
    return text && std::atoi(text) > 0 ? std::atoi(text) : fallback;
}

struct Findings
{
    std::atomic<long> walks{0};
    std::atomic<long> torn{0};
    std::atomic<long> misordered{0}; // neighbours out of order, or an equal pair
    std::atomic<long> wrongCount{0}; // a view that lost or doubled rows
    std::atomic<long> strangers{0}; // rows in a view whose filter refuses them
};

class Load
{
public:
    explicit Load(int rows)
        : m_table(new Table(QStringLiteral("load"))), m_rows(rows), m_current(size_t(rows))
    {
        m_table->addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
        m_table->addColumn(QStringLiteral("seq"), FieldType::Integer, 0, false);
        m_table->addColumn(QStringLiteral("check"), FieldType::Integer64, 0, false);
        m_table->addColumn(QStringLiteral("inverse"), FieldType::Integer64, 0, false);
        m_table->setMasterIndex(new IntKeyMaster(m_table.get()));
        // View 0, by key, is the reference walk.
        for (Order order : { Order::Key, Order::KeyDescending, Order::Group,
                             Order::EvenKeysDescending, Order::LastUpdate, Order::SelectedByUpdate })
            m_views.emplace_back(new View(m_table.get(), order));
        TableUpdater bracket(m_table.get());
        RecordsTrans trans(m_table.get());
        for (int key = 0; key < rows; ++key) {
            m_current[size_t(key)] = key;
            Record row(m_table.get());
            FieldType::setInt(row.data(Key).data(), key);
            writeRow(row, key, 0);
            RecordUpdater(row, trans);
        }
    }
    ~Load()
    {
        for (auto &view : m_views)
            m_table->removeIndex(view.get());
    }

    // Returns the last update of each key.
    std::vector<int> write(int updates, int perTransaction, std::atomic<int> &applied)
    {
        std::vector<int> last(size_t(2 * m_rows), 0);
        std::mt19937 random(20261124);
        for (int seq = 1; seq <= updates; ++applied) {
            TableUpdater bracket(m_table.get());
            RecordsTrans trans(m_table.get());
            for (int i = 0; i < perTransaction && seq <= updates; ++i, ++seq) {
                const int slot = int(random() % unsigned(m_rows));
                int &key = m_current[size_t(slot)];
                Record probe(m_table.get());
                FieldType::setInt(probe.data(Key).data(), key);
                if (random() % 4 == 0) {
                    RecordUpdater(probe, trans).remove();
                    key = key < m_rows ? key + m_rows : key - m_rows;
                    probe = Record(m_table.get());
                    FieldType::setInt(probe.data(Key).data(), key);
                }
                RecordUpdater row(probe, trans);
                writeRow(row, key, seq);
                last[size_t(key)] = seq;
            }
        }
        return last;
    }

    // One walk of every view under the lock; view 0, by key, also counts slots
    // and the rows each other view should hold.
    void walk(Findings &f) const
    {
        TableLocker lock(m_table.get());
        std::vector<bool> slotSeen(size_t(m_rows), false);
        std::vector<long> members(m_views.size(), 0);
        for (size_t v = 0; v < m_views.size(); ++v) {
            const View &view = *m_views[v];
            const Record *previous = nullptr;
            for (const Record &row : view) {
                f.torn += !isWhole(row);
                f.strangers += !view.filter(row);
                f.misordered += previous && view.compare(*previous, row) >= 0;
                previous = &row;
                if (v > 0)
                    continue;
                const size_t slot = size_t(keyOf(row) % m_rows);
                f.wrongCount += slotSeen[slot]; // a row and its twin at once
                slotSeen[slot] = true;
                for (size_t w = 1; w < m_views.size(); ++w)
                    members[w] += m_views[w]->filter(row);
            }
            f.wrongCount += view.count() != (v ? members[v] : m_rows);
        }
        ++f.walks;
    }

    // The rows that are not the slot's present key with its last update.
    int lostUpdates(const std::vector<int> &last) const
    {
        int lost = 0;
        for (const Record &row : *m_views[0])
            lost += keyOf(row) != m_current[size_t(keyOf(row) % m_rows)]
                    || seqOf(row) != last[size_t(keyOf(row))];
        return lost;
    }

private:
    std::unique_ptr<Table> m_table;
    std::vector<std::unique_ptr<View>> m_views; // removed from the table before they go
    int m_rows;
    std::vector<int> m_current; // the key of each slot, the writer's
};

// Filtered views and views whose rows move on every update check that batch
// maintenance finds each row by identity.
TEST(TableLockerLoad, ReadersSeeWholeRowsAndExactOrderedViewsWhileUpdatesRun)
{
    const int rows = envOr("TABLEDB_LOAD_ROWS", 100000);
    const int updates = envOr("TABLEDB_LOAD_UPDATES", 1000000);
    Load load(rows);
    const int perTransaction = 1000;
    const int stride = std::max(1, updates / perTransaction / 32);
    std::atomic<bool> writing{true};
    std::atomic<int> applied{0};
    Findings findings;
    auto reader = [&] {
        do {
            load.walk(findings);
            const int next = applied.load() + stride;
            while (writing.load() && applied.load() < next)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } while (writing.load());
    };
    std::thread readers[] = {std::thread(reader), std::thread(reader)};
    const std::vector<int> last = load.write(updates, perTransaction, applied);
    writing = false;
    for (std::thread &t : readers)
        t.join();
    load.walk(findings); // and the final state

    EXPECT_EQ(findings.torn.load(), 0);
    EXPECT_EQ(findings.misordered.load(), 0);
    EXPECT_EQ(findings.wrongCount.load(), 0);
    EXPECT_EQ(findings.strangers.load(), 0);
    EXPECT_EQ(load.lostUpdates(last), 0);
    EXPECT_GE(findings.walks.load(), 3);
    ::testing::Test::RecordProperty("walks", int(findings.walks.load()));
}

} // namespace
