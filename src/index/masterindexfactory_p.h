#ifndef TABLEDB_INDEX_MASTERINDEXFACTORY_P_H
#define TABLEDB_INDEX_MASTERINDEXFACTORY_P_H

#include "index/masterindex.h"
#include "table/table.h"

#include <QDebug>
#include <QMessageLogger>

// The factories shared by the four key master index classes.
namespace MasterIndexFactory {

// Makes a `Wanted`; if that throws a QString, makes a `Fallback` (which may
// throw in turn) and logs `prefix`, with the table's name for %1, followed by
// the reason.
template <typename Wanted, typename Fallback>
MasterIndex *create(Table *table, const QStringList &columns, const char *prefix)
{
    try {
        return new Wanted(table, QStringList(columns));
    } catch (const QString &reason) {
        const QString message =
            QString::fromLatin1(prefix).arg(table ? table->name() : QString()) + reason;
        MasterIndex *index = new Fallback(table, QStringList(columns));
        QMessageLogger(__FILE__, __LINE__, Q_FUNC_INFO).warning().noquote() << message;
        return index;
    }
}

inline MasterIndex *install(Table *table, MasterIndex *index)
{
    if (table)
        table->setMasterIndex(index);
    return index;
}

inline MasterIndex *addNamed(const QString &name, Table *table, MasterIndex *index)
{
    if (table) {
        table->addIndex(index);
        table->setIndexName(name, index);
    }
    return index;
}

} // namespace MasterIndexFactory

#endif // TABLEDB_INDEX_MASTERINDEXFACTORY_P_H
