#include "index/indexlimit.h"
#include "support/warningcatcher.h"
#include "table/recordstrans.h"

#include "tabletestsupport.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>

namespace {

QString valuesOf(const QList<Record> &rows)
{
    QStringList values;
    for (const Record &r : rows)
        values << QString::number(valueOf(r));
    return values.join(QLatin1Char(' '));
}

// An index that logs every call the table makes on it, with what it sees.
class RecordingIndex : public Index
{
public:
    RecordingIndex(Table *table, QStringList *log, const QString &name,
                   const QString &className = QStringLiteral("Recording"))
        : m_table(table), m_log(log), m_name(name), m_className(className)
    {
    }

    void clear() override { log(QStringLiteral("clear")); }
    void build() override { log(QStringLiteral("build")); }
    void add(const Record &r) override { log(QStringLiteral("add %1").arg(keyOf(r))); }
    void remove(const Record &r, int) override { log(QStringLiteral("remove %1").arg(keyOf(r))); }
    bool filter(const Record &r) const override { return keyOf(r) != filteredKey; }
    bool contains(const Record &) const override { return false; }
    void update(const Record &r, int first, int last, int) override
    {
        log(QStringLiteral("update %1 [%2,%3]").arg(keyOf(r)).arg(first).arg(last));
    }
    void preprocess(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                    const QList<Record> &inserted, const QList<Record> &changed) override
    {
        log(QStringLiteral("preprocess %1 [%2,%3] %4->%5")
                .arg(counts(removed, updated, inserted))
                .arg(first)
                .arg(last)
                .arg(valuesOf(updated), valuesOf(changed)));
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override
    {
        log(QStringLiteral("process %1 %2").arg(counts(removed, updated, inserted), valuesOf(updated)));
        if (onProcess)
            onProcess();
        Index::process(removed, updated, first, last, inserted);
    }
    void beginUpdate() override { log(QStringLiteral("beginUpdate")); }
    void endUpdate() override { log(QStringLiteral("endUpdate")); }
    void dependentBeginUpdate(Table *t) override { log(QStringLiteral("depBegin ") + t->name()); }
    void dependentEndUpdate(Table *t) override { log(QStringLiteral("depEnd ") + t->name()); }
    QString getClassName() const override { return m_className; }

    std::function<void()> onProcess;
    int filteredKey = -1;

private:
    QString counts(const QList<Record> &removed, const QList<Record> &updated,
                   const QList<Record> &inserted) const
    {
        return QStringLiteral("state=%1 r%2 u%3 i%4")
            .arg(m_table->transactionState())
            .arg(removed.size())
            .arg(updated.size())
            .arg(inserted.size());
    }
    void log(const QString &what) { m_log->append(m_name + QLatin1Char(' ') + what); }

    Table *m_table;
    QStringList *m_log;
    QString m_name;
    QString m_className;
};

class KeyLimit : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override { return keyOf(a) - keyOf(b); }
};

// A keyed table with rows 1, 2 and 3 and one recording index "A".
class TableProcess : public ::testing::Test
{
protected:
    void SetUp() override
    {
        table.reset(makeKeyedTable(&log));
        for (int key = 1; key <= 3; ++key)
            makeRow(table.get(), key, key * 10).append();
        a = std::make_unique<RecordingIndex>(table.get(), &log, QStringLiteral("A"));
        table->addIndex(a.get());
        log.clear();
    }
    void TearDown() override
    {
        QObject::disconnect(table.get(), nullptr, nullptr, nullptr); // lambdas on the test's locals
        for (Index *i : table->indexes())
            table->removeIndex(i);
    }
    QList<int> keys() const
    {
        QList<int> result;
        for (auto it = table->masterIndex()->begin(); it != table->masterIndex()->end(); ++it)
            result << keyOf(*it);
        return result;
    }

    QStringList log;
    std::unique_ptr<Table> table;
    std::unique_ptr<RecordingIndex> a;
};

} // namespace

