#ifndef TABLEDB_IO_TABLEIO_H
#define TABLEDB_IO_TABLEIO_H

#include "index/partitionlist.h"
#include "io/fielddefconvertor.h"
#include "io/filterprogress.h"
#include "io/qtiocompressor.h"
#include "io/tablefilestream.h"
#include "table/columndef.h"
#include "table/record.h"

#include <QList>
#include <QMultiMap>
#include <QPair>
#include <QString>
#include <QStringList>

class IndexList;
class QDataStream;
class QDir;
class Table;

// Saves one table to a QDataStream and reads it back, converting from the
// file's columns to the table's present ones. A table's file lies in a
// directory under the table's name, with ".gz" behind it when compressed.
//
// The stream form: big-endian header items (QDataStream defaults) and cells
// as raw host-order bytes; the mix of the two orders is the file format.
//
// Deliberately beyond the plain format rules, because a lost table file costs
// more than a slower save:
// - A save to a directory never destroys the previous file: it writes a
//   temporary file beside it, syncs it to disk and renames it over the old
//   one; the other form (plain or ".gz") goes only after that. A failure
//   leaves the old file as it was and throws Exception naming the file.
// - A damaged stream never invents rows: reading stops at the first row that
//   is not whole and keeps the rows before it, warns with the rows expected
//   and read, and says so in lastError(). No count read from a stream makes
//   the reader allocate ahead of the data that backs it. A header that
//   cannot describe a table leaves the table empty, like another version.
class TABLEDB_EXPORT TableIO
{
public:
    static const unsigned int s_versionDb = 0x20190101;

    struct TableHeader
    {
        quint32 version = 0;
        quint16 columnCount = 0;
        qint32 rowCount = 0;
        qint32 rowLength = 0; // sum of the columns' len, unaligned
        qint32 nullBytes = 0; // (columns + 7) / 8
        QList<TableColumnDef> columns;
        QStringList masterColumns; // names of the master index's key columns
    };

    // Copies `size` bytes and the null bit: an unchanged column of odd width.
    class TABLEDB_EXPORT FieldDefConvertor_Copy : public FieldDefConvertor
    {
    public:
        explicit FieldDefConvertor_Copy(int size) : size(size) { }
        void convert(Field &to, const Field &from) override;
        int size; // cell width in bytes
    };
    // The same for 4-byte cells, one store.
    class TABLEDB_EXPORT FieldDefConvertor_Copy4 : public FieldDefConvertor_Copy
    {
    public:
        FieldDefConvertor_Copy4() : FieldDefConvertor_Copy(4) { }
        void convert(Field &to, const Field &from) override;
    };
    // The same for 8-byte cells, one store.
    class TABLEDB_EXPORT FieldDefConvertor_Copy8 : public FieldDefConvertor_Copy
    {
    public:
        FieldDefConvertor_Copy8() : FieldDefConvertor_Copy(8) { }
        void convert(Field &to, const Field &from) override;
    };
    // An unchanged String column: the shared QString and the null bit.
    class TABLEDB_EXPORT FieldDefConvertor_CopyString : public FieldDefConvertor_Copy
    {
    public:
        FieldDefConvertor_CopyString() : FieldDefConvertor_Copy(8) { }
        void convert(Field &to, const Field &from) override;
    };

    // Keyed by the target column's name (compared without case): the source
    // column's name and a convertor made with new, which read() deletes once
    // it has been used. An empty key marks a source column to drop.
    typedef QPair<QString, FieldDefConvertor *> Convertor;
    typedef QMultiMap<QString, Convertor> Convertors;

    explicit TableIO(Table *table) : table(table) { }
    TableIO(const TableIO &other) = default;
    TableIO &operator=(const TableIO &other) = default;

    static void setupHeader(TableHeader &header, const Table *table);
    static void writeHeader(const TableHeader &header, QDataStream &stream);
    // Reads what the stream holds; a short or damaged stream leaves the stream's
    // status set and never more columns or names than there were bytes for.
    static void readHeader(TableHeader &header, QDataStream &stream);

