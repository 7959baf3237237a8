#include "index/masterindex_fast.h"

#include "index/masterindex_column.h"
#include "index/masterindexfactory_p.h"

template class MasterIndexKey<MasterIndex_Fast_Pure>;

MasterIndex_Fast::MasterIndex_Fast(Table *table, const QStringList &columns)
    : MasterIndexKey<MasterIndex_Fast_Pure>(table, columns)
{
}

MasterIndex_Fast::MasterIndex_Fast(Table *table, const QList<int> &columns)
    : MasterIndexKey<MasterIndex_Fast_Pure>(table, columns)
{
}

QString MasterIndex_Fast::getClassName() const
{
    return QStringLiteral("MasterIndex_Fast");
}

MasterIndex *MasterIndex_Fast::create(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::create<MasterIndex_Fast, MasterIndex_Column>(
        table, columns, "MasterIndex_Fast : Cannot create optimized MasterIndex for '%1': ");
}

MasterIndex *MasterIndex_Fast::createMasterIndex(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::install(table, create(table, columns));
}

MasterIndex *MasterIndex_Fast::createIndex(const QString &name, Table *table,
                                           const QStringList &columns)
{
    return MasterIndexFactory::addNamed(name, table, create(table, columns));
}
