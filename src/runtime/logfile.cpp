#include "runtime/logfile.h"

#include "numeric/datetime.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>
#include <QTime>

namespace {
const int OlderFiles = 5;
}

LogFile::LogFile(const QString &fileName, QObject *parent)
    : QObject(parent),
      m_file(fileName)
{
    if (m_file.exists()) {
        const QFileInfo info(fileName);
        // From the oldest down, so each name is free before it is needed.
        for (int i = OlderFiles; i >= 1; --i) {
            const QString name = rotateName(info, i);
            if (!QFile::exists(name))
                continue;
            if (i == OlderFiles)
                QFile::remove(name);
            else
                QFile::rename(name, rotateName(info, i + 1));
        }
        QFile::rename(fileName, rotateName(info, 1));
    }
    // Append: should the rename have failed, the old log is kept, not truncated.
    m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
    setDevice(&m_file);
}

LogFile::~LogFile()
{
    // The stream's buffer must reach the file before the file member goes,
    // which happens before the QTextStream base is destroyed.
    QTextStream::flush();
    setDevice(nullptr);
    m_file.flush();
}

QString LogFile::timestamp()
{
    // The C locale: Latin digits whatever the system locale, like every time text of ours.
    return QLocale::c().toString(QTime::currentTime(), datetime::timeNoDateFormat());
}

QString LogFile::rotateName(const QFileInfo &info, int index)
{
    return QStringLiteral("%1.%2.%3")
            .arg(info.path() + QDir::separator() + info.completeBaseName(),
                 QString::number(index), info.suffix());
}
