#ifndef TABLEDB_JOIN_PARALLELRUN_P_H
#define TABLEDB_JOIN_PARALLELRUN_P_H

#include "runtime/tsan_p.h"

#include <QAtomicInt>
#include <QList>
#include <QVector>
#include <QtConcurrent/QtConcurrentMap>

#include <memory>
#include <vector>

namespace JoinParallel {

// At least 256 rows a piece, never more than 32 pieces whatever the machine.
inline int pieceCount(int count)
{
    return qBound(1, count >> 8, 32);
}

// The bounds of piece `i` of `pieces` over `count` elements.
inline int pieceBegin(int i, int pieces, int count)
{
    return int(qint64(i) * count / pieces);
}

// Runs work(*item) for every item on Qt's global pool, the caller waiting
// until all have ended. Results come back in the order of finishing.
template <typename Result, typename Item, typename Work>
QVector<Result> runOnPool(const std::vector<std::unique_ptr<Item>> &items, const Work &work)
{
    QVector<Result> results(int(items.size()));
    Result *slot = results.data(); // detached here, once, before the workers write
    QAtomicInt next(0);
    QList<Item *> list;
    for (const auto &item : items)
        list.append(item.get());
    auto run = [&](Item *item) {
        Result result = work(*item);
        slot[next.fetchAndAddOrdered(1)] = std::move(result);
    };
#if defined(TABLEDB_TSAN)
    // The pool's hand-over goes through futexes that TSan cannot see.
    static char handOver;
    tsan::release(&handOver);
    QtConcurrent::blockingMap(list, [&run](Item *&item) {
        tsan::acquire(&handOver);
        run(item);
        tsan::release(&handOver);
    });
    tsan::acquire(&handOver);
#else
    QtConcurrent::blockingMap(list, [&run](Item *&item) { run(item); });
#endif
    return results;
}

} // namespace JoinParallel

#endif // TABLEDB_JOIN_PARALLELRUN_P_H
