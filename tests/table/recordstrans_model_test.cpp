// Transactions against a model of their per-key rules, for each way in which
// a transaction finds a key: hashed key bytes (a Fast master, its key longer
// than the prefix that orders most keys), hashed cells (a
// Column master over a nullable Integer, null keys included) and compare()
// (a Column master over a String, and a master of its own). Hundreds of keys,
// so that probes collide, the look-up grows and erased entries are passed.

#include "index/masterindex_column.h"
#include "index/masterindex_fast.h"
#include "index/indexsort.h"
#include "table/recordstrans.h"

#include "tabletestsupport.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

#include <map>
#include <memory>

namespace {

enum Kind { Fast, Cells, Strings, Custom };

struct Pending
{
    int code;
    Record row; // the row the entry stands under
    int change; // RowUpdated: the value its clone carries
};

class Model
{
public:
    explicit Model(Kind kind) : m_kind(kind)
    {
        const FieldType::Type types[] = { FieldType::Integer64, FieldType::Integer,
                                           FieldType::String, FieldType::Integer };
        m_table.reset(kind == Custom ? makeKeyedTable() : new Table(QStringLiteral("T")));
        if (kind != Custom) {
            m_table->addColumn(QStringLiteral("key"), types[kind], 0, kind != Fast);
            m_table->addColumn(QStringLiteral("value"), FieldType::Integer);
            // A Fast key longer than its sixteen bytes of prefix, equal in them.
            for (const char *name : { "zero1", "zero2", "tail" })
                m_table->addColumn(QString::fromLatin1(name), FieldType::Integer64, 0, false);
            if (kind == Fast)
                m_table->setMasterIndex(
                    new MasterIndex_Fast(m_table.get(), QList<int> { 2, 3, 4 }));
            else
                m_table->setMasterIndex(new MasterIndex_Column(m_table.get(), QList<int> { 0 }));
        }
        for (int k = 0; k < 300; k += 2) {
            m_stored[k] = row(k, k);
            m_stored[k].append();
        }
    }

    // A new row of key `k` (a null key for -1) and `value`.
    Record row(int k, int value) const
    {
        Record r(m_table.get());
        if (k < 0)
            r.data(0).setNull();
        else if (m_kind == Strings)
            r.data(0) = QStringLiteral("k%1").arg(k);
        else
            r.data(0) = k;
        if (m_kind == Fast)
            r.data(4) = k;
        r.data(1) = value;
        return r;
    }

    // On key `k`, or on a random one for -2.
    void step(QRandomGenerator &random, RecordsTrans &trans, int k = -2)
    {
        if (k == -2)
            k = int(random.bounded(m_kind == Cells ? -1 : 0, 450));
        const int v = int(random.bounded(1000));
        const Record stored = m_stored.value(k);
        const bool known = m_pending.count(k) > 0;
        Pending &p = m_pending[k];
        const QList<Record> none;
        switch (random.bounded(5)) {
        case 0: { // an updater writes
            RecordUpdater u(stored.isNull() ? row(k, 0) : stored, trans);
            ASSERT_EQ(u.isFound(), !stored.isNull());
            u.data(1) = v;
            if (!known)
                p = stored.isNull() ? Pending { RecordsTrans::RowInserted, u, 0 }
                                    : Pending { RecordsTrans::RowUpdated, stored, v };
            else if (p.code != RecordsTrans::RowInserted || stored.isNull())
                p = { stored.isNull() ? p.code : int(RecordsTrans::RowUpdated), p.row, v };
            else
                ASSERT_EQ(static_cast<const Record &>(u), stored) << "written in place";
            break;
        }
        case 1: { // an updater removes
            RecordUpdater u(stored.isNull() ? row(k, 0) : stored, trans);
            u.remove();
            if (!known || p.code == RecordsTrans::RowInserted)
                p = stored.isNull() || (known && p.code == RecordsTrans::RowInserted)
                    ? Pending { 0, Record(), 0 }
                    : Pending { RecordsTrans::RowRemoved, stored, 0 };
            else
                p = { RecordsTrans::RowRemoved, p.row, 0 };
            break;
        }
        case 2: // a merged insert
            p = { RecordsTrans::RowInserted, row(k, v), 0 };
            trans.merge(none, none, 1, 1, { p.row }, none);
            break;
        case 3: { // a merged removal
            const Record target = stored.isNull() ? row(k, v) : stored;
            trans.merge({ target }, none, 1, 1, none, none);
            p = { RecordsTrans::RowRemoved, known && p.code ? p.row : target, 0 };
            break;
        }
        default: // a merged update of a stored row
            if (stored.isNull())
                break;
            Record change = stored.clone();
            change.data(1) = v;
            trans.merge(none, { stored }, 1, 1, none, { change });
            if (!known || p.code != RecordsTrans::RowInserted)
                p = { RecordsTrans::RowUpdated, known ? p.row : stored, v };
        }
        if (p.code == 0)
            m_pending.erase(k);
    }

