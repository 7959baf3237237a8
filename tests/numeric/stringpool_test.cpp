#include "numeric/stringpool.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

QString fresh(const char *text) { return QString::fromLatin1(text); } // a data block of its own

TEST(StringPool, EqualStringsShareOneElement)
{
    StringPool pool;
    const QString &a = pool.insert(fresh("board"));
    const QString b = fresh("board");
    const QString &c = pool.insert(b);
    EXPECT_EQ(&a, &c);
    EXPECT_EQ(a.constData(), c.constData()); // the first insertion's block
    EXPECT_NE(b.constData(), c.constData());
    // An rvalue whose text is already pooled is not moved from.
    QString again = fresh("board");
    EXPECT_EQ(&pool.insert(std::move(again)), &a);
    EXPECT_EQ(again, QStringLiteral("board"));
    EXPECT_EQ(pool.size(), 1u);

    EXPECT_TRUE(StringPool::global() != nullptr && StringPool::global() == StringPool::global());
}

TEST(StringPool, ShrinkDropsOnlyStringsHeldByThePoolAlone)
{
    StringPool pool;
    pool.shrink(); // empty: nothing happens
    EXPECT_EQ(pool.size(), 0u);

    pool.insert(fresh("alone"));
    const QString held = pool.insert(fresh("held")); // a copy, like a cell
    pool.insert(QString());
    EXPECT_EQ(pool.ref_count(QStringLiteral("alone")), 1);
    EXPECT_EQ(pool.ref_count(QStringLiteral("held")), 2);
    EXPECT_EQ(pool.ref_count(QStringLiteral("absent")), 0);
    EXPECT_EQ(pool.ref_count(QString()), -1); // static data is never dropped

    pool.shrink();
    EXPECT_EQ(pool.size(), 2u);
    EXPECT_EQ(pool.ref_count(QStringLiteral("alone")), 0);
    EXPECT_EQ(pool.ref_count(held), 2);
    EXPECT_EQ(pool.ref_count(QString()), -1);
}

TEST(StringPool, ConcurrentInsertsKeepOneElementPerText)
{
    StringPool pool;
    // std::thread, whose join ThreadSanitizer sees; Qt's waits it cannot.
    std::vector<std::thread> runs;
    for (int t = 0; t < 4; ++t)
        runs.emplace_back([&pool, t] {
            for (int i = 0; i < 2000; ++i)
                pool.insert(QString::number((i * 7 + t) % 500));
        });
    for (std::thread &run : runs)
        run.join();
    EXPECT_EQ(pool.size(), 500u);
}

} // namespace
