// tabledb against SQLite :memory: and Boost.MultiIndex on the terminal's two
// workloads, on the same generated data in one run:
// - quote stream: 100,000 instruments keyed by (board, code), views by
//   (board, code) and by last price; transactions of 1,000 updates of
//   last/bid/ask/volume/time at random instruments;
// - order flow: 1,000,000 orders keyed by id, views by (instrument, price) and
//   by time plus a change log; transactions of 3,000 inserts, 2,000 removals
//   and 5,000 updates (1,000 of them move the price).
// All three sides must end in the same state: a checksum over every row, and
// per view over its key sequence and the pairing of keys with rows (the order
// among equal keys is each side's own affair). Prints ms per transaction, the
// ratios, and tabledb's allocations per updated row in the quote stream.
//
// Usage: peers_bench [quote transactions] [order transactions] [tabledb]
// With "tabledb" as the third argument only that side runs, for profiling.

#include "index/indexsort.h"
#include "index/masterindex_fast_cached.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include "support/alloccounter.h"

#include <boost/multi_index/composite_key.hpp>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/ordered_index.hpp>
#include <boost/multi_index_container.hpp>
#include <sqlite3.h>

#include <QCoreApplication>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

bool g_alone = false; // only tabledb runs, with its time per index

typedef long long i64;
typedef unsigned long long u64;

u64 mix(u64 x)
{
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

u64 hashOf(std::initializer_list<i64> values)
{
    u64 h = 0;
    for (i64 v : values)
        h = mix(h ^ u64(v));
    return h;
}

// Order-sensitive over the keys, order-blind over which row has which key.
struct ViewSum
{
    u64 keys = 0;
    u64 pairs = 0;
    i64 count = 0;
    void add(u64 key, u64 row)
    {
        keys = keys * 1099511628211ULL + key;
        pairs += mix(key ^ mix(row));
        ++count;
    }
    bool operator==(const ViewSum &o) const
    {
        return keys == o.keys && pairs == o.pairs && count == o.count;
    }
};

struct State
{
    u64 rows = 0;
    i64 rowCount = 0;
    ViewSum views[2];
    u64 log = 0;
    bool operator==(const State &o) const
    {
        return rows == o.rows && rowCount == o.rowCount && views[0] == o.views[0]
            && views[1] == o.views[1] && log == o.log;
    }
};

// CPU time of the process, pool threads included, for runs on a busy machine.
double cpuMs()
{
    return double(std::clock()) * 1000.0 / CLOCKS_PER_SEC;
}

double msSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

void check(int rc, sqlite3 *db, int expected = SQLITE_OK)
{
    if (rc != expected) {
        std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(db));
        std::exit(1);
    }
}

sqlite3_stmt *prepare(sqlite3 *db, const char *sql)
{
    sqlite3_stmt *s = nullptr;
    check(sqlite3_prepare_v2(db, sql, -1, &s, nullptr), db);
    return s;
}

void run(sqlite3 *db, sqlite3_stmt *s, std::initializer_list<i64> values)
{
    int i = 1;
    for (i64 v : values)
        sqlite3_bind_int64(s, i++, v);
    check(sqlite3_step(s), db, SQLITE_DONE);
    sqlite3_reset(s);
}

void exec(sqlite3 *db, const char *sql)
{
    check(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), db);
}

// Calls `f` with the columns of each result row.
void select(sqlite3 *db, const char *sql, const std::function<void(sqlite3_stmt *)> &f)
{
    sqlite3_stmt *s = prepare(db, sql);
    while (sqlite3_step(s) == SQLITE_ROW)
        f(s);
    sqlite3_finalize(s);
}

