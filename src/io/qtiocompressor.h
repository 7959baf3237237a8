#ifndef TABLEDB_IO_QTIOCOMPRESSOR_H
#define TABLEDB_IO_QTIOCOMPRESSOR_H

#include "runtime/global.h"

#include <QIODevice>

class QtIOCompressorPrivate;

// A sequential device over another device: what is written is deflated onto
// it, what is read is inflated from it, with the system's zlib.
//
// The underlying device is not owned. If it is closed when this one is opened,
// this device opens it with the same mode and closes it again in close().
// One buffer of `bufferSize` bytes, allocated in the constructor, serves both
// directions; no call allocates. Errors go to errorString(); after one, reads
// and writes return -1 until close().
//
// Deliberately, a read that reaches the end of a cut stream returns what it
// inflated before the cut (and 0 after that) instead of dropping it.
class TABLEDB_EXPORT QtIOCompressor : public QIODevice
{
    Q_OBJECT

public:
    enum StreamFormat { ZlibFormat = 0, GzipFormat = 1, RawZipFormat = 2 };

    // REQUIRES: `device` outlives this object. With a null device open() fails.
    explicit QtIOCompressor(QIODevice *device, int compressionLevel = 6, int bufferSize = 65500);
    ~QtIOCompressor() override;

    // Takes effect at the next open().
    void setStreamFormat(StreamFormat format);
    StreamFormat streamFormat() const;
    static bool isGzipSupported();

    bool isSequential() const override;
    // Exactly one of ReadOnly and WriteOnly.
    bool open(OpenMode mode) override;
    // Finishes a written stream (a device that was never written to stays
    // empty: no gzip header at all) and closes the underlying device if this
    // object opened it.
    void close() override;
    // Writing: pushes everything written so far to the device (a sync flush).
    void flush();
    // Reading: 1 if something may be read, else 0; never a count.
    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 maxSize) override;

private:
    static bool checkGzipSupport(const char *version);
    QtIOCompressorPrivate *d_func() { return d; }
    const QtIOCompressorPrivate *d_func() const { return d; }

    QtIOCompressorPrivate *d;

    Q_DISABLE_COPY(QtIOCompressor)
    friend class QtIOCompressorPrivate;
};

#endif // TABLEDB_IO_QTIOCOMPRESSOR_H
