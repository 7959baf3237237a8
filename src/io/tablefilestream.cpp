#include "io/tablefilestream.h"

#include "io/qtiocompressor.h"
#include "io/readaheaddevice_p.h"
#include "io/writebehinddevice_p.h"
#include "runtime/exception.h"
#include "runtime/iapphub.h"

#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

namespace {

const int compressionLevel = 6;
const int compressionBuffer = 65500;

const QString gzSuffix = QStringLiteral(".gz");

// The rename itself is only durable once the directory is synced.
void syncDirectory(const QString &filePath)
{
    const QByteArray dir = QFile::encodeName(QFileInfo(filePath).absolutePath());
    const int fd = ::open(dir.constData(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// An open descriptor of a file that is no longer linked, or -1. The last
// close of an unlinked file frees its blocks, which takes the kernel some
// milliseconds per hundred megabytes: a thread of its own waits for that.
void closeLater(int fd)
{
    if (fd < 0)
        return;
    try {
        std::thread([fd] { ::close(fd); }).detach();
    } catch (const std::system_error &) {
        ::close(fd); // no thread to be had: wait here
    }
}

int openIfExists(const QString &path)
{
    return ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
}

} // namespace

TableFileStream::TableFileStream(const QString &path, QIODevice::OpenMode mode)
    : compressor(nullptr), m_readAhead(nullptr), m_saveFile(nullptr), m_writeBehind(nullptr)
{
    if (mode & QIODevice::ReadOnly) {
        file.setFileName(path);
        if (file.open(QIODevice::ReadOnly)) {
            m_target = path;
            setDevice(&file);
            return;
        }
        // A form that exists but does not open is the one worth naming.
        if (file.exists())
            m_openError = file.errorString();
        file.setFileName(path + gzSuffix);
        compressor = new QtIOCompressor(&file, compressionLevel, compressionBuffer);
        compressor->setStreamFormat(QtIOCompressor::GzipFormat);
        if (compressor->open(QIODevice::ReadOnly)) {
            m_target = file.fileName();
            m_openError.clear();
            m_readAhead = new ReadAheadDevice(compressor);
            setDevice(m_readAhead);
        } else if (file.exists()) {
            m_openError = compressor->errorString();
        } else if (m_openError.isEmpty()) {
            m_openError = QStringLiteral("no such file");
        }
        return;
    }

    const bool compress = IAppHub::compressTables();
    m_target = compress ? path + gzSuffix : path;
    m_otherForm = compress ? path : path + gzSuffix;
    m_saveFile = new QSaveFile(m_target);
    // Whole blocks come from the write-behind thread: Qt's buffer would only
    // copy them, and a failed flush of it loses the system's reason.
    if (!m_saveFile->open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        return;
    try {
        m_writeBehind = new WriteBehindDevice(m_saveFile);
    } catch (const std::system_error &) {
        return; // no thread to be had: no device, and commit() throws
    }
    if (compress) {
        compressor = new QtIOCompressor(m_writeBehind, compressionLevel, compressionBuffer);
        compressor->setStreamFormat(QtIOCompressor::GzipFormat);
        if (!compressor->open(QIODevice::WriteOnly))
            return;
        setDevice(compressor);
    } else {
        setDevice(m_writeBehind);
    }
}

TableFileStream::~TableFileStream()
{
    setDevice(nullptr);
    delete m_readAhead; // first: its thread reads the compressor
    delete compressor; // may still write to m_writeBehind
    delete m_writeBehind;
    // Without commit() the temporary file goes and the target stays as it was.
    delete m_saveFile;
}

void TableFileStream::fail(const QString &reason)
{
    setDevice(nullptr);
    if (m_writeBehind)
        m_writeBehind->stop(); // the file is ours again
    if (m_saveFile)
        m_saveFile->cancelWriting();
    throw Exception(QStringLiteral("Table file %1 was not written: %2").arg(m_target, reason));
}

void TableFileStream::commit()
{
    if (!m_saveFile)
        return;
    if (!device())
        fail(m_saveFile->errorString());
    if (status() != QDataStream::Ok)
        fail(QStringLiteral("write error: ") + device()->errorString());
    if (compressor)
        compressor->close(); // a failed write shows in finish()
    setDevice(nullptr);
    if (!m_writeBehind->finish())
        fail(QStringLiteral("write error: ") + m_writeBehind->errorString());
    if (!m_saveFile->flush())
        fail(QStringLiteral("write error: ") + m_saveFile->errorString());
    if (::fdatasync(m_saveFile->handle()) != 0)
        fail(QStringLiteral("write error: ") + qt_error_string(errno));
    // Held open over the rename, so that freeing it is not the caller's wait.
    const int old = openIfExists(m_target);
    if (!m_saveFile->commit()) {
        if (old >= 0)
            ::close(old);
        fail(m_saveFile->errorString());
    }
    syncDirectory(m_target);
    closeLater(old);
    const int other = openIfExists(m_otherForm);
    if (other >= 0) {
        QFile::remove(m_otherForm);
        closeLater(other);
    }
}
