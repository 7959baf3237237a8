#include "jointestsupport.h"

#include <gtest/gtest.h>

#include <QMap>
#include <QRandomGenerator>

#include <climits>
#include <map>
#include <set>

namespace {

const QString Instr = QStringLiteral("Instr");
const QString Price = QStringLiteral("Price");

// Orders joined by instrument with two dependents, and a model of every join
// cell. A join row whose instrument a dependent has carries that dependent
// row's values, as a recomputation from scratch would. One whose instrument it
// lacks keeps what it had: null when new, the old copies after a key change
// of the order, and null once the dependent row went.
class JoinModel
{
public:
    JoinModel(int instruments, int orders, quint32 seed)
        : m_random(seed)
        , m_instruments(instruments)
    {
        const FieldType::Type Int = FieldType::Integer;
        m_orders = makeTable("Orders", { { "Id", Int }, { "Instr", Int }, { "Qty", Int } },
                             { "Id" });
        m_deps[0] = makeTable("Instruments",
                              { { "Instr", Int }, { "Price", Int }, { "Name", FieldType::String } },
                              { Instr });
        // The key between the copied columns.
        m_deps[1] = makeTable("Limits", { { "Limit", Int }, { "Instr", Int }, { "Price", Int } },
                              { Instr });
        m_byInstr = new MasterIndex_Column(m_orders.get(), QStringList { Instr });
        m_orders->addIndex(m_byInstr);
        // Rows before the join, and after it.
        mainTransaction(orders / 2);
        depTransaction(0, instruments / 2);
        depTransaction(1, instruments / 2);
        m_join.reset(new TableJoin(m_byInstr, { m_deps[0].get(), m_deps[1].get() },
                                   { Price, "Name", "Limit" }, false));
        refill(3, true);
        mainTransaction(orders / 2);
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
        if (kind < 4)
            mainTransaction(batch);
        else if (kind < 8)
            depTransaction(int(m_random.bounded(2)), batch);
        else if (kind == 8)
            singleRowStep(int(m_random.bounded(2)));
        else
            rebuild(int(m_random.bounded(3)));
    }

    void check(int step) const
    {
        ASSERT_EQ(m_orders->rowCount(), m_model.size());
        for (int d = 0; d < 2; ++d)
            ASSERT_EQ(m_deps[d]->rowCount(), int(m_depRows[d].size()));
        for (auto it = m_model.cbegin(); it != m_model.cend(); ++it) {
            const Record row = rowOf(m_orders.get(), it.key());
            ASSERT_EQ(cell(row, Instr), QVariant(it->instr));
            for (int d = 0; d < 2; ++d) {
                const auto dep = m_depRows[d].find(it->instr);
                for (const QString &column : copied(d)) {
                    ASSERT_EQ(cell(row, column), dep != m_depRows[d].end()
                                                         ? dep->second.value(source(column))
                                                         : it->copies.value(column))
                            << "step " << step << ", order " << it.key() << ", "
                            << column.toStdString();
                }
            }
        }
    }

private:
    struct Order
    {
        int instr;
        QVariantMap copies;
    };

    static QStringList copied(int dep)
    {
        return dep == 0 ? QStringList { Price, "Name" } : QStringList { "Price_", "Limit" };
    }
    static QString source(const QString &joinColumn)
    {
        return joinColumn == QLatin1String("Price_") ? Price : joinColumn;
    }

    // A quarter of the instruments never reach the dependents.
    int pickInstr() { return int(m_random.bounded(m_instruments + m_instruments / 4)); }

    // Distinct keys, so that each key sees one operation per transaction.
    template <typename Pick> std::set<int> distinct(int count, Pick pick)
    {
        std::set<int> out;
        for (int i = 0; i < count * 3 && int(out.size()) < count; ++i)
            out.insert(pick());
        return out;
    }

    // New values for a dependent row, written into `row` and the model; the
    // span of columns written. Sometimes only one column: a narrower range.
    std::pair<int, int> writeDep(int d, Record row, int instr, bool all)
    {
        const int price = int(m_random.bounded(1000));
        QVariantMap values { { Price, price } };
        if (all || m_random.bounded(2))
            values[d == 0 ? "Name" : "Limit"] = d == 0 ? QVariant(QString("n%1").arg(price % 7))
                                                      : QVariant(price * 2);
        std::pair<int, int> span(INT_MAX, -1);
        for (auto it = values.cbegin(); it != values.cend(); ++it) {
            const int column = m_deps[d]->columnIndex(it.key());
            row.data(column) = it.value();
            span = { qMin(span.first, column), qMax(span.second, column) };
            m_depRows[d][instr][it.key()] = it.value();
        }
        return span;
    }

    // The copies of the dependents in `deps` (a bit mask), for the orders of
    // `instr` (-1: all) or the one order `id`.
    void refill(int deps, bool nullUnmatched, int instr = -1, int id = -1)
    {
        for (auto order = m_model.begin(); order != m_model.end(); ++order) {
            if ((instr != -1 && order->instr != instr) || (id != -1 && order.key() != id))
                continue;
            for (int d = 0; d < 2; ++d) {
                const auto dep = m_depRows[d].find(order->instr);
                for (const QString &column : copied(d)) {
                    if (!(deps & (1 << d)))
                        continue;
                    if (dep != m_depRows[d].end())
                        order->copies[column] = dep->second.value(source(column));
                    else if (nullUnmatched)
                        order->copies.remove(column);
                }
            }
        }
    }

