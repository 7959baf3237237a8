#include "jointestsupport.h"
#include "support/testapphub.h"

#include "runtime/exception.h"

#include <QDir>

#include <gtest/gtest.h>

#include <functional>

namespace {

const QStringList PriceOnly { QStringLiteral("Price") };

// Orders keyed by Id, joined by instrument through `byInstr`.
struct Orders
{
    explicit Orders(std::initializer_list<ColumnSpec> extra = {})
        : table(makeTable("Orders",
                          { { "Id", FieldType::Integer }, { "Instr", FieldType::Integer } },
                          { "Id" }))
    {
        for (const ColumnSpec &c : extra)
            table->addColumn(QString::fromLatin1(c.name), c.type);
        table->addIndex(byInstr = new MasterIndex_Column(table.get(), QStringList { "Instr" }));
    }
    ~Orders()
    {
        if (table) // else its destructor has emptied byInstr
            table->removeIndex(byInstr);
        delete byInstr;
    }
    void add(int id, int instr) { put(table.get(), id, { { QStringLiteral("Instr"), instr } }); }
    QVariant at(int id, const char *column) const { return cell(rowOf(table.get(), id), column); }
    QStringList columns() const
    {
        QStringList names;
        for (const TableColumnDef *def : table->fieldDefs())
            names.append(def->name);
        return names;
    }

    std::unique_ptr<Table> table;
    MasterIndex_Column *byInstr;
};

std::unique_ptr<Table> instruments(const char *name = "Instruments")
{
    return makeTable(name, { { "Instr", FieldType::Integer }, { "Price", FieldType::Integer },
                             { "Name", FieldType::String } }, { "Instr" });
}

void setPrice(Table *table, int instr, int price)
{
    put(table, instr, { { QStringLiteral("Price"), price } });
}

} // namespace

// Names taken already give way, copies are nullable, present rows are filled,
// and after the join the columns stay with their last values.
TEST(TableJoin, SetupAddsNamedNullableColumnsAndFillsPresentRows)
{
    TestAppHub hub;
    Orders orders({ { "Price", FieldType::Integer }, { "C_Price", FieldType::Integer } });
    auto a = makeTable("A", { { "Instr", FieldType::Integer } }, { QStringLiteral("Instr") });
    a->addColumn(QStringLiteral("Price"), FieldType::Integer, 0, false);
    auto b = instruments("B");
    auto c = instruments("C");
    for (int id = 1; id <= 4; ++id)
        orders.add(id, qMax(1, id - 1));
    setPrice(a.get(), 1, 10);
    setPrice(a.get(), 2, 20);
    put(b.get(), 2, { { QStringLiteral("Price"), 5 }, { QStringLiteral("Name"), "x" } });
    {
        TableJoin join(orders.byInstr, { a.get(), b.get(), c.get() },
                       { "Price", "Name", "Missing" }, false);
        EXPECT_TRUE(hub.joins.isEmpty()) << "registered with the host only when asked";
        EXPECT_EQ(orders.columns(), QStringList({ "Id", "Instr", "Price", "C_Price", "Price_",
                                                  "B_Price", "Name", "Price2", "Name_" }));
        EXPECT_TRUE(orders.table->columnDef(QStringLiteral("Price_")).nullable);
        const QVariantList got { orders.at(1, "Price_"), orders.at(3, "Price_"),
                                 orders.at(3, "B_Price"), orders.at(3, "Name"),
                                 orders.at(1, "B_Price"), orders.at(4, "Price_") };
        EXPECT_EQ(got, QVariantList({ 10, 20, 5, "x", QVariant(), QVariant() }));

        // A row appended outside a transaction is looked up too.
        Record row(orders.table.get());
        row.data(0) = 5;
        row.data(1) = 2;
        orders.table->appendRow(row.pointer());
        EXPECT_EQ(orders.at(5, "Name"), QVariant(QStringLiteral("x")));

        // Which kind, and whose table; another index leaves the flag alone.
        Index *dep1 = join.dependentIndexes().at(1);
        bool dep[3] = { false, true, true };
        EXPECT_EQ(QList<bool>({ TableJoin::isJoinIndex(dep1, &dep[0]),
                                TableJoin::isJoinIndex(join.mainIndex(), &dep[1]),
                                TableJoin::isJoinIndex(orders.byInstr, &dep[2]), dep[0], dep[1],
                                dep[2] }),
                  QList<bool>({ true, true, false, true, false, true }));
        EXPECT_EQ(QList<Table *>({ TableJoin::table(join.dependentIndexes().at(2)),
                                   TableJoin::table(join.mainIndex()),
                                   TableJoin::table(orders.byInstr) }),
                  QList<Table *>({ orders.table.get(), orders.table.get(), nullptr }));
        EXPECT_EQ(b->indexes(), QList<Index *>({ dep1 }));
    }
    EXPECT_TRUE(b->indexes().isEmpty());
    EXPECT_EQ(orders.table->indexes(), QList<Index *>({ orders.byInstr }));
    setPrice(b.get(), 2, 6);
    EXPECT_EQ(orders.at(3, "B_Price"), QVariant(5));
    TableJoin told(orders.byInstr, { c.get() }, PriceOnly, true);
    EXPECT_EQ(hub.joins, QList<TableJoin *>({ &told }));
}

