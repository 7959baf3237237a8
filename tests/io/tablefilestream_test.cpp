#include "iotestsupport.h"
#include "io/qtiocompressor.h"
#include "io/tablefilestream.h"
#include "runtime/exception.h"
#include "support/testapphub.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <csignal>
#include <memory>
#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The order-flow shape without the 404-byte board: some 90 bytes a row.
Table *makeFlowTable(int rows, unsigned seed)
{
    auto *t = new Table(QStringLiteral("flow"));
    t->addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
    t->addColumn(QStringLiteral("px"), FieldType::Double);
    t->addColumn(QStringLiteral("dec"), FieldType::Decimal, 2);
    t->addColumn(QStringLiteral("code"), FieldType::VarChar, 12);
    t->addColumn(QStringLiteral("text"), FieldType::String);
    t->setMasterIndex(new IntKeyMaster(t));
    return fillRandom(t, rows, seed);
}

// The file's content as the plain form holds it.
QByteArray contentOf(const QString &dir, bool compressed)
{
    QFile file(QDir(dir).filePath(compressed ? "flow.gz" : "flow"));
    if (!compressed) {
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }
    QtIOCompressor gz(&file);
    gz.setStreamFormat(QtIOCompressor::GzipFormat);
    if (!gz.open(QIODevice::ReadOnly))
        return QByteArray();
    return gz.readAll();
}

// Runs `work` in a child process; its exit status, or 128 + the signal.
template <typename Work>
int inChild(Work work, int killAfterMicroseconds = -1)
{
    const pid_t pid = fork();
    if (pid == 0) {
        int code = 3;
        try {
            code = work();
        } catch (...) {
            code = 4;
        }
        _exit(code);
    }
    if (killAfterMicroseconds >= 0) {
        usleep(useconds_t(killAfterMicroseconds));
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

// A save killed at any moment leaves the complete old file or the complete
// new one, in either form.
TEST(TableFileStream, SaveKilledAtRandomMomentsLeavesOldOrNew)
{
    TestAppHub hub;
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    std::unique_ptr<Table> tables[2] = {std::unique_ptr<Table>(makeFlowTable(8000, 1)),
                                        std::unique_ptr<Table>(makeFlowTable(11000, 2))};
    const QByteArray bytes[2] = {writeTable(tables[0].get()), writeTable(tables[1].get())};
    std::mt19937 rng(42);
    int killedMidway = 0;
    for (bool compressed : {false, true}) {
        hub.compress = compressed;
        QDir(dir.path()).removeRecursively();
        QDir().mkpath(dir.path());
        QElapsedTimer timer;
        timer.start();
        TableIO(tables[0].get()).write(QDir(dir.path()));
        const qint64 saveMicros = qMax<qint64>(timer.nsecsElapsed() / 1000, 2000);
        int current = 0;
        for (int run = 0; run < 50; ++run) {
            const int next = 1 - current;
            Table *t = tables[next].get();
            const int status = inChild(
                [&]() {
                    TableIO(t).write(QDir(dir.path()));
                    return 0;
                },
                int(rng() % quint64(saveMicros * 3 / 2)));
            const QByteArray now = contentOf(dir.path(), compressed);
            ASSERT_TRUE(now == bytes[0] || now == bytes[1])
                << "run " << run << " status " << status << " size " << now.size();
            if (now == bytes[next])
                current = next;
            killedMidway += status == 128 + SIGKILL && now == bytes[1 - next];
            const QStringList files = QDir(dir.path()).entryList(QDir::Files);
            EXPECT_FALSE(files.contains(compressed ? "flow" : "flow.gz"));
            // What a killed save leaves behind has a name of its own.
            for (const QString &name : files) {
                if (name != "flow" && name != "flow.gz")
                    QFile::remove(QDir(dir.path()).filePath(name));
            }
        }
    }
    EXPECT_GT(killedMidway, 0); // the kills did land inside saves
}

TEST(TableFileStream, FailedSaveKeepsTheOldFileAndNamesTheFile)
{
    TestAppHub hub;
    QTemporaryDir dir;
    std::unique_ptr<Table> small(makeFlowTable(10, 3));
    std::unique_ptr<Table> large(makeFlowTable(20000, 4));
    const QByteArray old = writeTable(small.get());
    for (bool compressed : {false, true}) {
        hub.compress = compressed;
        TableIO(small.get()).write(QDir(dir.path()));
        // The disk fills up: writes beyond 64 KiB fail in the child.
        const int status = inChild([&]() {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{65536, 65536};
            setrlimit(RLIMIT_FSIZE, &limit);
            try {
                TableIO(large.get()).write(QDir(dir.path()));
            } catch (const Exception &e) {
                return e.message().contains(QDir(dir.path()).filePath("flow")) ? 0 : 1;
            }
            return 2;
        });
        EXPECT_EQ(status, 0) << compressed;
        {
            // Abandoned with blocks still queued for the writing thread.
            TableFileStream stream(QDir(dir.path()).filePath("flow"), QIODevice::WriteOnly);
            TableIO(large.get()).write(stream, true);
        }
        EXPECT_TRUE(contentOf(dir.path(), compressed) == old) << compressed;
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 1);
    }

    // A directory that does not exist.
    try {
        TableIO(small.get()).write(QDir(dir.filePath("missing")));
        FAIL() << "no exception";
    } catch (const Exception &e) {
        EXPECT_TRUE(e.message().contains(dir.filePath("missing/flow")));
    }
}

// A progress that throws part-way through the rows, and a caller that commits
// the stream all the same: the file ends with the last whole row, and reading
// it says that it is short.
TEST(TableFileStream, SaveCutByAThrowingProgressHoldsWholeRowsOnly)
{
    TestAppHub hub;
    QTemporaryDir dir;
    std::unique_ptr<Table> large(makeFlowTable(20000, 5));
    struct Throwing : FilterProgress
    {
        bool operator()(int current, int) override
        {
            if (current == 7000)
                throw 1;
            return true;
        }
        bool filter(const Record &) const override { return true; }
    } progress;
    for (bool compressed : {false, true}) {
        hub.compress = compressed;
        {
            TableFileStream stream(QDir(dir.path()).filePath("flow"), QIODevice::WriteOnly);
            EXPECT_THROW(TableIO(large.get()).write(progress, stream, true), int);
            stream.commit();
        }
        std::unique_ptr<Table> back(makeFlowTable(0, 0));
        TableIO reader(back.get());
        reader.read(QDir(dir.path()), false);
        EXPECT_EQ(back->rowCount(), 7001) << compressed; // row 7000 was encoded first
        EXPECT_FALSE(reader.lastError().isEmpty()) << compressed;
    }
}
