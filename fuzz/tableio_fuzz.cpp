// The table-file reader. The first byte picks the way in: a stream over the
// bytes, a plain file, or a gzip file (the inflating read-ahead included),
// whether columns the table lacks are added, and whether the table is keyed
// by a Fast master (filled row by row and sorted once). Property: the rows that were
// read, once written, read back whole and write the same bytes again, apart
// from the one change the reader makes on purpose: an empty String cell takes
// the text of the last earlier row whose cell was not empty.

#include "fuzzsupport.h"

#include "index/masterindex_fast.h"
#include "io/tableio.h"
#include "runtime/exception.h"
#include "table/table.h"

#include <QDataStream>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace {

// The shape the files are read into: one column of every type. Its own, not
// the tests' table: the seed corpus was written for exactly these columns.
Table *makeTable(bool keyed)
{
    auto *t = new Table(QStringLiteral("orders"));
    t->addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
    t->addColumn(QStringLiteral("qty"), FieldType::Integer64);
    t->addColumn(QStringLiteral("px"), FieldType::Double);
    t->addColumn(QStringLiteral("dec"), FieldType::Decimal, 2);
    t->addColumn(QStringLiteral("xdec"), FieldType::XDecimal, 4);
    t->addColumn(QStringLiteral("code"), FieldType::VarChar, 3);
    t->addColumn(QStringLiteral("time"), FieldType::DateTime);
    t->addColumn(QStringLiteral("text"), FieldType::String);
    t->addColumn(QStringLiteral("board"), FieldType::BoardList);
    if (keyed)
        MasterIndex_Fast::createMasterIndex(t, { QStringLiteral("key") });
    return t;
}

QByteArray write(Table *table)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    TableIO(table).write(out, true);
    return bytes;
}

// Reads `bytes` the way `mode` says; false when the reader threw, which a
// value that fails its conversion may do.
bool read(Table *table, const QByteArray &bytes, int mode, bool addColumns, QString *error)
{
    static QTemporaryDir dir;
    TableIO io(table);
    try {
        if (mode == 0) {
            QDataStream in(bytes);
            io.read(in, addColumns);
        } else {
            const QString plain = dir.filePath(table->name());
            const QString gzip = plain + QStringLiteral(".gz");
            QFile::remove(plain);
            QFile::remove(gzip);
            QFile file(mode == 1 ? plain : gzip);
            FUZZ_CHECK(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size(),
                       file.errorString());
            file.close();
            io.read(QDir(dir.path()), addColumns);
        }
    } catch (const Exception &) {
        return false;
    } catch (const QString &) {
        return false;
    } catch (const char *) {
        return false;
    }
    *error = io.lastError();
    return true;
}

// What `table` reads back as once written: the reader reuses one scratch row
// and leaves a String cell untouched when its text is empty, so every empty
// text (NULL or not) inherits the last non-empty one above it.
void inheritEmptyTexts(Table *table)
{
    for (const TableColumnDef *def : table->fieldDefs()) {
        if (def->type != FieldType::String)
            continue;
        QString last;
        for (int i = 0; i < table->rowCount(); ++i) {
            Field cell = table->at(i).data(def->name);
            // The text is written whether or not the cell is NULL.
            const bool null = cell.isNull();
            cell.clearNull();
            const QString text = cell.toString();
            if (null)
                cell.setNull();
            if (!text.isEmpty())
                last = text;
            else if (!last.isEmpty())
                cell.storeString(last);
        }
    }
}

} // namespace

FUZZ_INIT

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1 || size > 4096)
        return 0;
    const int mode = (data[0] & 3) % 3;
    const bool addColumns = data[0] & 4;
    const bool keyed = data[0] & 8;
    const QByteArray input(reinterpret_cast<const char *>(data) + 1, int(size) - 1);

    std::unique_ptr<Table> first(makeTable(keyed));
    QString error;
    if (!read(first.get(), input, mode, addColumns, &error))
        return 0;
    const QByteArray written = write(first.get());

    std::unique_ptr<Table> second(makeTable(keyed));
    FUZZ_CHECK(read(second.get(), written, 0, true, &error) && error.isEmpty(),
               QStringLiteral("a written file read back with: ") + error);
    FUZZ_CHECK(second->rowCount() == first->rowCount(),
               QStringLiteral("%1 rows written, %2 read back").arg(first->rowCount()).arg(second->rowCount()));
    inheritEmptyTexts(first.get());
    const QByteArray expected = write(first.get());
    FUZZ_CHECK(write(second.get()) == expected,
               QStringLiteral("the rows read back write other bytes than ")
                   + QString::fromLatin1(expected.toHex()));
    return 0;
}
