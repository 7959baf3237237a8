#include "table/recordstrans.h"

#include "tabletestsupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

enum Event { None, Insert, Update, Remove };

class TransMerge : public ::testing::Test
{
protected:
    void SetUp() override
    {
        table.reset(makeKeyedTable());
        stored = makeRow(table.get(), 1, 10);
        stored.append();
    }

    // A row for event `e` on key 1: a fresh row, a changed clone, or the stored row.
    Record rowFor(Event e, int value)
    {
        if (e == Insert)
            return makeRow(table.get(), 1, value);
        if (e != Update)
            return e == Remove ? stored : Record();
        Record c = stored.clone();
        FieldType::setInt(c.data(1).data(), value);
        return c;
    }
    // Applies `e` through the six-list merge.
    void apply(RecordsTrans &trans, Event e, const Record &row)
    {
        const QList<Record> none;
        if (e == Insert)
            trans.merge(none, none, 1, 1, { row }, none);
        else if (e == Update)
            trans.merge(none, { stored }, 1, 1, none, { row });
        else if (e == Remove)
            trans.merge({ row }, none, 1, 1, none, none);
    }

    std::unique_ptr<Table> table;
    Record stored;
};

} // namespace

// Every pending state against every event, through the list merge and through
// merge(RecordsTrans &).
TEST_F(TransMerge, Matrix)
{
    struct Case
    {
        Event pending, event;
        int code;
        char keyRow; // the row standing in the operations: Stored, Pending or Event
        char change; // the pending clone: '-' none, 'E' the event's, 'P' the pending one
    };
    const int I = RecordsTrans::RowInserted, U = RecordsTrans::RowUpdated,
              R = RecordsTrans::RowRemoved;
    const Case cases[] = {
        { None, Insert, I, 'E', '-' },   { None, Update, U, 'S', 'E' },
        { None, Remove, R, 'S', '-' },   { Insert, Insert, I, 'E', '-' },
        { Insert, Update, I, 'P', '-' }, { Insert, Remove, R, 'P', '-' },
        { Remove, Insert, I, 'E', '-' }, { Remove, Update, U, 'S', 'E' },
        { Remove, Remove, R, 'S', '-' }, { Update, Insert, I, 'E', '-' },
        { Update, Update, U, 'S', 'P' }, { Update, Remove, R, 'S', '-' },
    };
    for (int form = 0; form < 2; ++form) {
        for (const Case &c : cases) {
            SCOPED_TRACE(testing::Message() << (form ? "trans " : "lists ") << c.pending << "+"
                                            << c.event);
            RecordsTrans trans(table.get());
            const Record pendingRow = rowFor(c.pending, 20);
            apply(trans, c.pending, pendingRow);
            const Record eventRow = rowFor(c.event, 30);
            if (form == 0) {
                apply(trans, c.event, eventRow);
            } else {
                RecordsTrans other(table.get());
                apply(other, c.event, eventRow);
                trans.merge(other);
                other.clear(); // must not reach the table when it goes
            }

            // One key: one entry in one list, and a change only with an update.
            const QList<Record> lists[] = { trans.insertList(), trans.updateList(),
                                            trans.removeList() };
            const int codes[] = { I, U, R };
            int found = 0;
            for (int i = 0; i < 3; ++i) {
                if (lists[i].isEmpty())
                    continue;
                ++found;
                EXPECT_EQ(codes[i], c.code);
                EXPECT_EQ(lists[i].first(),
                          c.keyRow == 'S' ? stored : c.keyRow == 'P' ? pendingRow : eventRow);
            }
            EXPECT_EQ(found, 1);
            const QList<Record> changed = trans.changeList();
            ASSERT_EQ(changed.size(), c.change == '-' ? 0 : 1);
            if (c.change != '-') {
                EXPECT_EQ(valueOf(changed.first()), 30) << "with the later update's columns";
                EXPECT_EQ(changed.first() == pendingRow, c.change == 'P')
                    << "a clone already pending is kept";
            }
            EXPECT_EQ(valueOf(stored), 10) << "nothing reaches the table before processing";
            trans.clear();
        }
    }
}

