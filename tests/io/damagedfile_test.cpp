#include "iotestsupport.h"
#include "runtime/exception.h"
#include "support/testapphub.h"
#include "support/warningcatcher.h"

#include <QDir>
#include <QTemporaryDir>

#include <fstream>
#include <memory>
#include <sys/resource.h>

namespace {

// Reads `bytes` into a fresh all-types table.
std::unique_ptr<Table> readInto(const QByteArray &bytes, QString *error = nullptr)
{
    std::unique_ptr<Table> t(makeAllTypesTable());
    QDataStream in(bytes);
    TableIO io(t.get());
    io.read(in, true);
    if (error)
        *error = io.lastError();
    return t;
}

// Reads `bytes` as the rows of a row list; how many it got.
int rowListRows(const QByteArray &bytes)
{
    PartitionList<Record> list;
    QDataStream in(Bytes().str("orders").raw(bytes).data); // a row list is a named table file
    FilterProgressTrue p;
    TableIO::readRowList(p, in, list, true);
    const int rows = list.size();
    Table *made = list.isEmpty() ? nullptr : list.begin()->table();
    list.clear();
    delete made;
    return rows;
}

Bytes header(quint16 columns, qint32 rows, qint32 rowLength)
{
    Bytes b;
    b.be32(0x20190101).be16(columns).be32(quint32(rows)).be32(quint32(rowLength));
    return b.be32(quint32((columns + 7) / 8));
}

} // namespace

// Cut anywhere: the whole rows before the cut and nothing else.
TEST(DamagedFile, TruncatedAtEveryByte)
{
    WarningCatcher quiet;
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 3, 77));
    const QByteArray whole = writeTable(t.get());
    int lastRows = 0;
    for (int cut = 0; cut < whole.size(); ++cut) {
        QString error;
        const std::unique_ptr<Table> got = readInto(whole.left(cut), &error);
        const int rows = got->rowCount();
        ASSERT_LE(rows, 2) << cut;
        ASSERT_GE(rows, lastRows) << cut; // more bytes never give fewer rows
        lastRows = rows;
        ASSERT_EQ(error.isEmpty(), cut == 0) << cut; // an empty stream is no file
        SCOPED_TRACE(cut);
        ASSERT_NO_FATAL_FAILURE(expectSameRows(t.get(), got.get(), true));
    }
    EXPECT_EQ(lastRows, 2);
}

// Any byte changed: never more rows than the header promised, as a table
// and as a row list.
TEST(DamagedFile, CorruptedAtEveryByte)
{
    WarningCatcher quiet;
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 3, 77));
    const QByteArray whole = writeTable(t.get());
    for (int at = 0; at < whole.size(); ++at) {
        for (quint8 value : {quint8(0xFF), quint8(0x80), quint8(whole[at] ^ 1)}) {
            QByteArray bad = whole;
            bad[at] = char(value);
            try {
                EXPECT_LE(readInto(bad)->rowCount(), 3) << at;
            } catch (const Exception &) {
                // A changed cell may fail its conversion, which throws one
                // of the conversion errors by its own type.
            } catch (const QString &) {
            } catch (const char *) {
            }
            EXPECT_LE(rowListRows(bad), 3) << at;
        }
    }
}

// Counts that promise far more than follows: what a naive reader would
// allocate up front must not be allocated. Checked in a child whose address
// space is capped (not under AddressSanitizer, which reserves terabytes).
TEST(DamagedFile, ImpossibleCountsAllocateNothingLarge)
{
    const QList<QByteArray> cases = {
        header(65535, 1, 4).data, // columns that are not there
        header(1, 0x7FFFFFFF, 4).column("i", 0, 1, 4, true).be32(0).le32(1).u8(1).data, // rows
        header(0, 0x7FFFFFFF, 0).be32(0).data, // rows of no bytes
        header(0, 0, 0).be32(0x7FFFFFFF).data, // master column names
        header(1, 1, 8).column("s", 0, 8, 8, true).be32(0).le32(0x3FFFFFF0).zeros(64).data, // text
        header(1, 1, 0x7FFFFFFE).column("v", 0x3FFFFFFF, 6, 0x7FFFFFFE, true).be32(0).data,
        header(1, 1, 4).be32(0x7FFFFFF0).zeros(32).data, // a huge column name
    };
    const int failures = inChild([&]() {
#if !defined(__SANITIZE_ADDRESS__)
        // What the process has now and 1 GiB more: below a naive reader's wish.
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        const rlim_t cap = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + (rlim_t(1) << 30);
        const rlimit limit{cap, cap};
        setrlimit(RLIMIT_AS, &limit);
#endif
        int failed = 0;
        for (int i = 0; i < cases.size(); ++i) {
            QString error;
            if (readInto(cases[i], &error)->rowCount() > 1 || error.isEmpty() || rowListRows(cases[i]) > 1) {
                fprintf(stderr, "case %d failed\n", i);
                ++failed;
            }
        }
        return failed;
    });
    EXPECT_EQ(failures, 0); // 4 when a case threw, 128 + a signal when it died
}

// A damaged gzip file reads like a cut one: whole rows only, and a note.
TEST(DamagedFile, TruncatedGzipFile)
{
    TestAppHub hub;
    hub.compress = true;
    QTemporaryDir dir;
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 400, 5));
    TableIO(t.get()).write(QDir(dir.path()));
    const QString path = dir.filePath("orders.gz");
    const QByteArray gz = readFile(path);
    WarningCatcher warnings;
    for (int cut : {gz.size() / 3, gz.size() - 200}) {
        ASSERT_TRUE(writeFile(path, gz.left(cut)));
        std::unique_ptr<Table> back(makeAllTypesTable());
        TableIO io(back.get());
        io.read(QDir(dir.path()), false);
        EXPECT_LT(back->rowCount(), 400);
        expectSameRows(t.get(), back.get(), true);
        EXPECT_TRUE(io.lastError().startsWith(QStringLiteral("Table file %1 is damaged: 400 rows expected, ").arg(path)))
                << io.lastError().toStdString();
        EXPECT_EQ(warnings.messages().value(warnings.messages().size() - 1), io.lastError());
    }
    EXPECT_EQ(warnings.messages().size(), 2);
}
