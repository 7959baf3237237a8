#include "table/table.h"

#include "index/masterindex.h"
#include "table/table_p.h"

#include <QDebug>
#include <QVector>

#include <cstring>
#include <new>

void Table::addColumn(const QString &name, const FieldDef &def, bool nullable,
                      const QString &title, bool flag, const QString &description)
{
    TableColumnDef column(this);
    column.type = def.type;
    column.length = def.length;
    column.name = name;
    column.nullable = nullable;
    column.title = title;
    column.flag = flag;
    column.description = description;
    addColumn(column);
}

void Table::addColumn(const QString &name, FieldType::Type type, int length, bool nullable,
                      const QString &title, bool flag, const QString &description)
{
    addColumn(name, FieldDef(type, length), nullable, title, flag, description);
}

void Table::addColumn(const TableColumnDef &def)
{
    if (def.name.isEmpty())
        throw QString(QStringLiteral("Column name can't be empty."));
    for (const TableColumnDef *existing : qAsConst(d->columns)) {
        if (existing->name.compare(def.name, Qt::CaseInsensitive) != 0)
            continue;
        // The existing column already serves a definition that fits into it.
        if (FieldType::typeLessThan(def.type, def.length, existing->type, existing->length))
            return;
        throw QString(QStringLiteral("Column '%1' already exists for table '%2'."))
            .arg(def.name, d->name);
    }

    auto *column = new TableColumnDef(this);
    column->type = def.type;
    column->length = def.length;
    column->name = def.name;
    column->description = def.description;
    column->title = def.title;
    column->flag = def.flag;
    column->nullable = def.nullable;
    column->offset = d->rowLength;
    try {
        column->len = FieldType::typeLength(def.type, def.length);
    } catch (...) {
        delete column;
        throw;
    }

    const int oldCount = d->columns.size();
    const uint64 oldRowSize = d->rowSize;
    const uint64 cellStart = RowHeaderSize + column->offset;
    const uint64 newBitmap = cellStart + column->lenAligned();
    const uint64 newSize = newBitmap + uint64(oldCount + 8) / 8;
    const size_t bitmapBytes = size_t(oldCount + 7) / 8;

    // Take every row off the indexes, holding one reference each.
    QVector<unsigned char *> rows;
    if (d->masterIndex) {
        rows.reserve(d->masterIndex->count());
        for (auto it = d->masterIndex->begin(), end = d->masterIndex->end(); it != end; ++it) {
            unsigned char *row = const_cast<unsigned char *>(it->rowPtr());
            ref(row);
            rows.append(row);
        }
        d->masterIndex->clear();
    }
    for (Index *index : qAsConst(d->indexes))
        index->clear();

    d->rows.setBlockSize(newSize);
    for (unsigned char *&row : rows) {
        if (deref(row)) {
            // Another holder exists; its pointer dangles if the block moves.
            QMessageLogger().warning().noquote()
                << QStringLiteral("Table::addColumn : Ref count in realloc is ")
                    + QString::number(references(row));
        }
        // Moved to a block of the new size; the bytes, strings included,
        // travel as they would with a reallocation.
        unsigned char *moved = d->rows.allocate();
        if (!moved)
            throw std::bad_alloc();
        std::memcpy(moved, row, size_t(qMin(oldRowSize, newSize)));
        RowAllocator::release(row);
        row = moved;
        std::memmove(row + newBitmap, row + RowHeaderSize + d->rowLength, bitmapBytes);
        std::memset(row + cellStart, 0, column->lenAligned());
        // Zero bytes are no QString: freeing the row would crash on them.
        if (column->type == FieldType::String)
            new (row + cellStart) QString();
        if (column->nullable)
            setNullPtr(row + newBitmap, oldCount, true);
        setRefValue(row, 0);
        ref(row);
    }

    d->cacheColumn(column->name);
    d->columns.append(column);
    m_columnDefs.append(column);
    d->rowLength += column->lenAligned();
    d->rowSize = newSize;
    for (int i = 0; i < d->columns.size(); ++i)
        d->columns.at(i)->update(d->rowLength, i);
    d->layoutChanged(this);

    if (d->masterIndex) {
        for (unsigned char *row : qAsConst(rows)) {
            d->masterIndex->add(Record(row));
            deref(row); // the list's reference; the master index holds the row now
        }
    }
    for (Index *index : qAsConst(d->indexes))
        index->build();
}

int Table::columnCount() const
{
    return d->columns.size();
}

int Table::columnIndex(const QString &name) const
{
    // A short tree walk beats hashing the string.
    if (d->columnHash.size() < 21)
        return d->columnMap.value(name, -1);
    return d->columnHash.value(name, -1);
}

bool Table::columnExists(const QString &name) const
{
    return columnIndex(name) != -1;
}

QString Table::columnName(int column) const
{
    return d->columns.at(column)->name;
}

FieldType::Type Table::columnType(int column) const
{
    return d->columns.at(column)->type;
}

QString Table::columnTypeName(int column) const
{
    const TableColumnDef *def = d->columns.at(column);
    return FieldType::typeNameWithLength(def->type, def->length);
}

QString Table::columnDescription(int column) const
{
    return d->columns.at(column)->description;
}

QString Table::columnTitle(int column) const
{
    const TableColumnDef *def = d->columns.at(column);
    return def->title.isEmpty() ? def->name : def->title;
}

void Table::setColumnTitle(int column, const QString &title)
{
    d->columns.at(column)->title = title;
}

const TableColumnDef &Table::columnDef(int column) const
{
    return *d->columns.at(column);
}

const TableColumnDef &Table::columnDef(const QString &name) const
{
    return *d->columns.at(columnIndex(name));
}

QList<ColumnDef> Table::columns() const
{
    QList<ColumnDef> list;
    list.reserve(d->columns.size());
    for (const TableColumnDef *def : qAsConst(d->columns))
        list.append(*def);
    return list;
}

QList<TableColumnDef *> Table::fieldDefs() const
{
    return d->columns;
}
