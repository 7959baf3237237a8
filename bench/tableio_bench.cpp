// Table files of 1,000,000 order-flow rows: saving and loading against an
// in-memory SQLite database (VACUUM INTO a file, the backup API back), against
// reading the file's bytes, zlib inflating the file alone, and gzip -6; loads
// of the file of a table keyed by id into such a table, alone and with two
// sorted views.

#include "index/indexsort.h"
#include "index/masterindex.h"
#include "index/masterindex_fast_cached.h"
#include "io/tableio.h"
#include "runtime/iapphub.h"
#include "numeric/decimal.h"
#include "support/ratioreporter.h"
#include "table/table.h"

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#ifdef TABLEDB_HAVE_SQLITE
#include <sqlite3.h>
#endif
#include <zlib.h>

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <random>

namespace {

const int flowRows = 1000000;

// id, instrument, side, price, quantity, status, time, a VarChar, a String.
Table *makeFlowTable()
{
    auto *t = new Table(QStringLiteral("flow"));
    t->addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false);
    t->addColumn(QStringLiteral("instrument"), FieldType::Integer);
    t->addColumn(QStringLiteral("side"), FieldType::Integer);
    t->addColumn(QStringLiteral("price"), FieldType::Decimal, 2);
    t->addColumn(QStringLiteral("quantity"), FieldType::Integer64);
    t->addColumn(QStringLiteral("status"), FieldType::Integer);
    t->addColumn(QStringLiteral("time"), FieldType::DateTime);
    t->addColumn(QStringLiteral("comment"), FieldType::VarChar, 16);
    t->addColumn(QStringLiteral("account"), FieldType::String);
    return t;
}

// The host's compression switch, as the application would answer it.
class Hub : public IAppHub, public ITableRegistry
{
public:
    Hub() { IAppHub::setInstance(this); }
    ~Hub() override { IAppHub::setInstance(nullptr); }
    ITableRegistry *tableRegistry() override { return this; }
    Table *table(const QString &) const override { return nullptr; }
    bool contains(const QString &) const override { return false; }
    bool compressTables() const override { return compress; }
    void registerJoin(TableJoin *) override { }
    bool compress = false;
};

Hub &hub()
{
    static Hub h;
    return h;
}

struct Fixture
{
    Fixture() : table(makeFlowTable())
    {
        std::mt19937 rng(7);
        QList<Record> rows;
        for (int i = 0; i < flowRows; ++i) {
            Record r(table.get());
            r.data(0) = int64(i);
            r.data(1) = int(rng() % 3000);
            r.data(2) = int(rng() % 2);
            r.data(3) = decimal(int64(rng() % 10000000), 2);
            r.data(4) = int64(rng() % 100000);
            r.data(5) = int(rng() % 6);
            FieldType::setInt64(r.data(6).data(), 1700000000000LL + i * 37LL);
            r.data(6).clearNull();
            r.data(7) = QStringLiteral("ord %1").arg(rng() % 100000);
            r.data(8) = QStringLiteral("ACC%1").arg(rng() % 200);
            rows.append(r);
        }
        TableUpdater updater(table.get());
        table->appendList(rows);
        plainDir = dir.path() + "/plain";
        gzDir = dir.path() + "/gz";
        keyedDir = dir.path() + "/keyed";
        QDir().mkpath(plainDir);
        QDir().mkpath(gzDir);
        QDir().mkpath(keyedDir);
        // The file of the same rows saved by a table keyed by id: in the
        // key's order, as a keyed table's own file is.
        std::unique_ptr<Table> keyed(makeFlowTable());
        MasterIndex_Fast_Cached::createMasterIndex(keyed.get(), { QStringLiteral("id") });
        {
            TableUpdater updater(keyed.get());
            keyed->appendList(rows);
        }
        hub().compress = false;
        TableIO(keyed.get()).write(QDir(keyedDir));
    }

    QTemporaryDir dir;
    std::unique_ptr<Table> table;
    QString plainDir;
    QString gzDir;
    QString keyedDir;
};

Fixture &fixture()
{
    static Fixture f;
    return f;
}


