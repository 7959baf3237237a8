#include "index/masterindex_column.h"

#include "index/masterindexfactory_p.h"

template class MasterIndexKey<MasterIndex_Column_Pure>;

MasterIndex_Column::MasterIndex_Column(Table *table, const QString &column)
    : MasterIndexKey<MasterIndex_Column_Pure>(table, column)
{
}

MasterIndex_Column::MasterIndex_Column(Table *table, const QStringList &columns)
    : MasterIndexKey<MasterIndex_Column_Pure>(table, columns)
{
}

MasterIndex_Column::MasterIndex_Column(Table *table, const QList<int> &columns)
    : MasterIndexKey<MasterIndex_Column_Pure>(table, columns)
{
}

QString MasterIndex_Column::getClassName() const
{
    return QStringLiteral("MasterIndex_Column");
}

// The fallback is the same class: a failure repeats and leaves create().
MasterIndex *MasterIndex_Column::create(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::create<MasterIndex_Column, MasterIndex_Column>(
        table, columns, "MasterIndex_Column : Cannot create optimized MasterIndex for '%1': ");
}

MasterIndex *MasterIndex_Column::createMasterIndex(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::install(table, create(table, columns));
}

MasterIndex *MasterIndex_Column::createIndex(const QString &name, Table *table,
                                             const QStringList &columns)
{
    return MasterIndexFactory::addNamed(name, table, create(table, columns));
}
