#include "index/masterptrindex.h"

#include <typeinfo>

MasterPtrIndex::MasterPtrIndex(Table *table) : MasterIndex(table) { }

int MasterPtrIndex::compare(const Record &a, const Record &b) const
{
    const quintptr x = reinterpret_cast<quintptr>(a.rowPtr());
    const quintptr y = reinterpret_cast<quintptr>(b.rowPtr());
    return x < y ? -1 : (x > y ? 1 : 0);
}

IndexSort::KeyPrefixKind MasterPtrIndex::keyPrefixKind() const
{
    return typeid(*this) == typeid(MasterPtrIndex) ? ExactKeyPrefix : NoKeyPrefix;
}

QString MasterPtrIndex::toText(const Record &) const
{
    return QString();
}

Record MasterPtrIndex::fromText(const QString &) const
{
    return m_table ? Record(m_table) : Record();
}
