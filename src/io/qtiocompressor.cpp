#include "io/qtiocompressor.h"
#include "io/qtiocompressor_p.h"

#include <QtDebug>

#include <cstring>

QtIOCompressorPrivate::QtIOCompressorPrivate(QtIOCompressor *q_, QIODevice *device_,
                                             int compressionLevel_, int bufferSize_)
    : q(q_),
      device(device_),
      manageDevice(false),
      compressionLevel(compressionLevel_),
      bufferSize(bufferSize_ > 0 ? bufferSize_ : 1),
      buffer(new Bytef[size_t(bufferSize) + 1]()),
      state(Closed),
      streamFormat(QtIOCompressor::ZlibFormat)
{
    std::memset(&zlibStream, 0, sizeof zlibStream);
    zlibStream.zalloc = Z_NULL;
    zlibStream.zfree = Z_NULL;
    zlibStream.opaque = Z_NULL;
}

QtIOCompressorPrivate::~QtIOCompressorPrivate()
{
    delete[] buffer;
}

void QtIOCompressorPrivate::setZlibError(const QString &prefix, int code)
{
    const char *text = zError(code);
    if (text && *text)
        q->setErrorString(prefix + QString::fromLatin1(text));
    else
        q->setErrorString(prefix + QStringLiteral(" Unknown error, code ") + QString::number(code));
}

// Writes all of `count` bytes; even zero bytes make one call, so a finished
// stream always counts as written.
bool QtIOCompressorPrivate::writeBytes(const Bytef *bytes, qint64 count)
{
    qint64 written = 0;
    do {
        const qint64 result = device->write(reinterpret_cast<const char *>(bytes) + written,
                                            count - written);
        // A device that takes nothing would keep this loop going for ever.
        if (result == -1 || (result == 0 && written < count)) {
            q->setErrorString(QStringLiteral("Error writing to underlying device: ")
                              + device->errorString());
            return false;
        }
        written += result;
    } while (written < count);
    state = BytesWritten;
    return true;
}

void QtIOCompressorPrivate::flushZlib(int mode)
{
    zlibStream.next_in = Z_NULL;
    zlibStream.avail_in = 0;
    for (;;) {
        zlibStream.next_out = buffer;
        zlibStream.avail_out = uInt(bufferSize);
        const int status = deflate(&zlibStream, mode);
        if (status != Z_OK && status != Z_STREAM_END) {
            state = Error;
            setZlibError(QStringLiteral("Internal zlib error when compressing: "), status);
            return;
        }
        if (!writeBytes(buffer, bufferSize - zlibStream.avail_out))
            return;
        if (mode != Z_FINISH) {
            if (zlibStream.avail_out != 0)
                return;
        } else if (status == Z_STREAM_END) {
            return;
        }
    }
}

QtIOCompressor::QtIOCompressor(QIODevice *device, int compressionLevel, int bufferSize)
    : d(new QtIOCompressorPrivate(this, device, compressionLevel, bufferSize))
{
}

QtIOCompressor::~QtIOCompressor()
{
    close();
    delete d;
}

void QtIOCompressor::setStreamFormat(StreamFormat format)
{
    d->streamFormat = format;
}

QtIOCompressor::StreamFormat QtIOCompressor::streamFormat() const
{
    return d->streamFormat;
}

bool QtIOCompressor::isGzipSupported()
{
    return checkGzipSupport(zlibVersion());
}

bool QtIOCompressor::checkGzipSupport(const char *version)
{
    if (!version || std::strlen(version) < 3)
        return false;
    if (version[0] == '0')
        return false;
    if (version[0] != '1')
        return true;
    return version[2] != '0' && version[2] != '1';
}

bool QtIOCompressor::isSequential() const
{
    return true;
}

bool QtIOCompressor::open(OpenMode mode)
{
    if (isOpen()) {
        qWarning().noquote() << "QtIOCompressor::open: device already open";
        return false;
    }
    const bool read = mode & ReadOnly;
    const bool write = mode & WriteOnly;
    if (read == write) {
        qWarning().noquote() << "QtIOCompressor::open: QtIOCompressor can only be opened in the "
                                "ReadOnly or WriteOnly modes";
        return false;
    }
    if (!d->device) {
        setErrorString(QStringLiteral("Error opening underlying device: no device"));
        return false;
    }
    if (d->device->isOpen()) {
        d->manageDevice = false;
        const OpenMode deviceMode = d->device->openMode();
        if ((read && !(deviceMode & ReadOnly)) || (write && !(deviceMode & WriteOnly))) {
            qWarning().noquote() << "QtIOCompressor::open: underlying device must be open in one "
                                    "of the ReadOnly or WriteOnly modes";
            return false;
        }
    } else {
        d->manageDevice = true;
        if (!d->device->open(mode)) {
            setErrorString(QStringLiteral("Error opening underlying device: ")
                           + d->device->errorString());
            return false;
        }
    }

    const int windowBits = d->streamFormat == GzipFormat ? 31
        : d->streamFormat == RawZipFormat               ? -15
                                                        : 15;
    int status;
    if (read) {
        d->state = QtIOCompressorPrivate::NotReadFirstByte;
        d->zlibStream.next_in = Z_NULL;
        d->zlibStream.avail_in = 0;
        if (d->streamFormat != ZlibFormat) {
            if (!checkGzipSupport(zlibVersion())) {
                setErrorString(QStringLiteral("The gzip format not supported in this version of zlib."));
                if (d->manageDevice)
                    d->device->close();
                return false;
            }
            status = inflateInit2(&d->zlibStream, windowBits);
        } else {
            status = inflateInit(&d->zlibStream);
        }
    } else {
        d->state = QtIOCompressorPrivate::NoBytesWritten;
        if (d->streamFormat != ZlibFormat)
            status = deflateInit2(&d->zlibStream, d->compressionLevel, Z_DEFLATED, windowBits, 8,
                                  Z_DEFAULT_STRATEGY);
        else
            status = deflateInit(&d->zlibStream, d->compressionLevel);
    }

    if (status == Z_OK)
        return QIODevice::open(mode);
    d->setZlibError(QStringLiteral("Internal zlib error: "), status);
    // Leave nothing open behind a failed open.
    if (d->manageDevice)
        d->device->close();
    return false;
}

