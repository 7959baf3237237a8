#ifndef TABLEDB_TOOLS_TABLEFILE_H
#define TABLEDB_TOOLS_TABLEFILE_H

#include "io/tableio.h"

#include <QFile>
#include <QString>

#include <memory>

class QDataStream;
class QtIOCompressor;
class Table;

// A table file as the tool sees it: the form is told by the name (".gz" is
// gzip), the columns by the file's own header, so no program's table
// definition is needed to read it.
class TableFile
{
public:
    TableFile();
    ~TableFile();

    // Opens the file and reads its header. False with `error` naming the file
    // and the problem when it is missing, unreadable or has no valid header.
    bool open(const QString &path, QString *error);

    QString path() const { return m_path; }
    bool isCompressed() const { return m_compressed; }
    qint64 size() const { return m_size; }
    const TableIO::TableHeader &header() const { return m_header; }
    // The table's name: the file's name without ".gz".
    QString tableName() const;

    // A new table with the file's columns, all rows read into it, named
    // `name` or else tableName(). `error` says what was wrong when the file
    // is damaged or cut short; the rows before the damage are in the table.
    std::unique_ptr<Table> readTable(FilterProgress &progress, QString *error,
                                     const QString &name = QString());

private:
    // Opens the stream afresh at the start of the file.
    bool openStream(QString *error);

    QString m_path;
    bool m_compressed = false;
    qint64 m_size = 0;
    TableIO::TableHeader m_header;
    QFile m_file;
    std::unique_ptr<QtIOCompressor> m_compressor;
    std::unique_ptr<QDataStream> m_stream;
};

#endif // TABLEDB_TOOLS_TABLEFILE_H
