#include "market.h"

#include "index/masterindex_fast.h"
#include "index/masterindex_fast_cached.h"
#include "join/tablejoin.h"
#include "table/recordstrans.h"

#include <QMap>
#include <QPair>

#include <algorithm>

namespace {

const int kBoards = 3;
const char *const kBoardNames[kBoards] = { "TQBR", "SPBX", "FQBR" };

decimal cents(int64 value)
{
    return decimal(value, 2);
}

} // namespace

ColumnView::ColumnView(Table *table, const QVector<int> &columns)
    : IndexSort(table, true), m_columns(columns)
{
}

int ColumnView::compare(const Record &a, const Record &b) const
{
    for (int column : m_columns) {
        const int c = a.data(column).compare(b.data(column));
        if (c != 0)
            return c;
    }
    return 0;
}

bool ColumnView::unaffectedBy(int first, int last) const
{
    if (first < 0 || last < 0)
        return false; // all columns
    for (int column : m_columns) {
        if (column >= first && column <= last)
            return false;
    }
    return true;
}

TopMovers::TopMovers(Table *instruments, int thresholdPercent)
    : IndexVector(instruments), m_threshold(thresholdPercent)
{
}

int64 TopMovers::moveBasisPoints(const Record &instrument)
{
    const int64 open = instrument.data(InstrumentColumn::Open).toDecimal().value();
    const int64 last = instrument.data(InstrumentColumn::Last).toDecimal().value();
    return open > 0 ? (last - open) * 10000 / open : 0;
}

int TopMovers::compare(const Record &a, const Record &b) const
{
    const int64 x = qAbs(moveBasisPoints(a)), y = qAbs(moveBasisPoints(b));
    return x > y ? -1 : (x < y ? 1 : 0);
}

bool TopMovers::filter(const Record &record) const
{
    return qAbs(moveBasisPoints(record)) >= int64(m_threshold) * 100;
}

int TradeLimit::compare(const Record &a, const Record &b) const
{
    const int64 x = a.data(TradeColumn::Id).asInteger64();
    const int64 y = b.data(TradeColumn::Id).asInteger64();
    return x < y ? -1 : (x > y ? 1 : 0);
}

JoinWrites::JoinWrites(Table *orders) : m_table(orders)
{
    m_table->addIndex(this);
}

JoinWrites::~JoinWrites()
{
    m_table->removeIndex(this);
}

void JoinWrites::process(const QList<Record> &removed, const QList<Record> &updated, int first,
                         int, const QList<Record> &inserted)
{
    if (first >= OrderColumn::Last)
        m_rows += removed.size() + updated.size() + inserted.size();
}

void JoinWrites::update(const Record &, int first, int, int)
{
    if (first >= OrderColumn::Last)
        ++m_rows;
}

Market::Market(const Config &config)
    : m_config(config), m_random(config.seed), m_clock(2026, 11, 24, 10, 0, 0, 0)
{
    for (int i = 0; i < m_config.accounts; ++i)
        m_accounts.append(QStringLiteral("A%1").arg(i + 1, 5, 10, QLatin1Char('0')));
    // The join adds its columns while the orders table is empty, and the
    // views are built once over the filled tables: both far cheaper than
    // keeping them up to date row by row.
    createTables();
    fillInstruments();
    createJoin();
    fillOrders();
    createViews();
}

Market::~Market()
{
    // The join and the views leave their tables' lists, so they go first.
    m_join.reset();
    m_joinWrites.reset();
    if (m_ordersByInstrument)
        m_orders->removeIndex(m_ordersByInstrument.get());
    m_ordersByInstrument.reset();
    m_orderLog.reset();
    m_topMovers.reset();
    m_views.clear();
    m_ownedViews.clear();
    m_instrumentProbe = Record();
    m_orderProbe = Record();
    m_positions.reset();
    m_trades.reset();
    m_orders.reset();
    m_instruments.reset();
}

