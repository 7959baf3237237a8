#ifndef TABLEDB_MODEL_ROWSDIFF_P_H
#define TABLEDB_MODEL_ROWSDIFF_P_H

#include "model/tablemodelrecorder_p.h"

#include <QPair>
#include <QVector>

#include <climits>

// How a view's rows went from one reading to the next, rows told apart by
// identity. What the table recorded names the rows that may have come, left,
// moved or been written; every other row must stand in both readings in the
// same order, and that is checked. Where it does not hold (a view sorted anew
// by hand, another view of the same table), every row is matched instead.
// Costs O(n) for n rows when the record is complete, with a small hash of the
// recorded rows, plus O(k log k) over the k rows that stay.
class RowsDiff
{
public:
    using Rows = QVector<const unsigned char *>;

    struct Written
    {
        int row; // in `after`
        int first; // table columns, inclusive
        int last;
    };

    RowsDiff(const Rows &before, const Rows &after, const TableModelChanges &changes);

    // False when a reading holds a row twice: then rows can only be matched by
    // their positions, and nothing else here is filled in.
    bool matched() const { return m_matched; }
    // Per position in `before`: the row's position in `after`, -1 if it left.
    const QVector<int> &oldToNew() const { return m_oldToNew; }
    // Per position in `after`: the row's position in `before`, -1 if it came.
    const QVector<int> &newToOld() const { return m_newToOld; }
    // Per position in `after`: a row that stayed but changed places against
    // the others. The fewest such rows: those off a longest run of rows that
    // kept their order.
    const QVector<bool> &moved() const { return m_moved; }
    int movedCount() const { return m_movedCount; }
    // Rows that stayed and were written, by position in `after`, ascending.
    const QVector<Written> &written() const { return m_written; }
    // Runs of consecutive positions: rows that left, in `before`; rows that
    // came, in `after`. Each run is its first and last position.
    QVector<QPair<int, int>> removedRuns() const { return runs(m_oldToNew); }
    QVector<QPair<int, int>> insertedRuns() const { return runs(m_newToOld); }

private:
    struct Entry
    {
        int before = -1;
        int after = -1;
        int first = INT_MAX; // the columns written, none at first
        int last = -1;
    };

    // Open addressing by row address; far cheaper than QHash on the walks
    // over every row.
    class RowTable
    {
    public:
        // Room for `capacity` rows before it grows.
        explicit RowTable(int capacity);
        Entry *find(const unsigned char *row);
        Entry &insert(const unsigned char *row);
        int size() const { return m_size; }

    private:
        int slot(const unsigned char *row) const;
        void grow();

        QVector<const unsigned char *> m_keys;
        QVector<Entry> m_entries;
        int m_mask;
        int m_size = 0;
    };

    // Fills the positions from the two walks; false when the rows outside
    // `table` do not stand alike in both readings.
    bool walk(const Rows &before, const Rows &after, RowTable &table);
    static void enter(RowTable &table, const TableModelChanges &changes);
    void findMoves();
    static QVector<QPair<int, int>> runs(const QVector<int> &map);

    bool m_matched = true;
    QVector<int> m_oldToNew;
    QVector<int> m_newToOld;
    QVector<bool> m_moved;
    int m_movedCount = 0;
    QVector<Written> m_written;
};

#endif // TABLEDB_MODEL_ROWSDIFF_P_H
