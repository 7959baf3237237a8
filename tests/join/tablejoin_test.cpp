#include "jointestsupport.h"
#include "support/testapphub.h"

#include "runtime/exception.h"

#include <gtest/gtest.h>

namespace {

// Orders keyed by Id, joined by instrument through `byInstr`.
struct Orders
{
    Orders(std::initializer_list<ColumnSpec> extra = {})
    {
        table = makeTable("Orders", {{"Id", FieldType::Integer}, {"Instr", FieldType::Integer}},
                          {QStringLiteral("Id")});
        for (const ColumnSpec &c : extra)
            table->addColumn(QString::fromLatin1(c.name), c.type);
        byInstr = new ExactKeyIndex(table.get(), {QStringLiteral("Instr")});
        table->addIndex(byInstr);
    }
    ~Orders()
    {
        if (table)
            table->removeIndex(byInstr);
        delete byInstr;
    }
    void add(int id, int instr) { put(table.get(), id, {{QStringLiteral("Instr"), instr}}); }
    QVariant at(int id, const char *column) const
    {
        return cell(rowOf(table.get(), id), QString::fromLatin1(column));
    }

    std::unique_ptr<Table> table;
    ExactKeyIndex *byInstr;
};

std::unique_ptr<Table> instruments(const char *name = "Instruments")
{
    return makeTable(name, {{"Instr", FieldType::Integer}, {"Price", FieldType::Integer},
                            {"Name", FieldType::String}},
                     {QStringLiteral("Instr")});
}

QStringList columnNames(const Table *table)
{
    QStringList names;
    for (const TableColumnDef *def : table->fieldDefs())
        names.append(def->name);
    return names;
}

} // namespace

// Names, nullability and the first fill from rows that were there before.
TEST(TableJoin, SetupAddsNamedNullableColumnsAndFillsPresentRows)
{
    Orders orders({{"Price", FieldType::Integer}, {"C_Price", FieldType::Integer}});
    auto a = makeTable("A", {{"Instr", FieldType::Integer}}, {QStringLiteral("Instr")});
    a->addColumn(QStringLiteral("Price"), FieldType::Integer, 0, false);
    auto b = instruments("B");
    auto c = instruments("C");
    for (int id = 1; id <= 4; ++id)
        orders.add(id, id == 1 ? 1 : id - 1);
    put(a.get(), 1, {{QStringLiteral("Price"), 10}});
    put(a.get(), 2, {{QStringLiteral("Price"), 20}});
    put(b.get(), 2, {{QStringLiteral("Price"), 5}, {QStringLiteral("Name"), QStringLiteral("x")}});

    {
        TableJoin join(orders.byInstr, {a.get(), b.get(), c.get()},
                       {QStringLiteral("Price"), QStringLiteral("Name"), QStringLiteral("Missing")},
                       false);
        EXPECT_EQ(columnNames(orders.table.get()),
                  QStringList({"Id", "Instr", "Price", "C_Price", "Price_", "B_Price", "Name",
                               "Price2", "Name_"}));
        EXPECT_TRUE(orders.table->columnDef(QStringLiteral("Price_")).nullable);
        EXPECT_EQ(orders.at(1, "Price_"), QVariant(10));
        EXPECT_EQ(orders.at(3, "Price_"), QVariant(20));
        EXPECT_EQ(orders.at(3, "B_Price"), QVariant(5));
        EXPECT_EQ(orders.at(3, "Name"), QVariant(QStringLiteral("x")));
        EXPECT_EQ(orders.at(1, "B_Price"), QVariant());
        EXPECT_EQ(orders.at(4, "Price_"), QVariant());

        // A main row appended outside a transaction finds its dependents too.
        Record row(orders.table.get());
        row.data(0) = 5;
        row.data(1) = 2;
        orders.table->appendRow(row.pointer());
        EXPECT_EQ(orders.at(5, "Name"), QVariant(QStringLiteral("x")));

        bool isDependent = false;
        EXPECT_TRUE(TableJoin::isJoinIndex(join.dependentIndexes().at(1), &isDependent));
        EXPECT_TRUE(isDependent);
        EXPECT_TRUE(TableJoin::isJoinIndex(join.mainIndex(), &isDependent));
        EXPECT_FALSE(isDependent);
        isDependent = true;
        EXPECT_FALSE(TableJoin::isJoinIndex(orders.byInstr, &isDependent));
        EXPECT_TRUE(isDependent);
        EXPECT_EQ(TableJoin::table(join.dependentIndexes().at(2)), orders.table.get());
        EXPECT_EQ(TableJoin::table(join.mainIndex()), orders.table.get());
        EXPECT_EQ(TableJoin::table(orders.byInstr), nullptr);
        EXPECT_EQ(b->indexes(), QList<Index *>({join.dependentIndexes().at(1)}));
    }

    // The columns and their last values stay; nothing is maintained any more.
    EXPECT_TRUE(b->indexes().isEmpty());
    EXPECT_EQ(orders.table->indexes(), QList<Index *>({orders.byInstr}));
    put(b.get(), 2, {{QStringLiteral("Price"), 6}});
    EXPECT_EQ(orders.at(3, "B_Price"), QVariant(5));
}

TEST(TableJoin, RegistersWithTheHostOnlyWhenAsked)
{
    TestAppHub hub;
    Orders orders;
    auto deps = instruments();
    TableJoin silent(orders.byInstr, {deps.get()}, {QStringLiteral("Price")}, false);
    EXPECT_TRUE(hub.joins.isEmpty());
    TableJoin told(orders.byInstr, {deps.get()}, {QStringLiteral("Name")}, true);
    EXPECT_EQ(hub.joins, QList<TableJoin *>({&told}));
}

