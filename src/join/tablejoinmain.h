#ifndef TABLEDB_JOIN_TABLEJOINMAIN_H
#define TABLEDB_JOIN_TABLEJOINMAIN_H

#include "index/index.h"
#include "join/joininfo.h"
#include "join/recordsranges.h"

#include <QSharedPointer>

class JoinRowFinder;
class RecordsTrans;
#include <QVector>

// The join's index on the join table: new join rows, and rows whose key has
// changed, take their copied columns from the dependent tables. It writes
// through a transaction on its own table, which therefore runs after the
// running one. A new key that no dependent has leaves the old copies in the
// row: only the dependent side makes copies null.
// Made and owned by TableJoin; runs on the thread that applies the join
// table's transactions.
class TABLEDB_EXPORT TableJoinMain : public Index
{
public:
    TableJoinMain(JoinMainInfo *info, const QVector<QSharedPointer<JoinDepInfo>> &deps);
    ~TableJoinMain() override;

    // Nothing to forget: the copies live in the rows. So rebuild() is build().
    void clear() override;
    // Looks up every row of the join key's index.
    void build() override;
    void add(const Record &record) override;
    // Notes the rows whose key columns change.
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
        const QList<Record> &inserted, const QList<Record> &changed) override;
    // Copies into the inserted rows and those noted by preprocess(); the
    // removed and updated lists themselves are not read.
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
        const QList<Record> &inserted) override;
    // A removed join row takes its copies with it.
    void remove(const Record &record, int index) override;
    bool filter(const Record &record) const override; // true
    bool contains(const Record &record) const override; // false
    // Looks the row up anew if the range touches the key span, whether or not
    // the key really changed.
    void update(const Record &record, int first, int last, int index) override;
    QString getClassName() const override; // "TableJoinMain"

    JoinMainInfo *mainInfo() const { return info; }
    // One piece of changedKeyRows(): per pair of new and old row, the new row
    // once for each key column that differs. Safe on several threads.
    QList<Record> changedKeys(const ChangedKeysItem &item) const;

private:
    // Whether [first, last] meets the span of the key columns.
    bool touchesKey(int first, int last) const;
    void apply(RecordsTrans &trans, const JoinRowFinder &finder, const RecordsRanges &ranges,
        const JoinDepInfo &dep, const QVector<Col> &columns) const;

    JoinMainInfo *info; // not owned
    QVector<QSharedPointer<JoinDepInfo>> deps; // every dependent, in setup order
    QList<Record> pending; // join rows whose key has changed

    Q_DISABLE_COPY(TableJoinMain)
};

#endif // TABLEDB_JOIN_TABLEJOINMAIN_H
