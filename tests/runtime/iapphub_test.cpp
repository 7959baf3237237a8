#include "support/testapphub.h"

#include "table/table.h"

#include <gtest/gtest.h>

TEST(IAppHub, AnswersWithoutAHost)
{
    ASSERT_EQ(IAppHub::instance(), nullptr);
    EXPECT_EQ(IAppHub::findTable(QStringLiteral("Orders")), nullptr);
    EXPECT_FALSE(IAppHub::isTableKnown(QStringLiteral("Orders")));
    EXPECT_FALSE(IAppHub::compressTables());
    IAppHub::registerJoin(nullptr); // ignored, must not crash
}

TEST(IAppHub, RoutesToTheInstalledHost)
{
    Table orders(QStringLiteral("Orders"));
    {
        TestAppHub hub;
        hub.tables.insert(orders.name(), &orders);
        hub.compress = true;
        EXPECT_EQ(IAppHub::instance(), &hub);
        EXPECT_EQ(IAppHub::findTable(QStringLiteral("Orders")), &orders);
        EXPECT_TRUE(IAppHub::isTableKnown(QStringLiteral("Orders")));
        EXPECT_FALSE(IAppHub::isTableKnown(QStringLiteral("orders")));
        EXPECT_TRUE(IAppHub::compressTables());
        auto *join = reinterpret_cast<TableJoin *>(&orders);
        IAppHub::registerJoin(join);
        ASSERT_EQ(hub.joins.size(), 1);
        EXPECT_EQ(hub.joins.at(0), join);
    }
    EXPECT_EQ(IAppHub::instance(), nullptr) << "a destroyed hub is no longer reachable";
    EXPECT_FALSE(IAppHub::compressTables());
}
