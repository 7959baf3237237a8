#include "table/tableindexrebuilder.h"

#include "index/index.h"
#include "numeric/stringpool.h"
#include "table/table.h"
#include "table/table_p.h"

TableIndexRebuilder::TableIndexRebuilder(Table *t) : table(t)
{
    const QList<Index *> list = table->indexes();
    for (Index *index : list) {
        savedIndexes.append(new QPair<Index *, QString>(index, table->indexName(index)));
        table->removeIndex(index);
    }
    detectIndexGroup(list);
    for (Index *index : qAsConst(otherGroup))
        index->clear();
    for (Index *index : qAsConst(dependGroup))
        index->clear();
    for (Index *index : qAsConst(joinDepGroup))
        index->clear();
}

TableIndexRebuilder::~TableIndexRebuilder()
{
    if (table->m_stringPool)
        table->m_stringPool->shrink();
    // Join dependents first: the other indexes may read the columns they fill.
    for (Index *index : qAsConst(joinDepGroup))
        index->build();
    for (Index *index : qAsConst(dependGroup))
        index->build();
    for (Index *index : qAsConst(otherGroup))
        index->build();
    for (QPair<Index *, QString> *saved : qAsConst(savedIndexes)) {
        table->d->indexes.append(saved->first);
        emit table->indexAdded(saved->first);
        if (!saved->second.isEmpty())
            table->setIndexName(saved->second, saved->first);
        delete saved;
    }
}

void TableIndexRebuilder::detectIndexGroup(const QList<Index *> &list)
{
    for (Index *index : list) {
        const QString name = index->getClassName();
        if (name == QLatin1String("TableJoinDep"))
            joinDepGroup.append(index);
        else if (name.startsWith(QLatin1String("IndexDepend")))
            dependGroup.append(index);
        else
            otherGroup.append(index);
    }
}