// Integer64 columns compared in order, as a view over some of a table's columns.
// Its key prefix is what a user who knows the values would give: one column
// as it is, two packed into one word, the second in its low `lowBits` bits
// (the generators keep both columns non-negative and inside their bits).
class ColumnsView : public IndexSort
{
public:
    ColumnsView(Table *table, std::vector<int> columns, int lowBits = 0)
        : IndexSort(table, true)
        , m_columns(std::move(columns))
        , m_lowBits(lowBits)
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        for (int c : m_columns) {
            const i64 x = a.data(c).asInteger64();
            const i64 y = b.data(c).asInteger64();
            if (x != y)
                return x < y ? -1 : 1;
        }
        return 0;
    }
    // A batch that writes none of the view's columns moves none of its rows.
    bool unaffectedBy(int first, int last) const override
    {
        if (first < 0 || last < 0)
            return false;
        for (int c : m_columns) {
            if (c >= first && c <= last)
                return false;
        }
        return true;
    }
    KeyPrefixKind keyPrefixKind() const override { return ExactKeyPrefix; }
    quint64 keyPrefix(const Record &row) const override
    {
        if (m_columns.size() == 1)
            return prefixOf(qint64(row.data(m_columns[0]).asInteger64()));
        return (u64(row.data(m_columns[0]).asInteger64()) << m_lowBits)
            | u64(row.data(m_columns[1]).asInteger64());
    }
    ViewSum sum(int id0, int id1) const
    {
        ViewSum s;
        for (auto it = begin(); it != end(); ++it) {
            u64 key = 0;
            for (int c : m_columns)
                key = mix(key ^ u64(it->data(c).asInteger64()));
            s.add(key,
                hashOf({ it->data(id0).asInteger64(), id1 < 0 ? 0 : it->data(id1).asInteger64() }));
        }
        return s;
    }

private:
    std::vector<int> m_columns;
    int m_lowBits;
};

// ---- quote stream ----

struct Quote
{
    i64 board, code, last, bid, ask, volume, time;
};

struct QuoteUpdate
{
    int instrument;
    i64 last, bid, ask, volume, time;
};

struct QuoteData
{
    std::vector<Quote> initial;
    std::vector<std::vector<QuoteUpdate>> transactions;
};

QuoteData makeQuotes(int transactions)
{
    std::mt19937_64 rng(7);
    QuoteData d;
    const int n = 100000;
    for (int i = 0; i < n; ++i) {
        const i64 last = 1000 + i64(rng() % 99000);
        d.initial.push_back({ i % 4 + 1, i / 4, last, last - 1, last + 1, 0, 0 });
    }
    std::vector<Quote> now = d.initial;
    i64 time = 1;
    for (int t = 0; t < transactions; ++t) {
        std::vector<QuoteUpdate> batch;
        for (int k = 0; k < 1000; ++k) {
            const int i = int(rng() % n);
            Quote &q = now[size_t(i)];
            q.last = std::max<i64>(1, q.last + i64(rng() % 201) - 100);
            q.volume += i64(rng() % 100) + 1;
            batch.push_back({ i, q.last, q.last - 1, q.last + 1, q.volume, ++time });
        }
        d.transactions.push_back(std::move(batch));
    }
    return d;
}

enum QuoteColumn { QBoard, QCode, QLast, QBid, QAsk, QVolume, QTime };

State quotesTabledb(const QuoteData &d, double &ms, double &allocsPerRow)
{
    Table table(QStringLiteral("quotes"));
    for (const char *name : { "board", "code", "last", "bid", "ask", "volume", "time" })
        table.addColumn(QString::fromLatin1(name), FieldType::Integer64, 0, false);
    MasterIndex_Fast_Cached::createMasterIndex(
        &table, { QStringLiteral("board"), QStringLiteral("code") });
    ColumnsView byCode(&table, { QBoard, QCode }, 32);
    ColumnsView byLast(&table, { QLast });
    {
        QList<Record> rows;
        for (const Quote &q : d.initial) {
            Record r(&table);
            const i64 v[] = { q.board, q.code, q.last, q.bid, q.ask, q.volume, q.time };
            for (int c = 0; c < 7; ++c)
                FieldType::setInt64(r.data(c).data(), v[c]);
            rows.append(r);
        }
        TableUpdater bracket(&table);
        table.appendList(rows);
    }
    Record key(&table);
    long allocs = 0;
    const double cpuStart = cpuMs();
    for (IndexSort *index : { static_cast<IndexSort *>(table.masterIndex()),
             static_cast<IndexSort *>(&byCode), static_cast<IndexSort *>(&byLast) })
        index->setNsecsElapsed(0);
    const auto start = std::chrono::steady_clock::now();
    for (const std::vector<QuoteUpdate> &batch : d.transactions) {
        const long before = alloccounter::count();
        TableUpdater bracket(&table);
        {
            RecordsTrans trans(&table); // applied as it leaves its scope
            for (const QuoteUpdate &u : batch) {
                const Quote &q = d.initial[size_t(u.instrument)];
                FieldType::setInt64(key.data(QBoard).data(), q.board);
                FieldType::setInt64(key.data(QCode).data(), q.code);
                RecordUpdater w(key, trans);
                FieldType::setInt64(w.data(QLast).data(), u.last);
                FieldType::setInt64(w.data(QBid).data(), u.bid);
                FieldType::setInt64(w.data(QAsk).data(), u.ask);
                FieldType::setInt64(w.data(QVolume).data(), u.volume);
                FieldType::setInt64(w.data(QTime).data(), u.time);
            }
            trans.extendColumns(QLast, QTime);
        }
        allocs += alloccounter::count() - before;
    }
    ms = msSince(start) / double(d.transactions.size());
    allocsPerRow = double(allocs) / double(d.transactions.size() * 1000);
    if (g_alone)
        std::printf(
            "  cpu ms per transaction %.3f; in process: master %.3f, by code %.3f, by last %.3f\n",
            (cpuMs() - cpuStart) / double(d.transactions.size()),
            double(table.masterIndex()->nsecsElapsed()) / 1e6 / double(d.transactions.size()),
            double(byCode.nsecsElapsed()) / 1e6 / double(d.transactions.size()),
            double(byLast.nsecsElapsed()) / 1e6 / double(d.transactions.size()));

    State s;
    for (auto it = table.masterIndex()->begin(); it != table.masterIndex()->end(); ++it) {
        s.rows += hashOf({ it->data(0).asInteger64(), it->data(1).asInteger64(),
            it->data(2).asInteger64(), it->data(3).asInteger64(), it->data(4).asInteger64(),
            it->data(5).asInteger64(), it->data(6).asInteger64() });
        ++s.rowCount;
    }
    s.views[0] = byCode.sum(QBoard, QCode);
    s.views[1] = byLast.sum(QBoard, QCode);
    return s;
}

