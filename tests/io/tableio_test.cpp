#include "iotestsupport.h"
#include "support/testapphub.h"
#include "support/warningcatcher.h"

#include <QDir>
#include <QTemporaryDir>

#include <memory>

namespace {

const QByteArray xdecBytes = QByteArray::fromHex("041a0000000000000000000000000117");

// Two rows in key order: one full, one with every nullable cell NULL.
Table *makeFixtureTable()
{
    Table *t = makeAllTypesTable(QStringLiteral("fx"));
    Record full(t);
    full.data(0) = 7;
    full.data(1) = int64(123456789012LL);
    full.data(2) = 1.5;
    FieldType::setInt64(full.data(3).data(), 0x0200000000003039LL);
    std::memcpy(full.data(4).data(), xdecBytes.constData(), 16);
    full.data(5) = QStringLiteral("ab");
    FieldType::setInt64(full.data(6).data(), 1700000000123LL);
    full.data(7) = QStringLiteral("h\u00e9llo");
    boardlist b;
    std::memset(&b, 0, sizeof b);
    b.count = 2;
    b.items[0] = {1, 2};
    b.items[1] = {1, 3};
    full.data(8) = b;
    for (int c : {3, 4, 6})
        full.data(c).clearNull();
    Record empty(t);
    empty.data(0) = 9;
    TableUpdater updater(t);
    t->appendList({empty, full});
    return t;
}

QByteArray fixtureBytes()
{
    Bytes f;
    f.be32(0x20190101).be16(9).be32(2).be32(470).be32(2);
    f.column("key", 0, 1, 4, false).column("qty", 0, 2, 8, true).column("px", 0, 3, 8, true);
    f.column("dec", 2, 4, 8, true).column("xdec", 4, 5, 16, true).column("code", 3, 6, 6, true);
    f.column("time", 0, 7, 8, true).column("text", 0, 8, 8, true).column("board", 0, 9, 404, true);
    f.be32(1).str("key");
    // key 7, every cell set
    f.le32(7).le64(123456789012ULL).le64(0x3FF8000000000000ULL).le64(0x0200000000003039ULL);
    f.raw(xdecBytes).raw(QByteArray("a\0b\0\0\0", 6)).le64(1700000000123ULL);
    f.le32(5).raw(QByteArray("h\0\xe9\0l\0l\0o\0\0\0", 12));
    f.le32(2).le32(1).le32(2).le32(1).le32(3).zeros(404 - 20);
    f.u8(0xFF).u8(0x01);
    // key 9, NULL but for the key; the zero xdecimal has 26 digits
    f.le32(9).zeros(24).u8(0).u8(26).zeros(14).zeros(6).zeros(8).le32(0).zeros(404);
    f.u8(0x01).u8(0x00);
    return f.data;
}

} // namespace

TEST(TableIO, WritesTheFormatByteForByteAndReadsItBack)
{
    std::unique_ptr<Table> t(makeFixtureTable());
    const QByteArray expected = fixtureBytes();
    EXPECT_EQ(writeTable(t.get()).toHex().toStdString(), expected.toHex().toStdString());

    // Into the same schema, and into a bare table that takes the file's columns.
    std::unique_ptr<Table> same(makeAllTypesTable(QStringLiteral("fx")));
    std::unique_ptr<Table> bare(new Table(QStringLiteral("fx")));
    for (Table *target : {same.get(), bare.get()}) {
        QDataStream in(expected);
        TableIO io(target);
        io.read(in, true);
        EXPECT_TRUE(io.lastError().isEmpty());
        EXPECT_TRUE(in.atEnd());
        expectSameRows(t.get(), target);
    }
    EXPECT_FALSE(bare->columnDef(QStringLiteral("key")).nullable);
    EXPECT_EQ(bare->columnDef(QStringLiteral("code")).length, 3);
}

// Every transport: a bare stream, a plain file, a gzip file. Then the file of
// the other form replaces the first and is the only one left.
TEST(TableIO, RandomTablesRoundTripThroughEveryTransport)
{
    TestAppHub hub;
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    for (int rows : {0, 1, 25000}) {
        std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), rows, unsigned(rows) + 1));
        for (int transport = 0; transport < 3; ++transport) {
            SCOPED_TRACE(testing::Message() << "rows " << rows << " transport " << transport);
            std::unique_ptr<Table> back(makeAllTypesTable());
            TableIO io(back.get());
            if (transport == 0) {
                QDataStream in(writeTable(t.get()));
                io.read(in);
            } else {
                hub.compress = transport == 2;
                TableIO(t.get()).write(QDir(dir.path()));
                const QString plain = dir.filePath(QStringLiteral("orders"));
                EXPECT_EQ(QFile::exists(plain), !hub.compress);
                EXPECT_EQ(QFile::exists(plain + ".gz"), hub.compress);
                EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 1);
                io.read(QDir(dir.path()), false);
            }
            EXPECT_TRUE(io.lastError().isEmpty()) << io.lastError().toStdString();
            expectSameRows(t.get(), back.get());
        }
    }
}

