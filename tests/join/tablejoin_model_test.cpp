#include "jointestsupport.h"

#include <gtest/gtest.h>

#include <QMap>
#include <QRandomGenerator>

#include <functional>
#include <map>
#include <set>

namespace {

// Orders joined by instrument with two dependents; the model tracks what every
// join cell must hold. A join row whose instrument a dependent has carries that
// dependent row's values (what a recomputation from scratch gives). One whose
// instrument it lacks keeps what it had: null when new, the old copies after a
// key change of the order, and null once the dependent row went.
class JoinModel
{
public:
    JoinModel(int instruments, int orders, quint32 seed) : m_random(seed), m_instruments(instruments)
    {
        m_orders = makeTable("Orders", {{"Id", FieldType::Integer}, {"Instr", FieldType::Integer},
                                        {"Qty", FieldType::Integer}},
                             {QStringLiteral("Id")});
        m_deps[0] = makeTable("Instruments", {{"Instr", FieldType::Integer},
                                              {"Price", FieldType::Integer},
                                              {"Name", FieldType::String}},
                              {QStringLiteral("Instr")});
        m_deps[1] = makeTable("Limits", {{"Limit", FieldType::Integer},
                                         {"Instr", FieldType::Integer},
                                         {"Price", FieldType::Integer}},
                              {QStringLiteral("Instr")});
        m_byInstr = new ExactKeyIndex(m_orders.get(), {QStringLiteral("Instr")});
        m_orders->addIndex(m_byInstr);
        // Some rows exist before the join, others arrive later.
        for (int i = 0; i < orders / 2; ++i)
            insertOrder();
        for (int d = 0; d < 2; ++d) {
            for (int i = 0; i < instruments / 2; ++i)
                putDep(d, pickInstr(), true);
        }
        m_join.reset(new TableJoin(m_byInstr, {m_deps[0].get(), m_deps[1].get()},
                                   {QStringLiteral("Price"), QStringLiteral("Name"),
                                    QStringLiteral("Limit")},
                                   false));
        for (auto it = m_model.begin(); it != m_model.end(); ++it)
            refill(it.key(), true);
        for (int i = orders / 2; i < orders; ++i)
            insertOrder();
    }
    ~JoinModel()
    {
        m_join.reset();
        m_orders->removeIndex(m_byInstr);
        delete m_byInstr;
    }

    void randomStep(int batch)
    {
        const int kind = int(m_random.bounded(10));
        m_lastKind = kind;
        if (kind < 4)
            mainTransaction(batch);
        else if (kind < 8)
            depTransaction(int(m_random.bounded(2)), batch);
        else if (kind == 8)
            singleRowStep();
        else
            rebuildStep();
    }

    // Every join row against the model, and the model against the dependents.
    void check(const char *step) const
    {
        ASSERT_EQ(m_orders->rowCount(), m_model.size()) << step;
        for (int d = 0; d < 2; ++d) {
            ASSERT_EQ(m_deps[d]->rowCount(), int(m_depRows[d].size())) << step;
            for (const auto &dep : m_depRows[d]) {
                const Record row = rowOf(m_deps[d].get(), dep.first);
                ASSERT_FALSE(row.isNull()) << step << " dependent " << d << " " << dep.first;
                for (auto it = dep.second.cbegin(); it != dep.second.cend(); ++it)
                    ASSERT_EQ(cell(row, it.key()), it.value()) << step << " dependent " << d;
            }
        }
        for (auto it = m_model.cbegin(); it != m_model.cend(); ++it) {
            const Record row = rowOf(m_orders.get(), it.key());
            ASSERT_FALSE(row.isNull()) << step;
            ASSERT_EQ(cell(row, QStringLiteral("Instr")).toInt(), it->instr) << step;
            for (int d = 0; d < 2; ++d) {
                const auto dep = m_depRows[d].find(it->instr);
                for (const QString &column : copiedColumns(d)) {
                    const QVariant expected = dep != m_depRows[d].end()
                        ? dep->second.value(depColumn(column))
                        : it->copies.value(column);
                    ASSERT_EQ(cell(row, column), expected)
                        << step << " kind " << m_lastKind << ": order " << it.key() << " instr " << it->instr << " "
                        << column.toStdString();
                }
            }
        }
    }

private:
    struct Order
    {
        int instr;
        QVariantMap copies; // join column -> what it must hold without a dependent row
    };

    static QStringList copiedColumns(int dep)
    {
        return dep == 0 ? QStringList{QStringLiteral("Price"), QStringLiteral("Name")}
                        : QStringList{QStringLiteral("Price_"), QStringLiteral("Limit")};
    }
    static QString depColumn(const QString &joinColumn)
    {
        return joinColumn == QLatin1String("Price_") ? QStringLiteral("Price") : joinColumn;
    }

