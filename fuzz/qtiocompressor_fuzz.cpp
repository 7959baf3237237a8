// The compressing device in its three stream formats. Two control bytes pick
// the format, the buffer size, the size of each read or write and the
// compression level. The rest is inflated as a stream of that format (any
// bytes may come out of it, nothing may go wrong), then deflated and inflated
// again, which must give it back unchanged.

#include "fuzzsupport.h"

#include "io/qtiocompressor.h"

#include <QBuffer>

namespace {

const int kBufferSizes[] = {1, 2, 16, 255, 4096, 65500};
const int kPieceSizes[] = {1, 7, 512, 65536};
const QtIOCompressor::StreamFormat kFormats[] = {QtIOCompressor::ZlibFormat,
                                                 QtIOCompressor::GzipFormat,
                                                 QtIOCompressor::RawZipFormat,
                                                 QtIOCompressor::GzipFormat};

// A small stream may stand for a great deal of output; past this the
// inflating run proves nothing more.
const int kMaxInflated = 1 << 22;

QByteArray inflate(const QByteArray &packed, QtIOCompressor::StreamFormat format, int bufferSize,
                   int piece, bool *ok)
{
    QBuffer in;
    in.setData(packed);
    QtIOCompressor device(&in, 6, bufferSize);
    device.setStreamFormat(format);
    QByteArray all;
    *ok = device.open(QIODevice::ReadOnly);
    if (!*ok)
        return all;
    QByteArray chunk(piece, Qt::Uninitialized);
    while (all.size() < kMaxInflated) {
        const qint64 got = device.read(chunk.data(), piece);
        if (got < 0)
            *ok = false;
        if (got <= 0)
            break;
        FUZZ_CHECK(got <= piece, QStringLiteral("read %1 bytes into %2").arg(got).arg(piece));
        all.append(chunk.constData(), int(got));
    }
    device.close();
    return all;
}

QByteArray deflate(const QByteArray &data, QtIOCompressor::StreamFormat format, int level,
                   int bufferSize, int piece)
{
    QBuffer out;
    out.open(QIODevice::WriteOnly);
    QtIOCompressor device(&out, level, bufferSize);
    device.setStreamFormat(format);
    FUZZ_CHECK(device.open(QIODevice::WriteOnly), device.errorString());
    for (int at = 0; at < data.size(); at += piece) {
        const int n = qMin(piece, data.size() - at);
        FUZZ_CHECK(device.write(data.constData() + at, n) == n, device.errorString());
    }
    device.close();
    return out.data();
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2 || size > 4096)
        return 0;
    const QtIOCompressor::StreamFormat format = kFormats[data[0] & 3];
    const int bufferSize = kBufferSizes[(data[0] >> 2) % 6];
    const int piece = kPieceSizes[data[0] >> 6];
    const int level = data[1] % 10;
    const int backBufferSize = kBufferSizes[(data[1] >> 4) % 6];
    const QByteArray payload(reinterpret_cast<const char *>(data) + 2, int(size) - 2);

    bool ok = false;
    inflate(payload, format, bufferSize, piece, &ok);

    const QByteArray packed = deflate(payload, format, level, bufferSize, piece);
    const QByteArray back = inflate(packed, format, backBufferSize, piece, &ok);
    FUZZ_CHECK(ok && back == payload,
               QStringLiteral("%1 bytes in format %2 came back as %3 bytes")
                   .arg(payload.size()).arg(int(format)).arg(back.size()));
    return 0;
}
