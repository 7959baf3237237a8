#ifndef TABLEDB_INDEX_MASTERINDEX_H
#define TABLEDB_INDEX_MASTERINDEX_H

#include "index/indexsort.h"

#include <QStringList>

// The index that holds a table's rows. The table owns it and keeps it apart
// from its index list, so a master index is never registered. It adds a key
// made of columns and a text form of that key.
class TABLEDB_EXPORT MasterIndex : public IndexSort
{
public:
    explicit MasterIndex(Table *table);

    // The row's key as text; empty for a kind without a key.
    virtual QString toText(const Record &record) const = 0;
    // A new row of the table, in no index and owned by the returned Record,
    // carrying the key given as text, so that find() can use it. A kind
    // without a key gives a blank row.
    virtual Record fromText(const QString &text) const = 0;

    QString getClassName() const override;

    // The key's column numbers in key order; empty in kinds without columns.
    const QList<int> &columns() const { return m_columns; }
    // Table::columnName of each key column, in order.
    QStringList columnNames() const;
    // find(fromText(text), -1): the row of that key, or an empty Record.
    Record findRecord(const QString &text) const;

protected:
    // A batch that writes none of the key columns moves no row. Master indexes
    // admit every row; a subclass that filters must override this.
    bool unaffectedBy(int first, int last) const override;

    QList<int> m_columns;
};

#include "index/indexlimit.h"
#include "index/masterindexordered.h"
#include "index/masterindexproxy.h"
#include "index/masterptrindex.h"

#endif // TABLEDB_INDEX_MASTERINDEX_H
