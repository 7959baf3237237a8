#include "iotestsupport.h"
#include "runtime/exception.h"
#include "support/testapphub.h"
#include "support/warningcatcher.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

QByteArray smallFile()
{
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 3, 77));
    return writeTable(t.get());
}

// Reads `bytes` into a fresh table; the rows it got.
int readInto(const QByteArray &bytes, QString *error = nullptr, Table **keep = nullptr)
{
    std::unique_ptr<Table> t(makeAllTypesTable());
    QDataStream in(bytes);
    TableIO io(t.get());
    io.read(in, true);
    if (error)
        *error = io.lastError();
    const int rows = t->rowCount();
    if (keep)
        *keep = t.release();
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
    const QByteArray whole = smallFile();
    std::unique_ptr<Table> original(makeAllTypesTable());
    {
        QDataStream in(whole);
        TableIO(original.get()).read(in);
    }
    int lastRows = 0;
    for (int cut = 0; cut < whole.size(); ++cut) {
        QString error;
        Table *got = nullptr;
        const int rows = readInto(whole.left(cut), &error, &got);
        std::unique_ptr<Table> owner(got);
        ASSERT_LE(rows, 2) << cut;
        ASSERT_GE(rows, lastRows) << cut; // more bytes never give fewer rows
        lastRows = rows;
        ASSERT_EQ(error.isEmpty(), cut == 0) << cut; // an empty stream is no file
        for (int r = 0; r < rows; ++r) {
            for (int c = 0; c < original->columnCount(); ++c)
                ASSERT_EQ(cellBytes(got->at(r), c), cellBytes(original->at(r), c)) << cut;
        }
    }
    EXPECT_EQ(lastRows, 2);
}

// Any byte changed: no crash, no hang, no leak, and never more rows than
// the header promised.
TEST(DamagedFile, CorruptedAtEveryByte)
{
    WarningCatcher quiet;
    const QByteArray whole = smallFile();
    for (int at = 0; at < whole.size(); ++at) {
        for (quint8 value : {quint8(0xFF), quint8(0x80), quint8(whole[at] ^ 1)}) {
            QByteArray bad = whole;
            bad[at] = char(value);
            try {
                EXPECT_LE(readInto(bad), 3) << at;
            } catch (const Exception &) {
                // A changed cell may fail its conversion, which throws one
                // of the conversion errors by its own type.
            } catch (const QString &) {
            } catch (const char *) {
            }
            PartitionList<Record> list;
            QDataStream in(Bytes().str("orders").raw(bad).data); // the same as a row list
            FilterProgressTrue p;
            TableIO::readRowList(p, in, list, true);
            EXPECT_LE(list.size(), 3) << at;
            Table *made = list.isEmpty() ? nullptr : list.begin()->table();
            list.clear();
            delete made;
        }
    }
}

// Counts that promise far more than follows: what a naive reader would
// allocate up front must not be allocated. Checked in a child whose address
// space is capped (not under AddressSanitizer, which reserves terabytes).
TEST(DamagedFile, ImpossibleCountsAllocateNothingLarge)
{
    const QByteArray stringRow = header(1, 1, 8).column("s", 0, 8, 8, true).be32(0).le32(0x3FFFFFF0).zeros(64).data;
    const QList<QByteArray> cases = {
        header(65535, 1, 4).data, // columns that are not there
        header(1, 0x7FFFFFFF, 4).column("i", 0, 1, 4, true).be32(0).le32(1).u8(1).data, // rows
        header(0, 0x7FFFFFFF, 0).be32(0).data, // rows of no bytes
        header(0, 0, 0).be32(0x7FFFFFFF).data, // master column names
        stringRow, // one huge text
        header(1, 1, 0x7FFFFFFE).column("v", 0x3FFFFFFF, 6, 0x7FFFFFFE, true).be32(0).data,
        header(1, 1, 4).be32(0x7FFFFFF0).zeros(32).data, // a huge column name
    };
#if defined(__SANITIZE_ADDRESS__)
    const bool capped = false;
#else
    const bool capped = true;
#endif
    const pid_t pid = fork();
    if (pid == 0) {
        if (capped) {
            // What the process has now and 1 GiB more: below a naive reader's wish.
            long pages = 0;
            if (FILE *statm = fopen("/proc/self/statm", "r")) {
                if (fscanf(statm, "%ld", &pages) != 1)
                    pages = 0;
                fclose(statm);
            }
            const rlim_t cap = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + (rlim_t(1) << 30);
            const rlimit limit{cap, cap};
            setrlimit(RLIMIT_AS, &limit);
        }
        int failures = 0;
        for (int i = 0; i < cases.size(); ++i) {
            const int before = failures;
            try {
                QString error;
                failures += readInto(cases[i], &error) > 1 || error.isEmpty();
                PartitionList<Record> list;
                QDataStream in(Bytes().str("x").raw(cases[i]).data);
                FilterProgressTrue p;
                TableIO::readRowList(p, in, list, true);
                failures += list.size() > 1;
            } catch (...) {
                ++failures;
            }
            if (failures != before)
                fprintf(stderr, "case %d failed\n", i);
        }
        _exit(failures);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

// A damaged gzip file reads like a cut one: whole rows only, and a note.
TEST(DamagedFile, TruncatedGzipFile)
{
    TestAppHub hub;
    hub.compress = true;
    QTemporaryDir dir;
    std::unique_ptr<Table> t(fillRandom(makeAllTypesTable(), 400, 5));
    TableIO(t.get()).write(QDir(dir.path()));
    QFile file(dir.filePath("orders.gz"));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray gz = file.readAll();
    file.close();
    WarningCatcher warnings;
    for (int cut : {gz.size() / 3, gz.size() - 200}) {
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(gz.left(cut));
        file.close();
        std::unique_ptr<Table> back(makeAllTypesTable());
        TableIO io(back.get());
        io.read(QDir(dir.path()), false);
        EXPECT_LT(back->rowCount(), 400);
        EXPECT_TRUE(io.lastError().contains(dir.filePath("orders.gz")));
        EXPECT_TRUE(io.lastError().contains(QStringLiteral("400 rows expected")));
    }
    EXPECT_EQ(warnings.messages().size(), 2);
}