QList<Table *> Market::tables() const
{
    return { m_instruments.get(), m_orders.get(), m_trades.get(), m_positions.get() };
}

QVector<MarketView> Market::views() const
{
    return m_views;
}

void Market::createTables()
{
    using T = FieldType;
    m_instruments.reset(new Table(QStringLiteral("Instruments"), QStringLiteral("Инструменты")));
    Table *t = m_instruments.get();
    t->addColumn(QStringLiteral("board"), T::VarChar, 4, false, QStringLiteral("Board"));
    t->addColumn(QStringLiteral("code"), T::VarChar, 12, false, QStringLiteral("Code"));
    t->addColumn(QStringLiteral("lot"), T::Integer, 0, false, QStringLiteral("Lot size"));
    t->addColumn(QStringLiteral("open"), T::Decimal, 2, true, QStringLiteral("Open"));
    t->addColumn(QStringLiteral("last"), T::Decimal, 2, true, QStringLiteral("Last price"));
    t->addColumn(QStringLiteral("bid"), T::Decimal, 2, true, QStringLiteral("Bid"));
    t->addColumn(QStringLiteral("ask"), T::Decimal, 2, true, QStringLiteral("Ask"));
    t->addColumn(QStringLiteral("volume"), T::Integer64, 0, false, QStringLiteral("Volume"));
    t->addColumn(QStringLiteral("time"), T::DateTime, 0, true, QStringLiteral("Time"));
    t->setMasterIndex(new MasterIndex_Fast_Cached(t, QStringList { QStringLiteral("board"),
                                                                   QStringLiteral("code") }));

    m_orders.reset(new Table(QStringLiteral("Orders"), QStringLiteral("Заявки")));
    t = m_orders.get();
    t->addColumn(QStringLiteral("id"), T::Integer64, 0, false, QStringLiteral("Order"));
    t->addColumn(QStringLiteral("account"), T::VarChar, 8, false, QStringLiteral("Account"));
    t->addColumn(QStringLiteral("board"), T::VarChar, 4, false, QStringLiteral("Board"));
    t->addColumn(QStringLiteral("code"), T::VarChar, 12, false, QStringLiteral("Code"));
    t->addColumn(QStringLiteral("side"), T::Integer, 0, false, QStringLiteral("Side"));
    t->addColumn(QStringLiteral("price"), T::Decimal, 2, false, QStringLiteral("Price"));
    t->addColumn(QStringLiteral("qty"), T::Integer, 0, false, QStringLiteral("Quantity"));
    t->addColumn(QStringLiteral("time"), T::DateTime, 0, false, QStringLiteral("Time"));
    t->setMasterIndex(new MasterIndex_Fast_Cached(t, QStringList { QStringLiteral("id") }));

    m_trades.reset(new Table(QStringLiteral("Trades"), QStringLiteral("Сделки")));
    t = m_trades.get();
    t->addColumn(QStringLiteral("id"), T::Integer64, 0, false, QStringLiteral("Trade"));
    t->addColumn(QStringLiteral("account"), T::VarChar, 8, false, QStringLiteral("Account"));
    t->addColumn(QStringLiteral("board"), T::VarChar, 4, false, QStringLiteral("Board"));
    t->addColumn(QStringLiteral("code"), T::VarChar, 12, false, QStringLiteral("Code"));
    t->addColumn(QStringLiteral("side"), T::Integer, 0, false, QStringLiteral("Side"));
    t->addColumn(QStringLiteral("price"), T::Decimal, 2, false, QStringLiteral("Price"));
    t->addColumn(QStringLiteral("qty"), T::Integer, 0, false, QStringLiteral("Quantity"));
    t->addColumn(QStringLiteral("time"), T::DateTime, 0, false, QStringLiteral("Time"));
    t->setMasterIndex(new MasterIndex_Fast_Cached(t, QStringList { QStringLiteral("id") }));

    m_positions.reset(new Table(QStringLiteral("Positions"), QStringLiteral("Позиции")));
    t = m_positions.get();
    t->addColumn(QStringLiteral("account"), T::VarChar, 8, false, QStringLiteral("Account"));
    t->addColumn(QStringLiteral("board"), T::VarChar, 4, false, QStringLiteral("Board"));
    t->addColumn(QStringLiteral("code"), T::VarChar, 12, false, QStringLiteral("Code"));
    t->addColumn(QStringLiteral("qty"), T::Integer64, 0, false, QStringLiteral("Net quantity"));
    t->addColumn(QStringLiteral("turnover"), T::Decimal, 2, false, QStringLiteral("Turnover"));
    t->addColumn(QStringLiteral("time"), T::DateTime, 0, true, QStringLiteral("Last trade"));
    t->setMasterIndex(new MasterIndex_Fast_Cached(
            t, QStringList { QStringLiteral("account"), QStringLiteral("board"),
                             QStringLiteral("code") }));
}

