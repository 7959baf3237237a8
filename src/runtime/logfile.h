#ifndef TABLEDB_RUNTIME_LOGFILE_H
#define TABLEDB_RUNTIME_LOGFILE_H

#include "runtime/global.h"

#include <QFile>
#include <QObject>
#include <QTextStream>

class QFileInfo;

// A text log that starts a fresh file at every start of the program and keeps
// the five before it: "app.log" moves to "app.1.log", that one to "app.2.log",
// and so on, "app.5.log" is dropped. The application writes to it with <<;
// the class writes nothing of its own.
//
// Nothing is reported or thrown: a rename that fails leaves that file under
// its name (the log is then appended to), an open that fails makes the writes
// go nowhere. Not thread-safe, like QTextStream: the user serialises writes.
class TABLEDB_EXPORT LogFile : public QObject, public QTextStream
{
    Q_OBJECT

public:
    explicit LogFile(const QString &fileName, QObject *parent = nullptr);
    // Flushes what was written to the file.
    ~LogFile() override;

    // The local wall-clock time for the log's time column, "HH:mm:ss.zzz", Latin digits.
    static QString timestamp();

protected:
    // The name of the `index`-th older file: "dir/app.log" gives
    // "dir/app.<index>.log", and a name without suffix keeps a trailing point
    // ("dir/app.<index>."), which earlier logs on disk rely on.
    static QString rotateName(const QFileInfo &info, int index);

private:
    Q_DISABLE_COPY(LogFile)

    QFile m_file;
};

#endif // TABLEDB_RUNTIME_LOGFILE_H
