#include "io/qtiocompressor.h"
#include "support/warningcatcher.h"

#include <QBuffer>
#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <random>

namespace {

// Half compressible text, half noise, so that streams span many buffers.
QByteArray sample(int size, unsigned seed)
{
    std::mt19937 rng(seed);
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = (i / 4096) % 2 ? char(rng()) : char('a' + (i * 7 + i / 13) % 26);
    return data;
}

// Writes `data` in pieces of `chunk` bytes.
QByteArray compress(const QByteArray &data, QtIOCompressor::StreamFormat format, int bufferSize,
                    int chunk = 1 << 30)
{
    QBuffer out;
    out.open(QIODevice::WriteOnly);
    QtIOCompressor c(&out, 6, bufferSize);
    c.setStreamFormat(format);
    EXPECT_TRUE(c.open(QIODevice::WriteOnly));
    for (int i = 0; i < data.size(); i += chunk)
        EXPECT_EQ(c.write(data.mid(i, chunk)), qMin(chunk, data.size() - i));
    c.close();
    return out.data();
}

// Reads everything back in pieces of varying size, the way QDataStream asks
// for it.
QByteArray expand(const QByteArray &packed, QtIOCompressor::StreamFormat format, int bufferSize,
                  unsigned seed = 1)
{
    QBuffer in;
    in.setData(packed);
    QtIOCompressor c(&in, 6, bufferSize);
    c.setStreamFormat(format);
    if (!c.open(QIODevice::ReadOnly))
        return QByteArray("open failed");
    std::mt19937 rng(seed);
    QByteArray all;
    while (all.size() < (64 << 20)) { // a damaged stream must not go on for ever
        QByteArray piece(int(1 + rng() % 9000), Qt::Uninitialized);
        const qint64 got = c.read(piece.data(), piece.size());
        if (got <= 0)
            break;
        all.append(piece.constData(), int(got));
    }
    return all;
}

const QtIOCompressor::StreamFormat kFormats[] = {QtIOCompressor::ZlibFormat,
                                                 QtIOCompressor::GzipFormat,
                                                 QtIOCompressor::RawZipFormat};

// What the gzip program makes of `input` with `arguments`.
QByteArray gzip(const QStringList &arguments, const QByteArray &input = QByteArray())
{
    QProcess process;
    process.start("gzip", arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000) || process.exitCode() != 0)
        return QByteArray("gzip failed");
    return process.readAllStandardOutput();
}

} // namespace

TEST(QtIOCompressor, RoundTripsEveryFormatSizeAndBufferWithShortReads)
{
    const int sizes[] = {1, 15, 16, 17, 4095, 65500, 65501, 300000};
    const int buffers[] = {1, 16, 4096, 65500};
    for (auto format : kFormats) {
        for (int size : sizes) {
            for (int buffer : buffers) {
                if (buffer == 1 && size > 4096)
                    continue; // byte-sized buffers are slow and prove nothing more
                SCOPED_TRACE(testing::Message() << "format " << format << " size " << size
                                                << " buffer " << buffer);
                const QByteArray data = sample(size, unsigned(size));
                const QByteArray packed = compress(data, format, buffer, size / 3 + 1);
                EXPECT_TRUE(expand(packed, format, buffer, unsigned(buffer)) == data);
                // Each format reads only its own streams.
                const auto other = QtIOCompressor::StreamFormat((format + 1) % 3);
                EXPECT_FALSE(expand(packed, other, buffer, 1) == data);
            }
        }
    }
}

TEST(QtIOCompressor, InteroperatesWithTheGzipProgram)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QByteArray data = sample(200000, 9);
    QFile ours(dir.filePath("ours.gz"));
    {
        QtIOCompressor c(&ours, 6, 65500);
        c.setStreamFormat(QtIOCompressor::GzipFormat);
        ASSERT_TRUE(c.open(QIODevice::WriteOnly));
        ASSERT_EQ(c.write(data), data.size());
    } // the destructor finishes the stream and closes the file it opened
    EXPECT_FALSE(ours.isOpen());
    EXPECT_TRUE(gzip({"-dc", ours.fileName()}) == data);
    for (const char *level : {"-1", "-9"})
        EXPECT_TRUE(expand(gzip({level, "-c"}, data), QtIOCompressor::GzipFormat, 65500) == data) << level;
}