void Market::createViews()
{
    auto add = [this](const QString &name, IndexSort *index) {
        m_ownedViews.emplace_back(index);
        index->build();
        m_views.append({ name, index });
    };
    using I = QVector<int>;
    add(QStringLiteral("instruments by last price"),
        new ColumnView(m_instruments.get(), I { InstrumentColumn::Last }));
    add(QStringLiteral("instruments by board and code"),
        new ColumnView(m_instruments.get(), I { InstrumentColumn::Board, InstrumentColumn::Code }));
    add(QStringLiteral("orders by instrument and price"),
        new ColumnView(m_orders.get(),
                       I { OrderColumn::Board, OrderColumn::Code, OrderColumn::Price }));
    add(QStringLiteral("orders by time"), new ColumnView(m_orders.get(), I { OrderColumn::Time }));
    add(QStringLiteral("trades by time"), new ColumnView(m_trades.get(), I { TradeColumn::Time }));
    add(QStringLiteral("trades kept (limit)"), new TradeLimit(m_config.tradeLimit, m_trades.get()));
    m_topMovers.reset(new TopMovers(m_instruments.get(), 5));
    m_topMovers->build();
    m_orderLog.reset(new WatchIndex(m_orders.get()));
    m_joinWrites.reset(new JoinWrites(m_orders.get()));
}

void Market::createJoin()
{
    // Orders are keyed by id; the join finds an instrument's orders through a
    // second key index by (board, code) in the orders table's index list.
    m_ordersByInstrument.reset(new MasterIndex_Fast(
            m_orders.get(), QStringList { QStringLiteral("board"), QStringLiteral("code") }));
    m_orders->addIndex(m_ordersByInstrument.get());
    m_ordersByInstrument->build();
    m_join.reset(new TableJoin(m_ordersByInstrument.get(), { m_instruments.get() },
                               QStringList { QStringLiteral("last"), QStringLiteral("lot") }));
    Q_ASSERT(m_orders->columnIndex(QStringLiteral("last")) == OrderColumn::Last);
    Q_ASSERT(m_orders->columnIndex(QStringLiteral("lot")) == OrderColumn::Lot);

    // Made last: a row block made before a column was added has the old layout.
    m_instrumentProbe = Record(m_instruments.get());
    m_orderProbe = Record(m_orders.get());
}

void Market::fillInstruments()
{
    QList<Record> rows;
    for (int i = 0; i < m_config.instruments; ++i) {
        InstrumentState state;
        state.board = QString::fromLatin1(kBoardNames[i % kBoards]);
        state.code = QStringLiteral("I%1").arg(i, 6, 10, QLatin1Char('0'));
        state.lastCents = 100 + int64(m_random() % 500000);
        static const int lots[] = { 1, 10, 100, 1000 };
        state.lot = lots[m_random() % 4];
        Record row(m_instruments.get());
        row.data(InstrumentColumn::Board) = state.board;
        row.data(InstrumentColumn::Code) = state.code;
        row.data(InstrumentColumn::Lot) = state.lot;
        row.data(InstrumentColumn::Open) = cents(state.lastCents);
        row.data(InstrumentColumn::Last) = cents(state.lastCents);
        row.data(InstrumentColumn::Bid) = cents(state.lastCents - 1);
        row.data(InstrumentColumn::Ask) = cents(state.lastCents + 1);
        row.data(InstrumentColumn::Volume) = int64(0);
        row.data(InstrumentColumn::Time) = m_clock;
        rows.append(row);
        m_instrumentStates.push_back(state);
    }
    TableUpdater updater(m_instruments.get());
    m_instruments->appendList(rows);
}