template <typename Work>
void timed(benchmark::State &state, Work work)
{
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        work();
        state.SetIterationTime(double(timer.nsecsElapsed()) / 1e9);
    }
}

void BM_SavePlain(benchmark::State &state)
{
    hub().compress = false;
    timed(state, [] { TableIO(fixture().table.get()).write(QDir(fixture().plainDir)); });
    state.counters["MB"] = double(QFile(fixture().plainDir + "/flow").size()) / 1e6;
}

void BM_SaveGzip(benchmark::State &state)
{
    hub().compress = true;
    timed(state, [] { TableIO(fixture().table.get()).write(QDir(fixture().gzDir)); });
    state.counters["MB"] = double(QFile(fixture().gzDir + "/flow.gz").size()) / 1e6;
}

// A view sorted by instrument and price, or by time, as an order book keeps
// them; with `prefixed` it gives exact key prefixes (the bench's values fit).
class FlowView : public IndexSort
{
public:
    enum Order { ByPrice, ByTime };
    FlowView(Table *table, Order order, bool prefixed)
        : IndexSort(table, true), m_order(order), m_prefixed(prefixed)
    {
    }
    int compare(const Record &a, const Record &b) const override
    {
        if (m_order == ByTime)
            return cmp(a.data(6).asInteger64(), b.data(6).asInteger64());
        const int c = cmp(a.data(1).asInteger(), b.data(1).asInteger());
        return c != 0 ? c : a.data(3).asDecimal().compare(b.data(3).asDecimal());
    }
    KeyPrefixKind keyPrefixKind() const override
    {
        return m_prefixed ? ExactKeyPrefix : NoKeyPrefix;
    }
    quint64 keyPrefix(const Record &row) const override
    {
        if (m_order == ByTime)
            return prefixOf(qint64(row.data(6).asInteger64()));
        return (quint64(row.data(1).asInteger()) << 40) | quint64(row.data(3).asDecimal().value());
    }

private:
    template <typename T>
    static int cmp(T x, T y)
    {
        return x < y ? -1 : x > y ? 1 : 0;
    }
    Order m_order;
    bool m_prefixed;
};

// What a loaded table carries besides its rows.
enum class Load { Ordered, Keyed, Views, ViewsNoPrefix };

// Loads into a new table; its making and deletion are not timed.
void load(benchmark::State &state, const QString &dir, Load kind = Load::Ordered)
{
    for (auto _ : state) {
        std::unique_ptr<Table> t(makeFlowTable());
        if (kind != Load::Ordered)
            MasterIndex_Fast_Cached::createMasterIndex(t.get(), { QStringLiteral("id") });
        std::unique_ptr<FlowView> byPrice, byTime;
        if (kind == Load::Views || kind == Load::ViewsNoPrefix) {
            byPrice.reset(new FlowView(t.get(), FlowView::ByPrice, kind == Load::Views));
            byTime.reset(new FlowView(t.get(), FlowView::ByTime, kind == Load::Views));
        }
        QElapsedTimer timer;
        timer.start();
        TableIO(t.get()).read(QDir(dir), false);
        state.SetIterationTime(double(timer.nsecsElapsed()) / 1e9);
        if (t->rowCount() != flowRows || (byPrice && byPrice->count() != flowRows))
            std::printf("load of %s read %d rows\n", qPrintable(dir), t->rowCount());
    }
}

void BM_LoadPlain(benchmark::State &state)
{
    load(state, fixture().plainDir);
}

void BM_LoadGzip(benchmark::State &state)
{
    load(state, fixture().gzDir);
}

void BM_LoadKeyed(benchmark::State &state)
{
    load(state, fixture().keyedDir, Load::Keyed);
}

// The file in id order, not in the key's byte order.
void BM_LoadKeyedOtherOrder(benchmark::State &state)
{
    load(state, fixture().plainDir, Load::Keyed);
}

void BM_LoadViews(benchmark::State &state)
{
    load(state, fixture().keyedDir, Load::Views);
}

void BM_LoadViewsNoPrefix(benchmark::State &state)
{
    load(state, fixture().keyedDir, Load::ViewsNoPrefix);
}

