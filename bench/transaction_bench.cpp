// Cost of applying updates as one transaction against the same updates told
// one by one through Record::updated, on a table with a key master index and
// two sorted indexes. Counters: allocations per updated row during the
// transaction (the clone of each row and its map nodes; nothing per index).

#include "index/indexsort.h"
#include "index/masterindex.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include "support/alloccounter.h"
#include "support/ratioreporter.h"

#include <benchmark/benchmark.h>

#include <QtMessageHandler>

#include <cstdio>
#include <memory>
#include <random>

namespace {

enum Column { Key, Price, Qty, Note };

int64 cell(const Record &r, int column)
{
    return r.data(column).asInteger64();
}

class KeyMaster : public MasterIndex
{
public:
    explicit KeyMaster(Table *table) : MasterIndex(table) { m_columns.append(Key); }
    int compare(const Record &a, const Record &b) const override
    {
        const int64 x = cell(a, Key), y = cell(b, Key);
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    QString toText(const Record &r) const override { return QString::number(cell(r, Key)); }
    Record fromText(const QString &text) const override
    {
        Record r(m_table);
        FieldType::setInt64(r.data(Key).data(), text.toLongLong());
        return r;
    }
};

class ColumnIndex : public IndexSort
{
public:
    ColumnIndex(Table *table, int column) : IndexSort(table, true), m_column(column) { }
    int compare(const Record &a, const Record &b) const override
    {
        const int64 x = cell(a, m_column), y = cell(b, m_column);
        return x < y ? -1 : (x > y ? 1 : 0);
    }

private:
    int m_column;
};

struct Fixture
{
    explicit Fixture(int rows)
    {
        table.reset(new Table(QStringLiteral("Bench")));
        for (const char *name : { "key", "price", "qty", "note" })
            table->addColumn(QString::fromLatin1(name), FieldType::Integer64, 0, false);
        table->setMasterIndex(new KeyMaster(table.get()));
        byPrice.reset(new ColumnIndex(table.get(), Price));
        byQty.reset(new ColumnIndex(table.get(), Qty));
        QList<Record> list;
        list.reserve(rows);
        for (int i = 0; i < rows; ++i) {
            Record r(table.get());
            FieldType::setInt64(r.data(Key).data(), i);
            FieldType::setInt64(r.data(Price).data(), (i * 7919LL) % rows);
            FieldType::setInt64(r.data(Qty).data(), (i * 104729LL) % rows);
            list.append(r);
        }
        table->appendList(list);
    }
    ~Fixture()
    {
        byPrice.reset();
        byQty.reset();
        table.reset();
    }

