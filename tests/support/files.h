#ifndef TABLEDB_TESTS_SUPPORT_FILES_H
#define TABLEDB_TESTS_SUPPORT_FILES_H

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>

// The whole file, or nothing when it cannot be read.
inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// `bytes` as the whole file, its directory made if missing; false when any
// of it could not be written.
inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

#endif // TABLEDB_TESTS_SUPPORT_FILES_H