    // Instruments run a little beyond what the dependents hold, so that some
    // orders never find theirs.
    int pickInstr() { return int(m_random.bounded(m_instruments + m_instruments / 4)); }

    // The copies the order takes from the dependents it matches (those of
    // `deps`, a bit mask).
    void refill(int id, bool nullUnmatched, int deps = 3)
    {
        Order &order = m_model[id];
        for (int d = 0; d < 2; ++d) {
            if (!(deps & (1 << d)))
                continue;
            const auto dep = m_depRows[d].find(order.instr);
            for (const QString &column : copiedColumns(d)) {
                if (dep != m_depRows[d].end())
                    order.copies[column] = dep->second.value(depColumn(column));
                else if (nullUnmatched)
                    order.copies[column] = QVariant();
            }
        }
    }
    void refillInstr(int instr, int deps)
    {
        for (auto it = m_model.begin(); it != m_model.end(); ++it) {
            if (it->instr == instr)
                refill(it.key(), true, deps);
        }
    }

    void insertOrder()
    {
        const int id = m_nextId++;
        const int instr = pickInstr();
        put(m_orders.get(), id, {{QStringLiteral("Instr"), instr}, {QStringLiteral("Qty"), 1}});
        m_model[id].instr = instr;
        if (m_join)
            refill(id, true);
    }

    QVariantMap depValues(int d)
    {
        const int price = int(m_random.bounded(1000));
        if (d == 0)
            return {{QStringLiteral("Price"), price},
                    {QStringLiteral("Name"), QStringLiteral("n%1").arg(m_random.bounded(50))}};
        return {{QStringLiteral("Price"), price}, {QStringLiteral("Limit"), price * 2}};
    }

    // A dependent row written in `trans` (a new one if the key is free).
    void writeDep(int d, RecordsTrans &trans, int instr, const QVariantMap &values)
    {
        Table *table = m_deps[d].get();
        Record fresh(table);
        fresh.data(table->columnIndex(QStringLiteral("Instr"))) = instr;
        const Record present = rowOf(table, instr);
        RecordUpdater row(present.isNull() ? fresh : present, trans);
        for (auto it = values.cbegin(); it != values.cend(); ++it) {
            const int column = table->columnIndex(it.key());
            row.data(column) = it.value();
            trans.extendColumns(column, column);
        }
        QVariantMap &stored = m_depRows[d][instr];
        for (auto it = values.cbegin(); it != values.cend(); ++it)
            stored[it.key()] = it.value();
    }

    void putDep(int d, int instr, bool whole)
    {
        TableUpdater bracket(m_deps[d].get());
        RecordsTrans trans(m_deps[d].get());
        QVariantMap values = depValues(d);
        if (!whole && m_depRows[d].count(instr))
            values.remove(values.firstKey()); // a narrower range
        writeDep(d, trans, instr, values);
    }

    // Distinct keys per transaction, so that each key sees one operation.
    std::set<int> distinct(int count, const std::function<int()> &pick)
    {
        std::set<int> out;
        for (int i = 0; i < count * 3 && int(out.size()) < count; ++i)
            out.insert(pick());
        return out;
    }

    void mainTransaction(int batch)
    {
        Table *table = m_orders.get();
        const std::set<int> ids = distinct(
            batch, [this, batch] { return int(m_random.bounded(m_nextId + batch)); });
        std::map<int, int> keyChanged; // id -> new instrument
        std::set<int> inserted;
        {
            TableUpdater bracket(table);
            RecordsTrans trans(table);
            const bool stateRange = m_random.bounded(4) != 0;
            for (int id : ids) {
                const Record present = rowOf(table, id);
                if (present.isNull()) {
                    Record fresh(table);
                    fresh.data(0) = id;
                    const int instr = pickInstr();
                    fresh.data(1) = instr;
                    fresh.data(2) = 1;
                    RecordUpdater insert(fresh, trans);
                    m_model[id].instr = instr;
                    m_nextId = qMax(m_nextId, id + 1);
                    inserted.insert(id);
                    continue;
                }
                RecordUpdater row(present, trans);
                switch (m_random.bounded(3)) {
                case 0:
                    row.remove();
                    m_model.remove(id);
                    break;
                case 1: { // the join key
                    const int instr = pickInstr();
                    row.data(1) = instr;
                    if (stateRange)
                        trans.extendColumns(1, 1);
                    keyChanged[id] = instr;
                    break;
                }
                default: // not the key: nothing may be looked up or change
                    row.data(2) = int(m_random.bounded(100));
                    if (stateRange)
                        trans.extendColumns(2, 2);
                }
            }
        }
        for (int id : inserted)
            refill(id, true);
        for (const auto &change : keyChanged) {
            m_model[change.first].instr = change.second;
            refill(change.first, false);
        }
    }

