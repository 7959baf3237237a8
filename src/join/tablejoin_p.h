#ifndef TABLEDB_JOIN_TABLEJOIN_P_H
#define TABLEDB_JOIN_TABLEJOIN_P_H

#include "join/joininfo.h"

#include <QList>
#include <QMap>
#include <QMetaObject>
#include <QSharedPointer>
#include <QVector>

class Index;
class IndexDependBase;
class Table;
class TableJoinMain;

class TableJoinPrivate
{
public:
    Table *mainTable = nullptr; // where the main index goes, if by table
    Index *mainTableIndex = nullptr;
    IndexDependBase *mainDepend = nullptr; // where it goes, if as a dependent index
    Index *mainDependIndex = nullptr;
    QMap<Table *, Index *> depTables;
    QMap<IndexDependBase *, Index *> depDepends;
    QSharedPointer<JoinMainInfo> mainInfo;
    TableJoinMain *mainIndex = nullptr; // owned
    QVector<QSharedPointer<JoinDepInfo>> deps; // in the order of the dependents given

    QList<QMetaObject::Connection> watches; // the tables' destroyed() signals
};

#endif // TABLEDB_JOIN_TABLEJOIN_P_H