TEST_F(TableProcess, CallOrderAndWhatIndexesSee)
{
    RecordingIndex b(table.get(), &log, QStringLiteral("B"));
    table->addIndex(&b);
    {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 4, 40), trans);
        RecordUpdater upd(table->at(1), trans);
        FieldType::setInt(upd.data(1).data(), 21);
        trans.extendColumns(1, 1);
        RecordUpdater(table->at(0), trans).remove();
    }
    const QStringList expected = {
        QStringLiteral("A preprocess state=1 r1 u1 i1 [1,1] 20->21"),
        QStringLiteral("B preprocess state=1 r1 u1 i1 [1,1] 20->21"),
        QStringLiteral("master.process"),
        QStringLiteral("A process state=2 r1 u1 i1 21"),
        QStringLiteral("A remove 1"),
        QStringLiteral("A update 2 [1,1]"),
        QStringLiteral("A add 4"),
        QStringLiteral("B process state=2 r1 u1 i1 21"),
        QStringLiteral("B remove 1"),
        QStringLiteral("B update 2 [1,1]"),
        QStringLiteral("B add 4"),
    };
    EXPECT_EQ(log, expected);
    EXPECT_EQ(keys(), (QList<int>{ 2, 3, 4 }));
    EXPECT_EQ(valueOf(table->at(0)), 21) << "the table's own block took the new value";
    EXPECT_EQ(table->transactionState(), Table::TransactionIdle);
    EXPECT_GT(table->nsecsElapsed(), 0);
    EXPECT_GE(Table::nsecsElapsedTotal(), table->nsecsElapsed());

    // A row paired with itself as its own change, and a row an index filters out.
    log.clear();
    const Record own = table->at(1);
    FieldType::setInt(own.data(1).data(), 33);
    QList<Record> none, updated = { own };
    table->process(none, updated, -1, -1, none, { own });
    table->removeIndex(&b);
    a->filteredKey = 5;
    makeRow(table.get(), 5, 50).append();
    makeRow(table.get(), 6, 60).append();
    table->at(0).remove();
    EXPECT_EQ(log, (QStringList{ QStringLiteral("A preprocess state=1 r0 u1 i0 [-1,-1] 33->33"),
                                 QStringLiteral("B preprocess state=1 r0 u1 i0 [-1,-1] 33->33"),
                                 QStringLiteral("master.process"),
                                 QStringLiteral("A process state=2 r0 u1 i0 33"),
                                 QStringLiteral("A update 3 [-1,-1]"),
                                 QStringLiteral("B process state=2 r0 u1 i0 33"),
                                 QStringLiteral("B update 3 [-1,-1]"), QStringLiteral("A add 6"),
                                 QStringLiteral("A remove 2") }));
    EXPECT_EQ(keys(), (QList<int>{ 3, 4, 5, 6 }));
}

TEST_F(TableProcess, WorkFromAnIndexRunsAsAnotherPass)
{
    bool fired = false;
    a->onProcess = [&] {
        if (fired)
            return;
        fired = true;
        RecordsTrans inner(table.get());
        RecordUpdater(makeRow(table.get(), 8, 80), inner);
        inner.extendColumns(0, 1);
        table->process(inner);
        log << QStringLiteral("inner returned, rows=%1").arg(table->rowCount());
        inner.clear(); // merged already; must not be merged again on destruction
    };
    table->appendList({ makeRow(table.get(), 7, 70) });
    const QStringList expected = {
        QStringLiteral("A preprocess state=1 r0 u0 i1 [-1,-1] ->"),
        QStringLiteral("master.process"),
        QStringLiteral("A process state=2 r0 u0 i1 "),
        QStringLiteral("inner returned, rows=4"),
        QStringLiteral("A add 7"),
        // Deferred work carries a range only with updates; inserts alone leave it unstated.
        QStringLiteral("A preprocess state=1 r0 u0 i1 [2147483647,-1] ->"),
        QStringLiteral("master.process"),
        QStringLiteral("A process state=2 r0 u0 i1 "),
        QStringLiteral("A add 8"),
    };
    EXPECT_EQ(log, expected);
    EXPECT_EQ(keys(), (QList<int>{ 1, 2, 3, 7, 8 }));
    EXPECT_EQ(table->transactionState(), Table::TransactionIdle);
}

TEST_F(TableProcess, NestedBracketsNamesAndSignals)
{
    RecordingIndex dep(table.get(), &log, QStringLiteral("D"));
    table->addDependentIndex(&dep);
    {
        TableUpdater outer(table.get());
        {
            TableUpdater inner(table.get());
            TableLocker lock(table.get()); // the same thread may lock inside a bracket
        }
        log << QStringLiteral("between");
    }
    EXPECT_EQ(log, (QStringList{ QStringLiteral("D depBegin T"), QStringLiteral("A beginUpdate"),
                                 QStringLiteral("between"), QStringLiteral("A endUpdate"),
                                 QStringLiteral("D depEnd T") }));
    table->removeDependentIndex(&dep);

    RecordingIndex b(table.get(), &log, QStringLiteral("B"));
    QList<Index *> removed;
    QObject::connect(table.get(), &Table::indexRemoved, [&](Index *i) { removed << i; });
    table->addIndex(&b);
    table->setIndexName(QStringLiteral("first"), &b);
    table->setIndexName(QStringLiteral("second"), &b);
    EXPECT_EQ(table->namedIndex(QStringLiteral("second")), &b);
    EXPECT_EQ(table->indexName(&b), QStringLiteral("first"));
    table->removeIndex(&b);
    EXPECT_EQ(table->namedIndex(QStringLiteral("first")), nullptr);
    EXPECT_EQ(table->namedIndex(QStringLiteral("second")), &b) << "only indexName's name leaves";
    EXPECT_EQ(removed, QList<Index *>{ &b });
}