    void check(const RecordsTrans &trans) const
    {
        const MasterIndex *master = m_table->masterIndex();
        const QList<Record> lists[] = { trans.insertList(), trans.removeList(),
                                        trans.updateList() };
        const QList<Record> changes = trans.changeList();
        ASSERT_EQ(changes.size(), lists[2].size());
        int total = 0;
        for (int code = 1; code <= 3; ++code) {
            const QList<Record> &list = lists[code - 1];
            total += list.size();
            for (int i = 0; i < list.size(); ++i) {
                if (i > 0) {
                    ASSERT_LT(master->compare(list.at(i - 1), list.at(i)), 0) << "key order";
                }
                const auto it = m_pending.find(keyOf(list.at(i)));
                ASSERT_NE(it, m_pending.end());
                ASSERT_EQ(it->second.code, code);
                ASSERT_EQ(it->second.row, list.at(i));
                if (code == RecordsTrans::RowUpdated) {
                    ASSERT_EQ(valueOf(changes.at(i)), it->second.change);
                }
            }
        }
        ASSERT_EQ(total, int(m_pending.size()));
        ASSERT_EQ(trans.isEmpty(), m_pending.empty());
        for (const auto &p : m_pending)
            ASSERT_TRUE(trans.contains(row(p.first, 0)));
    }

    int keyOf(const Record &r) const
    {
        if (r.data(0).isNull())
            return -1;
        return m_kind == Strings ? r.data(0).toString().mid(1).toInt() : r.data(0).toInteger();
    }

    std::unique_ptr<Table> m_table;

private:
    Kind m_kind;
    QMap<int, Record> m_stored;
    std::map<int, Pending> m_pending;
};

} // namespace

TEST(RecordsTransModel, EveryKindOfKeyFollowsTheRules)
{
    for (Kind kind : { Fast, Cells, Strings, Custom }) {
        for (quint32 seed = 1; seed <= 3; ++seed) {
            SCOPED_TRACE(testing::Message() << "kind " << kind << " seed " << seed);
            Model model(kind);
            QRandomGenerator random(seed);
            RecordsTrans trans(model.m_table.get());
            // The third run's keys rise, as when a walk over the master writes.
            for (int i = 0; i < (seed == 3 ? 450 : 1500); ++i) {
                model.step(random, trans, seed == 3 ? i : -2);
                if (HasFatalFailure())
                    return;
            }
            model.check(trans);
            // A copy holds the same entries; merged into an empty one, the same lists.
            RecordsTrans copy(trans);
            RecordsTrans merged(model.m_table.get());
            merged.merge(copy);
            EXPECT_EQ(merged.insertList(), trans.insertList());
            EXPECT_EQ(merged.updateList(), trans.updateList());
            EXPECT_EQ(merged.removeList(), trans.removeList());
            copy.clear();
            merged.clear();
            trans.clear();
        }
    }
}

// An index that fails: the transaction handed to the table keeps its entries,
// so that its destructor still finds them, as before the table took its lists.
TEST(RecordsTransModel, FailedTransactionKeepsItsEntries)
{
    struct Failing : IndexSort
    {
        using IndexSort::IndexSort;
        int compare(const Record &, const Record &) const override { return 0; }
        void process(const QList<Record> &, const QList<Record> &, int, int,
                     const QList<Record> &) override
        {
            throw QString(QStringLiteral("index failed"));
        }
    };
    Model model(Fast);
    Failing failing(model.m_table.get(), true);
    RecordsTrans trans(model.m_table.get());
    RecordUpdater(model.row(400, 1), trans);
    RecordUpdater(model.row(2, 0), trans).data(1) = 5;
    trans.merge({ model.row(4, 0) }, {}, 1, 1, {}, {});
    trans.extendColumns(0, 1);
    const QList<Record> lists[] = { trans.insertList(), trans.removeList(), trans.updateList(),
                                    trans.changeList() };
    EXPECT_THROW(model.m_table->process(trans), QString);
    EXPECT_EQ(trans.insertList(), lists[0]);
    EXPECT_EQ(trans.removeList(), lists[1]);
    EXPECT_EQ(trans.updateList(), lists[2]);
    EXPECT_EQ(trans.changeList(), lists[3]);
    EXPECT_TRUE(trans.contains(model.row(400, 0)));
    model.m_table->removeIndex(&failing);
    trans.clear();
}