// Each refusal names what is involved and leaves both tables as they were.
TEST(TableJoin, BadInputIsRefusedBeforeAnythingChanges)
{
    const FieldType::Type Int = FieldType::Integer;
    auto keyless = makeTable("Quotes", { { "Code", Int }, { "Price", Int } }, { "Code" });
    const struct
    {
        const char *what;
        std::function<void(Orders &, Table *)> join;
        QStringList mentions;
    } cases[] = {
        { "missing key column",
          [&](Orders &o, Table *) { TableJoin(o.byInstr, { keyless.get() }, PriceOnly, false); },
          { "Quotes", "Instr", "Orders" } },
        { "dependent given twice",
          [](Orders &o, Table *dep) { TableJoin(o.byInstr, { dep, dep }, PriceOnly, false); },
          { "Instruments", "twice" } },
        { "table joined to itself",
          [](Orders &o, Table *) { TableJoin(o.byInstr, { o.table.get() }, PriceOnly, false); },
          { "Orders", "own dependent" } },
        { "name differing only in case",
          [](Orders &o, Table *dep) {
              dep->addColumn(QStringLiteral("QTY"), FieldType::Integer);
              TableJoin(o.byInstr, { dep }, { "QTY" }, false);
          },
          { "QTY", "Orders", "already exists" } },
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Orders orders({ { "Qty", FieldType::Integer } });
        auto dep = instruments();
        orders.add(1, 7);
        setPrice(dep.get(), 7, 1);
        const QStringList columns = orders.columns();
        QString message;
        try {
            c.join(orders, dep.get());
        } catch (const Exception &e) {
            message = e.message();
        } catch (const QString &e) {
            message = e;
        }
        for (const QString &word : c.mentions)
            EXPECT_TRUE(message.contains(word)) << message.toStdString();
        EXPECT_EQ(orders.columns(), columns);
        EXPECT_EQ(orders.table->indexes(), QList<Index *>({ orders.byInstr }));
        EXPECT_TRUE(dep->indexes().isEmpty());
        orders.add(2, 7);
        setPrice(dep.get(), 7, 2);
        EXPECT_EQ(orders.table->rowCount(), 2);
        EXPECT_EQ(cell(rowOf(dep.get(), 7), "Price"), QVariant(2));
    }
}

// A second join of the same tables takes derived names; each is maintained on
// its own, and either may go first.
TEST(TableJoin, JoinSetUpTwiceKeepsBothUpToDate)
{
    Orders orders;
    auto deps = instruments();
    orders.add(1, 7);
    setPrice(deps.get(), 7, 1);
    auto first = std::make_unique<TableJoin>(orders.byInstr, QList<Table *> { deps.get() },
                                             PriceOnly, false);
    TableJoin second(orders.byInstr, { deps.get() }, PriceOnly, false);
    EXPECT_EQ(orders.at(1, "Price_"), QVariant(1));
    setPrice(deps.get(), 7, 2);
    orders.add(2, 7);
    for (const char *column : { "Price", "Price_" })
        EXPECT_EQ(QVariantList({ orders.at(1, column), orders.at(2, column) }),
                  QVariantList({ 2, 2 }));
    first.reset();
    setPrice(deps.get(), 7, 3);
    EXPECT_EQ(QVariantList({ orders.at(1, "Price"), orders.at(1, "Price_") }),
              QVariantList({ 2, 3 }));
}

