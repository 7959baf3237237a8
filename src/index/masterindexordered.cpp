#include "index/masterindexordered.h"

MasterIndexOrdered::MasterIndexOrdered(Table *table) : MasterIndex(table) { }

int MasterIndexOrdered::compare(const Record &, const Record &) const
{
    return 0;
}

QString MasterIndexOrdered::toText(const Record &) const
{
    return QString();
}

Record MasterIndexOrdered::fromText(const QString &) const
{
    return m_table ? Record(m_table) : Record();
}
