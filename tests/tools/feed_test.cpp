#include "feedoptions.h"
#include "feedsession.h"
#include "marketcheck.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTemporaryDir>

namespace {

// Each session saves into a directory of its own, removed with the process.
QString freshDataDir()
{
    static QTemporaryDir root;
    static int next = 0;
    return root.filePath(QString::number(++next));
}

FeedOptions smallRun()
{
    FeedOptions options;
    options.dataDir = freshDataDir();
    options.instruments = 300;
    options.orders = 3000;
    options.transactions = 600;
    options.seed = 7;
    return options;
}

} // namespace

TEST(FeedOptions, ReadsEveryOptionAndRejectsBadValues)
{
    FeedOptions options;
    QString error;
    ASSERT_EQ(FeedOptions::parse({ "tabledb-feed", "--instruments", "10", "--orders=20", "--transactions", "5",
                                   "--seconds", "1.5", "--seed", "99", "--data", "/tmp/x", "--compress",
                                   "--threads", "3", "--quiet", "--summary-json", "s.json" },
                                 &options, &error),
              FeedOptions::Run)
            << error.toStdString();
    EXPECT_EQ(options.instruments, 10);
    EXPECT_EQ(options.orders, 20);
    EXPECT_EQ(options.transactions, 5);
    EXPECT_DOUBLE_EQ(options.seconds, 1.5);
    EXPECT_EQ(options.seed, 99u);
    EXPECT_EQ(options.dataDir, QStringLiteral("/tmp/x"));
    EXPECT_TRUE(options.compress);
    EXPECT_EQ(options.threads, 3);
    EXPECT_TRUE(options.quiet);
    EXPECT_EQ(options.summaryJson, QStringLiteral("s.json"));

    const struct
    {
        QStringList arguments;
        const char *mentions;
    } bad[] = {
        { { "--instruments", "0" }, "--instruments" },
        { { "--orders", "many" }, "--orders" },
        { { "--transactions", "-1" }, "--transactions" },
        { { "--seconds", "0" }, "--seconds" },
        { { "--threads", "1000" }, "--threads" },
        { { "--data", "" }, "--data" },
        { { "--colour" }, "colour" },
        { { "extra" }, "extra" },
    };
    for (const auto &c : bad) {
        FeedOptions rejected;
        EXPECT_EQ(FeedOptions::parse(QStringList { "tabledb-feed" } + c.arguments, &rejected, &error),
                  FeedOptions::Error);
        EXPECT_TRUE(error.contains(QLatin1String(c.mentions))) << error.toStdString();
    }
    // The help gives the defaults that a run gets.
    FeedOptions defaults;
    EXPECT_EQ(FeedOptions::parse({ "tabledb-feed", "--help" }, &defaults, &error), FeedOptions::HelpShown);
    for (const QString &line : { QStringLiteral("Number of instruments (default %1).").arg(defaults.instruments),
                                 QStringLiteral("tables together (default %1).").arg(defaults.transactions),
                                 QStringLiteral("saved tables (default %1).").arg(defaults.dataDir) })
        EXPECT_TRUE(error.simplified().contains(line)) << error.toStdString(); // lines may wrap
}

