#include "table/record.h"

#include "index/masterindex.h"
#include "table/table.h"

#include <QStringList>

const Record Record::null;

void Record::acquire(unsigned char *row)
{
    Table::ref(row);
}

void Record::release(unsigned char *row)
{
    if (!Table::deref(row))
        Table::tablePtr(row)->freeRow(row);
}

Record::Record(const Table *table) : m_row(nullptr)
{
    unsigned char *row = const_cast<Table *>(table)->allocRow();
    if (row) {
        m_row = row;
        acquire(m_row);
    }
}

Record::Record(const Table *table, const QString &key) : m_row(nullptr)
{
    if (key.isEmpty() || !table || !table->masterIndex())
        return;
    const MasterIndex *master = table->masterIndex();
    const Record search = master->fromText(key);
    *this = master->find(search, -1);
}

Record &Record::operator=(const Record &other)
{
    if (m_row == other.m_row)
        return *this;
    unsigned char *old = m_row;
    m_row = other.m_row;
    if (m_row)
        acquire(m_row);
    if (old)
        release(old);
    return *this;
}

Record Record::clone() const
{
    return Record(Table::tablePtr(m_row)->cloneRow(m_row));
}

void Record::copy(const Record &other)
{
    if (m_row != other.m_row)
        table()->copyRowContent(m_row, other.m_row);
}

void Record::copy(const Record &other, int first, int last)
{
    if (m_row != other.m_row)
        table()->copyRowContent(m_row, other.m_row, first, last);
}

Field Record::data(const QString &name)
{
    Table *t = table();
    const int column = t->columnIndex(name);
    // An unknown name gives a Field on no cell instead of reading before the row.
    return column < 0 ? Field() : t->dataPtr(m_row, column);
}

Field Record::data(const QString &name) const
{
    return const_cast<Record *>(this)->data(name);
}

Table *Record::table()
{
    return Table::tablePtr(m_row);
}

const Table *Record::table() const
{
    return Table::tablePtr(m_row);
}

bool Record::inTable() const
{
    if (!m_row)
        return false;
    const MasterIndex *master = table()->masterIndex();
    return master && master->contains(*this);
}

QString Record::toString() const
{
    if (!m_row)
        return QString();
    const MasterIndex *master = table()->masterIndex();
    return master ? master->toText(*this) : QString();
}

QString Record::dump(bool skipNull) const
{
    if (!m_row)
        return QStringLiteral("{ NULL }");
    const Table *t = table();
    QStringList items;
    const int n = t->columnCount();
    for (int i = 0; i < n; ++i) {
        const Field field = data(i);
        if (field.isNull()) {
            if (!skipNull)
                items.append(t->columnName(i) + QStringLiteral("=\"\""));
        } else {
            items.append(t->columnName(i) + QLatin1Char('=') + field.toString());
        }
    }
    // One pass, so that a '%' in a name or a value is not taken for a marker.
    return QStringLiteral("%1:(ptr:0x%2 ref:%3) { %4 }")
        .arg(t->name(), QStringLiteral("%1").arg(quintptr(m_row), 16, 16, QLatin1Char('0')),
             QString::number(Table::references(m_row)), items.join(QLatin1Char(' ')));
}

void Record::append() const
{
    Table::tablePtr(m_row)->appendRow(m_row);
}

void Record::remove() const
{
    Table::tablePtr(m_row)->remove(*this, -1);
}

void Record::updated() const
{
    Table::tablePtr(m_row)->updated(*this, -1, -1, -1);
}

void Record::updated(int column) const
{
    Table::tablePtr(m_row)->updated(*this, column, column, -1);
}

void Record::updated(int first, int last) const
{
    Table::tablePtr(m_row)->updated(*this, first, last, -1);
}