void Market::writeOrder(Record &row, int64 id, int instrument)
{
    const InstrumentState &state = m_instrumentStates[size_t(instrument)];
    row.data(OrderColumn::Id) = id;
    row.data(OrderColumn::Account) = m_accounts.at(pick(m_accounts.size()));
    row.data(OrderColumn::Board) = state.board;
    row.data(OrderColumn::Code) = state.code;
    row.data(OrderColumn::Side) = (m_random() & 1) ? 1 : -1;
    row.data(OrderColumn::Price) = cents(priceNear(state.lastCents));
    row.data(OrderColumn::Qty) = 1 + pick(100);
    row.data(OrderColumn::Time) = m_clock;
}

void Market::fillOrders()
{
    QList<Record> rows;
    rows.reserve(m_config.orders);
    m_liveOrders.reserve(size_t(m_config.orders));
    for (int i = 0; i < m_config.orders; ++i) {
        Record row(m_orders.get());
        const int64 id = m_nextOrderId++;
        writeOrder(row, id, pick(m_config.instruments));
        rows.append(row);
        m_liveOrders.push_back(id);
    }
    TableUpdater updater(m_orders.get());
    m_orders->appendList(rows);
}

int64 Market::priceNear(int64 cents)
{
    // Within about 2% of the price, never below one tick.
    const int64 spread = std::max<int64>(1, cents / 50);
    return std::max<int64>(1, cents - spread + int64(m_random() % quint64(2 * spread + 1)));
}

void Market::quoteTransaction(int updates)
{
    m_clock = m_clock.addMSecs(1);
    Table *table = m_instruments.get();
    TableUpdater updater(table);
    RecordsTrans trans(table);
    for (int i = 0; i < updates; ++i) {
        const int n = pick(m_config.instruments);
        InstrumentState &state = m_instrumentStates[size_t(n)];
        state.lastCents = std::max<int64>(2, state.lastCents + int64(m_random() % 11) - 5);
        m_instrumentProbe.data(InstrumentColumn::Board) = state.board;
        m_instrumentProbe.data(InstrumentColumn::Code) = state.code;
        RecordUpdater row(m_instrumentProbe, trans);
        row.data(InstrumentColumn::Last) = cents(state.lastCents);
        row.data(InstrumentColumn::Bid) = cents(state.lastCents - 1);
        row.data(InstrumentColumn::Ask) = cents(state.lastCents + 1);
        Field volume = row.data(InstrumentColumn::Volume);
        volume = volume.asInteger64() + int64(state.lot) * (1 + pick(10));
        row.data(InstrumentColumn::Time) = m_clock;
    }
    trans.extendColumns(InstrumentColumn::Last, InstrumentColumn::Time);
}