    std::unique_ptr<Table> table;
    std::unique_ptr<ColumnIndex> byPrice;
    std::unique_ptr<ColumnIndex> byQty;
};

Fixture &fixture(int rows)
{
    static std::unique_ptr<Fixture> current;
    if (!current || current->table->rowCount() != rows)
        current.reset(new Fixture(rows));
    return *current;
}

// What the updates write: `Note` moves no row; `Price` to one high value moves
// every updated row to the end of the price index.
enum Kind { InPlace = 0, ToOnePlace = 1 };

void writeUpdate(const Record &r, Kind kind, int64 value)
{
    if (kind == InPlace)
        FieldType::setInt64(r.data(Note).data(), value);
    else
        FieldType::setInt64(r.data(Price).data(), value);
}

void BM_Transaction(benchmark::State &state)
{
    const int rows = int(state.range(0));
    const int updates = int(state.range(1));
    const Kind kind = Kind(state.range(2));
    Fixture &f = fixture(rows);
    std::mt19937 random(42);
    int64 value = rows;
    long allocated = 0;
    for (auto _ : state) {
        QList<Record> keys;
        keys.reserve(updates);
        for (int i = 0; i < updates; ++i)
            keys.append(f.table->at(int(random() % unsigned(rows))));
        const long before = alloccounter::count();
        {
            RecordsTrans trans(f.table.get());
            const int column = kind == InPlace ? Note : Price;
            for (const Record &key : keys) {
                RecordUpdater u(key, trans);
                writeUpdate(u, kind, ++value);
                trans.extendColumns(column, column);
            }
        }
        allocated += alloccounter::count() - before;
    }
    state.SetItemsProcessed(state.iterations() * updates);
    state.counters["allocs_per_row"] = double(allocated) / double(state.iterations() * updates);
}

void BM_RecordUpdated(benchmark::State &state)
{
    const int rows = int(state.range(0));
    const int updates = int(state.range(1));
    const Kind kind = Kind(state.range(2));
    Fixture &f = fixture(rows);
    std::mt19937 random(42);
    int64 value = rows;
    for (auto _ : state) {
        QList<Record> keys;
        keys.reserve(updates);
        for (int i = 0; i < updates; ++i)
            keys.append(f.table->at(int(random() % unsigned(rows))));
        const int column = kind == InPlace ? Note : Price;
        for (const Record &r : keys) {
            writeUpdate(r, kind, ++value);
            r.updated(column);
        }
    }
    state.SetItemsProcessed(state.iterations() * updates);
}

// One key updated many times in one transaction costs one clone.
void BM_OneKeyManyUpdates(benchmark::State &state)
{
    Fixture &f = fixture(100000);
    const Record key = f.table->at(500);
    long allocated = 0;
    for (auto _ : state) {
        const long before = alloccounter::count();
        {
            RecordsTrans trans(f.table.get());
            for (int i = 0; i < 1000; ++i) {
                RecordUpdater u(key, trans);
                FieldType::setInt64(u.data(Note).data(), i);
            }
            trans.extendColumns(Note, Note);
        }
        allocated += alloccounter::count() - before;
    }
    state.counters["allocs_per_txn"] = double(allocated) / double(state.iterations());
}

void arguments(benchmark::internal::Benchmark *b)
{
    for (int rows : { 100000, 1000000 })
        for (int updates : { 1000, 10000 })
            for (int kind : { InPlace, ToOnePlace })
                b->Args({ rows, updates, kind });
    b->ArgNames({ "rows", "updates", "move" })->Unit(benchmark::kMillisecond);
}

// One by one, a row whose key moved is found by a linear scan of the index, so
// the moving case is only run at the smaller batch.
void baselineArguments(benchmark::internal::Benchmark *b)
{
    for (int rows : { 100000, 1000000 }) {
        for (int updates : { 1000, 10000 })
            b->Args({ rows, updates, InPlace });
        b->Args({ rows, 1000, ToOnePlace });
    }
    b->ArgNames({ "rows", "updates", "move" })->Unit(benchmark::kMillisecond);
}

void dropWarnings(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    // The one-by-one baseline warns on every full search; keep the report readable.
    if (type != QtWarningMsg)
        std::fprintf(stderr, "%s\n", qPrintable(message));
}

} // namespace

BENCHMARK(BM_Transaction)->Apply(arguments);
BENCHMARK(BM_RecordUpdated)->Apply(baselineArguments);
BENCHMARK(BM_OneKeyManyUpdates)->Unit(benchmark::kMicrosecond);

void ratios(RatioReporter &reporter)
{
    for (const char *rows : { "100000", "1000000" }) {
        for (const char *updates : { "1000", "10000" }) {
            for (const char *move : { "0", "1" }) {
                const std::string args = std::string("/rows:") + rows + "/updates:" + updates
                    + "/move:" + move;
                const bool inPlace = move[0] == '0';
                reporter.addRatio(std::string("transaction / one by one, ")
                                      + (inPlace ? "in place (<= 1.5)" : "to one place (< 1)")
                                      + args,
                                  "BM_Transaction" + args, "BM_RecordUpdated" + args);
            }
        }
    }
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    qInstallMessageHandler(dropWarnings);
    RatioReporter reporter;
    ratios(reporter);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
