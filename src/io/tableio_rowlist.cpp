#include "io/tableio.h"

#include "io/rowcodec_p.h"
#include "io/tableio_p.h"
#include "runtime/iapphub.h"
#include "table/table.h"

#include <QDataStream>
#include <QtDebug>

#include <climits>
#include <new>
#include <typeinfo>

namespace {

RowCodec codecOf(const Table *table, int nullBytes)
{
    QList<const TableColumnDef *> defs;
    for (const TableColumnDef *def : table->fieldDefs())
        defs.append(def);
    return RowCodec(defs, table->rowLength(), nullBytes);
}

// Whether rows laid out by `header` can be read straight into `table`'s rows.
bool sameLayout(const TableIO::TableHeader &header, const Table *table)
{
    const QList<TableColumnDef *> defs = table->fieldDefs();
    if (defs.size() != header.columns.size())
        return false;
    for (int i = 0; i < defs.size(); ++i) {
        if (defs.at(i)->type != header.columns.at(i).type || defs.at(i)->len != header.columns.at(i).len)
            return false;
    }
    return true;
}

void skipRows(const TableIO::TableHeader &header, QDataStream &stream)
{
    // Without String cells this is exact; with them the stream is misplaced,
    // as it always has been for tables the host does not know.
    qint64 bytes = (qint64(header.rowLength) + header.nullBytes) * header.rowCount;
    while (bytes > 0) {
        const int step = int(qMin<qint64>(bytes, INT_MAX));
        if (stream.skipRawData(step) != step)
            return;
        bytes -= step;
    }
}

void warnList(const QString &name, const QString &what)
{
    QMessageLogger().warning().noquote()
        << QStringLiteral("Row list of table %1 is damaged: %2").arg(name, what);
}

} // namespace

void TableIO::writeRowList(FilterProgress &progress, QDataStream &stream,
                           const PartitionList<Record> &list)
{
    if (list.isEmpty())
        return;
    Table *table = const_cast<Table *>(list.begin()->table());
    const QString name = table->name();
    stream << name;
    if (name.isEmpty())
        return;

    TableLocker locker(table);
    TableHeader header;
    setupHeader(header, table);
    header.rowCount = list.size();
    writeHeader(header, stream);
    RowCodec codec = codecOf(table, header.nullBytes);
    const bool report = typeid(progress) != typeid(FilterProgressTrue);
    int i = 0;
    for (auto it = list.begin(); it != list.end(); ++it, ++i) {
        codec.write(Table::cellsPtr(it->pointer()), stream);
        if (report)
            progress(i, header.rowCount);
    }
}

void TableIO::readRowList(FilterProgress &progress, QDataStream &stream,
                          PartitionList<Record> &list, bool createTable)
{
    if (stream.atEnd())
        return;
    QString name;
    stream >> name;
    if (name.isEmpty())
        return;
    TableHeader header;
    readHeader(header, stream);
    // The version is not tested here; only the layout matters.
    Table *table = nullptr;
    bool created = false;
    const QString damage = tableHeaderDamage(header, stream);
    if (!damage.isEmpty()) {
        warnList(name, damage);
        return;
    }
    if (createTable) {
        table = new Table(name);
        created = true;
        try {
            for (const TableColumnDef &def : qAsConst(header.columns))
                table->addColumn(def);
        } catch (const QString &error) {
            delete table;
            warnList(name, error);
            return;
        }
    } else {
        table = IAppHub::findTable(name);
        if (!table) {
            skipRows(header, stream);
            return;
        }
    }
    if (!sameLayout(header, table) || qint64(table->rowLengthUnaligned()) != header.rowLength) {
        if (created)
            delete table;
        warnList(name, QStringLiteral("columns do not fit the table"));
        skipRows(header, stream);
        return;
    }

    RowCodec codec = codecOf(table, header.nullBytes);
    StringPool *pool = codec.hasStrings() ? table->stringPool() : nullptr;
    const bool plain = typeid(progress) == typeid(FilterProgressTrue);
    const int rowCount = header.columnCount > 0 ? header.rowCount : 0;
    int rowsRead = 0;
    int rowsKept = 0;
    for (; rowsRead < rowCount; ++rowsRead) {
        if (!plain)
            progress(rowsRead, rowCount);
        Record row(table);
        if (!row)
            throw std::bad_alloc();
        if (!codec.read(Table::cellsPtr(row.pointer()), stream, pool))
            break;
        if (plain || progress.filter(row)) {
            list.append(row);
            ++rowsKept;
        }
    }
    if (rowsRead < header.rowCount)
        warnList(name, QStringLiteral("%1 rows expected, %2 read").arg(header.rowCount).arg(rowsRead));
    // A new table that got no row could never be reached, nor deleted.
    if (created && rowsKept == 0)
        delete table;
}
