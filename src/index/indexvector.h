#ifndef TABLEDB_INDEX_INDEXVECTOR_H
#define TABLEDB_INDEX_INDEXVECTOR_H

#include "index/index.h"

#include <QVector>

// A sorted view of a table's rows in one plain vector, read by position. Meant
// for small views: add() and search() are linear with one compare() per row.
// Rows of equal key keep their order of arrival.
//
// Writers are the thread that applies the table's changes; readers hold the
// table's lock (see Index).
class TABLEDB_EXPORT IndexVector : public Index
{
public:
    // Joins the table's index list (Table::addIndex). No build() is done: the
    // owner calls it.
    explicit IndexVector(Table *table);
    // A copy holds the same rows but is not in the table's index list.
    IndexVector(const IndexVector &other);
    // Takes the other's table and rows; leaves the list of a previous, other
    // table, so that no table keeps a pointer to an index it no longer has.
    IndexVector &operator=(const IndexVector &other);
    // Table::removeIndex, for copies too.
    ~IndexVector() override;

    // The order: negative, 0 or positive as `a` goes before, with or after `b`.
    virtual int compare(const Record &a, const Record &b) const = 0;
    // The first position after `from` (-1: from the start) whose row compares
    // equal to `record`, -1 if none. Linear.
    virtual int search(const Record &record, int from) const;
    // Stable sort by compare(), for when the order itself has changed.
    // REQUIRES: no other resort() running at the same time, on any IndexVector.
    virtual void resort();

    int count() const { return m_vector.count(); }
    // REQUIRES: 0 <= index < count(); not checked.
    Record get(int index) const { return m_vector.at(index); }
    Table *table() const { return m_table; }

    // Keeps the capacity.
    void clear() override;
    // Adds every row of the table's master index that passes filter(), under
    // TableLocker. Does not clear first: rebuild() does.
    void build() override;
    // Inserts behind every row of equal key. Linear.
    void add(const Record &record) override;
    // Erases the first row of this identity, if any; `index` is ignored. Linear.
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    // By key, not identity: search(record, -1) != -1.
    bool contains(const Record &record) const override;
    QString getClassName() const override;

protected:
    // compare(a, b) < 0 on the index that resort() is sorting.
    static bool lessThan(const Record &a, const Record &b);

    Table *m_table; // not owned
    QVector<Record> m_vector;
};

#endif // TABLEDB_INDEX_INDEXVECTOR_H
