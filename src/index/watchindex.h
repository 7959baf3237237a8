#ifndef TABLEDB_INDEX_WATCHINDEX_H
#define TABLEDB_INDEX_WATCHINDEX_H

#include "index/index.h"

// Records what happened to a table's rows since it was last cleared, so that
// a consumer can pick the changes up later. It keeps no order. A batch arrives
// as remove() for each removed row, update() for each updated one and add()
// for each inserted one, in that order.
//
// The lists are written under the table's update bracket. A consumer on
// another thread holds the table's lock (TableLocker) while it reads the
// lists and clears them. The lists hold references: removed rows stay alive
// until clear().
class TABLEDB_EXPORT WatchIndex : public Index
{
public:
    // Joins the table's index list (Table::addIndex).
    explicit WatchIndex(Table *table);
    // A copy holds the same lists but is not in the table's index list.
    WatchIndex(const WatchIndex &other);
    // Takes the other's table and lists; leaves the list of a previous, other
    // table, so that no table keeps a pointer to an index it no longer has.
    WatchIndex &operator=(const WatchIndex &other);
    // Table::removeIndex, for copies too.
    ~WatchIndex() override;

    // Rows that arrived. A row inserted and removed in one period stands here
    // and in removed().
    const QList<Record> &inserted() const { return m_inserted; }
    // Rows that left.
    const QList<Record> &removed() const { return m_removed; }
    // Rows that changed, once per change. A row that left and came back in
    // one period stands here, and neither in inserted() nor in removed().
    const QList<Record> &updated() const { return m_updated; }
    Table *table() const { return m_table; }

    // clear() and build() both empty the lists: rebuild() starts a new period.
    void clear() override;
    void build() override;
    // Linear in removed().
    void add(const Record &record) override;
    // Appends to removed(); `index` is ignored.
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override;
    // Whether the row stands in inserted() or updated(), by identity.
    bool contains(const Record &record) const override;
    // Appends to updated(), also if the row is there already.
    void update(const Record &record, int first, int last, int index) override;
    QString getClassName() const override;

private:
    QList<Record> m_inserted;
    QList<Record> m_removed;
    QList<Record> m_updated;
    Table *m_table; // not owned
};

#endif // TABLEDB_INDEX_WATCHINDEX_H
