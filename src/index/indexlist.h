#ifndef TABLEDB_INDEX_INDEXLIST_H
#define TABLEDB_INDEX_INDEXLIST_H

#include "index/index.h"
#include "index/indexiterative.h"
#include "index/partitionlist.h"
#include "index/rangeset.h"

// An index that holds rows in a sequence, in the order in which they came.
// The base of every sorted and master index.
//
// Writers are the thread that applies the table's changes; readers hold the
// table's lock (see Index).
class TABLEDB_EXPORT IndexList : public Index, public IndexIterative
{
public:
    // With `registered` true the index joins the table's index list at once
    // (Table::addIndex) and leaves it at destruction. No build() is done: the
    // owner calls it.
    IndexList(Table *table, bool registered);
    // The same for the host's table of that name (IAppHub::findTable); the
    // table may be null if the host knows no such name.
    IndexList(const QString &tableName, bool registered);
    ~IndexList() override;

    int count() const override { return m_list.count(); }
    // A position out of range gives an empty Record. O(log blocks).
    const Record &at(int index) const { return m_list.at(index); }
    PartitionList<Record>::const_iterator begin() const override { return m_list.begin(); }
    PartitionList<Record>::const_iterator end() const override { return m_list.end(); }
    const PartitionList<Record> &list() const { return m_list; }
    Table *table() override { return m_table; }
    const Table *table() const override { return m_table; }
    bool isRegistered() const { return m_registered; }

    void clear() override;
    // Appends every row of the table's master index that passes filter(),
    // under TableLocker. Does not clear first: rebuild() does.
    void build() override;
    // Appends; filter() is the caller's affair.
    void add(const Record &record) override;
    // `index` is trusted only if the row stands there; otherwise a search.
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    bool contains(const Record &record) const override;
    // Linear search by row identity.
    int indexOf(const Record &record) const override;
    QString getClassName() const override;

    // Moves rows `from`..`to` (inclusive) to `destination`, a position in the
    // list as it stands after they were taken out. Ignores any order.
    virtual void move(int from, int to, int destination);
    virtual void removeRanges(const RangeSet<int> &ranges);

protected:
    Table *m_table; // not owned
    PartitionList<Record> m_list;
    bool m_registered;

private:
    IndexList(const IndexList &) = delete;
    IndexList &operator=(const IndexList &) = delete;
};

#endif // TABLEDB_INDEX_INDEXLIST_H
