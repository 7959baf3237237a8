#ifndef TABLEDB_JOIN_TABLEJOINDEP_H
#define TABLEDB_JOIN_TABLEJOINDEP_H

#include "index/index.h"
#include "join/joininfo.h"
#include "join/recordsranges.h"

class JoinRowFinder;
class RecordsTrans;

// The join's index on one dependent table: inserted, changed and removed
// dependent rows fill, refresh or null the copied columns of every join row of
// their key. Batches go through a transaction on the join table; the single
// row calls (add, remove, update) write the join rows in place and tell the
// join table's indexes directly, without a transaction or its signals, so
// their caller must keep readers of the join table away.
// Made and owned by TableJoin; runs on the thread that applies the dependent
// table's transactions.
class TABLEDB_EXPORT TableJoinDep : public Index
{
public:
    explicit TableJoinDep(JoinDepInfo *info);
    ~TableJoinDep() override;

    // The dependent table is emptied: every join row loses these copies.
    void clear() override;
    // Copies from every row of the dependent table.
    void build() override;
    void add(const Record &record) override;
    // Finds the join rows that the batch will null, refresh and fill, while
    // their positions in the join key's index are still those of the
    // dependent rows' old values.
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
        const QList<Record> &inserted, const QList<Record> &changed) override;
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
        const QList<Record> &inserted) override;
    void remove(const Record &record, int index) override; // the hint is ignored
    bool filter(const Record &record) const override; // true
    bool contains(const Record &record) const override; // false
    void update(const Record &record, int first, int last, int index) override;
    QString getClassName() const override; // "TableJoinDep"

    JoinDepInfo *depInfo() const { return info; }

    // What an update of dependent columns [first, last] asks to copy: join
    // columns firstChanged..lastChanged (-1 for none) by `columns`. Copied
    // columns below the range are included on purpose: copying is idempotent,
    // and the test stays one walk.
    struct Columns
    {
        int firstChanged = -1;
        int lastChanged = -1;
        QVector<Col> columns;
        bool isEmpty() const { return firstChanged == -1 || lastChanged == -1; }
    };
    Columns columnsForRange(int first, int last) const;

private:
    enum Action { Null, Copy };
    void apply(RecordsTrans &trans, const JoinRowFinder &finder, const RecordsRanges &ranges,
        const QVector<Col> &columns, Action action) const;
    // The single-row way: the join rows of `record`'s key, written in place.
    void applyRow(const Record &record, bool remove, int first, int last);

    JoinDepInfo *info; // not owned
    RecordsRanges nulled; // join rows that lose their link, by dependent row
    RecordsRanges refreshed; // join rows whose link stays or comes with an update
    RecordsRanges added; // join rows that gain an inserted dependent row

    Q_DISABLE_COPY(TableJoinDep)
};

#endif // TABLEDB_JOIN_TABLEJOINDEP_H