    void mainTransaction(int batch)
    {
        Table *table = m_orders.get();
        const auto ids = distinct(batch, [&] { return int(m_random.bounded(m_nextId + batch)); });
        std::map<int, bool> lookedUp; // id -> whether its copies start null
        {
            TableUpdater bracket(table);
            RecordsTrans trans(table);
            const bool stateRange = m_random.bounded(4) != 0; // else all columns count
            for (int id : ids) {
                Record row = rowOf(table, id);
                if (row.isNull()) {
                    row = Record(table);
                    row.data(0) = id;
                    row.data(1) = pickInstr();
                    RecordUpdater insert(row, trans);
                    m_model[id] = Order { row.data(1).toInteger(), {} };
                    m_nextId = qMax(m_nextId, id + 1);
                    lookedUp[id] = true;
                    continue;
                }
                RecordUpdater update(row, trans);
                const int kind = int(m_random.bounded(3));
                if (kind == 0) {
                    update.remove();
                    m_model.remove(id);
                    continue;
                }
                // The join key, or a column that must change no copy.
                const int column = kind == 1 ? 1 : 2;
                update.data(column) = kind == 1 ? pickInstr() : int(m_random.bounded(100));
                if (stateRange)
                    trans.extendColumns(column, column);
                if (kind == 1) {
                    m_model[id].instr = update.data(1).toInteger();
                    lookedUp[id] = false;
                }
            }
        }
        for (const auto &entry : lookedUp)
            refill(3, entry.second, -1, entry.first);
    }

    void depTransaction(int d, int batch)
    {
        Table *table = m_deps[d].get();
        const int key = table->columnIndex(Instr);
        const std::set<int> keys = distinct(batch, [&] { return pickInstr(); });
        std::set<int> touched = keys;
        {
            TableUpdater bracket(table);
            RecordsTrans trans(table);
            for (int instr : keys) {
                const auto present = m_depRows[d].find(instr);
                const int kind = present == m_depRows[d].end() ? 0 : int(m_random.bounded(3));
                Record row = kind == 0 ? Record(table) : rowOf(table, instr);
                row.data(key) = instr;
                RecordUpdater updater(row, trans);
                if (kind == 1) {
                    updater.remove();
                    m_depRows[d].erase(present);
                } else if (kind == 2 && touched.insert(m_nextFree).second
                    && !m_depRows[d].count(m_nextFree)) { // the key moves
                    updater.data(key) = m_nextFree;
                    trans.extendColumns(key, key);
                    m_depRows[d][m_nextFree++] = present->second;
                    m_depRows[d].erase(present);
                } else {
                    const auto span = writeDep(d, updater, instr, kind == 0);
                    trans.extendColumns(span.first, span.second);
                }
            }
        }
        for (int instr : touched)
            refill(1 << d, true, instr);
        m_nextFree = pickInstr();
    }

    // The ways without a transaction: appendRow, remove and updated().
    void singleRowStep(int d)
    {
        Table *table = m_deps[d].get();
        TableUpdater bracket(table);
        const int instr = pickInstr();
        Record row = rowOf(table, instr);
        if (row.isNull()) {
            row = Record(table);
            row.data(table->columnIndex(Instr)) = instr;
            writeDep(d, row, instr, true);
            table->appendRow(row.pointer());
        } else if (m_random.bounded(2)) {
            const auto span = writeDep(d, row, instr, false);
            table->updated(row, span.first, span.second, -1);
        } else {
            table->remove(row, -1);
            m_depRows[d].erase(instr);
        }
        refill(1 << d, true, instr);
    }

    // A dependent's rebuild nulls all its copies first; the join table's does not.
    void rebuild(int which)
    {
        TableIndexRebuilder(which == 2 ? m_orders.get() : m_deps[which].get());
        refill(which == 2 ? 3 : 1 << which, which != 2);
    }

    QRandomGenerator m_random;
    int m_instruments;
    int m_nextId = 0;
    int m_nextFree = 0; // where a dependent key may move next
    std::unique_ptr<Table> m_orders;
    std::unique_ptr<Table> m_deps[2];
    MasterIndex_Column *m_byInstr = nullptr;
    std::unique_ptr<TableJoin> m_join;
    QMap<int, Order> m_model;
    std::map<int, QVariantMap> m_depRows[2]; // instrument -> dependent cells
};

} // namespace

// Small tables and many transactions, then batches above 512 rows, which take
// the parallel paths for every look-up.
TEST(TableJoinModel, JoinRowsFollowRandomTransactionsOnAllThreeTables)
{
    struct Case
    {
        int instruments, orders, steps, batch;
        quint32 seed;
    };
    for (const Case &c : { Case { 24, 120, 300, 6, 7 }, Case { 12, 60, 200, 3, 11 },
             Case { 900, 2500, 12, 700, 3 } }) {
        SCOPED_TRACE(c.seed);
        JoinModel model(c.instruments, c.orders, c.seed);
        model.check(-1);
        for (int step = 0; step < c.steps && !::testing::Test::HasFatalFailure(); ++step) {
            model.randomStep(c.batch);
            model.check(step);
        }
    }
}
