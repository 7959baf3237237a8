#include "index/masterindexordered.h"

#include <typeinfo>

MasterIndexOrdered::MasterIndexOrdered(Table *table) : MasterIndex(table) { }

IndexSort::KeyPrefixKind MasterIndexOrdered::keyPrefixKind() const
{
    return typeid(*this) == typeid(MasterIndexOrdered) ? ExactKeyPrefix : NoKeyPrefix;
}

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
