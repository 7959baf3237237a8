#include "model/tablemodel.h"

#include "index/indexsort.h"
#include "index/indexvector.h"
#include "index/masterindex_fast.h"
#include "model/celltext.h"
#include "numeric/decimal.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <QAbstractItemModelTester>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <random>
#include <thread>

namespace {

enum { Id, Price, Name, Shown };

Table *makeQuotes()
{
    auto *table = new Table(QStringLiteral("quotes"));
    table->addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false, QStringLiteral("Id"));
    table->addColumn(QStringLiteral("price"), FieldType::Decimal, 2, true, QStringLiteral("Price"));
    table->addColumn(QStringLiteral("name"), FieldType::VarChar, 8, true);
    table->addColumn(QStringLiteral("shown"), FieldType::Integer, 0, false);
    table->setMasterIndex(new MasterIndex_Fast(table, QStringList { QStringLiteral("id") }));
    return table;
}

int byId(const Record &a, const Record &b)
{
    const qint64 x = a.data(Id).asInteger64(), y = b.data(Id).asInteger64();
    return (x > y) - (x < y);
}

// The shown rows by price, then id: rows enter and leave through `shown`.
class PriceView : public IndexSort
{
public:
    explicit PriceView(Table *table) : IndexSort(table, true) { }
    int compare(const Record &a, const Record &b) const override
    {
        const int c = a.data(Price).compare(b.data(Price));
        return c != 0 ? c : byId(a, b);
    }
    bool filter(const Record &row) const override { return row.data(Shown).asInteger() != 0; }
};

// The shown rows from 500.00 up, the dearest first.
class DearVector : public IndexVector
{
public:
    explicit DearVector(Table *table) : IndexVector(table) { }
    int compare(const Record &a, const Record &b) const override
    {
        const int c = b.data(Price).compare(a.data(Price));
        return c != 0 ? c : byId(a, b);
    }
    bool filter(const Record &row) const override
    {
        return row.data(Shown).asInteger() != 0 && row.data(Price).toDecimal() >= decimal(50000, 2);
    }
};

// Transactions of the kinds a terminal receives, on whichever thread calls.
class Writer
{
public:
    explicit Writer(Table *table, unsigned seed = 1) : m_table(table), m_random(seed) { }

    void insert(qint64 id, qint64 cents, bool shown, RecordsTrans &trans)
    {
        Record row(m_table);
        row.data(Id) = id;
        row.data(Price) = decimal(cents, 2);
        row.data(Name) = QStringLiteral("n%1").arg(id);
        row.data(Shown) = shown ? 1 : 0;
        RecordUpdater inserted(row, trans);
        m_ids.push_back(id);
    }
    // Writes the row of `id` in one transaction; `first`..`last` as stated.
    void write(const std::vector<qint64> &ids, const std::function<void(RecordUpdater &)> &change,
               int first = -1, int last = -1)
    {
        TableUpdater updater(m_table);
        RecordsTrans trans(m_table);
        for (qint64 id : ids) {
            Record key(m_table);
            key.data(Id) = id;
            RecordUpdater row(key, trans);
            change(row);
        }
        if (first >= 0)
            trans.extendColumns(first, last);
    }
    void fill(int count)
    {
        TableUpdater updater(m_table);
        RecordsTrans trans(m_table);
        for (int i = 0; i < count; ++i)
            insert(m_next++, 100 * int(m_random() % 1000), m_random() % 8 != 0, trans);
    }
    // One random transaction.
    void step()
    {
        const int kind = int(m_random() % 8);
        if (kind == 0 || m_ids.size() < 20)
            return fill(1 + int(m_random() % 4));
        auto some = [&](int most) {
            std::vector<qint64> ids;
            for (int n = 1 + int(m_random() % unsigned(most)); n > 0; --n)
                ids.push_back(m_ids[m_random() % m_ids.size()]);
            std::sort(ids.begin(), ids.end());
            ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
            return ids;
        };
        const qint64 cents = int(m_random() % 100000);
        switch (kind) {
        case 1: { // removals
            const std::vector<qint64> gone = some(3);
            write(gone, [](RecordUpdater &row) { row.remove(); });
            for (qint64 id : gone)
                m_ids.erase(std::find(m_ids.begin(), m_ids.end(), id));
            break;
        }
        case 2: // keys jumping past many neighbours
            return write(some(3), [&](RecordUpdater &row) { row.data(Price) = decimal(cents, 2); });
        case 3: // small moves, often none at all
            return write(some(3), [](RecordUpdater &row) {
                row.data(Price) = row.data(Price).toDecimal() + decimal(1, 2);
            }, Price, Price);
        case 4: // in place
            return write(some(5), [&](RecordUpdater &row) {
                row.data(Name) = QStringLiteral("w%1").arg(cents);
            }, Name, Name);
        case 5: // into and out of the filters
            return write(some(3), [](RecordUpdater &row) {
                row.data(Shown) = 1 - row.data(Shown).asInteger();
            });
        case 6: // a storm: many rows change places at once
            return write(some(60), [&](RecordUpdater &row) {
                row.data(Price) = decimal(int(m_random() % 100000), 2);
            });
        default: // NULL shows as empty text and sorts first
            return write(some(1), [](RecordUpdater &row) { row.setNull(Price); });
        }
    }

private:
    Table *m_table;
    std::mt19937 m_random;
    std::vector<qint64> m_ids;
    qint64 m_next = 1;
};

