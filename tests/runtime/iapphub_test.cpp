#include "support/testapphub.h"

#include "table/table.h"

#include <gtest/gtest.h>

// Routing of joins, compression and tables to a host is exercised by the io,
// index and join tests; what is left is the behaviour with no host at all.
TEST(IAppHub, AnswersWithoutAHostAndForgetsADestroyedOne)
{
    Table orders(QStringLiteral("Orders"));
    {
        TestAppHub hub;
        hub.tables.insert(orders.name(), &orders);
        hub.compress = true;
        ASSERT_EQ(IAppHub::instance(), &hub);
        EXPECT_TRUE(IAppHub::isTableKnown(QStringLiteral("Orders")));
        EXPECT_FALSE(IAppHub::isTableKnown(QStringLiteral("orders")));
    }
    ASSERT_EQ(IAppHub::instance(), nullptr);
    EXPECT_EQ(IAppHub::findTable(QStringLiteral("Orders")), nullptr);
    EXPECT_FALSE(IAppHub::isTableKnown(QStringLiteral("Orders")));
    EXPECT_FALSE(IAppHub::compressTables());
    IAppHub::registerJoin(nullptr); // ignored, must not crash
}