    // Header and, with `withRows`, all rows in the master index's order, under
    // the table's mutex.
    void write(FilterProgress &progress, QDataStream &stream, bool withRows);
    void write(QDataStream &stream, bool withRows);
    // To fileName(dir), compressed if the host asks for it; see the class
    // comment. Throws Exception naming the file and the system's reason when
    // it cannot be written; lastError() says the same.
    void write(FilterProgress &progress, const QDir &dir, bool withRows);
    void write(const QDir &dir);

    // Clears the table and reads the stream into it, inside one update bracket
    // with one index rebuild at the end. An empty stream leaves the table as it
    // was; another version leaves it empty. Rows are converted column by column
    // (see Convertors); `addColumns` adds the file's columns the table lacks.
    // Throws std::bad_alloc when a row cannot be allocated, and what the
    // conversions throw; the rows appended so far stay.
    void read(FilterProgress &progress, QDataStream &stream, bool addColumns,
              const Convertors &convertors, bool withRows);
    void read(QDataStream &stream);
    void read(QDataStream &stream, bool addColumns);
    void read(QDataStream &stream, bool addColumns, const Convertors &convertors);
    // The plain file wins over the ".gz" one. No file, or none that opens,
    // leaves the table as it was and lastError() saying why ("no such file"
    // when neither form exists).
    void read(FilterProgress &progress, const QDir &dir, bool addColumns);
    void read(const QDir &dir, bool addColumns);
    // Empty after a read that took the whole stream (or found an empty one),
    // and after a save to a directory that succeeded; otherwise what went wrong.
    QString lastError() const { return m_lastError; }

    // The rows of one table, prefixed with its name. An empty list writes
    // nothing. Holds the table's mutex.
    static void writeRowList(FilterProgress &progress, QDataStream &stream,
                             const PartitionList<Record> &list);
    // With `createTable` the rows belong to a new table of that name that no
    // one deletes; otherwise to the host's table of that name, whose columns
    // must be those of the list (a list that does not fit is skipped). Rows
    // are appended to `list`.
    static void readRowList(FilterProgress &progress, QDataStream &stream,
                            PartitionList<Record> &list, bool createTable);

    // The table's file in `dir`, without an extension.
    QString fileName(const QDir &dir) const;

    // Removes the rows that fail progress.filter(), in one pass.
    void filterRecords(FilterProgress &progress);
    // Rows' bytes and the alignment padding among them. No master index: the
    // outputs stay as they were.
    static void memoryUsage(Table *table, uint64 &rowBytes, uint64 &paddingBytes);
    // The list's allocated slots and those of them not in use, in bytes.
    static void memoryUsage(IndexList *index, uint64 &allocatedBytes, uint64 &unusedBytes);

protected:
    // One row, cells walked by the header's columns. For a whole table the
    // writers and readers use a plan made once instead.
    static void writeRecord(const Record &record, const TableHeader &header, QDataStream &stream);
    static void readRecord(Record &record, const TableHeader &header, QDataStream &stream);
    void writeRows(FilterProgress &progress, const TableHeader &header, QDataStream &stream);
    void make_fromDefs(QList<FieldDefConvertor *> &list, const Table *source,
                       const Convertors &convertors);
    // `target` and `source` point at the first cell of each row.
    void convertDefs(const QList<FieldDefConvertor *> &list, unsigned char *target,
                     unsigned char *source);

private:
    static bool isClaimed(const QString &name, const Convertors &convertors);
    static void readHeaderAfterVersion(TableHeader &header, QDataStream &stream);
    void readStream(FilterProgress &progress, QDataStream &stream, bool addColumns,
                    const Convertors &convertors, bool withRows, const QString &source);

    Table *table; // not owned
    QString m_lastError;
};

#endif // TABLEDB_IO_TABLEIO_H