std::vector<Record> viewRows(const Table *table, const IndexIterative *list, const IndexVector *vector)
{
    std::vector<Record> rows;
    if (vector) {
        for (int i = 0; i < vector->count(); ++i)
            rows.push_back(vector->get(i));
        return rows;
    }
    if (!list)
        list = table->masterIndex();
    return std::vector<Record>(list->begin(), list->end());
}

// A model with what it shows, and rows it follows through persistent indexes.
struct Watched
{
    TableModel *model;
    const IndexIterative *list;
    const IndexVector *vector;
    std::vector<std::pair<QPersistentModelIndex, qint64>> pinned;

    // REQUIRES: the table's lock, held since the refresh. The model's rows are
    // the view's, each text is the one the tool writes.
    void check(const Table *table)
    {
        const std::vector<Record> rows = viewRows(table, list, vector);
        ASSERT_EQ(model->rowCount(), int(rows.size()));
        for (int r = 0; r < model->rowCount(); ++r) {
            for (int c = 0; c < model->columnCount(); ++c) {
                ASSERT_EQ(model->index(r, c).data().toString(),
                          CellText::text(rows[size_t(r)].data(model->tableColumn(c))))
                        << "row " << r << " column " << c;
            }
        }
    }
    // REQUIRES: as check(). Returns how many pinned rows kept their index.
    int checkPinned(const Table *table)
    {
        const std::vector<Record> rows = viewRows(table, list, vector);
        int kept = 0;
        for (const auto &pin : pinned) {
            auto at = std::find_if(rows.begin(), rows.end(), [&](const Record &row) {
                return row.data(Id).asInteger64() == pin.second;
            });
            // A row that left is let go of, also if it came back since.
            if (at == rows.end()) {
                EXPECT_FALSE(pin.first.isValid()) << "row " << pin.second << " left";
            }
            if (pin.first.isValid()) {
                EXPECT_EQ(rows[size_t(pin.first.row())].data(Id).asInteger64(), pin.second);
                ++kept;
            }
        }
        return kept;
    }
    void pin(const Table *table, std::mt19937 &random)
    {
        const std::vector<Record> rows = viewRows(table, list, vector);
        pinned.clear();
        for (int n = 0; n < 6 && !rows.empty(); ++n) {
            const int r = int(random() % rows.size());
            pinned.push_back({ QPersistentModelIndex(model->index(r, 0)),
                               rows[size_t(r)].data(Id).asInteger64() });
        }
    }
};

