#include "join/tablejoin.h"

#include "index/masterindex.h"
#include "io/tableio.h"
#include "join/tablejoin_p.h"
#include "runtime/exception.h"
#include "runtime/iapphub.h"
#include "table/table.h"

#include <QSet>

#include <algorithm>

namespace {

// The first free name for a copy of `name`, by exact comparison.
QString freeName(const QString &name, const QString &depTableName, const QStringList &used)
{
    if (!used.contains(name))
        return name;
    const QString candidates[]
        = { name + QLatin1Char('_'), depTableName + QLatin1Char('_') + name };
    for (const QString &candidate : candidates) {
        if (!used.contains(candidate))
            return candidate;
    }
    for (int n = 2;; ++n) {
        const QString candidate = name + QString::number(n);
        if (!used.contains(candidate))
            return candidate;
    }
}

QStringList columnNamesOf(const Table *table)
{
    QStringList names;
    for (const TableColumnDef *def : table->fieldDefs())
        names.append(def->name);
    return names;
}

Exception joinError(const QString &message)
{
    return Exception(QStringLiteral("TableJoin: ") + message);
}

} // namespace

TableJoin::TableJoin(Table *main, const QList<Table *> &dependents, const QStringList &columnNames,
    bool registerJoin)
    : d_ptr(nullptr)
{
    if (!main)
        throw joinError(QStringLiteral("no join table given"));
    init(main->masterIndex(), typeToMaster(dependents), columnNames, registerJoin, main, nullptr,
        dependents, QList<IndexDependBase *>());
}

TableJoin::TableJoin(MasterIndex *main, const QList<Table *> &dependents,
    const QStringList &columnNames, bool registerJoin)
    : d_ptr(nullptr)
{
    if (!main || !main->table())
        throw joinError(QStringLiteral("the key index belongs to no table"));
    init(main, typeToMaster(dependents), columnNames, registerJoin, main->table(), nullptr,
        dependents, QList<IndexDependBase *>());
}

TableJoin::TableJoin(IndexDependBase *main, const QList<IndexDependBase *> &dependents,
    const QStringList &columnNames, bool registerJoin)
    : d_ptr(nullptr)
{
    const QList<MasterIndex *> mains = typeToMaster(QList<IndexDependBase *>() << main);
    init(mains.first(), typeToMaster(dependents), columnNames, registerJoin, nullptr, main,
        QList<Table *>(), dependents);
}

void TableJoin::init(MasterIndex *main, const QList<MasterIndex *> &dependents,
    const QStringList &columnNames, bool registerJoin, Table *mainTable,
    IndexDependBase *mainDepend, const QList<Table *> &depTables,
    const QList<IndexDependBase *> &depDepends)
{
    check(main, dependents, columnNames);
    bool connected = false;
    try {
        Index *mainIndex = nullptr;
        QList<Index *> depIndexes;
        setup(main, dependents, columnNames, registerJoin, &mainIndex, &depIndexes);
        if (mainTable)
            setupIndex(mainTable, mainIndex, true);
        else
            setupIndex(mainDepend, mainIndex, true);
        for (int i = 0; i < depIndexes.size(); ++i) {
            if (i < depTables.size())
                setupIndex(depTables.at(i), depIndexes.at(i), false);
            else
                setupIndex(depDepends.at(i), depIndexes.at(i), false);
        }
        build();
        connectIndexes();
        connected = true;
        watchTables();
    } catch (...) {
        if (connected)
            disconnectIndexes();
        release();
        throw;
    }
}

void TableJoin::check(
    MasterIndex *main, const QList<MasterIndex *> &dependents, const QStringList &columnNames) const
{
    if (!main || !main->table())
        throw joinError(QStringLiteral("the key index is not a master index of a table"));
    const Table *table = main->table();
    if (main->columns().isEmpty())
        throw joinError(
            QStringLiteral("the key index of table '%1' has no key columns").arg(table->name()));

    QSet<const Table *> seen;
    QStringList used = columnNamesOf(table);
    QStringList planned;
    for (int i = 0; i < dependents.size(); ++i) {
        const MasterIndex *depMaster = dependents.at(i);
        if (!depMaster || !depMaster->table())
            throw joinError(QStringLiteral("dependent %1 of table '%2' is not a master index of "
                                           "a table")
                                .arg(i)
                                .arg(table->name()));
        const Table *depTable = depMaster->table();
        if (depTable == table)
            throw joinError(
                QStringLiteral("table '%1' can't be its own dependent").arg(table->name()));
        if (seen.contains(depTable))
            throw joinError(QStringLiteral("table '%1' is given twice as a dependent of '%2'")
                                .arg(depTable->name(), table->name()));
        seen.insert(depTable);
        for (int key : main->columns()) {
            const QString keyName = table->columnName(key);
            if (depTable->columnIndex(keyName) == -1)
                throw joinError(QStringLiteral("table '%1' lacks the key column '%2' of table "
                                               "'%3'")
                                    .arg(depTable->name(), keyName, table->name()));
        }
        // The names setup() will choose. One that differs from a present
        // column only in letter case would be refused by addColumn, or worse,
        // taken as that column.
        for (const QString &name : columnNames) {
            if (depTable->columnIndex(name) == -1)
                continue;
            const QString newName = freeName(name, depTable->name(), used);
            for (const QString &present : qAsConst(used)) {
                if (present.compare(newName, Qt::CaseInsensitive) == 0)
                    throw QString(QStringLiteral("Column '%1' already exists for table '%2'."))
                        .arg(newName, table->name());
            }
            used.append(newName);
        }
    }
}

