#include "index/masterindex_fast_cached.h"

#include "index/masterindex_column_cached.h"
#include "index/masterindexfactory_p.h"

template class MasterIndexCached<MasterIndex_Fast>;

MasterIndex_Fast_Cached::MasterIndex_Fast_Cached(Table *table, const QStringList &columns)
    : MasterIndexCached<MasterIndex_Fast>(table, columns)
{
}

MasterIndex_Fast_Cached::MasterIndex_Fast_Cached(Table *table, const QList<int> &columns)
    : MasterIndexCached<MasterIndex_Fast>(table, columns)
{
}

QString MasterIndex_Fast_Cached::getClassName() const
{
    return QStringLiteral("MasterIndex_Fast_Cached");
}

MasterIndex *MasterIndex_Fast_Cached::create(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::create<MasterIndex_Fast_Cached, MasterIndex_Column_Cached>(
        table, columns, "MasterIndex_Fast_Cached : Cannot create optimized MasterIndex for '%1': ");
}

MasterIndex *MasterIndex_Fast_Cached::createMasterIndex(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::install(table, create(table, columns));
}

MasterIndex *MasterIndex_Fast_Cached::createIndex(const QString &name, Table *table,
                                                  const QStringList &columns)
{
    return MasterIndexFactory::addNamed(name, table, create(table, columns));
}