void BM_ReadFileBytes(benchmark::State &state)
{
    timed(state, [] {
        QFile file(fixture().plainDir + "/flow");
        file.open(QIODevice::ReadOnly);
        QByteArray bytes = file.readAll();
        benchmark::DoNotOptimize(bytes.data());
    });
}

// The floor of a durable save on this disk: the plain file's bytes written
// to a new file in 1 MiB pieces and synced, as `dd conv=fdatasync` would.
void BM_WriteFileBytes(benchmark::State &state)
{
    QFile source(fixture().plainDir + "/flow");
    source.open(QIODevice::ReadOnly);
    const QByteArray bytes = source.readAll();
    const QString path = fixture().dir.path() + "/bytes";
    timed(state, [&] {
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        for (int at = 0; at < bytes.size(); at += 1 << 20)
            file.write(bytes.constData() + at, qMin(1 << 20, bytes.size() - at));
        file.flush();
        ::fdatasync(file.handle());
    });
    QFile::remove(path);
}

void BM_InflateAlone(benchmark::State &state)
{
    timed(state, [] {
        QFile file(fixture().gzDir + "/flow.gz");
        file.open(QIODevice::ReadOnly);
        const QByteArray packed = file.readAll();
        z_stream z{};
        inflateInit2(&z, 31);
        z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(packed.constData()));
        z.avail_in = uInt(packed.size());
        static char out[65536];
        int status = Z_OK;
        while (status == Z_OK) {
            z.next_out = reinterpret_cast<Bytef *>(out);
            z.avail_out = sizeof out;
            status = inflate(&z, Z_NO_FLUSH);
        }
        inflateEnd(&z);
        benchmark::DoNotOptimize(out);
    });
}

void BM_Gzip6Binary(benchmark::State &state)
{
    timed(state, [] {
        const QString plain = fixture().plainDir + "/flow";
        QProcess::execute("sh", {"-c", QStringLiteral("gzip -6 -c '%1' > '%1.g6'").arg(plain)});
    });
}

