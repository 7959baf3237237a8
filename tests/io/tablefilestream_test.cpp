#include "iotestsupport.h"
#include "io/qtiocompressor.h"
#include "io/tablefilestream.h"
#include "runtime/exception.h"
#include "support/testapphub.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <memory>
#include <random>
#include <sys/resource.h>

namespace {

// Some 470 bytes a row, so that a few thousand rows make a save that can be
// interrupted.
Table *makeFlowTable(int rows, unsigned seed)
{
    return fillRandom(makeAllTypesTable(QStringLiteral("flow")), rows, seed);
}

// The file's content as the plain form holds it.
QByteArray contentOf(const QString &dir, bool compressed)
{
    if (!compressed)
        return readFile(QDir(dir).filePath("flow"));
    QFile file(QDir(dir).filePath("flow.gz"));
    QtIOCompressor gz(&file);
    gz.setStreamFormat(QtIOCompressor::GzipFormat);
    return gz.open(QIODevice::ReadOnly) ? gz.readAll() : QByteArray();
}

} // namespace

// A save killed at any moment leaves the complete old file or the complete
// new one, in either form.
TEST(TableFileStream, SaveKilledAtRandomMomentsLeavesOldOrNew)
{
    TestAppHub hub;
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    std::unique_ptr<Table> tables[2] = {std::unique_ptr<Table>(makeFlowTable(1600, 1)),
                                        std::unique_ptr<Table>(makeFlowTable(2200, 2))};
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

// Saves that fail, in either form: the disk fills up (the old file stays, and
// the exception and lastError() name the file and the system's reason); the
// stream is dropped without commit() while blocks are queued for the writing
// thread (the old file stays); a progress throws part-way and the caller
// commits all the same (the file ends with the last whole row, and reading it
// says that it is short).
TEST(TableFileStream, FailedSavesLoseNothing)
{
    TestAppHub hub;
    QTemporaryDir dir;
    const QString flow = dir.filePath("flow");
    std::unique_ptr<Table> small(makeFlowTable(10, 3));
    std::unique_ptr<Table> large(makeFlowTable(5000, 4));
    const QByteArray old = writeTable(small.get());
    struct Throwing : FilterProgress
    {
        bool operator()(int current, int) override
        {
            if (current == 3000)
                throw 1;
            return true;
        }
        bool filter(const Record &) const override { return true; }
    } progress;
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed ? "gzip" : "plain");
        hub.compress = compressed;
        TableIO(small.get()).write(QDir(dir.path()));
        const int status = inChild([&]() {
            signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{65536, 65536}; // writes beyond 64 KiB fail
            setrlimit(RLIMIT_FSIZE, &limit);
            TableIO io(large.get());
            try {
                io.write(QDir(dir.path()));
            } catch (const Exception &e) {
                const QString file = flow + (compressed ? ".gz" : "");
                if (e.message().startsWith(QStringLiteral("Table file %1 was not written: ").arg(file))
                    && e.message().endsWith(QStringLiteral(": ") + QString::fromLocal8Bit(strerror(EFBIG)))
                    && io.lastError() == e.message())
                    return 0;
                fprintf(stderr, "%s\n", qPrintable(e.message()));
                return 1;
            }
            return 2;
        });
        EXPECT_EQ(status, 0);
        {
            TableFileStream stream(flow, QIODevice::WriteOnly);
            TableIO(large.get()).write(stream, true);
        }
        EXPECT_TRUE(contentOf(dir.path(), compressed) == old);
        EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files).size(), 1);

        {
            TableFileStream stream(flow, QIODevice::WriteOnly);
            EXPECT_THROW(TableIO(large.get()).write(progress, stream, true), int);
            stream.commit();
        }
        std::unique_ptr<Table> back(makeFlowTable(0, 0));
        TableIO reader(back.get());
        reader.read(QDir(dir.path()), false);
        EXPECT_EQ(back->rowCount(), 3001); // row 3000 was encoded before the progress threw
        EXPECT_EQ(reader.lastError(), QStringLiteral("Table file %1 is damaged: 5000 rows expected, 3001 read")
                                              .arg(flow + (compressed ? ".gz" : "")));
    }

    try {
        TableIO(small.get()).write(QDir(dir.filePath("missing")));
        FAIL() << "no exception";
    } catch (const Exception &e) {
        EXPECT_TRUE(e.message().contains(dir.filePath("missing/flow")));
    }
}
