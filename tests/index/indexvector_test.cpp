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
    int compare(const Record &a, const Record &b) const override { return valueOf(a) - valueOf(b); }
    bool filter(const Record &r) const override { return valueOf(r) != hiddenValue; }
    int capacity() const { return m_vector.capacity(); }
    std::vector<Record> rows() const { return std::vector<Record>(m_vector.begin(), m_vector.end()); }

    int hiddenValue = -1;
};

bool byValue(const Record &a, const Record &b) { return valueOf(a) < valueOf(b); }

} // namespace

// The model: sorted by value, equal values in order of arrival, membership by
// identity; contains() and search() go by value.
TEST(IndexVector, OrderAndEqualKeysFollowTheModelUnderRandomAddsAndRemoves)
{
    std::unique_ptr<Table> table(makeKeyedTable());
    ValueVector index(table.get());
    std::vector<Record> model;
    std::mt19937 rng(12);
    const int values = 6; // few, so that runs of equal values are long
    for (int step = 0; step < 1500; ++step) {
        const Record probe = makeRow(table.get(), -1, int(rng() % (values + 1)));
        const int op = int(rng() % 3);
        if (op == 0 || model.empty()) {
            const Record row = makeRow(table.get(), step, int(rng() % values));
            index.add(row);
            model.insert(std::upper_bound(model.begin(), model.end(), row, byValue), row);
        } else if (op == 1) {
            const Record row = model[rng() % model.size()];
            index.remove(row, int(rng() % 3) - 1); // the hint counts for nothing
            model.erase(std::find(model.begin(), model.end(), row));
        } else {
            index.remove(probe, 0); // an equal value is not the same row
        }
        ASSERT_EQ(index.rows(), model) << "step " << step;

        std::vector<int> expected, found;
        for (int i = 0; i < int(model.size()); ++i) {
            if (valueOf(model[i]) == valueOf(probe))
                expected.push_back(i);
        }
        for (int i = index.search(probe, -1); i != -1; i = index.search(probe, i))
            found.push_back(i);
        ASSERT_EQ(found, expected) << "step " << step;
        ASSERT_EQ(index.contains(probe), !expected.empty());
    }

    // A new order, values turned around: equal values keep their order.
    for (const Record &r : model)
        r.data(1) = values - 1 - valueOf(r);
    index.resort();
    std::stable_sort(model.begin(), model.end(), byValue);
    EXPECT_EQ(index.rows(), model);

    const int capacity = index.capacity();
    index.clear();
    EXPECT_EQ(index.count(), 0);
    EXPECT_EQ(index.capacity(), capacity);
}

// Registration, building from the master index, and copies that do not register.
TEST(IndexVector, TableRegistrationBuildAndCopies)
{
    QList<Index *> removals;
    std::unique_ptr<Table> table(makeKeyedTable());
    for (int key : { 4, 1, 3, 2, 5 })
        makeRow(table.get(), key, key % 3).append();
    QObject::connect(table.get(), &Table::indexRemoved, [&](Index *i) { removals << i; });

    auto index = std::make_unique<ValueVector>(table.get());
    EXPECT_EQ(table->indexes(), QList<Index *> { index.get() });
    index->hiddenValue = 0;
    index->build();
    index->build(); // does not clear
    EXPECT_EQ(index->count(), 8);
    index->rebuild();
    // Master order 1..5 gives values 1 2 0 1 2; the 0 is filtered out.
    std::vector<int> keys;
    for (int i = 0; i < index->count(); ++i)
        keys.push_back(keyOf(index->get(i)));
    EXPECT_EQ(keys, (std::vector<int> { 1, 4, 2, 5 }));

    const Index *copyAddress = nullptr;
    {
        const ValueVector copy(*index);
        copyAddress = &copy;
        EXPECT_EQ(copy.rows(), index->rows());
    }
    EXPECT_EQ(removals, QList<Index *>() << const_cast<Index *>(copyAddress)) << "a copy leaves the table too";

    // Taking another table's rows leaves the first table's list.
    std::unique_ptr<Table> other(makeKeyedTable());
    *index = ValueVector(other.get());
    EXPECT_TRUE(table->indexes().isEmpty());
    index.reset();
    EXPECT_TRUE(other->indexes().isEmpty());
}
