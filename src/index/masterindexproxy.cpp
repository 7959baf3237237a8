#include "index/masterindexproxy.h"

#include "table/table.h"

MasterIndexProxy::MasterIndexProxy(Table *table)
    : MasterIndex(table), m_master(table ? table->masterIndex() : nullptr)
{
    if (m_master)
        m_columns = m_master->columns();
}

int MasterIndexProxy::compare(const Record &a, const Record &b) const
{
    return m_master ? m_master->compare(a, b) : 0;
}

QString MasterIndexProxy::toText(const Record &record) const
{
    return m_master ? m_master->toText(record) : QString();
}

Record MasterIndexProxy::fromText(const QString &text) const
{
    if (m_master)
        return m_master->fromText(text);
    return m_table ? Record(m_table) : Record();
}

QString MasterIndexProxy::getClassName() const
{
    return QStringLiteral("MasterIndexProxy");
}
