#include "index/indexlimit.h"
#include "table/recordstrans.h"

#include "tabletestsupport.h"

#include <QtMessageHandler>

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

namespace {

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
        QStringList values;
        for (int i = 0; i < updated.size(); ++i)
            values << QStringLiteral("%1->%2").arg(valueOf(updated.at(i))).arg(valueOf(changed.at(i)));
        log(QStringLiteral("preprocess state=%1 r%2 u%3 i%4 [%5,%6] %7")
                .arg(m_table->transactionState())
                .arg(removed.size())
                .arg(updated.size())
                .arg(inserted.size())
                .arg(first)
                .arg(last)
                .arg(values.join(QLatin1Char(' '))));
    }
    void process(const QList<Record> &removed, const QList<Record> &updated, int first, int last,
                 const QList<Record> &inserted) override
    {
        QStringList values;
        for (const Record &r : updated)
            values << QString::number(valueOf(r));
        log(QStringLiteral("process state=%1 r%2 u%3 i%4 %5")
                .arg(m_table->transactionState())
                .arg(removed.size())
                .arg(updated.size())
                .arg(inserted.size())
                .arg(values.join(QLatin1Char(' '))));
        if (onProcess)
            onProcess();
        Index::process(removed, updated, first, last, inserted);
    }
    void beginUpdate() override { log(QStringLiteral("beginUpdate")); }
    void endUpdate() override { log(QStringLiteral("endUpdate")); }
    void dependentBeginUpdate(Table *t) override
    {
        log(QStringLiteral("dependentBeginUpdate %1").arg(t->name()));
    }
    void dependentEndUpdate(Table *t) override
    {
        log(QStringLiteral("dependentEndUpdate %1").arg(t->name()));
    }
    QString getClassName() const override { return m_className; }

    std::function<void()> onProcess;
    int filteredKey = -1;

private:
    void log(const QString &what) { m_log->append(m_name + QLatin1Char(' ') + what); }

    Table *m_table;
    QStringList *m_log;
    QString m_name;
    QString m_className;
};

// Keeps the first rows of key order out of the table beyond a limit.
class KeyLimit : public IndexLimit
{
public:
    using IndexLimit::IndexLimit;
    int compare(const Record &a, const Record &b) const override
    {
        return keyOf(a) - keyOf(b);
    }
};

class TableProcess : public ::testing::Test
{
protected:
    void SetUp() override
    {
        table.reset(makeKeyedTable(&log));
        for (int key = 1; key <= 3; ++key)
            makeRow(table.get(), key, key * 10).append();
        log.clear();
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
};

} // namespace

TEST_F(TableProcess, CallOrderAndWhatIndexesSee)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    RecordingIndex b(table.get(), &log, QStringLiteral("B"));
    table->addIndex(&a);
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
    table->removeIndex(&a);
    table->removeIndex(&b);
}

TEST_F(TableProcess, InsertOnlyAndSelfPairedRows)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    table->addIndex(&a);
    QList<Record> none;
    const Record own = table->at(2);
    FieldType::setInt(own.data(1).data(), 33);
    table->process(none, none, -1, -1, { makeRow(table.get(), 9, 90) }, none);
    QList<Record> updated = { own };
    table->process(none, updated, -1, -1, none, { own });
    EXPECT_EQ(log.at(0), QStringLiteral("A preprocess state=1 r0 u0 i1 [-1,-1] "));
    EXPECT_TRUE(log.contains(QStringLiteral("A preprocess state=1 r0 u1 i0 [-1,-1] 33->33")));
    EXPECT_TRUE(log.contains(QStringLiteral("A update 3 [-1,-1]")));
    EXPECT_EQ(keys(), (QList<int>{ 1, 2, 3, 9 }));
    table->removeIndex(&a);
}

