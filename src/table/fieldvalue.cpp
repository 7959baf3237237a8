#include "table/fieldvalue.h"

#include "table/table.h"

#include <QStringRef>

#include <cstdlib>
#include <cstring>
#include <new>

template class QList<FieldValue>;

namespace {

const TableColumnDef &checkedColumn(Table *table, int column)
{
    if (!table || column < 0 || column >= table->columnCount())
        throw QString(QStringLiteral("Column '%1' not found.").arg(column));
    return table->columnDef(column);
}

const TableColumnDef &checkedColumn(Table *table, const QString &name)
{
    const int column = table ? table->columnIndex(name) : -1;
    if (column < 0)
        throw QString(QStringLiteral("Column '%1' not found.").arg(name));
    return table->columnDef(column);
}

} // namespace

void FieldValue::init(TableColumnDef *columnDef)
{
    const size_t aligned = size_t((columnDef->len + 7) & ~uint64(7));
    columnDef->offset = 0;
    columnDef->nullOffset = aligned;
    columnDef->nullMask = 1;
    // calloc's alignment covers the 8 bytes that 64-bit cells need.
    unsigned char *buffer = static_cast<unsigned char *>(std::calloc(aligned + 1, 1));
    if (!buffer) {
        delete columnDef;
        throw std::bad_alloc();
    }
    if (columnDef->type == FieldType::String)
        new (buffer) QString();
    def = columnDef;
    m_data = buffer;
    nullByte = buffer + aligned;
    nullMask = 1;
}

FieldValue::FieldValue() : FieldValue(FieldType::Integer, 0, true) { }

FieldValue::FieldValue(FieldType::Type type, int length, bool nullable)
{
    const uint64 len = FieldType::typeLength(type, length); // may throw: nothing made yet
    auto *columnDef = new TableColumnDef(nullptr);
    columnDef->type = type;
    columnDef->length = length;
    columnDef->nullable = nullable;
    columnDef->len = len;
    init(columnDef);
}

FieldValue::FieldValue(const Field &other) : FieldValue()
{
    if (other.columnDef()) {
        release();
        copyFrom(other);
    }
}

FieldValue::FieldValue(const TableColumnDef *columnDef)
{
    init(new TableColumnDef(nullptr, *columnDef));
}

FieldValue::FieldValue(Table *table, int column) : FieldValue(&checkedColumn(table, column)) { }

FieldValue::FieldValue(Table *table, const QString &columnName)
    : FieldValue(&checkedColumn(table, columnName))
{
}

void FieldValue::copyFrom(const Field &other)
{
    init(new TableColumnDef(nullptr, *other.columnDef()));
    if (def->type == FieldType::String)
        *reinterpret_cast<QString *>(m_data) = *reinterpret_cast<const QString *>(other.data());
    else
        std::memcpy(m_data, other.data(), size_t(def->len));
    if (other.isNull())
        setNull();
    else
        clearNull();
}

FieldValue::FieldValue(const FieldValue &other) : Field()
{
    copyFrom(other);
}

FieldValue &FieldValue::operator=(const FieldValue &other)
{
    if (this == &other)
        return *this;
    // Build the copy first so that a failure leaves this value intact.
    FieldValue copy(other);
    // The old String cell's QString is destroyed as in the destructor, so that
    // the old text's reference goes (it would otherwise pin a pooled string).
    release();
    def = copy.def;
    m_data = copy.m_data;
    nullByte = copy.nullByte;
    nullMask = copy.nullMask;
    copy.def = nullptr;
    copy.m_data = nullptr;
    return *this;
}

FieldValue::~FieldValue()
{
    release();
}

void FieldValue::release()
{
    if (def && m_data && def->type == FieldType::String)
        reinterpret_cast<QString *>(m_data)->~QString();
    delete def;
    std::free(m_data);
    def = nullptr;
    m_data = nullptr;
}

QString FieldValue::toText() const
{
    return Field::toString();
}

void FieldValue::fromText(const QString &text)
{
    if (def->type == FieldType::String) {
        *reinterpret_cast<QString *>(m_data) = text;
        return;
    }
    Field::operator=(QStringRef(&text));
}

void FieldValue::fromText(const QStringRef &text)
{
    if (def->type == FieldType::String) {
        *reinterpret_cast<QString *>(m_data) = text.toString();
        clearNull();
        return;
    }
    Field::operator=(text);
}
