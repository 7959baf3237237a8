#include "numeric/stringpool.h"

#include <gtest/gtest.h>

#include <QtConcurrent/QtConcurrentRun>
#include <QFuture>
#include <QVector>

namespace {

QString fresh(const char *text)
{
    return QString::fromLatin1(text); // a data block of its own
}

TEST(StringPool, EqualStringsShareOneElement)
{
    StringPool pool;
    const QString &a = pool.insert(fresh("board"));
    const QString b = fresh("board");
    const QString &c = pool.insert(b);
    EXPECT_EQ(&a, &c);
    EXPECT_EQ(pool.size(), 1u);
    // The pooled copy shares the data block of the first insertion.
    EXPECT_EQ(a.constData(), c.constData());
    EXPECT_NE(b.constData(), c.constData());
}

TEST(StringPool, RvalueInsertLeavesAPresentArgumentAlone)
{
    StringPool pool;
    pool.insert(fresh("x"));
    QString again = fresh("x");
    const QString &pooled = pool.insert(std::move(again));
    EXPECT_EQ(again, QStringLiteral("x")); // nothing was moved out
    EXPECT_EQ(pooled, QStringLiteral("x"));
    EXPECT_EQ(pool.size(), 1u);
}

TEST(StringPool, ShrinkDropsOnlyStringsHeldByThePoolAlone)
{
    StringPool pool;
    pool.shrink(); // empty: nothing happens
    EXPECT_EQ(pool.size(), 0u);

    pool.insert(fresh("alone"));
    const QString held = pool.insert(fresh("held")); // a copy, like a cell
    EXPECT_EQ(pool.ref_count(QStringLiteral("alone")), 1);
    EXPECT_EQ(pool.ref_count(QStringLiteral("held")), 2);
    EXPECT_EQ(pool.ref_count(QStringLiteral("absent")), 0);

    pool.shrink();
    EXPECT_EQ(pool.size(), 1u);
    EXPECT_EQ(pool.ref_count(QStringLiteral("alone")), 0);
    EXPECT_EQ(pool.ref_count(held), 2);
}

TEST(StringPool, StaticDataIsNeverShrunk)
{
    StringPool pool;
    pool.insert(QString());
    EXPECT_EQ(pool.ref_count(QString()), -1);
    pool.shrink();
    EXPECT_EQ(pool.size(), 1u);
}

TEST(StringPool, ConcurrentInsertsKeepOneElementPerText)
{
    StringPool pool;
    QVector<QFuture<void>> runs;
    for (int t = 0; t < 4; ++t) {
        runs.append(QtConcurrent::run([&pool, t] {
            for (int i = 0; i < 2000; ++i)
                pool.insert(QString::number((i * 7 + t) % 500));
        }));
    }
    for (QFuture<void> &f : runs)
        f.waitForFinished();
    EXPECT_EQ(pool.size(), 500u);
}

TEST(StringPool, GlobalIsOneObject)
{
    ASSERT_NE(StringPool::global(), nullptr);
    EXPECT_EQ(StringPool::global(), StringPool::global());
}

} // namespace
