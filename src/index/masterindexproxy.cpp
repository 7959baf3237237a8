#include "index/masterindexproxy.h"

#include <typeinfo>

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

IndexSort::KeyPrefixKind MasterIndexProxy::keyPrefixKind() const
{
    if (!m_master || typeid(*this) != typeid(MasterIndexProxy))
        return NoKeyPrefix;
    return m_master->keyPrefixKind();
}

quint64 MasterIndexProxy::keyPrefix(const Record &row) const
{
    return m_master->keyPrefix(row);
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