State quotesSqlite(const QuoteData &d, double &ms)
{
    sqlite3 *db = nullptr;
    sqlite3_open(":memory:", &db);
    exec(db,
        "CREATE TABLE quotes(board INTEGER, code INTEGER, last INTEGER, bid INTEGER, "
        "ask INTEGER, volume INTEGER, time INTEGER, PRIMARY KEY(board, code))");
    exec(db, "CREATE INDEX quotes_code ON quotes(board, code)");
    exec(db, "CREATE INDEX quotes_last ON quotes(last)");
    sqlite3_stmt *ins = prepare(db, "INSERT INTO quotes VALUES(?,?,?,?,?,?,?)");
    exec(db, "BEGIN");
    for (const Quote &q : d.initial)
        run(db, ins, { q.board, q.code, q.last, q.bid, q.ask, q.volume, q.time });
    exec(db, "COMMIT");
    sqlite3_stmt *upd = prepare(db,
        "UPDATE quotes SET last=?, bid=?, ask=?, volume=?, time=? "
        "WHERE board=? AND code=?");
    const auto start = std::chrono::steady_clock::now();
    for (const std::vector<QuoteUpdate> &batch : d.transactions) {
        exec(db, "BEGIN");
        for (const QuoteUpdate &u : batch) {
            const Quote &q = d.initial[size_t(u.instrument)];
            run(db, upd, { u.last, u.bid, u.ask, u.volume, u.time, q.board, q.code });
        }
        exec(db, "COMMIT");
    }
    ms = msSince(start) / double(d.transactions.size());

    State s;
    select(
        db, "SELECT board, code, last, bid, ask, volume, time FROM quotes", [&s](sqlite3_stmt *r) {
            s.rows += hashOf({ sqlite3_column_int64(r, 0), sqlite3_column_int64(r, 1),
                sqlite3_column_int64(r, 2), sqlite3_column_int64(r, 3), sqlite3_column_int64(r, 4),
                sqlite3_column_int64(r, 5), sqlite3_column_int64(r, 6) });
            ++s.rowCount;
        });
    select(db, "SELECT board, code FROM quotes ORDER BY board, code", [&s](sqlite3_stmt *r) {
        const i64 b = sqlite3_column_int64(r, 0), c = sqlite3_column_int64(r, 1);
        s.views[0].add(mix(mix(u64(b)) ^ u64(c)), hashOf({ b, c }));
    });
    select(db, "SELECT last, board, code FROM quotes ORDER BY last", [&s](sqlite3_stmt *r) {
        s.views[1].add(mix(u64(sqlite3_column_int64(r, 0))),
            hashOf({ sqlite3_column_int64(r, 1), sqlite3_column_int64(r, 2) }));
    });
    sqlite3_finalize(ins);
    sqlite3_finalize(upd);
    sqlite3_close(db);
    return s;
}