TEST_F(TableProcess, RebuilderGroupsAndRestores)
{
    table->removeIndex(a.get());
    RecordingIndex other(table.get(), &log, QStringLiteral("O"), QStringLiteral("TableJoinMain"));
    RecordingIndex depend(table.get(), &log, QStringLiteral("P"), QStringLiteral("IndexDependSum"));
    RecordingIndex joinDep(table.get(), &log, QStringLiteral("J"), QStringLiteral("TableJoinDep"));
    for (Index *i : { &other, &depend, &joinDep })
        table->addIndex(i);
    table->setIndexName(QStringLiteral("dep"), &depend);
    int addedSignals = 0;
    QObject::connect(table.get(), &Table::indexAdded, [&](Index *) { ++addedSignals; });
    {
        TableIndexRebuilder rebuilder(table.get());
        EXPECT_TRUE(table->indexes().isEmpty());
        EXPECT_EQ(table->namedIndex(QStringLiteral("dep")), nullptr);
        makeRow(table.get(), 4, 40).append(); // reaches only the master index
        log << QStringLiteral("--");
    }
    EXPECT_EQ(log, (QStringList{ QStringLiteral("O clear"), QStringLiteral("P clear"),
                                 QStringLiteral("J clear"), QStringLiteral("--"),
                                 QStringLiteral("J build"), QStringLiteral("P build"),
                                 QStringLiteral("O build") }));
    EXPECT_EQ(table->indexes(), (QList<Index *>{ &other, &depend, &joinDep }));
    EXPECT_EQ(table->namedIndex(QStringLiteral("dep")), &depend);
    EXPECT_EQ(addedSignals, 3);
}

TEST_F(TableProcess, LimitEvictsBeforeTheStateChanges)
{
    table->removeIndex(a.get());
    KeyLimit limit(3, table.get());
    limit.build();
    EXPECT_EQ(table->namedIndex(QStringLiteral("IndexLimit")), &limit);
    table->addIndex(a.get());
    table->appendList({ makeRow(table.get(), 4, 40) });
    EXPECT_EQ(keys(), (QList<int>{ 2, 3, 4 })) << "the first row of the limit's order went";
    EXPECT_EQ(log.first(), QStringLiteral("A preprocess state=1 r1 u0 i1 [-1,-1] ->"));
    limit.setLimit(0);
    table->appendList({ makeRow(table.get(), 6, 60) });
    EXPECT_EQ(keys(), (QList<int>{ 6 }));
}

TEST_F(TableProcess, IndexFailurePassesOutAndLeavesTheState)
{
    a->onProcess = [] { throw QString(QStringLiteral("index failed")); };
    try {
        table->appendList({ makeRow(table.get(), 4, 40) });
        FAIL() << "no throw";
    } catch (const QString &e) {
        EXPECT_EQ(e, QStringLiteral("index failed"));
    }
    EXPECT_EQ(table->transactionState(), Table::TransactionPostprocess);
    EXPECT_EQ(table->rowCount(), 4) << "the master index had stored the row";
    // Later work is merged into the pending transaction and never runs.
    log.clear();
    table->appendList({ makeRow(table.get(), 5, 50) });
    EXPECT_TRUE(log.isEmpty());
    EXPECT_EQ(table->rowCount(), 4);
}

TEST_F(TableProcess, TransactionDestroyedDuringUnwinding)
{
    a->onProcess = [] { throw QString(QStringLiteral("index failed")); };
    WarningCatcher catcher;
    try {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 4, 40), trans);
        throw std::runtime_error("caller failed");
    } catch (const std::runtime_error &e) {
        // The first failure arrives; the index's failure did not terminate the program.
        EXPECT_STREQ(e.what(), "caller failed");
    }
    ASSERT_EQ(WarningCatcher::messages().size(), 1);
    EXPECT_TRUE(WarningCatcher::messages().first().contains(QStringLiteral("stack unwinding")));
    EXPECT_TRUE(log.contains(QStringLiteral("A process state=2 r0 u0 i1 ")))
        << "the transaction was applied as far as the failing index";
}