// A stream whose last byte is the last byte of the buffer, with and without
// bytes behind it: the reader must stop cleanly and hand back what follows.
TEST(QtIOCompressor, StreamEndingAtTheBufferEndHandsBackWhatFollows)
{
    const QByteArray data = sample(5000, 5);
    for (auto format : kFormats) {
        const QByteArray packed = compress(data, format, 4096);
        for (int delta : {-1, 0, 1}) {
            for (const QByteArray &trailer : {QByteArray(), QByteArray("TRAILER")}) {
                SCOPED_TRACE(testing::Message() << "format " << format << " delta " << delta
                                                << " trailer " << trailer.size());
                QBuffer in;
                in.setData(packed + trailer);
                in.open(QIODevice::ReadOnly);
                QtIOCompressor c(&in, 6, packed.size() + delta);
                c.setStreamFormat(format);
                ASSERT_TRUE(c.open(QIODevice::ReadOnly));
                EXPECT_TRUE(c.readAll() == data);
                EXPECT_EQ(c.read(10), QByteArray()); // at the end, and staying there
                c.close();
                EXPECT_TRUE(in.isOpen()); // opened by the caller, left to the caller
                // What followed the stream in the last buffer comes back first,
                // then the one byte behind it, then the rest of the device.
                const QByteArray all = packed + trailer;
                const int bufferSize = packed.size() + delta;
                const int loaded = qMin(all.size(), (packed.size() + bufferSize - 1) / bufferSize * bufferSize);
                const QByteArray unconsumed = all.mid(packed.size(), loaded - packed.size());
                const QByteArray rest = all.mid(loaded);
                const QByteArray after = in.readAll();
                EXPECT_EQ(after.size(), unconsumed.size() + 1 + rest.size());
                EXPECT_TRUE(after.startsWith(unconsumed));
                EXPECT_TRUE(after.endsWith(rest));
            }
        }
    }
}

TEST(QtIOCompressor, DamagedStreamsNeverInventOrHang)
{
    const QByteArray data = sample(3000, 11);
    for (auto format : kFormats) {
        const QByteArray packed = compress(data, format, 512);
        for (int cut = 0; cut < packed.size(); ++cut) {
            const QByteArray got = expand(packed.left(cut), format, 256, unsigned(cut));
            ASSERT_TRUE(data.startsWith(got)) << "format " << format << " cut " << cut;
        }
        // One read across the cut keeps what was inflated before it.
        QBuffer in;
        in.setData(packed.left(packed.size() / 2));
        QtIOCompressor c(&in, 6, 1 << 16);
        c.setStreamFormat(format);
        ASSERT_TRUE(c.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
        QByteArray whole(data.size(), '\0');
        const qint64 got = c.read(whole.data(), whole.size());
        EXPECT_GT(got, 0);
        EXPECT_TRUE(data.startsWith(whole.left(int(got))));
        EXPECT_EQ(c.read(whole.data(), whole.size()), 0);
    }
}

TEST(QtIOCompressor, OpenRulesFlushAndErrors)
{
    WarningCatcher warnings;
    QBuffer buffer;
    QtIOCompressor c(&buffer);
    EXPECT_FALSE(c.open(QIODevice::ReadWrite));
    EXPECT_FALSE(c.open(QIODevice::NotOpen));
    ASSERT_TRUE(c.open(QIODevice::WriteOnly));
    EXPECT_TRUE(buffer.isOpen());
    EXPECT_FALSE(c.open(QIODevice::WriteOnly));
    c.close();
    EXPECT_FALSE(buffer.isOpen()); // it opened the buffer, so it closed it
    EXPECT_TRUE(buffer.data().isEmpty()); // nothing written: not even a header

    buffer.open(QIODevice::ReadOnly);
    EXPECT_FALSE(c.open(QIODevice::WriteOnly));
    const QString mode = QStringLiteral("QtIOCompressor::open: QtIOCompressor can only be opened "
                                        "in the ReadOnly or WriteOnly modes");
    EXPECT_EQ(warnings.messages(),
              QStringList({mode, mode, QStringLiteral("QtIOCompressor::open: device already open"),
                           QStringLiteral("QtIOCompressor::open: underlying device must be open "
                                          "in one of the ReadOnly or WriteOnly modes")}));

    QtIOCompressor none(nullptr);
    EXPECT_FALSE(none.open(QIODevice::ReadOnly));
    QFile missing(QStringLiteral("/nonexistent-dir/x.gz"));
    QtIOCompressor m(&missing);
    EXPECT_FALSE(m.open(QIODevice::ReadOnly));
    EXPECT_FALSE(m.isOpen());
    EXPECT_TRUE(m.errorString().startsWith(QStringLiteral("Error opening underlying device: ")));

    // Flushing ends with the sync marker; zlib is the default format; a
    // compressor opens again after close, in the other direction.
    QBuffer out;
    QtIOCompressor w(&out);
    ASSERT_TRUE(w.open(QIODevice::WriteOnly));
    w.write(sample(10000, 2));
    w.flush();
    EXPECT_TRUE(out.data().endsWith(QByteArray::fromHex("0000ffff")));
    w.close();
    EXPECT_TRUE(expand(out.data(), QtIOCompressor::ZlibFormat, 1024) == sample(10000, 2));
    EXPECT_EQ(w.bytesAvailable(), 0); // not open
    ASSERT_TRUE(w.open(QIODevice::ReadOnly));
    char byte;
    ASSERT_EQ(w.read(&byte, 1), 1);
    EXPECT_EQ(w.bytesAvailable(), 1); // something, not how much
    EXPECT_TRUE(QByteArray(1, byte) + w.readAll() == sample(10000, 2));
    EXPECT_EQ(w.bytesAvailable(), 0);

    QFile full(QStringLiteral("/dev/full"));
    ASSERT_TRUE(full.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    QtIOCompressor f(&full, 6, 64);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    EXPECT_EQ(f.write(sample(100000, 4)), -1);
    EXPECT_TRUE(f.errorString().startsWith(QStringLiteral("Error writing to underlying device: ")));
}
