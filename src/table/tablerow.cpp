#include "table/table.h"

#include "index/masterindex.h"
#include "table/table_p.h"

#include <cstring>
#include <new>

namespace {

quint32 *refPtr(unsigned char *row)
{
    return reinterpret_cast<quint32 *>(row);
}

QString *stringCell(unsigned char *row, const TableColumnDef *def)
{
    return reinterpret_cast<QString *>(row + Table::RowHeaderSize + def->offset);
}

// The zero xdecimal: scale 0, 26 digits, all digit bytes zero.
void writeXDecimalZero(unsigned char *cell)
{
    std::memset(cell, 0, 16);
    cell[1] = 26;
}

} // namespace

void TablePrivate::layoutChanged(Table *table)
{
    stringCells.clear();
    blankRow = QByteArray(int(rowSize), '\0');
    auto *row = reinterpret_cast<unsigned char *>(blankRow.data());
    *Table::tablePPtr(row) = table;
    unsigned char *bits = row + Table::RowHeaderSize + rowLength;
    for (const TableColumnDef *def : qAsConst(columns)) {
        if (def->type == FieldType::XDecimal)
            writeXDecimalZero(row + Table::RowHeaderSize + def->offset);
        else if (def->type == FieldType::String)
            stringCells.append(Table::RowHeaderSize + def->offset);
        if (!def->nullable)
            Table::setNullPtr(bits, def->nullIndex, false);
    }
}

unsigned char *Table::allocRow()
{
    unsigned char *row = d->rows.allocate();
    if (row)
        initRow(row);
    return row;
}

void Table::initRow(unsigned char *row)
{
    std::memcpy(row, d->blankRow.constData(), d->rowSize);
    for (uint64 offset : qAsConst(d->stringCells))
        new (row + offset) QString();
}

unsigned char *Table::cloneRow(const unsigned char *src) const
{
    unsigned char *row = d->rows.allocate();
    if (!row)
        return nullptr;
    std::memcpy(row, src, d->rowSize);
    setRefValue(row, 0);
    // The byte copy did not count the strings' references.
    for (uint64 offset : qAsConst(d->stringCells))
        new (row + offset) QString(*reinterpret_cast<const QString *>(src + offset));
    return row;
}

void Table::copyRowContent(unsigned char *dst, const unsigned char *src)
{
    copyRowContent(dst, src, -1, -1);
}

void Table::copyRowContent(unsigned char *dst, const unsigned char *src, int first, int last)
{
    const int count = d->columns.size();
    if (count == 0)
        return;
    if (first < 0)
        first = 0;
    if (last < 0)
        last = count - 1;
    last = qMin(last, count - 1);

    int i = first;
    while (i <= last) {
        const TableColumnDef *def = d->columns.at(i);
        if (def->type == FieldType::String) {
            *stringCell(dst, def) = *stringCell(const_cast<unsigned char *>(src), def);
            ++i;
            continue;
        }
        // A run of byte-copied cells up to the next String column or `last`,
        // gaps behind short cells included: one memcpy for wide numeric rows.
        int end = i;
        while (end < last && d->columns.at(end + 1)->type != FieldType::String)
            ++end;
        const TableColumnDef *lastDef = d->columns.at(end);
        const uint64 from = def->offset;
        const uint64 to = lastDef->offset + lastDef->lenAligned();
        std::memcpy(dst + RowHeaderSize + from, src + RowHeaderSize + from, to - from);
        i = end + 1;
    }
    copyNullPtr(dst + RowHeaderSize + d->rowLength, src + RowHeaderSize + d->rowLength, first, last);
}

void Table::freeRow(unsigned char *row)
{
    for (uint64 offset : qAsConst(d->stringCells))
        reinterpret_cast<QString *>(row + offset)->~QString();
    RowAllocator::release(row);
}

uint64 Table::rowLength() const
{
    return d->rowLength;
}

uint64 Table::rowLengthUnaligned() const
{
    uint64 length = 0;
    for (const TableColumnDef *def : qAsConst(d->columns))
        length += def->len;
    return length;
}

uint64 Table::rowSize() const
{
    return d->rowSize;
}

unsigned int Table::nullLength() const
{
    return unsigned(d->columns.size() + 7) / 8;
}

void Table::hasRow(unsigned char *) { }

bool Table::ref(unsigned char *row)
{
    return __atomic_add_fetch(refPtr(row), 1u, __ATOMIC_ACQ_REL) != 0;
}

bool Table::deref(unsigned char *row)
{
    return __atomic_sub_fetch(refPtr(row), 1u, __ATOMIC_ACQ_REL) != 0;
}

int Table::references(const unsigned char *row)
{
    return int(__atomic_load_n(refPtr(const_cast<unsigned char *>(row)), __ATOMIC_ACQUIRE));
}

void Table::setRefValue(unsigned char *row, int value)
{
    __atomic_store_n(refPtr(row), quint32(value), __ATOMIC_RELEASE);
}

Table **Table::tablePPtr(unsigned char *row)
{
    return reinterpret_cast<Table **>(row + RowTableOffset);
}

bool Table::isNullPtr(const unsigned char *bits, int column)
{
    return (bits[column >> 3] & (1u << (column & 7))) == 0;
}

void Table::setNullPtr(unsigned char *bits, int column, bool isNull)
{
    const unsigned char mask = (unsigned char)(1u << (column & 7));
    if (isNull)
        bits[column >> 3] &= (unsigned char)~mask;
    else
        bits[column >> 3] |= mask;
}

void Table::copyNullPtr(unsigned char *dst, const unsigned char *src, int first, int last)
{
    const unsigned char lowMask = (unsigned char)((255u << (first & 7)) & 255u);
    const unsigned char highMask = (unsigned char)(255u >> (7 - (last & 7)));
    const int firstByte = first >> 3;
    const int lastByte = last >> 3;
    if (firstByte == lastByte) {
        const unsigned char mask = lowMask & highMask;
        dst[firstByte] = (unsigned char)((dst[firstByte] & ~mask) | (src[firstByte] & mask));
        return;
    }
    dst[firstByte] = (unsigned char)((dst[firstByte] & ~lowMask) | (src[firstByte] & lowMask));
    if (lastByte - firstByte > 1)
        std::memcpy(dst + firstByte + 1, src + firstByte + 1, size_t(lastByte - firstByte - 1));
    dst[lastByte] = (unsigned char)((dst[lastByte] & ~highMask) | (src[lastByte] & highMask));
}

const Record &Table::at(int index) const
{
    return d->masterIndex->at(index);
}

Field Table::data(int rowIndex, int column)
{
    return dataPtr(const_cast<unsigned char *>(at(rowIndex).rowPtr()), column);
}

void Table::setNull(int rowIndex, int column)
{
    data(rowIndex, column).setNull();
}