// What is not simply a whole file: none, an empty stream, both forms at once,
// another version, a table with no rows, and a header without its rows.
TEST(TableIO, MissingEmptyForeignAndShortFiles)
{
    WarningCatcher warnings;
    QTemporaryDir dir;
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 10, 3));
    std::unique_ptr<Table> other(fillRandom(makeAllTypesTable(), 3, 4));
    TableIO io(t.get());
    EXPECT_EQ(io.fileName(QDir(dir.path())), dir.filePath("orders"));
    // No file, or a directory in its place: untouched, and said why.
    QDir(dir.path()).mkpath("sub/orders");
    const struct
    {
        QString dir;
        QString error;
    } unread[] = {
        {dir.path(), QStringLiteral("no such file")},
        {dir.filePath("sub"), QStringLiteral("file to open is a directory")},
    };
    for (const auto &u : unread) {
        io.read(QDir(u.dir), false);
        EXPECT_EQ(t->rowCount(), 10);
        EXPECT_EQ(io.lastError(), QStringLiteral("Table file %1/orders was not read: %2").arg(u.dir, u.error));
    }
    {
        QDataStream in(QByteArray{});
        io.read(in);
        EXPECT_EQ(t->rowCount(), 10);
        EXPECT_TRUE(io.lastError().isEmpty());
    }

    // Both forms left by an outside hand: the plain one wins.
    {
        TestAppHub hub;
        hub.compress = true;
        TableIO(t.get()).write(QDir(dir.path()));
    }
    ASSERT_TRUE(writeFile(dir.filePath("orders"), writeTable(other.get())));
    std::unique_ptr<Table> back(makeAllTypesTable());
    TableIO(back.get()).read(QDir(dir.path()), false);
    expectSameRows(other.get(), back.get());

    // Another version: an empty table, and nothing said.
    QByteArray bytes = writeTable(t.get());
    bytes[3] = 2;
    {
        QDataStream in(bytes);
        io.read(in);
        EXPECT_EQ(t->rowCount(), 0);
        EXPECT_TRUE(io.lastError().isEmpty());
    }

    // A table with no rows is its header alone; reading it clears the table.
    const QByteArray headerOnly = writeTable(t.get());
    EXPECT_EQ(headerOnly, writeTable(t.get(), false));
    TableIO backIO(back.get());
    {
        QDataStream in(headerOnly);
        backIO.read(in);
        EXPECT_EQ(back->rowCount(), 0);
        EXPECT_TRUE(backIO.lastError().isEmpty());
    }
    EXPECT_TRUE(warnings.messages().isEmpty());

    // The header of a table with rows, read without rows, gives the columns;
    // read with rows, it is a damaged file: no rows are made up.
    const QByteArray header = writeTable(other.get(), false);
    std::unique_ptr<Table> target(new Table(QStringLiteral("orders")));
    TableIO into(target.get());
    FilterProgressTrue progress;
    QDataStream first(header);
    into.read(progress, first, true, TableIO::Convertors(), false);
    EXPECT_EQ(target->columnCount(), 9);
    EXPECT_TRUE(into.lastError().isEmpty());
    QDataStream second(header);
    into.read(second, true);
    EXPECT_EQ(target->rowCount(), 0);
    EXPECT_EQ(into.lastError(), QStringLiteral("Table file (stream) is damaged: 3 rows expected, 0 read"));
    EXPECT_EQ(warnings.messages(), QStringList{into.lastError()});
}

TEST(TableIO, ProgressAndFilterSeeEveryRow)
{
    struct EvenKeys : FilterProgress
    {
        bool operator()(int current, int total) override
        {
            calls.append(qMakePair(current, total));
            return true;
        }
        bool filter(const Record &r) const override { return r.data(0).asInteger() % 2 == 0; }
        QList<QPair<int, int>> calls;
    };
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 40, 12));
    int even = 0;
    for (int i = 0; i < t->rowCount(); ++i)
        even += t->at(i).data(0).asInteger() % 2 == 0;
    EvenKeys progress;
    std::unique_ptr<Table> back(makeAllTypesTable());
    QDataStream in(writeTable(t.get()));
    TableIO(back.get()).read(progress, in, false, TableIO::Convertors(), true);
    EXPECT_EQ(back->rowCount(), even);
    ASSERT_EQ(progress.calls.size(), 40);
    EXPECT_EQ(progress.calls.last(), qMakePair(39, 40));

    // filterRecords drops the same rows from a table in place.
    EvenKeys again;
    TableIO(t.get()).filterRecords(again);
    expectSameRows(back.get(), t.get());
    EXPECT_EQ(again.calls.size(), 40);
    FilterProgressTrue keepAll;
    TableIO(t.get()).filterRecords(keepAll);
    EXPECT_EQ(t->rowCount(), even);
}

