#include "index/index.h"

#include "table/tabletestsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

namespace {

// Ordered by the value column, so that rows of distinct keys share a place.
class ValueVector : public IndexVector
{
public:
    using IndexVector::IndexVector;
    int compare(const Record &a, const Record &b) const override
    {
        return (valueOf(a) > valueOf(b)) - (valueOf(a) < valueOf(b));
    }
    bool filter(const Record &r) const override { return valueOf(r) != hiddenValue; }
    int capacity() const { return m_vector.capacity(); }

    std::vector<int> keys() const
    {
        std::vector<int> out;
        for (int i = 0; i < count(); ++i)
            out.push_back(keyOf(get(i)));
        return out;
    }
    // Positions of the rows that compare equal to `probe`, through search().
    std::vector<int> matches(const Record &probe) const
    {
        std::vector<int> out;
        for (int i = search(probe, -1); i != -1; i = search(probe, i))
            out.push_back(i);
        return out;
    }

    int hiddenValue = -1;
};

std::vector<int> keysOf(const std::vector<Record> &rows)
{
    std::vector<int> out;
    for (const Record &r : rows)
        out.push_back(keyOf(r));
    return out;
}

bool byValue(const Record &a, const Record &b)
{
    return valueOf(a) < valueOf(b);
}

} // namespace

// The model: sorted by value, equal values in order of arrival, membership
// by identity; contains() and search() go by value.
TEST(IndexVector, OrderAndEqualKeysFollowTheModelUnderRandomAddsAndRemoves)
{
    std::unique_ptr<Table> table(makeKeyedTable());
    ValueVector index(table.get());
    std::vector<Record> model;
    std::mt19937 rng(12);
    int nextKey = 0;
    const int values = 6; // few, so that runs of equal values are long

    EXPECT_EQ(index.search(makeRow(table.get(), -1, 0), -1), -1);
    index.remove(makeRow(table.get(), -1, 0), 0); // empty: nothing to do

    for (int step = 0; step < 1500; ++step) {
        const int op = int(rng() % 5);
        if (op < 2 || model.empty()) {
            const Record row = makeRow(table.get(), nextKey++, int(rng() % values));
            index.add(row);
            model.insert(std::upper_bound(model.begin(), model.end(), row, byValue), row);
        } else if (op < 4) {
            const Record row = model[rng() % model.size()];
            index.remove(row, int(rng() % 3) - 1); // the hint counts for nothing
            model.erase(std::find(model.begin(), model.end(), row));
        } else {
            // Another row of an equal value: found by contains(), not removed.
            const Record twin = makeRow(table.get(), -1, valueOf(model[rng() % model.size()]));
            EXPECT_TRUE(index.contains(twin));
            index.remove(twin, 0);
        }
        ASSERT_EQ(index.keys(), keysOf(model)) << "step " << step;

        const Record probe = makeRow(table.get(), -1, int(rng() % (values + 1)));
        std::vector<int> expected;
        for (int i = 0; i < int(model.size()); ++i) {
            if (valueOf(model[i]) == valueOf(probe))
                expected.push_back(i);
        }
        ASSERT_EQ(index.matches(probe), expected) << "step " << step;
        ASSERT_EQ(index.contains(probe), !expected.empty());
    }

    // A new order: values turned around. Equal values keep their order.
    for (const Record &r : model)
        FieldType::setInt(r.data(1).data(), values - 1 - valueOf(r));
    index.resort();
    std::stable_sort(model.begin(), model.end(), byValue);
    EXPECT_EQ(index.keys(), keysOf(model));

    const int capacity = index.capacity();
    index.clear();
    EXPECT_EQ(index.count(), 0);
    EXPECT_EQ(index.capacity(), capacity);
    EXPECT_FALSE(index.contains(model.front()));
}

// What the vector owes its table: registration, building from the master
// index, and copies that do not register.
TEST(IndexVector, TableRegistrationBuildAndCopies)
{
    QList<Index *> removals;
    std::unique_ptr<Table> table(makeKeyedTable());
    ValueVector empty(table.get());
    empty.build();
    EXPECT_EQ(empty.count(), 0);

    for (int key : { 4, 1, 3, 2, 5 })
        makeRow(table.get(), key, key % 3).append();

    QObject::connect(table.get(), &Table::indexRemoved, [&](Index *i) { removals << i; });

    auto index = std::make_unique<ValueVector>(table.get());
    EXPECT_TRUE(table->indexes().contains(index.get()));
    EXPECT_EQ(index->getClassName(), QStringLiteral("IndexVector"));
    index->hiddenValue = 0;
    index->build();
    // Master order 1..5 gives values 1 2 0 1 2; the 0 is filtered out.
    EXPECT_EQ(index->keys(), (std::vector<int> { 1, 4, 2, 5 }));
    index->build();
    EXPECT_EQ(index->count(), 8) << "build() does not clear";
    index->rebuild();
    EXPECT_EQ(index->keys(), (std::vector<int> { 1, 4, 2, 5 }));
    EXPECT_EQ(index->indexOf(index->get(0)), -1);

    {
        const ValueVector copy(*index);
        EXPECT_EQ(copy.keys(), index->keys());
        EXPECT_EQ(copy.table(), table.get());
        EXPECT_FALSE(table->indexes().contains(const_cast<ValueVector *>(&copy)));
    }
    ASSERT_EQ(removals.size(), 1) << "a copy leaves the table too";
    EXPECT_TRUE(table->indexes().contains(index.get()));

    // Taking another table's rows leaves the first table's list behind.
    std::unique_ptr<Table> other(makeKeyedTable());
    makeRow(other.get(), 7, 7).append();
    ValueVector elsewhere(other.get());
    elsewhere.build();
    *index = elsewhere;
    EXPECT_FALSE(table->indexes().contains(index.get()));
    EXPECT_EQ(index->keys(), std::vector<int> { 7 });
    EXPECT_FALSE(index->contains(makeRow(table.get(), 7, 1)));
    index->remove(table->at(0), 0); // a row of another table: nothing happens
    EXPECT_EQ(index->count(), 1);
    index.reset();
    EXPECT_EQ(other->indexes(), QList<Index *> { &elsewhere });
}
