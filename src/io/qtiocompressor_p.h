#ifndef TABLEDB_IO_QTIOCOMPRESSOR_P_H
#define TABLEDB_IO_QTIOCOMPRESSOR_P_H

#include "io/qtiocompressor.h"

#include <zlib.h>

class QtIOCompressorPrivate
{
public:
    enum State {
        NotReadFirstByte = 0, // open for reading, nothing read yet
        InStream = 1, // reading, data has come
        EndOfStream = 2, // reading, zlib reported the end
        NoBytesWritten = 3, // open for writing, nothing written
        BytesWritten = 4, // data has gone to the device
        Closed = 5, // never opened
        Error = 6 // reads and writes return -1 until close()
    };

    QtIOCompressorPrivate(QtIOCompressor *q, QIODevice *device, int compressionLevel,
                          int bufferSize);
    ~QtIOCompressorPrivate();

    bool writeBytes(const Bytef *bytes, qint64 count);
    void flushZlib(int mode);
    void setZlibError(const QString &prefix, int code);

    QtIOCompressor *q;
    QIODevice *device; // not owned
    bool manageDevice; // this object opened `device` and closes it
    z_stream zlibStream;
    int compressionLevel;
    int bufferSize;
    // bufferSize bytes and one spare behind them: at a stream's end the
    // unconsumed input is handed back together with the byte after it.
    Bytef *buffer;
    State state;
    QtIOCompressor::StreamFormat streamFormat;
};

#endif // TABLEDB_IO_QTIOCOMPRESSOR_P_H
