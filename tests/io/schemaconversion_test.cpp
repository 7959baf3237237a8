#include "iotestsupport.h"
#include "index/masterindex_fast.h"
#include "support/warningcatcher.h"

#include <memory>

namespace {

struct Col
{
    const char *name;
    FieldType::Type type;
    int length;
    bool nullable;
};

Table *tableOf(const QList<Col> &cols)
{
    auto *t = new Table(QStringLiteral("conv"));
    for (const Col &c : cols)
        t->addColumn(QString::fromLatin1(c.name), c.type, c.length, c.nullable);
    return t;
}

// Tells how many convertors were deleted, and moves a value times ten.
struct TimesTen : FieldDefConvertor
{
    explicit TimesTen(int *deleted) : deleted(deleted) { }
    ~TimesTen() override { ++*deleted; }
    void convert(Field &to, const Field &from) override { to = from.toInteger() * 10; }
    int *deleted;
};

QByteArray sourceFile(Table *source)
{
    for (int i = 0; i < 3; ++i) {
        Record r(source);
        for (int c = 0; c < source->columnCount(); ++c) {
            Field f = r.data(c);
            if (i == 2 && f.columnDef()->nullable)
                continue; // the last row is NULL where it may be
            if (f.type() == FieldType::VarChar || f.type() == FieldType::String)
                f = QStringLiteral("v%1").arg(i);
            else
                f = 100 + i;
        }
        r.append();
    }
    return writeTable(source);
}

} // namespace

// What a table of another schema holds after reading, cell by cell, with
// convertors that move, drop and miss columns.
TEST(SchemaConversion, ReadingIntoAChangedTable)
{
    std::unique_ptr<Table> source(tableOf({{"id", FieldType::Integer, 0, false},
                                           {"qty", FieldType::Integer, 0, true},
                                           {"code", FieldType::VarChar, 3, true},
                                           {"OldPrice", FieldType::Integer, 0, true},
                                           {"junk", FieldType::Integer, 0, true}}));
    const QByteArray bytes = sourceFile(source.get());

    int deleted = 0;
    auto *orphan = new TimesTen(&deleted);
    TableIO::Convertors convertors;
    convertors.insert(QStringLiteral("price"), {QStringLiteral("OldPrice"), new TimesTen(&deleted)});
    convertors.insert(QString(), {QStringLiteral("junk"), nullptr}); // dropped
    convertors.insert(QString(), {QStringLiteral("OldPrice"), nullptr}); // moved, not added
    convertors.insert(QStringLiteral("fresh"), {QStringLiteral("Nowhere"), orphan});

    std::unique_ptr<Table> target(tableOf({{"id", FieldType::Integer, 0, false},
                                           {"qty", FieldType::Integer64, 0, true}, // widened
                                           {"code", FieldType::VarChar, 6, true}, // longer
                                           {"Price", FieldType::Integer, 0, true}, // renamed
                                           {"fresh", FieldType::Integer, 0, true}})); // new
    TableIO io(target.get());
    {
        WarningCatcher warnings;
        QDataStream in(bytes);
        FilterProgressTrue progress;
        io.read(progress, in, true, convertors, true);
        EXPECT_EQ(warnings.messages(), QStringList{QStringLiteral("Column not found in translation.")});
    }
    EXPECT_EQ(deleted, 1); // read deletes the convertors it used, and no other
    delete orphan;
    EXPECT_EQ(target->columnCount(), 5); // neither junk nor OldPrice was added
    ASSERT_EQ(target->rowCount(), 3);
    for (int i = 0; i < 3; ++i) {
        const Record &r = target->at(i);
        const bool nulls = i == 2;
        EXPECT_EQ(r.data(0).toInteger(), 100 + i);
        EXPECT_EQ(r.data(1).isNull(), nulls);
        EXPECT_EQ(r.data(1).toInteger64(), nulls ? 0 : 100 + i);
        EXPECT_EQ(r.data(2).toString(), nulls ? QString() : QStringLiteral("v%1").arg(i));
        // The custom convertor runs on NULL cells too: toInteger() gives 0.
        EXPECT_EQ(r.data(3).toInteger(), nulls ? 0 : 10 * (100 + i));
        EXPECT_TRUE(r.data(4).isNull());
    }

    // addColumns with no convertors: the file's other columns join the
    // table, in file order, and are filled by copies.
    std::unique_ptr<Table> bare(tableOf({{"qty", FieldType::Integer, 0, true}}));
    QDataStream in(bytes);
    TableIO(bare.get()).read(in, true);
    EXPECT_EQ(bare->columnCount(), 5);
    EXPECT_EQ(bare->columnName(1), QStringLiteral("id"));
    EXPECT_EQ(bare->at(1).data(QStringLiteral("junk")).toInteger(), 101);
}

// A conversion that throws halfway through a long file into a Fast master:
// the table keeps the whole batches of 10240 rows read before it, whether or
// not anything from outside watches the read (which decides whether the
// master takes the rows batch by batch or all at the end).
TEST(SchemaConversion, AFailedConversionKeepsTheBatchesBeforeIt)
{
    std::unique_ptr<Table> source(tableOf({{"n", FieldType::VarChar, 6, false}}));
    for (int i = 0; i < 25000; ++i) {
        Record row(source.get());
        row.data(0) = i == 20500 ? QStringLiteral("zz") : QString::number(i);
        row.append();
    }
    struct Watching : FilterProgressTrue
    {
    } watching;
    FilterProgressTrue plain;
    for (FilterProgress *progress : std::initializer_list<FilterProgress *>{&plain, &watching}) {
        std::unique_ptr<Table> target(tableOf({{"n", FieldType::Integer, 0, false}}));
        MasterIndex_Fast::createMasterIndex(target.get(), {QStringLiteral("n")});
        QDataStream in(writeTable(source.get()));
        EXPECT_ANY_THROW(TableIO(target.get()).read(*progress, in, false, {}, true));
        ASSERT_EQ(target->rowCount(), 20480);
        int64 sum = 0; // the first rows of the file
        for (int i = 0; i < target->rowCount(); ++i)
            sum += target->at(i).data(0).toInteger();
        EXPECT_EQ(sum, int64(20479) * 20480 / 2);
    }
}
