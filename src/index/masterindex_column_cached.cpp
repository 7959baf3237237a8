#include "index/masterindex_column_cached.h"

#include "index/masterindexfactory_p.h"

template class MasterIndexCached<MasterIndex_Column>;

MasterIndex_Column_Cached::MasterIndex_Column_Cached(Table *table, const QString &column)
    : MasterIndexCached<MasterIndex_Column>(table, column)
{
}

MasterIndex_Column_Cached::MasterIndex_Column_Cached(Table *table, const QStringList &columns)
    : MasterIndexCached<MasterIndex_Column>(table, columns)
{
}

MasterIndex_Column_Cached::MasterIndex_Column_Cached(Table *table, const QList<int> &columns)
    : MasterIndexCached<MasterIndex_Column>(table, columns)
{
}

QString MasterIndex_Column_Cached::getClassName() const
{
    return QStringLiteral("MasterIndex_Column_Cached");
}

// The fallback is the same class: a failure repeats and leaves create().
MasterIndex *MasterIndex_Column_Cached::create(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::create<MasterIndex_Column_Cached, MasterIndex_Column_Cached>(
        table, columns, "MasterIndex_Column_Cached : Cannot create optimized MasterIndex for '%1': ");
}

MasterIndex *MasterIndex_Column_Cached::createMasterIndex(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::install(table, create(table, columns));
}

MasterIndex *MasterIndex_Column_Cached::createIndex(const QString &name, Table *table,
                                                    const QStringList &columns)
{
    return MasterIndexFactory::addNamed(name, table, create(table, columns));
}