TEST_F(TransMerge, UpdaterOnEachPendingState)
{
    // A stored row: writes go to one clone that every updater of the key shares.
    {
        RecordsTrans trans(table.get());
        {
            RecordUpdater a(stored, trans);
            EXPECT_TRUE(a.isFound());
            EXPECT_NE(static_cast<const Record &>(a), stored);
            FieldType::setInt(a.data(1).data(), 11);
            RecordUpdater b(rowFor(Insert, 0), trans); // another block, same key
            EXPECT_EQ(b.rowPtr(), a.rowPtr());
            FieldType::setInt(b.data(1).data(), valueOf(b) + 1);
        }
        EXPECT_EQ(trans.updateList(), QList<Record>() << stored);
        ASSERT_EQ(trans.changeList().size(), 1);
        EXPECT_EQ(valueOf(trans.changeList().first()), 12);
        EXPECT_EQ(valueOf(stored), 10);
        trans.clear();
    }
    // An insert that the table has not seen, then removed again: nothing remains.
    {
        RecordsTrans trans(table.get());
        RecordUpdater u(makeRow(table.get(), 7, 70), trans);
        EXPECT_FALSE(u.isFound());
        EXPECT_EQ(trans.insertList().size(), 1);
        u.remove();
        EXPECT_TRUE(trans.isEmpty());
        EXPECT_FALSE(u.isFound());
        u.remove(); // a second removal has nothing left to act on
        EXPECT_TRUE(trans.isEmpty());
    }
    // A second updater on a pending insert takes the pending row.
    {
        RecordsTrans trans(table.get());
        const Record first = makeRow(table.get(), 7, 70);
        RecordUpdater u(first, trans);
        RecordUpdater v(makeRow(table.get(), 7, 71), trans);
        EXPECT_EQ(static_cast<const Record &>(v), first);
        EXPECT_FALSE(v.isFound());
        trans.clear();
    }
    // A stored row whose key is pending as an insert is written in place.
    {
        RecordsTrans trans(table.get());
        trans.merge({}, {}, -1, -1, { rowFor(Insert, 50) }, {});
        RecordUpdater u(stored, trans);
        EXPECT_TRUE(u.isFound());
        EXPECT_EQ(static_cast<const Record &>(u), stored);
        EXPECT_TRUE(trans.changeList().isEmpty());
        trans.clear();
    }
    // A pending removal turns into an update with a clone; remove() turns it back.
    {
        RecordsTrans trans(table.get());
        trans.merge({ stored }, {}, -1, -1, {}, {});
        RecordUpdater u(stored, trans);
        EXPECT_EQ(trans.updateList().size(), 1);
        EXPECT_EQ(trans.changeList().size(), 1);
        u.remove();
        EXPECT_EQ(trans.removeList(), QList<Record>() << stored);
        EXPECT_TRUE(trans.changeList().isEmpty());
        trans.clear();
    }
}

TEST_F(TransMerge, ColumnRange)
{
    RecordsTrans trans(table.get());
    EXPECT_LT(trans.maxColumn(), trans.minColumn()) << "no range stated";
    {
        RecordUpdater u(stored, trans);
        u.setNull(QStringLiteral("value"));
        u.setNull(QStringLiteral("no such column"));
    }
    EXPECT_EQ(trans.minColumn(), 1);
    EXPECT_EQ(trans.maxColumn(), 1);
    trans.extendColumns(0, 0);
    EXPECT_EQ(trans.minColumn(), 0);
    trans.clear();
    EXPECT_EQ(trans.maxColumn(), 1) << "clear keeps the range";

    // An unstated range covers all columns when the transaction is applied.
    {
        RecordsTrans unstated(table.get());
        RecordUpdater u(stored, unstated);
        FieldType::setInt(u.data(1).data(), 99);
    }
    EXPECT_EQ(valueOf(stored), 99);
}