// A dependent table destroyed first: its copies become null, the join goes on
// with the others. The join table destroyed first: the dependents are let go.
TEST(TableJoin, TablesDestroyedBeforeTheJoinLeaveTheRestUsable)
{
    Orders orders;
    auto gone = instruments("Gone");
    const FieldType::Type Int = FieldType::Integer;
    auto kept = makeTable("Kept", { { "Instr", Int }, { "Limit", Int } }, { "Instr" });
    auto setLimit = [&](int instr, int limit) { put(kept.get(), instr, { { "Limit", limit } }); };
    orders.add(1, 7);
    setPrice(gone.get(), 7, 5);
    setLimit(7, 9);
    const QList<Table *> deps { gone.get(), kept.get() };
    auto join = std::make_unique<TableJoin>(orders.byInstr, deps, QStringList { "Price", "Limit" },
                                            false);
    EXPECT_EQ(orders.at(1, "Price"), QVariant(5));
    gone.reset();
    orders.add(2, 7);
    setLimit(7, 10);
    EXPECT_EQ(QVariantList({ orders.at(1, "Price"), orders.at(2, "Price"), orders.at(1, "Limit"),
                             orders.at(2, "Limit") }),
              QVariantList({ QVariant(), QVariant(), 10, 10 }));

    EXPECT_EQ(join->fileName(QDir(QStringLiteral("/data"))), QStringLiteral("/data/Orders"));
    orders.table.reset();
    EXPECT_EQ(join->table(), nullptr);
    EXPECT_TRUE(join->fileName(QDir(QStringLiteral("/data"))).isEmpty());
    EXPECT_TRUE(kept->indexes().isEmpty());
    setLimit(7, 11);
    setLimit(8, 12);
    EXPECT_EQ(kept->rowCount(), 2);
}

namespace {

// A key index in its table's list that passes every call on to the indexes
// attached to it.
class IndexDependKey : public MasterIndex_Column, public IndexDependBase
{
public:
    IndexDependKey(Table *table, const QStringList &key)
        : MasterIndex_Column(table, key), IndexDependBase(this)
    {
        table->addIndex(this);
        MasterIndex_Column::build();
    }
    ~IndexDependKey() override { table()->removeIndex(this); }
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                    const QList<Record> &inserted, const QList<Record> &changed) override
    {
        IndexDependBase::preprocess(removed, updated, first, last, inserted, changed);
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override
    {
        MasterIndex_Column::process(removed, updated, first, last, inserted);
        IndexDependBase::process(removed, updated, first, last, inserted);
    }
    QString getClassName() const override { return QStringLiteral("IndexDependKey"); }
};

} // namespace

TEST(TableJoin, AttachesAsDependentIndexesOfKeyIndexes)
{
    Orders orders;
    auto deps = instruments();
    setPrice(deps.get(), 7, 1);
    IndexDependKey byInstr(orders.table.get(), { "Instr" });
    IndexDependKey depKey(deps.get(), { "Instr" });
    {
        TableJoin join(&byInstr, { &depKey }, PriceOnly, false);
        EXPECT_EQ(byInstr.dependentIndexes(), QList<Index *>({ join.mainIndex() }));
        EXPECT_EQ(depKey.dependentIndexes(), QList<Index *>({ join.dependentIndexes().first() }));
        orders.add(1, 7);
        EXPECT_EQ(orders.at(1, "Price"), QVariant(1));
        setPrice(deps.get(), 7, 2);
        EXPECT_EQ(orders.at(1, "Price"), QVariant(2));
    }
    EXPECT_TRUE(byInstr.dependentIndexes().isEmpty());
    EXPECT_TRUE(depKey.dependentIndexes().isEmpty());
}

// A join row is written where the join table's master finds its key: with a
// key held twice, the second row's copies land in the first row, whatever
// instrument that one has.
TEST(TableJoin, JoinRowsOfAKeyHeldTwiceWriteIntoTheFirst)
{
    auto orders = makeTable("Orders", { { "Grp", FieldType::Integer },
                                        { "Instr", FieldType::Integer },
                                        { "Tag", FieldType::Integer } }, { "Grp" });
    auto *byInstr = new MasterIndex_Column(orders.get(), QStringList { "Instr" });
    orders->addIndex(byInstr);
    for (int tag : { 10, 11, 12 }) {
        Record row(orders.get());
        row.data(0) = tag < 12 ? 1 : 2;
        row.data(1) = tag == 10 ? 8 : 7;
        row.data(2) = tag;
        orders->appendList({ row });
    }
    auto deps = instruments();
    {
        TableJoin join(byInstr, { deps.get() }, PriceOnly, false);
        setPrice(deps.get(), 7, 5);
        const int price = orders->columnIndex(QStringLiteral("Price"));
        EXPECT_EQ(orders->at(1).data(2).toVariant(), QVariant(11));
        EXPECT_EQ(orders->at(0).data(price).toVariant(), QVariant(5));
        EXPECT_TRUE(orders->at(1).data(price).isNull()) << "the second row of key 1";
        EXPECT_EQ(orders->at(2).data(price).toVariant(), QVariant(5));
    }
    orders->removeIndex(byInstr);
    delete byInstr;
}