// Each refusal names what is involved and leaves both tables as they were.
TEST(TableJoin, BadInputIsRefusedBeforeAnythingChanges)
{
    struct Case
    {
        const char *what;
        std::function<void(Orders &, Table *)> join;
        QStringList mentions;
    };
    const QStringList price{QStringLiteral("Price")};
    const Case cases[] = {
        {"missing key column",
         [&](Orders &o, Table *) {
             auto keyless = makeTable("Quotes", {{"Code", FieldType::Integer},
                                                 {"Price", FieldType::Integer}},
                                      {QStringLiteral("Code")});
             TableJoin(o.byInstr, {keyless.get()}, price, false);
         },
         {"Quotes", "Instr", "Orders"}},
        {"dependent given twice",
         [&](Orders &o, Table *dep) { TableJoin(o.byInstr, {dep, dep}, price, false); },
         {"Instruments", "twice"}},
        {"table joined to itself",
         [&](Orders &o, Table *) { TableJoin(o.byInstr, {o.table.get()}, price, false); },
         {"Orders", "own dependent"}},
        {"name differing only in case",
         [&](Orders &o, Table *dep) {
             dep->addColumn(QStringLiteral("QTY"), FieldType::Integer);
             TableJoin(o.byInstr, {dep}, {QStringLiteral("QTY")}, false);
         },
         {"QTY", "Orders", "already exists"}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        Orders orders({{"Qty", FieldType::Integer}});
        auto dep = instruments();
        orders.add(1, 7);
        put(dep.get(), 7, {{QStringLiteral("Price"), 1}});
        const QStringList columns = columnNames(orders.table.get());
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
        EXPECT_EQ(columnNames(orders.table.get()), columns);
        EXPECT_EQ(orders.table->indexes(), QList<Index *>({orders.byInstr}));
        EXPECT_TRUE(dep->indexes().isEmpty());
        // Still usable, and still unjoined.
        orders.add(2, 7);
        put(dep.get(), 7, {{QStringLiteral("Price"), 2}});
        EXPECT_EQ(orders.table->rowCount(), 2);
        EXPECT_EQ(cell(rowOf(dep.get(), 7), QStringLiteral("Price")), QVariant(2));
    }
}

// A second join of the same tables takes derived names; each is maintained on
// its own, and either may go first.
TEST(TableJoin, JoinSetUpTwiceKeepsBothUpToDate)
{
    Orders orders;
    auto deps = instruments();
    orders.add(1, 7);
    put(deps.get(), 7, {{QStringLiteral("Price"), 1}});
    std::unique_ptr<TableJoin> first(new TableJoin(orders.byInstr, {deps.get()}, {QStringLiteral("Price")}, false));
    TableJoin second(orders.byInstr, {deps.get()}, {QStringLiteral("Price")}, false);
    EXPECT_EQ(orders.at(1, "Price_"), QVariant(1));
    put(deps.get(), 7, {{QStringLiteral("Price"), 2}});
    orders.add(2, 7);
    for (int id : {1, 2}) {
        EXPECT_EQ(orders.at(id, "Price"), QVariant(2));
        EXPECT_EQ(orders.at(id, "Price_"), QVariant(2));
    }
    first.reset();
    put(deps.get(), 7, {{QStringLiteral("Price"), 3}});
    EXPECT_EQ(orders.at(1, "Price"), QVariant(2));
    EXPECT_EQ(orders.at(1, "Price_"), QVariant(3));
}

// A dependent table destroyed first: its copies become null, the join goes on
// with the others. The join table destroyed first: the dependents are let go.
TEST(TableJoin, TablesDestroyedBeforeTheJoinLeaveTheRestUsable)
{
    Orders orders;
    auto gone = instruments("Gone");
    auto kept = makeTable("Kept", {{"Instr", FieldType::Integer}, {"Limit", FieldType::Integer}},
                          {QStringLiteral("Instr")});
    orders.add(1, 7);
    put(gone.get(), 7, {{QStringLiteral("Price"), 5}});
    put(kept.get(), 7, {{QStringLiteral("Limit"), 9}});
    std::unique_ptr<TableJoin> join(new TableJoin(orders.byInstr, {gone.get(), kept.get()},
                                                  {QStringLiteral("Price"), QStringLiteral("Limit")},
                                                  false));
    EXPECT_EQ(orders.at(1, "Price"), QVariant(5));
    gone.reset();
    EXPECT_EQ(orders.at(1, "Price"), QVariant());
    EXPECT_EQ(orders.at(1, "Limit"), QVariant(9));
    orders.add(2, 7);
    put(kept.get(), 7, {{QStringLiteral("Limit"), 10}});
    EXPECT_EQ(orders.at(2, "Limit"), QVariant(10));
    EXPECT_EQ(orders.at(2, "Price"), QVariant());

    orders.table.reset(); // its destructor empties byInstr

    EXPECT_EQ(join->table(), nullptr);
    EXPECT_TRUE(kept->indexes().isEmpty());
    put(kept.get(), 7, {{QStringLiteral("Limit"), 11}});
    put(kept.get(), 8, {{QStringLiteral("Limit"), 12}});
    EXPECT_EQ(kept->rowCount(), 2);
    join.reset();
}