namespace bmi = boost::multi_index;

typedef bmi::multi_index_container<Quote,
    bmi::indexed_by<
        bmi::hashed_unique<bmi::composite_key<Quote, bmi::member<Quote, i64, &Quote::board>,
            bmi::member<Quote, i64, &Quote::code>>>,
        bmi::ordered_non_unique<bmi::composite_key<Quote, bmi::member<Quote, i64, &Quote::board>,
            bmi::member<Quote, i64, &Quote::code>>>,
        bmi::ordered_non_unique<bmi::member<Quote, i64, &Quote::last>>>>
    QuoteSet;

State quotesBoost(const QuoteData &d, double &ms)
{
    QuoteSet set;
    for (const Quote &q : d.initial)
        set.insert(q);
    auto &byKey = set.get<0>();
    const auto start = std::chrono::steady_clock::now();
    for (const std::vector<QuoteUpdate> &batch : d.transactions) {
        for (const QuoteUpdate &u : batch) {
            const Quote &q = d.initial[size_t(u.instrument)];
            const auto it = byKey.find(boost::make_tuple(q.board, q.code));
            byKey.modify(it, [&u](Quote &x) {
                x.last = u.last;
                x.bid = u.bid;
                x.ask = u.ask;
                x.volume = u.volume;
                x.time = u.time;
            });
        }
    }
    ms = msSince(start) / double(d.transactions.size());

    State s;
    for (const Quote &q : set) {
        s.rows += hashOf({ q.board, q.code, q.last, q.bid, q.ask, q.volume, q.time });
        ++s.rowCount;
    }
    for (const Quote &q : set.get<1>())
        s.views[0].add(mix(mix(u64(q.board)) ^ u64(q.code)), hashOf({ q.board, q.code }));
    for (const Quote &q : set.get<2>())
        s.views[1].add(mix(u64(q.last)), hashOf({ q.board, q.code }));
    return s;
}

// ---- order flow ----

struct Order
{
    i64 id, instrument, price, qty, time;
};

struct OrderOp
{
    enum Kind { Insert, Remove, Update, Move } kind;
    Order order; // Insert: the row; Remove: id; Update: id, qty; Move: id, price, qty
};

struct OrderData
{
    std::vector<Order> initial;
    std::vector<std::vector<OrderOp>> transactions;
};

OrderData makeOrders(int transactions)
{
    std::mt19937_64 rng(11);
    OrderData d;
    i64 next = 0;
    auto newOrder = [&] {
        const i64 id = next++;
        return Order { id, i64(rng() % 1000), 100000 + i64(rng() % 2000), 1 + i64(rng() % 100),
            id };
    };
    std::vector<i64> alive;
    for (int i = 0; i < 1000000; ++i) {
        d.initial.push_back(newOrder());
        alive.push_back(d.initial.back().id);
    }
    for (int t = 0; t < transactions; ++t) {
        std::vector<OrderOp> ops;
        // Distinct ids per transaction: the alive ones are shuffled in part.
        const int touched = 7000;
        for (int k = 0; k < touched; ++k)
            std::swap(alive[size_t(k)], alive[size_t(k) + rng() % (alive.size() - size_t(k))]);
        for (int k = 0; k < touched; ++k) {
            const i64 id = alive[size_t(k)];
            if (k < 2000)
                ops.push_back({ OrderOp::Remove, { id, 0, 0, 0, 0 } });
            else if (k < 3000)
                ops.push_back({ OrderOp::Move,
                    { id, 0, 100000 + i64(rng() % 2000), 1 + i64(rng() % 100), 0 } });
            else
                ops.push_back({ OrderOp::Update, { id, 0, 0, 1 + i64(rng() % 100), 0 } });
        }
        alive.erase(alive.begin(), alive.begin() + 2000);
        for (int k = 0; k < 3000; ++k) {
            ops.push_back({ OrderOp::Insert, newOrder() });
            alive.push_back(ops.back().order.id);
        }
        std::shuffle(ops.begin(), ops.end(), rng);
        d.transactions.push_back(std::move(ops));
    }
    return d;
}

enum OrderColumn { OId, OInstrument, OPrice, OQty, OTime };

