#include "tablefile.h"

#include "io/qtiocompressor.h"
#include "table/table.h"

#include <QDataStream>
#include <QFileInfo>
#include <QMutex>
#include <QVector>

namespace {

// The library warns of a damaged file through Qt's log and says the same in
// lastError(), which the caller of readTable() reports with the file's name.
// So that the damage is told once, the warnings of a read are held back and
// passed on after it, all but that one.
class HeldWarnings
{
public:
    HeldWarnings()
    {
        QMutexLocker locker(&mutex());
        s_held = this;
        s_previous = qInstallMessageHandler(&hold);
    }
    ~HeldWarnings() { release(QString()); }

    // Restores the previous handler and passes on what was held, but for
    // `reported`.
    void release(const QString &reported)
    {
        QVector<Warning> warnings;
        {
            QMutexLocker locker(&mutex());
            if (s_held != this)
                return;
            s_held = nullptr;
            warnings.swap(m_warnings);
            qInstallMessageHandler(s_previous);
        }
        for (const Warning &w : qAsConst(warnings)) {
            if (w.text != reported)
                s_previous(QtWarningMsg, QMessageLogContext(w.file, w.line, w.function, w.category),
                           w.text);
        }
    }

private:
    struct Warning
    {
        const char *file; // the context's strings are literals
        int line;
        const char *function;
        const char *category;
        QString text;
    };

    static QMutex &mutex()
    {
        static QMutex m;
        return m;
    }

    static void hold(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        {
            QMutexLocker locker(&mutex());
            if (type == QtWarningMsg && s_held) {
                s_held->m_warnings.append(
                        { context.file, context.line, context.function, context.category, text });
                return;
            }
        }
        s_previous(type, context, text);
    }

    static HeldWarnings *s_held; // under mutex()
    static QtMessageHandler s_previous; // kept after release, for late callers
    QVector<Warning> m_warnings;
};

HeldWarnings *HeldWarnings::s_held = nullptr;
QtMessageHandler HeldWarnings::s_previous = nullptr;

} // namespace

TableFile::TableFile() = default;

TableFile::~TableFile()
{
    m_stream.reset();
    m_compressor.reset();
}

QString TableFile::tableName() const
{
    QString name = QFileInfo(m_path).fileName();
    if (m_compressed)
        name.chop(3);
    return name;
}

bool TableFile::openStream(QString *error)
{
    m_stream.reset();
    m_compressor.reset();
    m_file.close();
    m_file.setFileName(m_path);
    if (!m_file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: cannot open: %2").arg(m_path, m_file.errorString());
        return false;
    }
    QIODevice *device = &m_file;
    if (m_compressed) {
        m_compressor.reset(new QtIOCompressor(&m_file));
        m_compressor->setStreamFormat(QtIOCompressor::GzipFormat);
        if (!m_compressor->open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("%1: cannot open the gzip stream: %2")
                             .arg(m_path, m_compressor->errorString());
            return false;
        }
        device = m_compressor.get();
    }
    m_stream.reset(new QDataStream(device));
    return true;
}

bool TableFile::open(const QString &path, QString *error)
{
    m_path = path;
    m_compressed = path.endsWith(QLatin1String(".gz"));
    const QFileInfo info(path);
    if (!info.exists()) {
        *error = QStringLiteral("%1: no such file").arg(path);
        return false;
    }
    if (info.isDir()) {
        *error = QStringLiteral("%1: is a directory").arg(path);
        return false;
    }
    m_size = info.size();
    if (!openStream(error))
        return false;
    TableIO::readHeader(m_header, *m_stream);
    if (m_stream->status() != QDataStream::Ok) {
        *error = QStringLiteral("%1: the header is cut short or damaged").arg(path);
        return false;
    }
    if (m_header.version != TableIO::s_versionDb) {
        *error = QStringLiteral("%1: not a table file of version 0x%2 (found 0x%3)")
                         .arg(path)
                         .arg(TableIO::s_versionDb, 8, 16, QLatin1Char('0'))
                         .arg(m_header.version, 8, 16, QLatin1Char('0'));
        return false;
    }
    return true;
}

std::unique_ptr<Table> TableFile::readTable(FilterProgress &progress, QString *error,
                                            const QString &name)
{
    std::unique_ptr<Table> table(new Table(name.isEmpty() ? tableName() : name));
    if (!openStream(error))
        return table;
    TableIO io(table.get());
    HeldWarnings warnings;
    io.read(progress, *m_stream, true, TableIO::Convertors(), true);
    warnings.release(io.lastError());
    if (!io.lastError().isEmpty()) {
        *error = QStringLiteral("%1: %2").arg(m_path, io.lastError());
    } else if (!m_stream->atEnd()) {
        *error = QStringLiteral("%1: unexpected bytes after the last of %2 rows")
                         .arg(m_path)
                         .arg(m_header.rowCount);
    }
    return table;
}