void QtIOCompressor::close()
{
    if (!isOpen())
        return;
    if (openMode() & ReadOnly) {
        d->state = QtIOCompressorPrivate::NotReadFirstByte;
        inflateEnd(&d->zlibStream);
    } else {
        if (d->state == QtIOCompressorPrivate::BytesWritten) {
            d->state = QtIOCompressorPrivate::NoBytesWritten;
            d->flushZlib(Z_FINISH);
        }
        deflateEnd(&d->zlibStream);
    }
    if (d->manageDevice)
        d->device->close();
    QIODevice::close();
}

void QtIOCompressor::flush()
{
    if (!isOpen() || (openMode() & ReadOnly))
        return;
    d->flushZlib(Z_SYNC_FLUSH);
}

qint64 QtIOCompressor::bytesAvailable() const
{
    if (!(openMode() & ReadOnly))
        return 0;
    qint64 own = 0;
    switch (d->state) {
    case QtIOCompressorPrivate::NotReadFirstByte:
        own = d->device->bytesAvailable();
        break;
    case QtIOCompressorPrivate::InStream:
        own = 1;
        break;
    default:
        break;
    }
    // Whether something is there, not how much.
    return qint32(QIODevice::bytesAvailable() + own) > 0 ? 1 : 0;
}

qint64 QtIOCompressor::readData(char *data, qint64 maxSize)
{
    if (d->state == QtIOCompressorPrivate::EndOfStream)
        return 0;
    if (d->state == QtIOCompressorPrivate::Error)
        return -1;
    if (maxSize <= 0)
        return 0;

    // zlib counts in uInt; QIODevice asks in smaller pieces anyway.
    const qint64 size = qMin<qint64>(maxSize, 0x40000000);
    z_stream &z = d->zlibStream;
    z.next_out = reinterpret_cast<Bytef *>(data);
    z.avail_out = uInt(size);

    int status;
    for (;;) {
        if (z.avail_in == 0) {
            const qint64 got = d->device->read(reinterpret_cast<char *>(d->buffer), d->bufferSize);
            if (got == -1) {
                d->state = QtIOCompressorPrivate::Error;
                setErrorString(QStringLiteral("Error reading data from underlying device: ")
                               + d->device->errorString());
                return -1;
            }
            z.next_in = d->buffer;
            z.avail_in = uInt(got);
            if (d->state != QtIOCompressorPrivate::InStream) {
                if (got == 0)
                    return 0;
                d->state = QtIOCompressorPrivate::InStream;
            }
        }

        status = inflate(&z, Z_SYNC_FLUSH);
        // A stream cut short: what this call inflated before the cut is
        // kept, deliberately, so that a damaged file loses only its tail.
        if (status == Z_BUF_ERROR)
            return size - z.avail_out;
        if (status == Z_MEM_ERROR || status == Z_DATA_ERROR || status == Z_NEED_DICT) {
            d->state = QtIOCompressorPrivate::Error;
            d->setZlibError(QStringLiteral("Internal zlib error when decompressing: "), status);
            return -1;
        }
        if (z.avail_out == 0) {
            if (status != Z_STREAM_END)
                return size;
            break;
        }
        if (status == Z_STREAM_END)
            break;
    }

    d->state = QtIOCompressorPrivate::EndOfStream;
    // Hand back what follows the compressed stream, and the byte after it:
    // that extra byte is what readers of these devices have always received.
    for (int i = int(z.avail_in); i >= 0; --i)
        d->device->ungetChar(char(z.next_in[i]));
    return size - z.avail_out;
}

qint64 QtIOCompressor::writeData(const char *data, qint64 maxSize)
{
    if (maxSize < 1)
        return 0;
    if (d->state == QtIOCompressorPrivate::Error)
        return -1;
    z_stream &z = d->zlibStream;
    qint64 done = 0;
    // zlib counts in uInt: feed very large writes in pieces.
    while (done < maxSize) {
        const qint64 piece = qMin<qint64>(maxSize - done, 0x40000000);
        z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(data + done));
        z.avail_in = uInt(piece);
        do {
            z.next_out = d->buffer;
            z.avail_out = uInt(d->bufferSize);
            const int status = deflate(&z, Z_NO_FLUSH);
            if (status != Z_OK) {
                d->state = QtIOCompressorPrivate::Error;
                d->setZlibError(QStringLiteral("Internal zlib error when compressing: "), status);
                return -1;
            }
            if (!d->writeBytes(d->buffer, d->bufferSize - z.avail_out))
                return -1;
        } while (z.avail_out == 0);
        done += piece;
    }
    return maxSize;
}