TEST_F(TableProcess, WorkFromAnIndexRunsAsAnotherPass)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    table->addIndex(&a);
    bool fired = false;
    a.onProcess = [&] {
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
        QStringLiteral("A preprocess state=1 r0 u0 i1 [-1,-1] "),
        QStringLiteral("master.process"),
        QStringLiteral("A process state=2 r0 u0 i1 "),
        QStringLiteral("inner returned, rows=4"),
        QStringLiteral("A add 7"),
        // Deferred work carries a range only with updates; inserts alone leave it unstated.
        QStringLiteral("A preprocess state=1 r0 u0 i1 [2147483647,-1] "),
        QStringLiteral("master.process"),
        QStringLiteral("A process state=2 r0 u0 i1 "),
        QStringLiteral("A add 8"),
    };
    EXPECT_EQ(log, expected);
    EXPECT_EQ(keys(), (QList<int>{ 1, 2, 3, 7, 8 }));
    EXPECT_EQ(table->transactionState(), Table::TransactionIdle);
    table->removeIndex(&a);
}

TEST_F(TableProcess, AppendRowFiltersAndRemoveOrder)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    a.filteredKey = 5;
    table->addIndex(&a);
    makeRow(table.get(), 5, 50).append();
    makeRow(table.get(), 6, 60).append();
    table->at(0).remove();
    EXPECT_EQ(log, (QStringList{ QStringLiteral("A add 6"), QStringLiteral("A remove 1") }));
    EXPECT_EQ(keys(), (QList<int>{ 2, 3, 5, 6 }));
    table->removeIndex(&a);
}

TEST_F(TableProcess, NestedBracketsAndDependents)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    RecordingIndex dep(table.get(), &log, QStringLiteral("D"));
    table->addIndex(&a);
    table->addDependentIndex(&dep);
    {
        TableUpdater outer(table.get());
        {
            TableUpdater inner(table.get());
            TableLocker lock(table.get()); // the same thread may lock inside a bracket
        }
        log << QStringLiteral("between");
    }
    const QStringList expected = {
        QStringLiteral("D dependentBeginUpdate T"), QStringLiteral("A beginUpdate"),
        QStringLiteral("between"),                  QStringLiteral("A endUpdate"),
        QStringLiteral("D dependentEndUpdate T"),
    };
    EXPECT_EQ(log, expected);
    table->removeDependentIndex(&dep);
    table->removeIndex(&a);
}

TEST_F(TableProcess, NamedIndexesAndSignals)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    QList<Index *> added, removed;
    QObject::connect(table.get(), &Table::indexAdded, [&](Index *i) { added << i; });
    QObject::connect(table.get(), &Table::indexRemoved, [&](Index *i) { removed << i; });
    table->addIndex(&a);
    table->setIndexName(QStringLiteral("first"), &a);
    table->setIndexName(QStringLiteral("second"), &a);
    EXPECT_EQ(table->namedIndex(QStringLiteral("second")), &a);
    EXPECT_EQ(table->indexName(&a), QStringLiteral("first"));
    table->removeIndex(&a);
    EXPECT_EQ(table->namedIndex(QStringLiteral("first")), nullptr);
    EXPECT_EQ(table->namedIndex(QStringLiteral("second")), &a)
        << "only the name that indexName gives leaves";
    EXPECT_EQ(added, QList<Index *>{ &a });
    EXPECT_EQ(removed, QList<Index *>{ &a });
    EXPECT_TRUE(table->indexes().isEmpty());
}

TEST_F(TableProcess, RebuilderGroupsAndRestores)
{
    RecordingIndex other(table.get(), &log, QStringLiteral("O"), QStringLiteral("TableJoinMain"));
    RecordingIndex depend(table.get(), &log, QStringLiteral("P"), QStringLiteral("IndexDependSum"));
    RecordingIndex joinDep(table.get(), &log, QStringLiteral("J"), QStringLiteral("TableJoinDep"));
    table->addIndex(&other);
    table->addIndex(&depend);
    table->addIndex(&joinDep);
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
    const QStringList expected = { QStringLiteral("O clear"), QStringLiteral("P clear"),
                                   QStringLiteral("J clear"), QStringLiteral("--"),
                                   QStringLiteral("J build"), QStringLiteral("P build"),
                                   QStringLiteral("O build") };
    EXPECT_EQ(log, expected);
    EXPECT_EQ(table->indexes(), (QList<Index *>{ &other, &depend, &joinDep }));
    EXPECT_EQ(table->namedIndex(QStringLiteral("dep")), &depend);
    EXPECT_EQ(addedSignals, 3);
    for (Index *i : table->indexes())
        table->removeIndex(i);
}