#ifdef TABLEDB_HAVE_SQLITE
sqlite3 *sqliteFlow()
{
    static sqlite3 *db = [] {
        sqlite3 *d = nullptr;
        sqlite3_open(":memory:", &d);
        sqlite3_exec(d,
                     "CREATE TABLE flow(id INTEGER PRIMARY KEY, instrument INTEGER, side INTEGER, "
                     "price INTEGER, quantity INTEGER, status INTEGER, time INTEGER, comment TEXT, "
                     "account TEXT)",
                     nullptr, nullptr, nullptr);
        sqlite3_exec(d, "BEGIN", nullptr, nullptr, nullptr);
        sqlite3_stmt *insert = nullptr;
        sqlite3_prepare_v2(d, "INSERT INTO flow VALUES(?,?,?,?,?,?,?,?,?)", -1, &insert, nullptr);
        Table *t = fixture().table.get();
        for (int i = 0; i < t->rowCount(); ++i) {
            const Record &r = t->at(i);
            sqlite3_bind_int64(insert, 1, r.data(0).asInteger64());
            sqlite3_bind_int(insert, 2, r.data(1).asInteger());
            sqlite3_bind_int(insert, 3, r.data(2).asInteger());
            sqlite3_bind_int64(insert, 4, r.data(3).asInteger64());
            sqlite3_bind_int64(insert, 5, r.data(4).asInteger64());
            sqlite3_bind_int(insert, 6, r.data(5).asInteger());
            sqlite3_bind_int64(insert, 7, r.data(6).asInteger64());
            const QByteArray comment = r.data(7).toString().toUtf8();
            const QByteArray account = r.data(8).toString().toUtf8();
            sqlite3_bind_text(insert, 8, comment.constData(), comment.size(), SQLITE_TRANSIENT);
            sqlite3_bind_text(insert, 9, account.constData(), account.size(), SQLITE_TRANSIENT);
            sqlite3_step(insert);
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        sqlite3_exec(d, "COMMIT", nullptr, nullptr, nullptr);
        return d;
    }();
    return db;
}

QByteArray sqliteFile()
{
    return QFile::encodeName(fixture().dir.path() + "/flow.sqlite");
}

void BM_SqliteSave(benchmark::State &state)
{
    sqlite3 *db = sqliteFlow();
    timed(state, [db] {
        QFile::remove(QString::fromUtf8(sqliteFile()));
        const QByteArray sql = "VACUUM INTO '" + sqliteFile() + "'";
        if (sqlite3_exec(db, sql.constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
            std::printf("VACUUM INTO failed: %s\n", sqlite3_errmsg(db));
    });
    state.counters["MB"] = double(QFile(QString::fromUtf8(sqliteFile())).size()) / 1e6;
}

void BM_SqliteLoad(benchmark::State &state)
{
    timed(state, [] {
        sqlite3 *file = nullptr;
        sqlite3 *memory = nullptr;
        sqlite3_open(sqliteFile().constData(), &file);
        sqlite3_open(":memory:", &memory);
        sqlite3_backup *backup = sqlite3_backup_init(memory, "main", file, "main");
        sqlite3_backup_step(backup, -1);
        sqlite3_backup_finish(backup);
        sqlite3_close(memory);
        sqlite3_close(file);
    });
}
#else
void BM_SqliteSave(benchmark::State &state)
{
    state.SkipWithError("built without libsqlite3-dev");
}
void BM_SqliteLoad(benchmark::State &state)
{
    state.SkipWithError("built without libsqlite3-dev");
}
#endif

void ratios(RatioReporter &reporter)
{
    reporter.addRatio("plain save / SQLite VACUUM INTO (target <= 0.5)", "BM_SavePlain/iterations:10/manual_time",
                      "BM_SqliteSave/iterations:10/manual_time");
    reporter.addRatio("plain save / writing and syncing its bytes alone", "BM_SavePlain/iterations:10/manual_time",
                      "BM_WriteFileBytes/iterations:10/manual_time");
    reporter.addRatio("plain load / SQLite backup load", "BM_LoadPlain/iterations:3/manual_time",
                      "BM_SqliteLoad/iterations:3/manual_time");
    reporter.addRatio("plain load, no key / reading the file's bytes (target <= 10)",
                      "BM_LoadPlain/iterations:3/manual_time", "BM_ReadFileBytes/iterations:3/manual_time");
    reporter.addRatio("load keyed by id / reading the file's bytes (target <= 3)",
                      "BM_LoadKeyed/iterations:3/manual_time", "BM_ReadFileBytes/iterations:3/manual_time");
    reporter.addRatio("the same from a file in another order",
                      "BM_LoadKeyedOtherOrder/iterations:3/manual_time",
                      "BM_ReadFileBytes/iterations:3/manual_time");
    reporter.addRatio("load with two sorted views / keyed alone (target <= 3)",
                      "BM_LoadViews/iterations:3/manual_time", "BM_LoadKeyed/iterations:3/manual_time");
    reporter.addRatio("the same, views without key prefixes",
                      "BM_LoadViewsNoPrefix/iterations:3/manual_time",
                      "BM_LoadKeyed/iterations:3/manual_time");
    reporter.addRatio("gzip load / zlib inflate alone (target <= 1.5)", "BM_LoadGzip/iterations:3/manual_time",
                      "BM_InflateAlone/iterations:3/manual_time");
    reporter.addRatio("gzip save / gzip -6 of the plain file", "BM_SaveGzip/iterations:3/manual_time",
                      "BM_Gzip6Binary/iterations:3/manual_time");
}

} // namespace

// Saves come first: the loads read their files.
// Ten saves on each side: one save in a few meets a stall in the kernel's
// writeback of tens of milliseconds, which three iterations would let decide.
BENCHMARK(BM_SavePlain)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_SaveGzip)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SqliteSave)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_WriteFileBytes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);
BENCHMARK(BM_Gzip6Binary)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_ReadFileBytes)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadPlain)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadKeyed)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadKeyedOtherOrder)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadViews)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadViewsNoPrefix)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SqliteLoad)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_InflateAlone)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_LoadGzip)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    ratios(reporter);
    hub();
    fixture();
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