    void depTransaction(int d, int batch)
    {
        Table *table = m_deps[d].get();
        std::set<int> touched;
        {
            TableUpdater bracket(table);
            RecordsTrans trans(table);
            const std::set<int> keys = distinct(batch, [this] { return pickInstr(); });
            std::set<int> used(keys.begin(), keys.end());
            for (int instr : keys) {
                const auto present = m_depRows[d].find(instr);
                const int kind = int(m_random.bounded(4));
                if (present == m_depRows[d].end() || kind == 0) {
                    writeDep(d, trans, instr, depValues(d));
                } else if (kind == 1) {
                    RecordUpdater(rowOf(table, instr), trans).remove();
                    m_depRows[d].erase(present);
                } else if (kind == 2) { // the key moves to a free instrument
                    int target = pickInstr();
                    for (int tries = 0; tries < 20 && (used.count(target) || m_depRows[d].count(target)); ++tries)
                        target = pickInstr();
                    if (used.count(target) || m_depRows[d].count(target))
                        continue;
                    used.insert(target);
                    RecordUpdater row(rowOf(table, instr), trans);
                    const int column = table->columnIndex(QStringLiteral("Instr"));
                    row.data(column) = target;
                    trans.extendColumns(column, column);
                    m_depRows[d][target] = present->second;
                    m_depRows[d].erase(instr);
                    touched.insert(target);
                } else { // some columns only
                    QVariantMap values = depValues(d);
                    values.remove(m_random.bounded(2) ? values.firstKey() : values.lastKey());
                    writeDep(d, trans, instr, values);
                }
                touched.insert(instr);
            }
        }
        for (int instr : touched)
            refillInstr(instr, 1 << d);
    }

    // The ways without a transaction: appendRow, remove and updated().
    void singleRowStep()
    {
        const int d = int(m_random.bounded(2));
        Table *table = m_deps[d].get();
        TableUpdater bracket(table);
        const int instr = pickInstr();
        const Record present = rowOf(table, instr);
        if (present.isNull()) {
            Record fresh(table);
            const QVariantMap values = depValues(d);
            fresh.data(table->columnIndex(QStringLiteral("Instr"))) = instr;
            for (auto it = values.cbegin(); it != values.cend(); ++it)
                fresh.data(table->columnIndex(it.key())) = it.value();
            table->appendRow(fresh.pointer());
            m_depRows[d][instr] = values;
        } else if (m_random.bounded(2)) {
            table->remove(present, -1);
            m_depRows[d].erase(instr);
        } else {
            Record row = present;
            const int column = table->columnIndex(QStringLiteral("Price"));
            const int price = int(m_random.bounded(1000));
            row.data(column) = price;
            m_depRows[d][instr][QStringLiteral("Price")] = price;
            if (d == 1) {
                const int limit = table->columnIndex(QStringLiteral("Limit"));
                row.data(limit) = price * 2;
                m_depRows[d][instr][QStringLiteral("Limit")] = price * 2;
                table->updated(row, qMin(column, limit), qMax(column, limit), -1);
            } else {
                table->updated(row, column, column, -1);
            }
        }
        refillInstr(instr, 1 << d);
    }

    // Indexes taken off and rebuilt: a dependent's rebuild nulls and refills
    // every join row, the join table's refills the matched ones.
    void rebuildStep()
    {
        const int which = int(m_random.bounded(3));
        Table *table = which == 2 ? m_orders.get() : m_deps[which].get();
        {
            TableIndexRebuilder rebuilder(table);
        }
        for (auto it = m_model.begin(); it != m_model.end(); ++it)
            refill(it.key(), which != 2, which == 2 ? 3 : 1 << which);
    }

    QRandomGenerator m_random;
    int m_lastKind = -1;
    int m_instruments;
    int m_nextId = 0;
    std::unique_ptr<Table> m_orders;
    std::unique_ptr<Table> m_deps[2];
    MasterIndex *m_byInstr = nullptr;
    std::unique_ptr<TableJoin> m_join;
    QMap<int, Order> m_model;
    std::map<int, QVariantMap> m_depRows[2]; // instrument -> dependent columns
};

} // namespace

// Small tables and many transactions, then large batches that take the
// parallel paths (above 512 rows) for every look-up.
TEST(TableJoinModel, JoinRowsFollowRandomTransactionsOnAllThreeTables)
{
    struct Case
    {
        int instruments, orders, steps, batch;
        quint32 seed;
    };
    for (const Case &c : {Case{24, 120, 300, 6, 7}, Case{12, 60, 200, 3, 11},
                          Case{900, 2500, 12, 700, 3}}) {
        SCOPED_TRACE(c.seed);
        JoinModel model(c.instruments, c.orders, c.seed);
        model.check("setup");
        for (int step = 0; step < c.steps; ++step) {
            model.randomStep(c.batch);
            model.check(qPrintable(QStringLiteral("step %1").arg(step)));
            if (::testing::Test::HasFatalFailure())
                return;
        }
    }
}
