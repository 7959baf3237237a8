#include "table/recordstrans.h"

#include "tabletestsupport.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

enum Event { None, Insert, Update, Remove };

const char *eventName(Event e)
{
    static const char *names[] = { "none", "insert", "update", "remove" };
    return names[e];
}

// The state of one key in a transaction, as its lists show it.
struct KeyState
{
    int code = 0; // 0: no entry
    Record keyRow; // the row standing in the operations
    Record change; // the pending clone, for RowUpdated
};

KeyState stateOf(const RecordsTrans &trans)
{
    KeyState s;
    const QList<Record> inserted = trans.insertList();
    const QList<Record> removed = trans.removeList();
    const QList<Record> updated = trans.updateList();
    const QList<Record> changed = trans.changeList();
    EXPECT_LE(inserted.size() + removed.size() + updated.size(), 1);
    EXPECT_LE(changed.size(), updated.size()) << "no change without an update";
    if (!inserted.isEmpty()) {
        s.code = RecordsTrans::RowInserted;
        s.keyRow = inserted.first();
    } else if (!removed.isEmpty()) {
        s.code = RecordsTrans::RowRemoved;
        s.keyRow = removed.first();
    } else if (!updated.isEmpty()) {
        s.code = RecordsTrans::RowUpdated;
        s.keyRow = updated.first();
        if (!changed.isEmpty())
            s.change = changed.first();
    }
    return s;
}

class TransMerge : public ::testing::Test
{
protected:
    void SetUp() override
    {
        table.reset(makeKeyedTable());
        stored = makeRow(table.get(), 1, 10);
        stored.append();
    }

    // Rows for each event on key 1.
    Record freshInsert(int value) { return makeRow(table.get(), 1, value); }
    Record changeOf(int value)
    {
        Record c = stored.clone();
        FieldType::setInt(c.data(1).data(), value);
        return c;
    }

    // Applies `e` through the six-list merge.
    void applyLists(RecordsTrans &trans, Event e, const Record &row)
    {
        const QList<Record> none;
        switch (e) {
        case Insert:
            trans.merge(none, none, 1, 1, { row }, none);
            break;
        case Update:
            trans.merge(none, { stored }, 1, 1, none, { row });
            break;
        case Remove:
            trans.merge({ row }, none, 1, 1, none, none);
            break;
        case None:
            break;
        }
    }

    // Applies `e` through a second transaction and merge(RecordsTrans &).
    void applyTrans(RecordsTrans &trans, Event e, const Record &row)
    {
        RecordsTrans other(table.get());
        applyLists(other, e, row);
        trans.merge(other);
        other.clear(); // must not reach the table when it goes
    }

    std::unique_ptr<Table> table;
    Record stored;
};

} // namespace

// The merge matrix: every pending state against every event, through both
// merge forms.
TEST_F(TransMerge, Matrix)
{
    struct Case {
        Event pending;
        Event event;
        int code; // resulting code
        const char *keyRow; // which row stands in operations: "stored", "pending", "event"
        const char *change; // "none", "event", "pending" (pending clone, with the event's columns)
    };
    const Case cases[] = {
        { None, Insert, RecordsTrans::RowInserted, "event", "none" },
        { None, Update, RecordsTrans::RowUpdated, "stored", "event" },
        { None, Remove, RecordsTrans::RowRemoved, "stored", "none" },
        { Insert, Insert, RecordsTrans::RowInserted, "event", "none" },
        { Insert, Update, RecordsTrans::RowInserted, "pending", "none" },
        { Insert, Remove, RecordsTrans::RowRemoved, "pending", "none" },
        { Remove, Insert, RecordsTrans::RowInserted, "event", "none" },
        { Remove, Update, RecordsTrans::RowUpdated, "stored", "event" },
        { Remove, Remove, RecordsTrans::RowRemoved, "stored", "none" },
        { Update, Insert, RecordsTrans::RowInserted, "event", "none" },
        { Update, Update, RecordsTrans::RowUpdated, "stored", "pending" },
        { Update, Remove, RecordsTrans::RowRemoved, "stored", "none" },
    };
    for (int form = 0; form < 2; ++form) {
        for (const Case &c : cases) {
            SCOPED_TRACE(std::string(form ? "trans " : "lists ") + eventName(c.pending) + " then "
                         + eventName(c.event));
            RecordsTrans trans(table.get());
            Record pendingRow;
            switch (c.pending) {
            case Insert:
                pendingRow = freshInsert(20);
                break;
            case Update:
                pendingRow = changeOf(20);
                break;
            case Remove:
                pendingRow = stored;
                break;
            case None:
                break;
            }
            applyLists(trans, c.pending, pendingRow);

            Record eventRow;
            switch (c.event) {
            case Insert:
                eventRow = freshInsert(30);
                break;
            case Update:
                eventRow = changeOf(30);
                break;
            default:
                eventRow = stored;
                break;
            }
            if (form == 0)
                applyLists(trans, c.event, eventRow);
            else
                applyTrans(trans, c.event, eventRow);

            const KeyState s = stateOf(trans);
            EXPECT_EQ(s.code, c.code);
            const std::string keyRow = c.keyRow;
            if (keyRow == "stored")
                EXPECT_EQ(s.keyRow, stored);
            else if (keyRow == "pending")
                EXPECT_EQ(s.keyRow, pendingRow);
            else
                EXPECT_EQ(s.keyRow, eventRow);

            const std::string change = c.change;
            if (change == "none") {
                EXPECT_TRUE(s.change.isNull());
            } else if (change == "event") {
                ASSERT_FALSE(s.change.isNull());
                EXPECT_EQ(valueOf(s.change), 30);
            } else {
                ASSERT_FALSE(s.change.isNull());
                EXPECT_EQ(s.change, pendingRow) << "the clone already pending is kept";
                EXPECT_EQ(valueOf(s.change), 30) << "with the later update's columns";
            }
            EXPECT_EQ(valueOf(stored), 10) << "nothing reaches the table before processing";
            trans.clear();
        }
    }
}

TEST_F(TransMerge, UpdatersOfOneKeyShareOneClone)
{
    RecordsTrans trans(table.get());
    {
        RecordUpdater a(stored, trans);
        EXPECT_TRUE(a.isFound());
        EXPECT_NE(static_cast<const Record &>(a), stored) << "writes go to a clone";
        FieldType::setInt(a.data(1).data(), 11);
        RecordUpdater b(freshInsert(0), trans); // another block, same key
        EXPECT_EQ(b.rowPtr(), a.rowPtr());
        FieldType::setInt(b.data(1).data(), valueOf(b) + 1);
    }
    EXPECT_EQ(trans.updateList(), QList<Record>() << stored);
    ASSERT_EQ(trans.changeList().size(), 1);
    EXPECT_EQ(valueOf(trans.changeList().first()), 12);
    EXPECT_EQ(valueOf(stored), 10);
    trans.clear();
}

TEST_F(TransMerge, UpdaterOnPendingStates)
{
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
        trans.merge({}, {}, -1, -1, { freshInsert(50) }, {});
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