// A String cell written without characters (NULL or not) takes the text of
// the last earlier row that had one in its column, whether rows go straight
// into their blocks (same columns) or through the convertors (a column more);
// equal texts share one string. More texts than a column remembers.
TEST(TableIO, EmptyTextsTakeTheLastTextOfTheirColumn)
{
    auto makeTable = [](int columns) {
        auto *t = new Table(QStringLiteral("texts"));
        for (int c = 0; c < columns; ++c)
            t->addColumn(QStringLiteral("c%1").arg(c), c < 2 ? FieldType::String : FieldType::Integer);
        return t;
    };
    std::unique_ptr<Table> t(makeTable(2));
    std::mt19937 rng(5);
    QStringList expected[2]; // per column, as the model says
    QString last[2];
    for (int i = 0; i < 6000; ++i) {
        Record row(t.get());
        for (int k = 0; k < 2; ++k) {
            if (rng() % 4 != 0)
                row.data(k).clearNull(); // else NULL and empty
            if (rng() % 4 != 0)
                row.data(k).storeString(last[k] = QStringLiteral("t%1").arg(rng() % (k ? 20 : 3000)));
            expected[k].append(last[k]);
        }
        row.append();
    }
    for (int columns : {2, 3}) {
        std::unique_ptr<Table> back(makeTable(columns));
        QDataStream in(writeTable(t.get()));
        TableIO(back.get()).read(in);
        ASSERT_EQ(back->rowCount(), t->rowCount());
        QHash<QString, const QChar *> shared;
        for (int r = 0; r < back->rowCount(); ++r) {
            for (int k = 0; k < 2; ++k) {
                ASSERT_EQ(back->at(r).data(k).isNull(), t->at(r).data(k).isNull()) << r;
                const QString text = *reinterpret_cast<const QString *>(back->at(r).data(k).data());
                ASSERT_EQ(text, expected[k].at(r)) << r << " of " << columns;
                ASSERT_EQ(shared.insert(text, shared.value(text, text.constData())).value(), text.constData());
            }
        }
    }
}

TEST(TableIO, RowListsFollowEachOtherOnOneStream)
{
    TestAppHub hub;
    std::unique_ptr<Table> a(fillRandom(makeAllTypesTable(QStringLiteral("a")), 30, 1));
    // Without String cells: only then can a list the host does not know be skipped.
    std::unique_ptr<Table> b(new Table(QStringLiteral("b")));
    b->addColumn(QStringLiteral("n"), FieldType::Integer64);
    b->addColumn(QStringLiteral("c"), FieldType::VarChar, 4);
    for (int i = 0; i < 5; ++i)
        Record(b.get()).append();
    auto listOf = [](Table *t, int step) {
        PartitionList<Record> list;
        for (int i = 0; i < t->rowCount(); i += step)
            list.append(t->at(i));
        return list;
    };
    QByteArray bytes;
    {
        QDataStream out(&bytes, QIODevice::WriteOnly);
        FilterProgressTrue p;
        TableIO::writeRowList(p, out, listOf(b.get(), 1)); // unknown to the host below
        TableIO::writeRowList(p, out, PartitionList<Record>()); // writes nothing
        TableIO::writeRowList(p, out, listOf(a.get(), 3));
        TableIO::writeRowList(p, out, listOf(a.get(), 2));
    }
    hub.tables.insert(QStringLiteral("a"), a.get());
    QDataStream in(bytes);
    FilterProgressTrue p;
    PartitionList<Record> skipped, known, created;
    TableIO::readRowList(p, in, skipped, false);
    TableIO::readRowList(p, in, known, false);
    TableIO::readRowList(p, in, created, true);
    EXPECT_TRUE(in.atEnd());
    TableIO::readRowList(p, in, created, true); // at the end: nothing, no error
    EXPECT_TRUE(skipped.isEmpty());
    ASSERT_EQ(known.size(), 10);
    ASSERT_EQ(created.size(), 15);
    Table *made = created.begin()->table();
    EXPECT_NE(made, a.get());
    EXPECT_EQ(made->name(), QStringLiteral("a"));
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(known.at(i).table(), a.get());
        for (int c = 0; c < a->columnCount(); ++c)
            EXPECT_EQ(cellBytes(known.at(i), c), cellBytes(a->at(i * 3), c));
    }
    for (int i = 0; i < 15; ++i)
        EXPECT_EQ(cellBytes(created.at(i), 7), cellBytes(a->at(i * 2), 7));
    created.clear();
    delete made; // the list's table belongs to no one
}

TEST(TableIO, MemoryUsage)
{
    std::unique_ptr<Table> t(new Table(QStringLiteral("m")));
    t->addColumn(QStringLiteral("i"), FieldType::Integer);
    for (int i = 0; i < 3; ++i)
        Record(t.get()).append();
    uint64 rowBytes = 0, padding = 0;
    TableIO::memoryUsage(t.get(), rowBytes, padding);
    EXPECT_EQ(rowBytes, 3 * t->rowSize());
    EXPECT_EQ(padding, 4u * 3);

    uint64 allocated = 0, unused = 0;
    TableIO::memoryUsage(t->masterIndex(), allocated, unused);
    EXPECT_GE(allocated, 8u * 3);
    EXPECT_EQ(allocated - unused, 8u * 3);
}