void TableJoin::setup(MasterIndex *main, const QList<MasterIndex *> &dependents,
    const QStringList &columnNames, bool registerJoin, Index **mainIndexOut,
    QList<Index *> *depIndexesOut)
{
    d_ptr = new TableJoinPrivate;
    Q_D(TableJoin);
    Table *table = main->table();
    MasterIndex *tableMaster = table->masterIndex();
    if (registerJoin)
        IAppHub::registerJoin(this);

    const QList<int> keys = main->columns();
    d->mainInfo.reset(new JoinMainInfo);
    d->mainInfo->master = main;
    d->mainInfo->tableMaster = tableMaster;
    d->mainInfo->table = table;
    d->deps.resize(dependents.size());
    for (int i = 0; i < dependents.size(); ++i) {
        d->deps[i].reset(new JoinDepInfo);
        d->deps[i]->depMaster = dependents.at(i);
        d->deps[i]->mainMaster = main;
    }
    d->mainInfo->keyColumns = keys.toVector();
    std::sort(d->mainInfo->keyColumns.begin(), d->mainInfo->keyColumns.end());

    QStringList usedNames = columnNamesOf(table);
    for (const QSharedPointer<JoinDepInfo> &dep : qAsConst(d->deps)) {
        Table *depTable = dep->depMaster->table();
        dep->table = table;
        dep->depTable = depTable;
        for (int key : keys) {
            const TableColumnDef &mainDef = table->columnDef(key);
            const int depNumber = depTable->columnIndex(mainDef.name);
            dep->mainToDep.append(Col { mainDef.nullIndex, depNumber });
            dep->depToMain.append(Col { depNumber, mainDef.nullIndex });
        }
        dep->mainToDepSorted = sortedBySource(dep->mainToDep);
        dep->depToMainSorted = sortedBySource(dep->depToMain);
        for (const QString &name : columnNames) {
            const int depNumber = depTable->columnIndex(name);
            if (depNumber == -1)
                continue; // not copied from a dependent that lacks it
            const QString newName = freeName(name, depTable->name(), usedNames);
            TableColumnDef def(table, depTable->columnDef(depNumber));
            def.name = newName;
            def.nullable = true;
            dep->copyColumns.append(Col { table->columnCount(), depNumber });
            table->addColumn(def);
            usedNames.append(newName);
        }
        dep->copyColumnsSorted = sortedBySource(dep->copyColumns);
        dep->index = new TableJoinDep(dep.data());
        depIndexesOut->append(dep->index);
    }
    d->mainIndex = new TableJoinMain(d->mainInfo.data(), d->deps);
    *mainIndexOut = d->mainIndex;
}

void TableJoin::setupIndex(Table *table, Index *index, bool isMain)
{
    Q_D(TableJoin);
    if (isMain) {
        d->mainTable = table;
        d->mainTableIndex = index;
        d->mainDepend = nullptr;
        d->mainDependIndex = nullptr;
    } else {
        d->depTables[table] = index;
    }
}

void TableJoin::setupIndex(IndexDependBase *depend, Index *index, bool isMain)
{
    Q_D(TableJoin);
    if (isMain) {
        d->mainDepend = depend;
        d->mainDependIndex = index;
        d->mainTable = nullptr;
        d->mainTableIndex = nullptr;
    } else {
        d->depDepends[depend] = index;
    }
}

void TableJoin::build()
{
    Q_D(TableJoin);
    TableUpdater updater(d->mainInfo->table);
    d->mainIndex->build();
}

void TableJoin::connectIndexes()
{
    Q_D(TableJoin);
    // Appended, not built: a join index runs after the indexes attached before it.
    if (d->mainTable)
        d->mainTable->addIndex(d->mainTableIndex);
    else if (d->mainDepend)
        d->mainDepend->addDependentIndex(d->mainDependIndex);
    for (auto it = d->depTables.cbegin(); it != d->depTables.cend(); ++it)
        it.key()->addIndex(it.value());
    for (auto it = d->depDepends.cbegin(); it != d->depDepends.cend(); ++it)
        it.key()->addDependentIndex(it.value());
}

void TableJoin::disconnectIndexes()
{
    Q_D(TableJoin);
    if (d->mainTable)
        d->mainTable->removeIndex(d->mainTableIndex);
    else if (d->mainDepend)
        d->mainDepend->removeDependentIndex(d->mainDependIndex);
    for (auto it = d->depTables.cbegin(); it != d->depTables.cend(); ++it)
        it.key()->removeIndex(it.value());
    for (auto it = d->depDepends.cbegin(); it != d->depDepends.cend(); ++it)
        it.key()->removeDependentIndex(it.value());
}

