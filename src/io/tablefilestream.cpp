#include "io/tablefilestream.h"

#include "io/qtiocompressor.h"
#include "io/readaheaddevice_p.h"
#include "runtime/exception.h"
#include "runtime/iapphub.h"

#include <QFileInfo>
#include <QSaveFile>

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

} // namespace

TableFileStream::TableFileStream(const QString &path, QIODevice::OpenMode mode)
    : compressor(nullptr), m_readAhead(nullptr), m_saveFile(nullptr)
{
    if (mode & QIODevice::ReadOnly) {
        file.setFileName(path);
        if (file.open(QIODevice::ReadOnly)) {
            m_target = path;
            setDevice(&file);
            return;
        }
        file.setFileName(path + gzSuffix);
        compressor = new QtIOCompressor(&file, compressionLevel, compressionBuffer);
        compressor->setStreamFormat(QtIOCompressor::GzipFormat);
        if (compressor->open(QIODevice::ReadOnly)) {
            m_target = file.fileName();
            m_readAhead = new ReadAheadDevice(compressor);
            setDevice(m_readAhead);
        }
        return;
    }

    const bool compress = IAppHub::compressTables();
    m_target = compress ? path + gzSuffix : path;
    m_otherForm = compress ? path : path + gzSuffix;
    m_saveFile = new QSaveFile(m_target);
    if (!m_saveFile->open(QIODevice::WriteOnly))
        return;
    if (compress) {
        compressor = new QtIOCompressor(m_saveFile, compressionLevel, compressionBuffer);
        compressor->setStreamFormat(QtIOCompressor::GzipFormat);
        if (!compressor->open(QIODevice::WriteOnly))
            return;
        setDevice(compressor);
    } else {
        setDevice(m_saveFile);
    }
}

TableFileStream::~TableFileStream()
{
    setDevice(nullptr);
    delete m_readAhead; // first: its thread reads the compressor
    delete compressor;
    // Without commit() the temporary file goes and the target stays as it was.
    delete m_saveFile;
}

void TableFileStream::fail(const QString &reason)
{
    setDevice(nullptr);
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
    if (compressor) {
        compressor->close();
        if (m_saveFile->error() != QFileDevice::NoError)
            fail(m_saveFile->errorString());
    }
    setDevice(nullptr);
    if (!m_saveFile->flush() || ::fdatasync(m_saveFile->handle()) != 0)
        fail(m_saveFile->errorString());
    if (!m_saveFile->commit())
        fail(m_saveFile->errorString());
    syncDirectory(m_target);
    if (QFile::exists(m_otherForm))
        QFile::remove(m_otherForm);
}
