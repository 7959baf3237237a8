#include "keyedtable.h"

#include "index/masterindex.h"
#include "table/recordstrans.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

// A sorted view kept by a table under random batches, against a model of what
// the view must hold: exactly the rows that pass the filter, in key order, with
// rows of an equal key in the order the placement rules give.
namespace {

struct Image
{
    int key;
    bool hidden;
};

Image imageOf(const Record &r)
{
    return { keyOf(r), FieldType::getInt(r.data(1).data()) != 0 };
}

bool passes(const Image &i)
{
    return i.key >= 0 && !i.hidden;
}

bool byKey(const Record &a, const Record &b)
{
    return keyOf(a) < keyOf(b);
}

void insertBehindEquals(std::vector<Record> &model, const Record &row)
{
    model.insert(std::upper_bound(model.begin(), model.end(), row, byKey), row);
}

// One batch. `before` holds the old images that the view could see before the
// rows took their new values; a row whose key and filter stayed the same keeps
// its place. Any other touched row stays if it is in order with the nearest
// kept row before it and the next untouched row after it; otherwise it goes
// behind its equals, after the inserted rows.
void applyBatch(std::vector<Record> &model, const QList<Record> &removed,
                const QList<Record> &updated, const QList<Record> &inserted,
                const std::map<Record, Image> &before)
{
    const std::set<Record> gone(removed.begin(), removed.end());
    const std::set<Record> held(model.begin(), model.end());
    std::set<Record> touched(gone);
    for (const Record &r : updated) {
        const auto old = before.find(r);
        const bool same = old != before.end() && passes(old->second) && passes(imageOf(r))
                && old->second.key == keyOf(r);
        if (!same)
            touched.insert(r);
    }
    std::vector<Record> kept;
    std::set<Record> replaced;
    for (size_t q = 0; q < model.size(); ++q) {
        const Record &r = model[q];
        if (!touched.count(r)) {
            kept.push_back(r);
            continue;
        }
        if (gone.count(r) || !passes(imageOf(r)))
            continue;
        size_t next = q + 1;
        while (next < model.size() && touched.count(model[next]))
            ++next;
        if ((kept.empty() || keyOf(r) >= keyOf(kept.back()))
            && (next == model.size() || keyOf(r) <= keyOf(model[next])))
            kept.push_back(r);
        else
            replaced.insert(r);
    }
    std::vector<Record> pending;
    for (const Record &r : inserted)
        if (passes(imageOf(r)))
            pending.push_back(r);
    std::set<Record> listed; // a row listed twice comes in once
    for (const Record &r : updated)
        if (!gone.count(r) && passes(imageOf(r)) && (replaced.count(r) || !held.count(r))
            && listed.insert(r).second)
            pending.push_back(r);
    std::stable_sort(pending.begin(), pending.end(), byKey);
    for (const Record &r : pending)
        insertBehindEquals(kept, r);
    model.swap(kept);
}

// Table::updated: a row that its neighbours still bound stays.
void applyUpdate(std::vector<Record> &model, const Record &r)
{
    const auto it = std::find(model.begin(), model.end(), r);
    if (it != model.end()) {
        const bool inOrder = (it == model.begin() || keyOf(*(it - 1)) <= keyOf(r))
                && (it + 1 == model.end() || keyOf(r) <= keyOf(*(it + 1)));
        if (inOrder && passes(imageOf(r)))
            return;
        model.erase(it);
    }
    if (passes(imageOf(r)))
        insertBehindEquals(model, r);
}

// Builds through add() row by row: the reference for build()'s one sort.
class AddingKeyIndex : public KeyIndex
{
public:
    using KeyIndex::KeyIndex;
    void add(const Record &r) override { KeyIndex::add(r); }
};

// Every kind of key prefix must leave the view exactly as compare() alone does.
class IndexSortBatch : public testing::TestWithParam<IndexSort::KeyPrefixKind>
{
};

TEST_P(IndexSortBatch, ViewMatchesTheModelUnderRandomBatches)
{
    KeyedTable table;
    table.setMasterIndex(new MasterPtrIndex(&table)); // finds a row by its address
    KeyIndex view(&table, true, GetParam());
    std::vector<Record> model;
    std::mt19937 rng(11);
    auto randomKey = [&rng] { return int(rng() % 42) - 2; }; // unrestricted jumps, many equals

    QList<Record> none;
    QList<Record> initial;
    for (int i = 0; i < 1500; ++i)
        initial.append(table.row(randomKey()));
    table.process(none, none, -1, -1, initial, none);
    applyBatch(model, {}, {}, initial, {});
    ASSERT_TRUE(view.rows() == model);

    for (int round = 0; round < 120; ++round) {
        std::vector<Record> alive(table.masterIndex()->begin(), table.masterIndex()->end());
        std::shuffle(alive.begin(), alive.end(), rng);
        const size_t touch = std::min<size_t>(alive.size(), rng() % 200 + 1);
        const int fresh = int(rng() % 60);
        TableUpdater bracket(&table);

        if (round % 4 == 0) {
            // Through a transaction: the view sees the old and the new values.
            QList<Record> removed, updated, inserted;
            std::map<Record, Image> before;
            {
                RecordsTrans trans(&table);
                for (size_t i = 0; i < touch; ++i) {
                    const Record &row = alive[i];
                    const unsigned kind = rng() % 10;
                    RecordUpdater u(row, trans);
                    if (kind < 2) {
                        u.remove();
                        continue;
                    }
                    before[row] = imageOf(row);
                    const Record values = table.row(kind < 7 ? randomKey() : keyOf(row));
                    setHidden(values, rng() % 8 == 0);
                    u.copy(values, 0, 1);
                }
                for (int i = 0; i < fresh; ++i)
                    RecordUpdater(table.row(randomKey()), trans);
                removed = trans.removeList();
                updated = trans.updateList();
                inserted = trans.insertList();
            }
            applyBatch(model, removed, updated, inserted, before);
        } else if (round % 4 == 1) {
            // Written in place, then reported with each row paired with itself.
            QList<Record> removed, updated, inserted;
            for (size_t i = 0; i < touch; ++i) {
                const Record &row = alive[i];
                if (rng() % 5 == 0) {
                    removed.append(row);
                    continue;
                }
                setKey(row, randomKey());
                setHidden(row, rng() % 8 == 0);
                updated.append(row);
            }
            for (int i = 0; i < fresh; ++i)
                inserted.append(table.row(randomKey()));
            table.process(removed, updated, -1, -1, inserted, updated);
            applyBatch(model, removed, updated, inserted, {});
        } else if (round % 4 == 2) {
            // Paired with clones, some rows twice: first with a clone of the
            // same key, then with one of another. The last pair decides.
            QList<Record> updated, changed;
            std::map<Record, Image> before;
            for (size_t i = 0; i < touch; ++i) {
                const Record &row = alive[i];
                before[row] = imageOf(row);
                const bool twice = rng() % 3 == 0;
                const Record first = table.row(twice ? keyOf(row) : randomKey());
                setHidden(first, !twice && rng() % 8 == 0);
                updated.append(row);
                changed.append(first);
                if (twice) {
                    updated.append(row);
                    changed.append(table.row(randomKey()));
                }
            }
            QList<Record> removed;
            table.process(removed, updated, 0, 1, none, changed);
            applyBatch(model, removed, updated, none, before);
        } else {
            // Written in place and reported one row at a time.
            for (size_t i = 0; i < std::min<size_t>(touch, 20); ++i) {
                const Record &row = alive[i];
                setKey(row, randomKey());
                setHidden(row, rng() % 8 == 0);
                table.updated(row, -1);
                applyUpdate(model, row);
            }
        }
        ASSERT_TRUE(view.rows() == model) << "round " << round;
        // The searches agree with the model's order.
        const Record probe = table.row(randomKey());
        const auto lower = std::lower_bound(model.begin(), model.end(), probe, byKey);
        const auto upper = std::upper_bound(model.begin(), model.end(), probe, byKey);
        const int expectFirst = lower == upper ? -1 : int(lower - model.begin());
        ASSERT_EQ(view.search(probe, -1), expectFirst);
        ASSERT_EQ(view.searchLast(probe, -1), lower == upper ? -1 : int(upper - model.begin()) - 1);
        ASSERT_EQ(view.indexOfAdd(probe), int(upper - model.begin()));
    }
    EXPECT_GT(model.size(), 1000u);

    // A view filled by build() holds what one filled row by row holds.
    KeyIndex built(&table, false, GetParam());
    AddingKeyIndex added(&table, false, GetParam());
    built.build();
    added.build();
    EXPECT_TRUE(built.rows() == added.rows());
    EXPECT_EQ(built.keys(), view.keys());
}

INSTANTIATE_TEST_SUITE_P(Prefixes, IndexSortBatch,
                         testing::Values(IndexSort::NoKeyPrefix, IndexSort::PartialKeyPrefix,
                                         IndexSort::ExactKeyPrefix));

} // namespace