TEST_F(TableProcess, LimitEvictsBeforeTheStateChanges)
{
    KeyLimit limit(3, table.get());
    limit.build();
    EXPECT_EQ(table->namedIndex(QStringLiteral("IndexLimit")), &limit);
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    table->addIndex(&a);

    table->appendList({ makeRow(table.get(), 4, 40) });
    EXPECT_EQ(keys(), (QList<int>{ 2, 3, 4 })) << "the first row of the limit's order went";
    EXPECT_EQ(log.first(), QStringLiteral("A preprocess state=1 r1 u0 i1 [-1,-1] "));

    // A row that is updated in the same transaction survives, and no other
    // row is taken in its place.
    {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 5, 50), trans);
        RecordUpdater upd(table->at(0), trans);
        FieldType::setInt(upd.data(1).data(), 22);
    }
    EXPECT_EQ(keys(), (QList<int>{ 2, 3, 4, 5 }));

    limit.setLimit(0);
    table->appendList({ makeRow(table.get(), 6, 60) });
    EXPECT_EQ(keys(), (QList<int>{ 6 }));
    table->removeIndex(&a);
    table->removeIndex(&limit);
}

namespace {
QStringList *warnings = nullptr;
void captureWarning(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtWarningMsg && warnings)
        warnings->append(message);
}
} // namespace

TEST_F(TableProcess, IndexFailurePassesOutAndLeavesTheState)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    a.onProcess = [] { throw QString(QStringLiteral("index failed")); };
    table->addIndex(&a);
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
    table->removeIndex(&a);
}

TEST_F(TableProcess, TransactionDestroyedDuringUnwinding)
{
    RecordingIndex a(table.get(), &log, QStringLiteral("A"));
    a.onProcess = [] { throw QString(QStringLiteral("index failed")); };
    table->addIndex(&a);
    QStringList captured;
    warnings = &captured;
    const QtMessageHandler previous = qInstallMessageHandler(captureWarning);
    try {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 4, 40), trans);
        throw std::runtime_error("caller failed");
    } catch (const std::runtime_error &e) {
        // The first failure arrives; the index's failure did not terminate the program.
        EXPECT_STREQ(e.what(), "caller failed");
    }
    qInstallMessageHandler(previous);
    warnings = nullptr;
    ASSERT_EQ(captured.size(), 1);
    EXPECT_TRUE(captured.first().contains(QStringLiteral("stack unwinding")));
    EXPECT_TRUE(log.contains(QStringLiteral("A process state=2 r0 u0 i1 ")))
        << "the transaction was applied as far as the failing index";
    table->removeIndex(&a);
}

TEST_F(TableProcess, StatisticsAndStringPool)
{
    EXPECT_EQ(table->nsecsElapsed(), 0);
    table->appendList({ makeRow(table.get(), 4, 40) });
    RecordsTrans(table.get()).extendColumns(0, 0); // an empty transaction does nothing
    {
        RecordsTrans trans(table.get());
        RecordUpdater(makeRow(table.get(), 5, 50), trans);
    }
    EXPECT_GT(table->nsecsElapsed(), 0);
    EXPECT_GE(Table::nsecsElapsedTotal(), table->nsecsElapsed());
    table->setNsecsElapsed(0);
    EXPECT_TRUE(table->percentElapsed().isZero());
    EXPECT_EQ(table->stringPoolSize(), 0u);
}