void Market::orderTransaction(int operations)
{
    m_clock = m_clock.addMSecs(1);
    Table *table = m_orders.get();
    std::vector<int64> placed;
    {
        TableUpdater updater(table);
        RecordsTrans trans(table);
        for (int i = 0; i < operations; ++i) {
            const int kind = pick(10);
            if (kind < 3 || m_liveOrders.empty()) {
                Record row(table);
                const int64 id = m_nextOrderId++;
                writeOrder(row, id, pick(m_config.instruments));
                RecordUpdater inserted(row, trans);
                placed.push_back(id);
                ++m_ordersPlaced;
                continue;
            }
            // Take the order out of the live list before a cancel, so that
            // nothing later in this transaction touches it again.
            const size_t at = size_t(pick(int(m_liveOrders.size())));
            const int64 id = m_liveOrders[at];
            m_orderProbe.data(OrderColumn::Id) = id;
            RecordUpdater row(m_orderProbe, trans);
            if (kind < 5) {
                row.remove();
                ++m_ordersCancelled;
                m_liveOrders[at] = m_liveOrders.back();
                m_liveOrders.pop_back();
            } else {
                row.data(OrderColumn::Qty) = 1 + pick(100);
                row.data(OrderColumn::Time) = m_clock;
                if (kind == 9) {
                    const Field price = row.data(OrderColumn::Price);
                    row.data(OrderColumn::Price) = cents(priceNear(price.toDecimal().value()));
                }
            }
        }
        trans.extendColumns(OrderColumn::Price, OrderColumn::Time);
    }
    m_liveOrders.insert(m_liveOrders.end(), placed.begin(), placed.end());
}

void Market::tradeTransaction(int count)
{
    m_clock = m_clock.addMSecs(1);
    std::vector<Fill> &fills = m_pendingFills;
    {
        Table *table = m_trades.get();
        TableUpdater updater(table);
        RecordsTrans trans(table);
        for (int i = 0; i < count; ++i) {
            const Fill fill { pick(m_config.instruments), m_accounts.at(pick(m_accounts.size())),
                              (m_random() & 1) ? 1 : -1, 1 + pick(50) };
            const InstrumentState &state = m_instrumentStates[size_t(fill.instrument)];
            Record row(table);
            row.data(TradeColumn::Id) = m_nextTradeId++;
            row.data(TradeColumn::Account) = fill.account;
            row.data(TradeColumn::Board) = state.board;
            row.data(TradeColumn::Code) = state.code;
            row.data(TradeColumn::Side) = fill.side;
            row.data(TradeColumn::Price) = cents(state.lastCents);
            row.data(TradeColumn::Qty) = fill.qty;
            row.data(TradeColumn::Time) = m_clock;
            RecordUpdater inserted(row, trans);
            fills.push_back(fill);
        }
    }
}

void Market::positionTransaction()
{
    m_clock = m_clock.addMSecs(1);
    std::vector<Fill> fills;
    fills.swap(m_pendingFills);
    // One change per position, summed over the fills: an updater of a key
    // that is pending insertion here does not say whether it is new.
    struct Change
    {
        int instrument = 0;
        int64 qty = 0;
        int64 turnoverCents = 0;
    };
    QMap<QPair<QString, int>, Change> changes;
    for (const Fill &fill : fills) {
        const InstrumentState &state = m_instrumentStates[size_t(fill.instrument)];
        const int64 lots = int64(fill.qty) * state.lot;
        Change &change = changes[qMakePair(fill.account, fill.instrument)];
        change.instrument = fill.instrument;
        change.qty += fill.side * lots;
        change.turnoverCents += state.lastCents * lots;
    }
    Table *table = m_positions.get();
    TableUpdater updater(table);
    RecordsTrans trans(table);
    for (auto it = changes.cbegin(); it != changes.cend(); ++it) {
        const InstrumentState &state = m_instrumentStates[size_t(it->instrument)];
        // A fresh key row: when the position is new, the updater inserts it.
        Record key(table);
        key.data(PositionColumn::Account) = it.key().first;
        key.data(PositionColumn::Board) = state.board;
        key.data(PositionColumn::Code) = state.code;
        RecordUpdater row(key, trans);
        int64 qty = it->qty;
        decimal turnover = cents(it->turnoverCents);
        if (row.isFound()) {
            qty += row.data(PositionColumn::Qty).asInteger64();
            turnover += row.data(PositionColumn::Turnover).toDecimal();
        }
        row.data(PositionColumn::Qty) = qty;
        row.data(PositionColumn::Turnover) = turnover;
        row.data(PositionColumn::Time) = m_clock;
    }
    trans.extendColumns(PositionColumn::Qty, PositionColumn::Time);
}