// The change log: every removed, updated and inserted row of each batch.
class ChangeLog : public Index
{
public:
    explicit ChangeLog(Table *table)
        : m_table(table)
    {
        table->addIndex(this);
    }
    ~ChangeLog() override { m_table->removeIndex(this); }
    void clear() override { m_log.clear(); }
    void build() override { }
    void add(const Record &) override { }
    void process(const QList<Record> &removed, const QList<Record> &updated, int, int,
        const QList<Record> &inserted) override
    {
        for (const Record &r : removed)
            m_log.push_back({ OrderOp::Remove, r.data(OId).asInteger64() });
        for (const Record &r : updated)
            m_log.push_back({ OrderOp::Update, r.data(OId).asInteger64() });
        for (const Record &r : inserted)
            m_log.push_back({ OrderOp::Insert, r.data(OId).asInteger64() });
    }
    void remove(const Record &, int) override { }
    bool filter(const Record &) const override { return true; }
    bool contains(const Record &) const override { return false; }
    QString getClassName() const override { return QStringLiteral("ChangeLog"); }

    u64 sum() const
    {
        u64 s = 0;
        for (const auto &e : m_log)
            s += hashOf({ e.first, e.second });
        return s;
    }

private:
    Table *m_table;
    std::vector<std::pair<int, i64>> m_log;
};

int logKind(OrderOp::Kind k)
{
    return k == OrderOp::Move ? OrderOp::Update : k;
}

u64 orderHash(i64 id, i64 instrument, i64 price, i64 qty, i64 time)
{
    return hashOf({ id, instrument, price, qty, time });
}

State ordersTabledb(const OrderData &d, double &ms)
{
    Table table(QStringLiteral("orders"));
    for (const char *name : { "id", "instrument", "price", "qty", "time" })
        table.addColumn(QString::fromLatin1(name), FieldType::Integer64, 0, false);
    MasterIndex_Fast_Cached::createMasterIndex(&table, { QStringLiteral("id") });
    ColumnsView byPrice(&table, { OInstrument, OPrice }, 40);
    ColumnsView byTime(&table, { OTime });
    auto makeRow = [&table](const Order &o) {
        Record r(&table);
        const i64 v[] = { o.id, o.instrument, o.price, o.qty, o.time };
        for (int c = 0; c < 5; ++c)
            FieldType::setInt64(r.data(c).data(), v[c]);
        return r;
    };
    {
        QList<Record> rows;
        for (const Order &o : d.initial)
            rows.append(makeRow(o));
        TableUpdater bracket(&table);
        table.appendList(rows);
    }
    ChangeLog log(&table);
    Record key(&table);
    const double cpuStart = cpuMs();
    for (IndexSort *index : { static_cast<IndexSort *>(table.masterIndex()),
             static_cast<IndexSort *>(&byPrice), static_cast<IndexSort *>(&byTime) })
        index->setNsecsElapsed(0);
    const auto start = std::chrono::steady_clock::now();
    for (const std::vector<OrderOp> &batch : d.transactions) {
        TableUpdater bracket(&table);
        RecordsTrans trans(&table); // applied as it leaves its scope
        for (const OrderOp &op : batch) {
            if (op.kind == OrderOp::Insert) {
                RecordUpdater w(makeRow(op.order), trans);
                continue;
            }
            FieldType::setInt64(key.data(OId).data(), op.order.id);
            RecordUpdater w(key, trans);
            if (op.kind == OrderOp::Remove) {
                w.remove();
                continue;
            }
            if (op.kind == OrderOp::Move)
                FieldType::setInt64(w.data(OPrice).data(), op.order.price);
            FieldType::setInt64(w.data(OQty).data(), op.order.qty);
            trans.extendColumns(op.kind == OrderOp::Move ? OPrice : OQty, OQty);
        }
    }
    ms = msSince(start) / double(d.transactions.size());
    if (g_alone)
        std::printf(
            "  cpu ms per transaction %.3f; in process: master %.3f, by price %.3f, by time %.3f\n",
            (cpuMs() - cpuStart) / double(d.transactions.size()),
            double(table.masterIndex()->nsecsElapsed()) / 1e6 / double(d.transactions.size()),
            double(byPrice.nsecsElapsed()) / 1e6 / double(d.transactions.size()),
            double(byTime.nsecsElapsed()) / 1e6 / double(d.transactions.size()));

    State s;
    for (auto it = table.masterIndex()->begin(); it != table.masterIndex()->end(); ++it) {
        s.rows += orderHash(it->data(0).asInteger64(), it->data(1).asInteger64(),
            it->data(2).asInteger64(), it->data(3).asInteger64(), it->data(4).asInteger64());
        ++s.rowCount;
    }
    s.views[0] = byPrice.sum(OId, -1);
    s.views[1] = byTime.sum(OId, -1);
    s.log = log.sum();
    return s;
}

