#ifndef TABLEDB_TESTS_JOIN_JOINTESTSUPPORT_H
#define TABLEDB_TESTS_JOIN_JOINTESTSUPPORT_H

#include "index/masterindex_column.h"
#include "join/tablejoin.h"
#include "table/recordstrans.h"
#include "table/table.h"

#include <QVariant>

#include <memory>
#include <ostream>

inline void PrintTo(const QVariant &v, std::ostream *os)
{
    *os << (v.isValid() ? v.toString().toStdString() : std::string("NULL"));
}

struct ColumnSpec
{
    const char *name;
    FieldType::Type type;
};

// A table keyed (uniquely) by the named columns through a column master index.
inline std::unique_ptr<Table> makeTable(
    const char *name, std::initializer_list<ColumnSpec> columns, const QStringList &key)
{
    std::unique_ptr<Table> table(new Table(QString::fromLatin1(name)));
    for (const ColumnSpec &c : columns)
        table->addColumn(QString::fromLatin1(c.name), c.type, 0, true);
    MasterIndex_Column::createMasterIndex(table.get(), key);
    return table;
}

inline QVariant cell(const Record &row, const QString &column)
{
    return row.data(row.table()->columnIndex(column)).toVariant();
}

// The row of an Integer key, or a null Record.
inline Record rowOf(Table *table, int key)
{
    return table->masterIndex()->findRecord(QString::number(key));
}

// One transaction on `table`: writes `values` by column name into the row of
// `key` (a new row if there is none), stating exactly those columns.
inline void put(Table *table, int key, const QVariantMap &values)
{
    TableUpdater bracket(table);
    RecordsTrans trans(table);
    Record fresh(table);
    fresh.data(table->masterIndex()->columns().first()) = key;
    RecordUpdater row(rowOf(table, key).isNull() ? fresh : rowOf(table, key), trans);
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        const int column = table->columnIndex(it.key());
        row.data(column) = it.value();
        trans.extendColumns(column, column);
    }
}

#endif // TABLEDB_TESTS_JOIN_JOINTESTSUPPORT_H