void spin(int msecs)
{
    QEventLoop loop;
    QTimer::singleShot(msecs, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

// The writer runs on its own thread while the models refresh here on their
// own, at three intervals; every few milliseconds the test holds the table's
// lock, refreshes and compares.
TEST(TableModel, FollowsRandomTransactionsOnAnotherThread)
{
    std::unique_ptr<Table> table(makeQuotes());
    Writer writer(table.get());
    writer.fill(120);
    PriceView byPrice(table.get());
    byPrice.build();
    DearVector dear(table.get());
    dear.build();
    TableModel priceModel(&byPrice), dearModel(&dear, { QStringLiteral("name"), QStringLiteral("price") }),
            allModel(table.get());
    priceModel.setRefreshInterval(0);
    dearModel.setRefreshInterval(3);
    std::vector<Watched> watched { { &priceModel, &byPrice, nullptr, {} },
                                   { &dearModel, nullptr, &dear, {} },
                                   { &allModel, nullptr, nullptr, {} } };
    int resets = 0, layouts = 0, moves = 0;
    for (Watched &w : watched) {
        new QAbstractItemModelTester(w.model, QAbstractItemModelTester::FailureReportingMode::Fatal,
                                     w.model);
        QObject::connect(w.model, &QAbstractItemModel::modelAboutToBeReset, [&] { ++resets; });
        QObject::connect(w.model, &QAbstractItemModel::layoutChanged, [&] { ++layouts; });
        QObject::connect(w.model, &QAbstractItemModel::rowsMoved, [&] { ++moves; });
    }

    const int transactions = 1200;
    std::atomic<bool> done { false };
    std::thread thread([&] {
        for (int i = 0; i < transactions; ++i) {
            writer.step();
            if (i == transactions / 2) {
                TableUpdater updater(table.get());
                table->addColumn(QStringLiteral("extra"), FieldType::Double);
            }
            if (i % 4 == 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        done = true;
    });
    std::mt19937 random(7);
    int kept = 0, rounds = 0;
    int columns = table->columnCount();
    for (bool last = false; !last; ++rounds) {
        last = done;
        spin(4);
        TableLocker locker(table.get());
        // Rows rebuilt with the new column are matched by position.
        const bool rebuilt = table->columnCount() != columns;
        columns = table->columnCount();
        for (Watched &w : watched) {
            w.model->refresh();
            w.check(table.get());
            if (!rebuilt)
                kept += w.checkPinned(table.get());
            w.pin(table.get(), random);
        }
        ASSERT_FALSE(testing::Test::HasFatalFailure());
    }
    thread.join();
    EXPECT_EQ(allModel.columnCount(), 5);
    EXPECT_EQ(dearModel.columnCount(), 2);
    EXPECT_EQ(resets, 0);
    EXPECT_GT(kept, rounds);
    EXPECT_GT(layouts, 0);
    EXPECT_GT(moves, 0);
    EXPECT_GT(priceModel.refreshCount() + dearModel.refreshCount() + allModel.refreshCount(),
              3 * rounds);
}

// Each kind of change, applied alone, and the signals it comes as.
TEST(TableModel, TellsEachChangeWithTheFewestSignals)
{
    std::unique_ptr<Table> table(makeQuotes());
    Writer writer(table.get());
    {
        TableUpdater updater(table.get());
        RecordsTrans trans(table.get());
        for (int id = 1; id <= 40; ++id)
            writer.insert(id, id * 1000, true, trans);
    }
    auto view = std::make_unique<PriceView>(table.get());
    view->build();
    auto model = std::make_unique<TableModel>(view.get());
    new QAbstractItemModelTester(model.get(), QAbstractItemModelTester::FailureReportingMode::Fatal,
                                 model.get());
    std::map<std::string, int> seen;
    auto count = [&](const char *name) { return [&seen, name] { ++seen[name]; }; };
    QObject::connect(model.get(), &QAbstractItemModel::rowsRemoved, count("removed"));
    QObject::connect(model.get(), &QAbstractItemModel::rowsInserted, count("inserted"));
    QObject::connect(model.get(), &QAbstractItemModel::rowsMoved, count("moved"));
    QObject::connect(model.get(), &QAbstractItemModel::layoutChanged, count("layout"));
    QObject::connect(model.get(), &QAbstractItemModel::modelReset, count("reset"));
    QModelIndex lastChanged;
    QObject::connect(model.get(), &QAbstractItemModel::dataChanged,
                     [&](const QModelIndex &from, const QModelIndex &to) {
                         ++seen["changed"];
                         seen["cells"] += (to.row() - from.row() + 1) * (to.column() - from.column() + 1);
                         lastChanged = to;
                     });
    auto price = [](int cents) { return [cents](RecordUpdater &row) { row.data(Price) = decimal(cents, 2); }; };
    const auto rename = [](RecordUpdater &row) { row.data(Name) = QStringLiteral("renamed"); };
    const struct
    {
        const char *what;
        std::function<void()> change;
        std::map<std::string, int> expected;
    } cases[] = {
        { "one name, written in place", [&] { writer.write({ 10 }, rename, Name, Name); },
          { { "changed", 1 }, { "cells", 1 } } },
        { "three neighbouring names", [&] { writer.write({ 11, 12, 13 }, rename, Name, Name); },
          { { "changed", 1 }, { "cells", 3 } } },
        { "one price past all others", [&] { writer.write({ 5 }, price(99900), Price, Price); },
          { { "moved", 1 }, { "changed", 1 }, { "cells", 1 } } },
        { "a price that keeps its place", [&] { writer.write({ 20 }, price(20001), Price, Price); },
          { { "changed", 1 }, { "cells", 1 } } },
        { "two neighbours leave the filter, one row comes",
          [&] {
              writer.write({ 21, 22 }, [](RecordUpdater &row) { row.data(Shown) = 0; });
              TableUpdater updater(table.get());
              RecordsTrans trans(table.get());
              writer.insert(41, 1, true, trans);
          },
          { { "removed", 1 }, { "inserted", 1 } } },
        { "eighteen prices turned round",
          [&] {
              std::vector<qint64> ids;
              for (int id = 23; id <= 40; ++id)
                  ids.push_back(id);
              writer.write(ids, [](RecordUpdater &row) {
                  row.data(Price) = decimal(100000 - row.data(Id).asInteger64() * 1000, 2);
              }, Price, Price);
          },
          { { "layout", 1 }, { "changed", 1 }, { "cells", 18 } } },
    };
    for (const auto &c : cases) {
        seen.clear();
        c.change();
        TableLocker locker(table.get());
        model->refresh();
        EXPECT_EQ(seen, c.expected) << c.what;
        Watched { model.get(), view.get(), nullptr, {} }.check(table.get());
    }

    // The last cells written are fresh; a cell nobody wrote has no age.
    EXPECT_GE(lastChanged.data(TableModel::ChangedAgoRole).toLongLong(), 0);
    EXPECT_EQ(model->index(1, Id).data().toString(), QStringLiteral("1"));
    EXPECT_FALSE(model->index(1, Price).data(TableModel::ChangedAgoRole).isValid());
    EXPECT_EQ(model->index(0, Price).data(Qt::EditRole).userType(), qMetaTypeId<decimal>());
    EXPECT_EQ(model->index(0, Price).data(Qt::TextAlignmentRole).toInt() & Qt::AlignRight, Qt::AlignRight);
    EXPECT_EQ(model->headerData(Price, Qt::Horizontal).toString(), QStringLiteral("Price"));
    EXPECT_EQ(model->headerData(Name, Qt::Horizontal).toString(), QStringLiteral("name"));
    EXPECT_THROW((TableModel(table.get(), QStringList { QStringLiteral("nope") })), QString);

    // A table deleted under a model leaves it empty.
    TableModel master(table.get());
    EXPECT_EQ(master.rowCount(), 41);
    model.reset();
    view.reset();
    table.reset();
    EXPECT_EQ(master.rowCount(), 0);
    EXPECT_EQ(master.columnCount(), 0);
    EXPECT_EQ(master.table(), nullptr);
}
