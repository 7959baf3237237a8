// The row allocator: blocks that never overlap or lose their content whatever
// the order of allocation, release, trims and size changes, memory given back
// as slabs empty, releases on other threads while the owner allocates, and in
// the AddressSanitizer build overruns and uses after free of rows reported.

#include "table/rowallocator_p.h"
#include "table/table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

namespace {

struct Block
{
    unsigned char *data;
    size_t size;
    unsigned char fill() const { return (unsigned char)(quintptr(data) >> 3); }
};

} // namespace

TEST(RowAllocator, BlocksStayApartAndMemoryReturnsAsSlabsEmpty)
{
    RowAllocator rows;
    size_t size = 40;
    rows.setBlockSize(size);
    std::vector<Block> live;
    auto allocate = [&] {
        const Block b { rows.allocate(), size };
        ASSERT_NE(b.data, nullptr);
        ASSERT_EQ(quintptr(b.data) % 8, 0u);
        std::memset(b.data, b.fill(), b.size);
        live.push_back(b);
    };
    allocate();
    const size_t oneSlab = rows.reservedBytes();
    std::mt19937 rng(5);
    // Mostly growth with churn, then mostly shrinking; now and then a trim,
    // or a new size, after which the older blocks keep theirs.
    for (int step = 0; step < 80000; ++step) {
        const unsigned r = rng() % 1000;
        if (r == 0) {
            size = 16 + rng() % 400;
            rows.setBlockSize(size);
        } else if (r == 1) {
            rows.trim(); // gives back pages behind the last live block of each slab
        } else if (live.empty() || r < (step < 50000 ? 600u : 300u)) {
            allocate();
        } else {
            const size_t i = rng() % live.size();
            const Block b = live[i];
            for (size_t k = 0; k < b.size; ++k)
                ASSERT_EQ(b.data[k], b.fill()) << "another block overlapped this one";
            RowAllocator::release(b.data);
            live[i] = live.back();
            live.pop_back();
        }
        ASSERT_EQ(rows.liveBlocks(), live.size());
    }
    for (const Block &b : live)
        RowAllocator::release(b.data);
    EXPECT_EQ(rows.liveBlocks(), 0u);
    EXPECT_LE(rows.reservedBytes(), oneSlab * (1 + RowAllocator::QuarantineBlocks))
        << "all slabs but one spare go back, and those of blocks in quarantine";
}

TEST(RowAllocator, ReleasesOnOtherThreadsWhileTheOwnerAllocates)
{
    RowAllocator rows;
    const size_t size = 64;
    rows.setBlockSize(size);
    std::vector<unsigned char *> old(20000), fresh(20000);
    for (unsigned char *&b : old) {
        b = rows.allocate();
        std::memset(b, 1, size);
    }
    auto releaseEvery = [&](size_t first) {
        for (size_t i = first; i < old.size(); i += 2)
            RowAllocator::release(old[i]);
    };
    std::thread a(releaseEvery, 0), b(releaseEvery, 1);
    for (unsigned char *&block : fresh) {
        block = rows.allocate();
        std::memset(block, 2, size);
    }
    a.join();
    b.join();
    EXPECT_EQ(rows.liveBlocks(), fresh.size());
    std::sort(fresh.begin(), fresh.end());
    for (size_t i = 1; i < fresh.size(); ++i)
        ASSERT_GE(size_t(fresh[i] - fresh[i - 1]), size);
    for (unsigned char *block : fresh)
        RowAllocator::release(block);
    EXPECT_EQ(rows.liveBlocks(), 0u);
}

#if defined(TABLEDB_ROWS_POISONED)
TEST(RowAllocatorDeathTest, OverrunAndUseAfterFreeOfARowAreReported)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Table t(QStringLiteral("T"));
    t.addColumn(QStringLiteral("a"), FieldType::Integer);
    t.addColumn(QStringLiteral("b"), FieldType::VarChar, 3);
    ASSERT_EQ(t.rowSize() % 8, 1u) << "the first byte behind the row shares its last word";
    Record row(&t);
    volatile unsigned char *bytes = row.rowPtr();
    const size_t size = t.rowSize();
    bytes[size - 1] = 1;
    EXPECT_DEATH(bytes[size] = 1, "use-after-poison");
    EXPECT_DEATH(bytes[size + 15] = 1, "use-after-poison");
    row = Record();
    EXPECT_DEATH(Table::references(const_cast<unsigned char *>(bytes)), "use-after-poison");
    EXPECT_DEATH(bytes[20] = 1, "use-after-poison");
}
#endif