State ordersSqlite(const OrderData &d, double &ms)
{
    sqlite3 *db = nullptr;
    sqlite3_open(":memory:", &db);
    exec(db,
        "CREATE TABLE orders(id INTEGER PRIMARY KEY, instrument INTEGER, price INTEGER, "
        "qty INTEGER, time INTEGER)");
    exec(db, "CREATE INDEX orders_price ON orders(instrument, price)");
    exec(db, "CREATE INDEX orders_time ON orders(time)");
    exec(db, "CREATE TABLE log(op INTEGER, id INTEGER)");
    sqlite3_stmt *ins = prepare(db, "INSERT INTO orders VALUES(?,?,?,?,?)");
    exec(db, "BEGIN");
    for (const Order &o : d.initial)
        run(db, ins, { o.id, o.instrument, o.price, o.qty, o.time });
    exec(db, "COMMIT");
    sqlite3_stmt *del = prepare(db, "DELETE FROM orders WHERE id=?");
    sqlite3_stmt *upd = prepare(db, "UPDATE orders SET qty=? WHERE id=?");
    sqlite3_stmt *mov = prepare(db, "UPDATE orders SET price=?, qty=? WHERE id=?");
    sqlite3_stmt *logged = prepare(db, "INSERT INTO log VALUES(?,?)");
    const auto start = std::chrono::steady_clock::now();
    for (const std::vector<OrderOp> &batch : d.transactions) {
        exec(db, "BEGIN");
        for (const OrderOp &op : batch) {
            const Order &o = op.order;
            switch (op.kind) {
            case OrderOp::Insert:
                run(db, ins, { o.id, o.instrument, o.price, o.qty, o.time });
                break;
            case OrderOp::Remove:
                run(db, del, { o.id });
                break;
            case OrderOp::Update:
                run(db, upd, { o.qty, o.id });
                break;
            case OrderOp::Move:
                run(db, mov, { o.price, o.qty, o.id });
                break;
            }
            run(db, logged, { logKind(op.kind), o.id });
        }
        exec(db, "COMMIT");
    }
    ms = msSince(start) / double(d.transactions.size());

    State s;
    select(db, "SELECT id, instrument, price, qty, time FROM orders", [&s](sqlite3_stmt *r) {
        s.rows += orderHash(sqlite3_column_int64(r, 0), sqlite3_column_int64(r, 1),
            sqlite3_column_int64(r, 2), sqlite3_column_int64(r, 3), sqlite3_column_int64(r, 4));
        ++s.rowCount;
    });
    select(db, "SELECT instrument, price, id FROM orders ORDER BY instrument, price",
        [&s](sqlite3_stmt *r) {
            s.views[0].add(
                mix(mix(u64(sqlite3_column_int64(r, 0))) ^ u64(sqlite3_column_int64(r, 1))),
                hashOf({ sqlite3_column_int64(r, 2), 0 }));
        });
    select(db, "SELECT time, id FROM orders ORDER BY time", [&s](sqlite3_stmt *r) {
        s.views[1].add(
            mix(u64(sqlite3_column_int64(r, 0))), hashOf({ sqlite3_column_int64(r, 1), 0 }));
    });
    select(db, "SELECT op, id FROM log", [&s](sqlite3_stmt *r) {
        s.log += hashOf({ sqlite3_column_int64(r, 0), sqlite3_column_int64(r, 1) });
    });
    for (sqlite3_stmt *st : { ins, del, upd, mov, logged })
        sqlite3_finalize(st);
    sqlite3_close(db);
    return s;
}

typedef bmi::multi_index_container<Order,
    bmi::indexed_by<bmi::hashed_unique<bmi::member<Order, i64, &Order::id>>,
        bmi::ordered_non_unique<bmi::composite_key<Order,
            bmi::member<Order, i64, &Order::instrument>, bmi::member<Order, i64, &Order::price>>>,
        bmi::ordered_non_unique<bmi::member<Order, i64, &Order::time>>>>
    OrderSet;