void TableJoin::watchTables()
{
    Q_D(TableJoin);
    QSet<Table *> tables;
    tables.insert(d->mainInfo->table);
    for (const QSharedPointer<JoinDepInfo> &dep : qAsConst(d->deps))
        tables.insert(dep->depTable);
    for (Table *table : qAsConst(tables))
        d->watches.append(QObject::connect(
            table, &QObject::destroyed, [this](QObject *object) { tableDestroyed(object); }));
}

void TableJoin::tableDestroyed(QObject *object)
{
    Q_D(TableJoin);
    // Only addresses are compared: the object is past its Table destructor.
    if (object == static_cast<QObject *>(d->mainInfo->table)) {
        // The dependents must stop writing into it.
        for (auto it = d->depTables.cbegin(); it != d->depTables.cend(); ++it)
            it.key()->removeIndex(it.value());
        for (auto it = d->depDepends.cbegin(); it != d->depDepends.cend(); ++it)
            it.key()->removeDependentIndex(it.value());
        d->depTables.clear();
        d->depDepends.clear();
        d->mainTable = nullptr;
        d->mainTableIndex = nullptr;
        d->mainDepend = nullptr;
        d->mainDependIndex = nullptr;
        d->mainInfo->table = nullptr;
        d->mainInfo->master = nullptr;
        d->mainInfo->tableMaster = nullptr;
        for (const QSharedPointer<JoinDepInfo> &dep : qAsConst(d->deps)) {
            dep->table = nullptr;
            dep->mainMaster = nullptr;
        }
        return;
    }
    for (const QSharedPointer<JoinDepInfo> &dep : qAsConst(d->deps)) {
        if (object != static_cast<QObject *>(dep->depTable))
            continue;
        // Its clear() has nulled the copies already, as the table went.
        for (auto it = d->depTables.begin(); it != d->depTables.end();) {
            if (it.value() == dep->index)
                it = d->depTables.erase(it);
            else
                ++it;
        }
        for (auto it = d->depDepends.begin(); it != d->depDepends.end();) {
            if (it.value() == dep->index)
                it = d->depDepends.erase(it);
            else
                ++it;
        }
        dep->depTable = nullptr;
        dep->depMaster = nullptr;
    }
}

void TableJoin::release()
{
    Q_D(TableJoin);
    if (!d)
        return;
    for (const QMetaObject::Connection &watch : qAsConst(d->watches))
        QObject::disconnect(watch);
    for (const QSharedPointer<JoinDepInfo> &dep : qAsConst(d->deps)) {
        delete dep->index;
        dep->index = nullptr;
    }
    delete d->mainIndex;
    d->mainIndex = nullptr;
    delete d;
    d_ptr = nullptr;
}

TableJoin::~TableJoin()
{
    disconnectIndexes();
    release();
}

QList<MasterIndex *> TableJoin::typeToMaster(const QList<Table *> &tables)
{
    QList<MasterIndex *> masters;
    for (Table *table : tables)
        masters.append(table ? table->masterIndex() : nullptr);
    return masters;
}

QList<MasterIndex *> TableJoin::typeToMaster(const QList<IndexDependBase *> &depends)
{
    QList<MasterIndex *> masters;
    for (IndexDependBase *depend : depends)
        masters.append(depend ? dynamic_cast<MasterIndex *>(depend->baseIndex()) : nullptr);
    return masters;
}

Table *TableJoin::table() const
{
    Q_D(const TableJoin);
    return d->mainInfo->table;
}

QString TableJoin::fileName(const QDir &dir) const
{
    Table *joined = table();
    return joined ? TableIO(joined).fileName(dir) : QString();
}

Table *TableJoin::table(Index *index)
{
    bool isDependent = false;
    if (!isJoinIndex(index, &isDependent))
        return nullptr;
    return isDependent ? static_cast<TableJoinDep *>(index)->depInfo()->table
                       : static_cast<TableJoinMain *>(index)->mainInfo()->table;
}

bool TableJoin::isJoinIndex(Index *index, bool *isDependent)
{
    if (!index)
        return false;
    const QString name = index->getClassName();
    const bool main = name == QLatin1String("TableJoinMain");
    const bool dependent = name == QLatin1String("TableJoinDep");
    if (!main && !dependent)
        return false;
    if (isDependent)
        *isDependent = dependent;
    return true;
}

TableJoinMain *TableJoin::mainIndex() const
{
    Q_D(const TableJoin);
    return d->mainIndex;
}

QList<TableJoinDep *> TableJoin::dependentIndexes() const
{
    Q_D(const TableJoin);
    QList<TableJoinDep *> out;
    for (const QSharedPointer<JoinDepInfo> &dep : d->deps)
        out.append(dep->index);
    return out;
}