// A short run passes every check and says so. The same seed gives the same
// session again, with compressed saves too, which leave only gzip files.
TEST(FeedSession, ShortRunsPassEveryCheckAndRepeat)
{
    FeedOptions options = smallRun();
    FeedSession session(options, nullptr, FeedSession::NoProgress);
    const FeedSummary summary = session.run();
    EXPECT_EQ(summary.transactions, 600);
    EXPECT_TRUE(summary.passed()) << summary.problems.join(QLatin1Char('\n')).toStdString();
    EXPECT_TRUE(summary.viewsExact && summary.joinsExact && summary.changesSeen
                && summary.reloadEqual);
    // The consumer saw the change log at least at the final pick-up, and the
    // quotes reached the orders through the join as updates.
    EXPECT_GE(summary.consumerPickups, 1);
    EXPECT_GT(summary.consumerInserted, 0);
    EXPECT_GT(summary.consumerUpdated, 0);
    EXPECT_EQ(summary.saves, 4);
    ASSERT_EQ(summary.rows.size(), 4);
    EXPECT_EQ(summary.rows.at(0), qMakePair(QStringLiteral("Instruments"), 300));
    EXPECT_GT(summary.rows.at(1).second, 0);
    EXPECT_LE(summary.p50Ms, summary.p99Ms);

    const QJsonObject json = QJsonDocument::fromJson(summary.toJson()).object();
    EXPECT_EQ(json.value(QStringLiteral("transactions")).toInt(), 600);
    EXPECT_EQ(json.value(QStringLiteral("rows")).toObject().value(QStringLiteral("Instruments")).toInt(),
              300);
    for (const char *key : { "tx_per_s", "row_changes_per_s", "join_rows_per_s", "p50_ms", "p99_ms",
                             "views_exact", "joins_exact", "reload_equal" })
        EXPECT_TRUE(json.contains(QLatin1String(key))) << key;
    EXPECT_EQ(json.value(QStringLiteral("views_exact")).toBool(), summary.viewsExact);

    options.dataDir = freshDataDir();
    options.compress = true;
    FeedSession again(options, nullptr, FeedSession::NoProgress);
    const FeedSummary second = again.run();
    EXPECT_TRUE(second.passed()) << second.problems.join(QLatin1Char('\n')).toStdString();
    const QDir dir(options.dataDir);
    for (int t = 0; t < session.market().tables().size(); ++t) {
        const Table *table = again.market().tables().at(t);
        EXPECT_EQ(MarketCheck::sameRows(*session.market().tables().at(t), *table), QString());
        EXPECT_TRUE(dir.exists(table->name() + QStringLiteral(".gz"))) << table->name().toStdString();
        EXPECT_FALSE(dir.exists(table->name())) << table->name().toStdString();
    }
    EXPECT_TRUE(dir.exists(QStringLiteral("feed.log")));
}

// The join writes each new order's copies once, and after a quote every
// order of each instrument quoted (those stamped with the session's clock);
// the count takes exactly those rows, and the summary the run's share.
TEST(FeedSession, CountsTheRowsTheJoinRewrites)
{
    FeedOptions options = smallRun();
    options.transactions = 1; // one quote transaction
    FeedSession session(options, nullptr, FeedSession::NoProgress);
    session.prepare();
    Market &market = session.market();
    market.orderTransaction(100);
    EXPECT_GT(market.ordersPlaced(), 0);
    EXPECT_EQ(market.joinRowsWritten(), market.ordersPlaced());

    const FeedSummary summary = session.run();
    EXPECT_EQ(summary.rowChanges, 100);
    QSet<QString> quoted;
    for (int i = 0; i < market.instruments()->rowCount(); ++i) {
        const Record &row = market.instruments()->at(i);
        if (row.data(InstrumentColumn::Time).toDatetime() == market.clock())
            quoted.insert(row.data(InstrumentColumn::Board).toString() + row.data(InstrumentColumn::Code).toString());
    }
    qint64 rewritten = 0;
    for (int i = 0; i < market.orders()->rowCount(); ++i) {
        const Record &row = market.orders()->at(i);
        rewritten += quoted.contains(row.data(OrderColumn::Board).toString() + row.data(OrderColumn::Code).toString());
    }
    EXPECT_GT(rewritten, 0);
    EXPECT_EQ(summary.joinRows, rewritten);
}

TEST(FeedSession, TamperedViewIsReported)
{
    FeedOptions options = smallRun();
    options.transactions = 0;
    FeedSession session(options, nullptr, FeedSession::NoProgress);
    session.prepare();
    const QVector<MarketView> views = session.market().views();
    const auto byLast = std::find_if(views.begin(), views.end(), [](const MarketView &v) {
        return v.name == QLatin1String("instruments by last price");
    });
    ASSERT_NE(byLast, views.end());
    IndexSort *index = byLast->index;
    ASSERT_EQ(MarketCheck::view(*index), QString());

    // The cheapest row moved to the end breaks the order but loses nothing.
    index->move(0, 0, index->count() - 1);
    EXPECT_TRUE(MarketCheck::view(*index).contains(QLatin1String("out of order")));
    index->resort();
    ASSERT_EQ(MarketCheck::view(*index), QString());

    // A row dropped from the view is named as missing.
    const Record dropped = index->at(5);
    index->remove(dropped, 5);
    EXPECT_TRUE(MarketCheck::view(*index).contains(dropped.toString()));

    const FeedSummary summary = session.run();
    EXPECT_FALSE(summary.viewsExact);
    EXPECT_FALSE(summary.passed());
    ASSERT_EQ(summary.problems.size(), 1);
    EXPECT_TRUE(summary.problems.first().contains(QLatin1String("instruments by last price")));
}