State ordersBoost(const OrderData &d, double &ms)
{
    OrderSet set;
    for (const Order &o : d.initial)
        set.insert(o);
    auto &byId = set.get<0>();
    std::vector<std::pair<int, i64>> log;
    const auto start = std::chrono::steady_clock::now();
    for (const std::vector<OrderOp> &batch : d.transactions) {
        for (const OrderOp &op : batch) {
            const Order &o = op.order;
            switch (op.kind) {
            case OrderOp::Insert:
                set.insert(o);
                break;
            case OrderOp::Remove:
                byId.erase(o.id);
                break;
            case OrderOp::Update:
                byId.modify(byId.find(o.id), [&o](Order &x) { x.qty = o.qty; });
                break;
            case OrderOp::Move:
                byId.modify(byId.find(o.id), [&o](Order &x) {
                    x.price = o.price;
                    x.qty = o.qty;
                });
                break;
            }
            log.push_back({ logKind(op.kind), o.id });
        }
    }
    ms = msSince(start) / double(d.transactions.size());

    State s;
    for (const Order &o : set) {
        s.rows += orderHash(o.id, o.instrument, o.price, o.qty, o.time);
        ++s.rowCount;
    }
    for (const Order &o : set.get<1>())
        s.views[0].add(mix(mix(u64(o.instrument)) ^ u64(o.price)), hashOf({ o.id, 0 }));
    for (const Order &o : set.get<2>())
        s.views[1].add(mix(u64(o.time)), hashOf({ o.id, 0 }));
    for (const auto &e : log)
        s.log += hashOf({ e.first, e.second });
    return s;
}

bool report(const char *name, const State &t, const State &q, const State &b, double tms,
    double qms, double bms)
{
    const bool same = t == q && t == b;
    std::printf("%s: %lld rows, checks %s\n", name, t.rowCount, same ? "agree" : "DIFFER");
    if (!same) {
        const State *all[] = { &t, &q, &b };
        const char *side[] = { "tabledb", "sqlite", "boost" };
        for (int i = 0; i < 3; ++i)
            std::printf(
                "  %-8s rows %016llx/%lld view0 %016llx/%lld view1 %016llx/%lld log %016llx\n",
                side[i], all[i]->rows, all[i]->rowCount,
                all[i]->views[0].keys ^ all[i]->views[0].pairs, all[i]->views[0].count,
                all[i]->views[1].keys ^ all[i]->views[1].pairs, all[i]->views[1].count,
                all[i]->log);
    }
    std::printf("  ms per transaction: tabledb %.3f, sqlite %.3f, boost %.3f\n", tms, qms, bms);
    std::printf("  ratios: tabledb/sqlite %.2f, tabledb/boost %.2f\n", tms / qms, tms / bms);
    return same;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int quoteTransactions = argc > 1 ? std::atoi(argv[1]) : 200;
    const int orderTransactions = argc > 2 ? std::atoi(argv[2]) : 20;
    const bool alone = argc > 3 && std::string(argv[3]) == "tabledb";
    g_alone = alone;
    bool ok = true;
    if (quoteTransactions > 0) {
        const QuoteData d = makeQuotes(quoteTransactions);
        double tms = 0, qms = 0, bms = 0, allocs = 0;
        const State t = quotesTabledb(d, tms, allocs);
        if (alone) {
            std::printf("quote stream: tabledb %.3f ms per transaction, %.2f allocations per row\n",
                tms, allocs);
            return 0;
        }
        const State q = quotesSqlite(d, qms);
        const State b = quotesBoost(d, bms);
        ok = report("quote stream (1,000 updates per transaction)", t, q, b, tms, qms, bms) && ok;
        std::printf("  tabledb allocations per updated row: %.2f\n", allocs);
    }
    if (orderTransactions > 0) {
        const OrderData d = makeOrders(orderTransactions);
        double tms = 0, qms = 0, bms = 0;
        const State t = ordersTabledb(d, tms);
        if (alone) {
            std::printf("order flow: tabledb %.3f ms per transaction\n", tms);
            return 0;
        }
        const State q = ordersSqlite(d, qms);
        const State b = ordersBoost(d, bms);
        ok = report("order flow (10,000 operations per transaction)", t, q, b, tms, qms, bms) && ok;
    }
    return ok ? 0 : 1;
}
