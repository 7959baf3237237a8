#ifndef TABLEDB_TESTS_TABLETESTSUPPORT_H
#define TABLEDB_TESTS_TABLETESTSUPPORT_H

#include "index/masterindex.h"
#include "table/table.h"

#include <QStringList>

// A master index keyed by the Integer column 0.
class IntKeyMaster : public MasterIndex
{
public:
    explicit IntKeyMaster(Table *table, QStringList *log = nullptr) : MasterIndex(table), m_log(log)
    {
        m_columns.append(0);
    }

    int compare(const Record &a, const Record &b) const override
    {
        const int x = a.data(0).asInteger();
        const int y = b.data(0).asInteger();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    QString toText(const Record &record) const override
    {
        return QString::number(record.data(0).asInteger());
    }
    Record fromText(const QString &text) const override
    {
        Record row(m_table);
        FieldType::setInt(row.data(0).data(), text.toInt());
        row.data(0).clearNull();
        return row;
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override
    {
        if (m_log)
            m_log->append(QStringLiteral("master.process"));
        MasterIndex::process(removed, updated, first, last, inserted);
    }

private:
    QStringList *m_log;
};

// Makes a table "T" with columns key (Integer, not nullable) and value
// (Integer), keyed by IntKeyMaster.
inline Table *makeKeyedTable(QStringList *log = nullptr)
{
    auto *table = new Table(QStringLiteral("T"));
    table->addColumn(QStringLiteral("key"), FieldType::Integer, 0, false);
    table->addColumn(QStringLiteral("value"), FieldType::Integer);
    table->setMasterIndex(new IntKeyMaster(table, log));
    return table;
}

inline Record makeRow(Table *table, int key, int value)
{
    Record row(table);
    FieldType::setInt(row.data(0).data(), key);
    FieldType::setInt(row.data(1).data(), value);
    row.data(1).clearNull();
    return row;
}

inline int keyOf(const Record &row) { return row.data(0).asInteger(); }
inline int valueOf(const Record &row) { return row.data(1).asInteger(); }

#endif // TABLEDB_TESTS_TABLETESTSUPPORT_H
