#include "iotestsupport.h"
#include "support/warningcatcher.h"

#include <memory>
#include <typeinfo>

namespace {

class ProbeIO : public TableIO
{
public:
    using TableIO::TableIO;
    using TableIO::make_fromDefs;
};

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

// The convertor chosen for each column of the table, by what the file holds.
TEST(SchemaConversion, ConvertorKindPerColumn)
{
    std::unique_ptr<Table> all(makeAllTypesTable());
    std::unique_ptr<Table> file(makeAllTypesTable());
    file->addColumn(QStringLiteral("gone"), FieldType::Integer);
    all->addColumn(QStringLiteral("new"), FieldType::Integer);
    QList<FieldDefConvertor *> list;
    ProbeIO(all.get()).make_fromDefs(list, file.get(), TableIO::Convertors());
    const char *expected[] = {typeid(TableIO::FieldDefConvertor_Copy4).name(), // Integer
                              typeid(TableIO::FieldDefConvertor_Copy8).name(), // Integer64
                              typeid(TableIO::FieldDefConvertor_Copy8).name(), // Double
                              typeid(TableIO::FieldDefConvertor_Copy8).name(), // Decimal
                              typeid(TableIO::FieldDefConvertor_Copy).name(), // XDecimal
                              typeid(TableIO::FieldDefConvertor_Copy).name(), // VarChar
                              typeid(TableIO::FieldDefConvertor_Copy8).name(), // DateTime
                              typeid(TableIO::FieldDefConvertor_CopyString).name(),
                              typeid(TableIO::FieldDefConvertor_Copy).name()}; // BoardList
    ASSERT_EQ(list.size(), 9); // "new" has no source, "gone" no target
    for (int i = 0; i < 9; ++i) {
        EXPECT_STREQ(typeid(*list[i]).name(), expected[i]) << i;
        EXPECT_EQ(list[i]->to, all->fieldDefs().at(i));
        EXPECT_EQ(list[i]->from, file->fieldDefs().at(i));
    }
    EXPECT_EQ(static_cast<TableIO::FieldDefConvertor_Copy *>(list[5])->size, 6);
    qDeleteAll(list);
    list.clear();

    // Any of type, length, width or nullability changed: the converting base.
    const struct
    {
        Col from, to;
    } changes[] = {
        {{"c", FieldType::Integer, 0, true}, {"c", FieldType::Integer64, 0, true}},
        {{"c", FieldType::Integer, 0, false}, {"c", FieldType::Integer, 0, true}},
        {{"c", FieldType::VarChar, 3, true}, {"c", FieldType::VarChar, 5, true}},
        {{"c", FieldType::Decimal, 2, true}, {"c", FieldType::Decimal, 4, true}},
        {{"c", FieldType::Integer, 0, true}, {"c", FieldType::String, 0, true}},
    };
    for (const auto &change : changes) {
        std::unique_ptr<Table> source(tableOf({change.from}));
        std::unique_ptr<Table> target(tableOf({change.to}));
        ProbeIO(target.get()).make_fromDefs(list, source.get(), TableIO::Convertors());
        ASSERT_EQ(list.size(), 1);
        EXPECT_STREQ(typeid(*list[0]).name(), typeid(FieldDefConvertor).name());
        qDeleteAll(list);
        list.clear();
    }
}

// What a table of another schema holds after reading, cell by cell.
TEST(SchemaConversion, ReadingIntoAChangedTable)
{
    std::unique_ptr<Table> source(tableOf({{"id", FieldType::Integer, 0, false},
                                           {"qty", FieldType::Integer, 0, true},
                                           {"code", FieldType::VarChar, 3, true},
                                           {"OldPrice", FieldType::Integer, 0, true},
                                           {"junk", FieldType::Integer, 0, true}}));
    const QByteArray bytes = sourceFile(source.get());

    int deleted = 0;
    TableIO::Convertors convertors;
    convertors.insert(QStringLiteral("price"), {QStringLiteral("OldPrice"), new TimesTen(&deleted)});
    convertors.insert(QString(), {QStringLiteral("junk"), nullptr}); // dropped
    convertors.insert(QString(), {QStringLiteral("OldPrice"), nullptr}); // moved, not added

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
        EXPECT_TRUE(warnings.messages().isEmpty());
    }
    EXPECT_EQ(deleted, 1); // read deletes the convertors it used
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

TEST(SchemaConversion, MissingTranslationSourceWarnsAndLeavesTheDefault)
{
    std::unique_ptr<Table> source(tableOf({{"id", FieldType::Integer, 0, false}}));
    const QByteArray bytes = sourceFile(source.get());
    int deleted = 0;
    auto *orphan = new TimesTen(&deleted);
    TableIO::Convertors convertors;
    convertors.insert(QStringLiteral("Price"), {QStringLiteral("OldPrice"), orphan});
    std::unique_ptr<Table> target(tableOf({{"id", FieldType::Integer, 0, false},
                                           {"Price", FieldType::Integer, 0, true}}));
    WarningCatcher warnings;
    QDataStream in(bytes);
    TableIO(target.get()).read(in, false, convertors);
    EXPECT_EQ(warnings.messages(), QStringList{QStringLiteral("Column not found in translation.")});
    EXPECT_EQ(deleted, 0); // never used, so still the caller's
    delete orphan;
    ASSERT_EQ(target->rowCount(), 3);
    EXPECT_TRUE(target->at(0).data(1).isNull());
    EXPECT_EQ(target->at(2).data(0).toInteger(), 102);
}
