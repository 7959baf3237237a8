#ifndef TABLEDB_TOOLS_MARKETCHECK_H
#define TABLEDB_TOOLS_MARKETCHECK_H

#include <QString>

class IndexSort;
class IndexVector;
class Table;

// Checks of the live tables against recomputations from their rows. Each
// takes the tables' locks; each gives an empty text when all is well and
// otherwise says what is wrong and where.
namespace MarketCheck {

// The view holds each row of its table that passes its filter exactly once,
// and no other, in its order.
QString view(const IndexSort &view);
QString view(const IndexVector &view);

// Every row of `joined` carries in `columns` the cells of the row of `source`
// whose `keys` are equal to its own, or NULLs when there is none.
QString join(const Table &joined, const Table &source, const QStringList &keys,
             const QStringList &columns);

// The two tables have the same columns and, in master index order, rows whose
// cells are equal (NULL equal to NULL).
QString sameRows(const Table &live, const Table &loaded);

} // namespace MarketCheck

#endif // TABLEDB_TOOLS_MARKETCHECK_H
