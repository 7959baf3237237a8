#ifndef TABLEDB_IO_TABLEFILESTREAM_H
#define TABLEDB_IO_TABLEFILESTREAM_H

#include "runtime/global.h"

#include <QDataStream>
#include <QFile>
#include <QIODevice>
#include <QString>

class QSaveFile;
class QtIOCompressor;
class WriteBehindDevice;

// A table file and the stream on it. `path` is the file's name without ".gz".
//
// Reading: the plain file wins; otherwise `path` + ".gz" through a gzip
// QtIOCompressor, inflated ahead on a thread of its own; with neither the
// stream has no device (and is at its end).
//
// Writing: plain or ".gz" as the host asks (IAppHub::compressTables()). The
// data goes to a temporary file beside the target and replaces it only in
// commit(); a stream destroyed without commit() leaves the old file as it
// was. This is deliberate: a save never destroys the previous file. The file
// is written on a second thread while the caller goes on encoding, and the
// old file's blocks are freed off the caller's thread after the rename.
class TABLEDB_EXPORT TableFileStream : public QDataStream
{
public:
    // REQUIRES: `mode` is ReadOnly or WriteOnly.
    TableFileStream(const QString &path, QIODevice::OpenMode mode);
    ~TableFileStream();

    // Writing: finishes the stream, syncs the temporary file to disk, renames
    // it over the target and then removes the other form. Throws Exception
    // naming the file when anything fails; the old file is then untouched.
    void commit();
    // The file written or read; empty when none could be opened for reading.
    QString targetName() const { return m_target; }
    // Reading: why no file could be opened, "no such file" when neither form
    // exists and else the system's reason; empty once one is open.
    QString openError() const { return m_openError; }

    QFile file; // the file read
    QtIOCompressor *compressor; // owned; null for a plain file

private:
    [[noreturn]] void fail(const QString &reason);

    QIODevice *m_readAhead; // owned; inflates ahead of the reader
    QSaveFile *m_saveFile; // owned; the file written
    WriteBehindDevice *m_writeBehind; // owned; writes m_saveFile on a thread
    QString m_target;
    QString m_otherForm; // removed after a successful commit
    QString m_openError;

    Q_DISABLE_COPY(TableFileStream)
};

#endif // TABLEDB_IO_TABLEFILESTREAM_H
