#ifndef TABLEDB_TOOLS_MARKET_H
#define TABLEDB_TOOLS_MARKET_H

#include "index/indexlimit.h"
#include "index/indexsort.h"
#include "index/indexvector.h"
#include "index/watchindex.h"
#include "numeric/datetime.h"
#include "table/table.h"

#include <QVector>

#include <memory>
#include <random>
#include <vector>

// Column numbers of the feed's tables, in the order they are added.
namespace InstrumentColumn {
enum { Board, Code, Lot, Open, Last, Bid, Ask, Volume, Time, Count };
}
namespace OrderColumn {
// Last and Lot are the instrument's, copied in by the join.
enum { Id, Account, Board, Code, Side, Price, Qty, Time, Last, Lot, Count };
}
namespace TradeColumn {
enum { Id, Account, Board, Code, Side, Price, Qty, Time, Count };
}
namespace PositionColumn {
enum { Account, Board, Code, Qty, Turnover, Time, Count };
}

// A sorted view by a list of columns, compared cell by cell in that order.
class ColumnView : public IndexSort
{
public:
    ColumnView(Table *table, const QVector<int> &columns);
    int compare(const Record &a, const Record &b) const override;
    // The first column's prefix: the searches read rows only among its ties.
    KeyPrefixKind keyPrefixKind() const override { return PartialKeyPrefix; }
    quint64 keyPrefix(const Record &row) const override
    {
        return prefixOf(row.data(m_columns.first()));
    }

protected:
    // A batch that writes none of the view's columns (the join's, say) moves
    // no row of it.
    bool unaffectedBy(int first, int last) const override;

private:
    QVector<int> m_columns;
};

// Keeps the newest trades: the oldest ids leave first.
class TradeLimit : public IndexLimit
{
public:
    TradeLimit(int limit, Table *table) : IndexLimit(limit, table) { }
    int compare(const Record &a, const Record &b) const override;
    KeyPrefixKind keyPrefixKind() const override { return ExactKeyPrefix; }
    quint64 keyPrefix(const Record &row) const override
    {
        return prefixOf(qint64(row.data(TradeColumn::Id).asInteger64()));
    }
};

// The instruments that moved most since the open, in percent: those that
// moved at least `threshold` percent either way, the largest move first.
class TopMovers : public IndexVector
{
public:
    TopMovers(Table *instruments, int thresholdPercent);
    int compare(const Record &a, const Record &b) const override;
    bool filter(const Record &record) const override;

    // The move in hundredths of a percent, rounded toward zero.
    static int64 moveBasisPoints(const Record &instrument);

private:
    int m_threshold;
};

// Counts the order rows that the join rewrites: the rows of the batches that
// write only its copies of the instrument's columns, which nothing else
// writes alone. Joins the table's index list for its lifetime.
class JoinWrites : public Index
{
public:
    explicit JoinWrites(Table *orders);
    ~JoinWrites() override;

    qint64 rows() const { return m_rows; }

    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override;
    void update(const Record &record, int first, int last, int index) override;
    void clear() override { }
    void build() override { }
    void add(const Record &) override { }
    void remove(const Record &, int) override { }
    bool filter(const Record &) const override { return true; }
    bool contains(const Record &) const override { return false; }
    QString getClassName() const override { return QStringLiteral("JoinWrites"); }

private:
    Table *m_table; // not owned
    qint64 m_rows = 0;
};

// A named view of one of the market's tables.
struct MarketView
{
    QString name;
    IndexSort *index;
};

class MasterIndex;
class TableJoin;

// The tables of a simulated market session and the streams that change them,
// generated from a seed: the same seed gives the same session.
//
// Every change goes through a RecordsTrans inside the table's TableUpdater,
// as a terminal receives it; each call below is one transaction per table.
class Market
{
public:
    struct Config
    {
        int instruments = 2000;
        int orders = 200000;
        int tradeLimit = 20000;
        int accounts = 50;
        quint64 seed = 1;
    };

    explicit Market(const Config &config);
    ~Market();

    Table *instruments() const { return m_instruments.get(); }
    Table *orders() const { return m_orders.get(); }
    Table *trades() const { return m_trades.get(); }
    Table *positions() const { return m_positions.get(); }
    QList<Table *> tables() const;
    QVector<MarketView> views() const;
    TopMovers *topMovers() const { return m_topMovers.get(); }
    // The orders table's change log; the consumer reads and clears it.
    WatchIndex *orderLog() const { return m_orderLog.get(); }
    // Orders placed and cancelled since the start of the session.
    qint64 ordersPlaced() const { return m_ordersPlaced; }
    qint64 ordersCancelled() const { return m_ordersCancelled; }
    // Order rows whose copies of the instrument's last price and lot the join
    // has rewritten since the tables were filled: every order of an
    // instrument whose quote changed, and each new order once.
    qint64 joinRowsWritten() const { return m_joinWrites->rows(); }

    // The sizes of the transactions of one round of the streams, as
    // tabledb-feed and tabledb-view --live apply them.
    static constexpr int RoundQuoteUpdates = 100;
    static constexpr int RoundOrderOperations = 100;
    static constexpr int RoundTrades = 20;

    // Price, quote and volume changes of `updates` random instruments.
    void quoteTransaction(int updates);
    // New orders, amendments (a fifth of them move the price) and cancels.
    void orderTransaction(int operations);
    // `count` trades at the instruments' last prices.
    void tradeTransaction(int count);
    // The positions that the trades since the last call change.
    void positionTransaction();

    // The session's clock: each transaction advances it by a millisecond.
    datetime clock() const { return m_clock; }

private:
    struct InstrumentState
    {
        QString board;
        QString code;
        int64 lastCents;
        int lot;
    };

    struct Fill
    {
        int instrument;
        QString account;
        int side;
        int qty;
    };

    void createTables();
    void createViews();
    void createJoin();
    void fillInstruments();
    void fillOrders();
    void writeOrder(Record &row, int64 id, int instrument);
    int64 priceNear(int64 cents);
    int pick(int size) { return int(m_random() % quint64(size)); }

    Config m_config;
    std::mt19937_64 m_random;
    datetime m_clock;
    std::unique_ptr<Table> m_instruments;
    std::unique_ptr<Table> m_orders;
    std::unique_ptr<Table> m_trades;
    std::unique_ptr<Table> m_positions;
    std::vector<std::unique_ptr<IndexSort>> m_ownedViews;
    QVector<MarketView> m_views;
    std::unique_ptr<TopMovers> m_topMovers;
    std::unique_ptr<WatchIndex> m_orderLog;
    std::unique_ptr<MasterIndex> m_ordersByInstrument; // the join's key
    std::unique_ptr<TableJoin> m_join;
    std::unique_ptr<JoinWrites> m_joinWrites;
    qint64 m_ordersPlaced = 0;
    qint64 m_ordersCancelled = 0;
    std::vector<InstrumentState> m_instrumentStates;
    std::vector<Fill> m_pendingFills; // trades whose positions are not yet changed
    std::vector<int64> m_liveOrders; // ids in the orders table
    QStringList m_accounts;
    int64 m_nextOrderId = 1;
    int64 m_nextTradeId = 1;
    Record m_instrumentProbe; // key cells only, reused for look-ups
    Record m_orderProbe;
};

#endif // TABLEDB_TOOLS_MARKET_H
