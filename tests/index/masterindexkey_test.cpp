#include "keyedtable.h"

#include "index/masterindex_column.h"
#include "index/masterindex_column_cached.h"
#include "index/masterindex_fast.h"
#include "index/masterindex_fast_cached.h"
#include "table/recordstrans.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <thread>

namespace {

template <typename F>
QString thrownText(F f)
{
    try {
        f();
    } catch (const QString &message) {
        return message;
    }
    return QStringLiteral("<nothing thrown>");
}

// Columns: id (Integer64), code (VarChar 6), n (Integer), all not nullable,
// then note (String) and price (Double).
std::unique_ptr<Table> makeTable()
{
    auto table = std::make_unique<Table>(QStringLiteral("K"));
    table->addColumn(QStringLiteral("id"), FieldType::Integer64, 0, false);
    table->addColumn(QStringLiteral("code"), FieldType::VarChar, 6, false);
    table->addColumn(QStringLiteral("n"), FieldType::Integer, 0, false);
    table->addColumn(QStringLiteral("note"), FieldType::String);
    table->addColumn(QStringLiteral("price"), FieldType::Double);
    return table;
}

Record addRow(Table *table, int64 id, const QString &code = QString(), int n = 0)
{
    Record row(table);
    row.data(0) = id;
    row.data(1) = code;
    row.data(2) = n;
    table->appendList({ row });
    return row;
}

// The first row of the list whose packed key is `key`: what a key search of a
// sorted list finds.
Record firstOfKey(const MasterIndex_Fast &index, const MasterKey &key)
{
    for (auto it = index.begin(); it != index.end(); ++it)
        if (index.keyRecord(*it) == key)
            return *it;
    return Record();
}

TEST(MasterIndexFast, RefusesUnsuitableColumnsInAFixedOrder)
{
    auto table = makeTable();
    table->addColumn(QStringLiteral("nullable"), FieldType::Integer);
    const std::pair<QList<int>, const char *> cases[] = {
        { { 0, 2 }, "Columns must be sequenced: 2(n) / 1" },
        { { 0, 4 }, "Columns must be sequenced: 4(price) / 1" }, // sequence is checked before type
        { { 4 }, "Type 'Double' unsuported for price" },
        { { 3 }, "Type 'String' unsuported for note" },
        { { 5 }, "Columns can't be nullable nullable" },
    };
    for (const auto &c : cases)
        EXPECT_EQ(thrownText([&] { MasterIndex_Fast(table.get(), c.first); }), QString::fromUtf8(c.second));

    const MasterIndex_Fast fast(table.get(), QList<int> { 1, 2 });
    EXPECT_EQ(fast.keyOffset(), 16 + table->columnDef(1).offset);
    EXPECT_EQ(fast.keySize(), 16u + 8u);
}

TEST(MasterIndexFactory, FallsBackToColumnWithOneWarningAndInstalls)
{
    auto table = makeTable();
    WarningCatcher catcher;
    std::unique_ptr<MasterIndex> index(MasterIndex_Fast::create(table.get(), { "id", "n" }));
    EXPECT_EQ(index->getClassName(), QStringLiteral("MasterIndex_Column"));
    EXPECT_EQ(index->columns(), (QList<int> { 0, 2 }));
    EXPECT_EQ(WarningCatcher::messages(),
              QStringList("MasterIndex_Fast : Cannot create optimized MasterIndex for 'K': "
                          "Columns must be sequenced: 2(n) / 1"));
    std::unique_ptr<MasterIndex> cached(MasterIndex_Fast_Cached::create(table.get(), { "price" }));
    EXPECT_EQ(cached->getClassName(), QStringLiteral("MasterIndex_Column_Cached"));
    ASSERT_EQ(WarningCatcher::messages().size(), 2);
    EXPECT_TRUE(WarningCatcher::messages().last().startsWith(
        "MasterIndex_Fast_Cached : Cannot create optimized MasterIndex for 'K': Type"));
    // An unknown name fails the fallback too: its own message leaves create.
    const QString notFound = QStringLiteral("Column 'zz' not found to create index.");
    EXPECT_EQ(thrownText([&] { MasterIndex_Fast::create(table.get(), { "zz" }); }), notFound);
    EXPECT_EQ(thrownText([&] { MasterIndex_Column_Cached::create(table.get(), { "zz" }); }),
              notFound);
    std::unique_ptr<MasterIndex> fast(MasterIndex_Fast::create(table.get(), { "id" }));
    EXPECT_EQ(fast->getClassName(), QStringLiteral("MasterIndex_Fast"));
    EXPECT_EQ(WarningCatcher::messages().size(), 2);

    MasterIndex *first = MasterIndex_Column::createMasterIndex(table.get(), { "code" });
    EXPECT_EQ(table->masterIndex(), first);
    // The first master is deleted here; LeakSanitizer would report it otherwise.
    MasterIndex *second = MasterIndex_Fast_Cached::createMasterIndex(table.get(), { "id" });
    EXPECT_EQ(table->masterIndex(), second);
    addRow(table.get(), 1);
    QList<Index *> added;
    QObject::connect(table.get(), &Table::indexAdded, [&](Index *i) { added.append(i); });
    MasterIndex *named = MasterIndex_Column::createIndex("byCode", table.get(), { "code" });
    EXPECT_EQ(added, QList<Index *> { named });
    EXPECT_EQ(table->namedIndex(QStringLiteral("byCode")), named);
    EXPECT_EQ(named->count(), 0); // not filled
    table->removeIndex(named);
    delete named;
}

TEST(MasterIndexColumn, KeyAsTextAndAsTheRowsBytes)
{
    auto table = makeTable();
    table->addColumn(QStringLiteral("opt"), FieldType::Integer);
    MasterIndex_Column two(table.get(), QList<int> { 0, 2 });
    Record row(table.get());
    row.data(0) = 1;
    row.data(2) = 2;
    EXPECT_EQ(two.toText(row), QStringLiteral("1,2"));
    EXPECT_EQ(two.toText(Record()), QString());
    EXPECT_EQ(two.compare(two.fromText(QStringLiteral("1,2")), row), 0);
    EXPECT_EQ(thrownText([&] { two.fromText(QStringLiteral("12")); }),
              QStringLiteral("Master index can't restore from text. Incorrect columns numbers: 1 != 2"));
    MasterIndex_Column three(table.get(), QStringList { "id", "opt", "n" });
    const Record back = three.fromText(QStringLiteral("5,,7"));
    EXPECT_EQ(back.data(0).toInteger64(), 5);
    EXPECT_TRUE(back.data(5).isNull()); // the empty part made the nullable cell NULL
    EXPECT_EQ(back.data(2).toInteger(), 7);
    EXPECT_FALSE(back.inTable());

    MasterIndex_Column column(table.get(), QList<int> { 1, 2 });
    MasterIndex_Fast fast(table.get(), QList<int> { 1, 2 });
    const Record ab = addRow(table.get(), 9, QStringLiteral("ab"), -3);
    const MasterKey key = column.keyRecord(ab);
    EXPECT_EQ(key.size(), 24);
    EXPECT_EQ(key, fast.keyRecord(ab));
    EXPECT_EQ(column.keyRecord(Record()), MasterKey(24, '\0'));
    EXPECT_EQ(column.compareKey(ab, key), 0);
    // The hash is the XOR of the little-endian 32-bit words, then the seed.
    const char bytes[8] = { 1, 0, 0, 0, 2, 0, 0, 0 };
    EXPECT_EQ(qHash(MasterKey(bytes, 8), 0u), 3u);
    EXPECT_EQ(qHash(MasterKey(bytes, 8), 5u), 6u);
}

TEST(MasterIndexColumn, KeySearchFindsWhereByteAndFieldOrderAgreeOnly)
{
    // ASCII text in UTF-16 little-endian, zero padded: memcmp and
    // QString::compare give the same order.
    auto table = makeTable();
    table->setMasterIndex(new MasterIndex_Column(table.get(), QStringList { "code" }));
    MasterIndex_Fast fast(table.get(), QStringList { "code" });
    QStringList codes;
    QRandomGenerator random(7);
    for (int i = 1; codes.size() < 300; ++i) {
        QString code;
        for (int c = int(random.bounded(6)); c >= 0; --c)
            code.append(QChar(u'A' + random.bounded(26)));
        if (!codes.contains(code)) {
            codes.append(code);
            addRow(table.get(), codes.size(), code);
        }
    }
    fast.build();
    const auto *column = static_cast<const MasterIndex_Column *>(table->masterIndex());
    for (const QString &code : qAsConst(codes)) {
        const Record key = column->fromText(code);
        const Record found = column->find(key, -1);
        ASSERT_TRUE(found) << code.toStdString();
        EXPECT_EQ(found.data(1).toString(), code);
        EXPECT_EQ(fast.find(key, -1), found);
        EXPECT_EQ(column->findKey(column->keyRecord(key), -1), found);
        EXPECT_EQ(fast.findKey(fast.keyRecord(key), -1), found);
    }

    // Little-endian integers: 256 is 00 01 ..., below 1 (01 00 ...) as bytes.
    MasterIndex_Column byId(table.get(), QStringList { "id" });
    MasterIndex_Column_Cached cached(table.get(), QStringList { "id" });
    MasterIndex_Fast fastId(table.get(), QStringList { "id" });
    byId.build();
    cached.build();
    fastId.build();
    const Record key = byId.fromText(QStringLiteral("256"));
    EXPECT_EQ(byId.find(key, -1).data(0).toInteger64(), 256); // the compare path
    EXPECT_FALSE(byId.findKey(byId.keyRecord(key), -1)); // the key path
    EXPECT_FALSE(cached.find(key, -1)); // the cache takes the key path
    EXPECT_EQ(fastId.find(key, -1).data(0).toInteger64(), 256);
    EXPECT_EQ(fastId.at(0).data(0).toInteger64(), 256); // the Fast order is that of bytes
}

class MasterIndexCache : public ::testing::Test
{
protected:
    void SetUp() override
    {
        table = makeTable();
        index = new MasterIndex_Fast_Cached(table.get(), QStringList { "id" });
        table->setMasterIndex(index);
        for (int i = 0; i < 1100; ++i)
            addRow(table.get(), i);
    }

    MasterKey key(int64 id) const { return MasterKey(reinterpret_cast<const char *>(&id), 8); }
    Record find(int64 id) const { return index->findKey(key(id), -1); }

    std::unique_ptr<Table> table;
    MasterIndex_Fast_Cached *index = nullptr; // owned by the table
};

TEST_F(MasterIndexCache, EvictsTheLeastRecentlyUsedAtThe1001stKey)
{
    EXPECT_EQ(index->cacheSize(), 1000);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(find(i).data(0).toInteger64(), i);
    EXPECT_EQ(index->cacheCount(), 1000);
    const Record zero = find(0); // a hit: 0 is now the most recent, 1 the oldest
    EXPECT_EQ(Table::references(zero.rowPtr()), 3); // list, cache and this handle
    find(1000);
    EXPECT_EQ(index->cacheCount(), 1000);
    EXPECT_TRUE(index->isCached(key(0)));
    EXPECT_FALSE(index->isCached(key(1)));
    EXPECT_TRUE(index->isCached(key(2)));

    // Lowering the size evicts the oldest at once.
    index->setCacheSize(3);
    EXPECT_EQ(index->cacheCount(), 3);
    EXPECT_TRUE(index->isCached(key(1000)));
    EXPECT_TRUE(index->isCached(key(0)));
    EXPECT_TRUE(index->isCached(key(999)));

    // Misses are not remembered; from plays no part in a hit.
    EXPECT_FALSE(find(5000));
    EXPECT_EQ(index->cacheCount(), 3);
    EXPECT_EQ(index->findKey(key(0), 5000).data(0).toInteger64(), 0);

    index->setCacheSize(0);
    EXPECT_EQ(find(7).data(0).toInteger64(), 7);
    EXPECT_EQ(index->cacheCount(), 0);
}

TEST_F(MasterIndexCache, RowsLeavingTheIndexLeaveTheCache)
{
    for (int i = 0; i < 10; ++i)
        find(i);
    // findRecord goes through the cached find.
    EXPECT_EQ(index->findRecord(QStringLiteral("42")).data(0).toInteger64(), 42);
    EXPECT_TRUE(index->isCached(key(42)));

    table->remove(find(3), -1);
    EXPECT_FALSE(index->isCached(key(3)));
    EXPECT_FALSE(find(3));

    RangeSet<int> ranges;
    for (int id : { 5, 6 }) {
        const int p = index->indexOf(find(id));
        ranges.add(p, p + 1);
    }
    index->removeRanges(ranges);
    EXPECT_FALSE(index->isCached(key(5)));
    EXPECT_FALSE(index->isCached(key(6)));
    EXPECT_TRUE(index->isCached(key(4)));
    EXPECT_FALSE(find(5));

    QList<Record> removed { find(7) }, updated;
    table->process(removed, updated, -1, -1, {}, {});
    EXPECT_FALSE(index->isCached(key(7)));
    EXPECT_TRUE(index->isCached(key(8)));

    // A row updated in place keeps its old key's entry.
    Record eight = find(8);
    eight.data(0) = int64(100000);
    eight.updated();
    EXPECT_EQ(find(8), eight);

    index->clear();
    EXPECT_EQ(index->cacheCount(), 0);
    EXPECT_EQ(index->count(), 0);
}

TEST_F(MasterIndexCache, FindFromTwoThreadsAtOnce)
{
    index->setCacheSize(64); // small, so that both threads evict all the time
    auto work = [this](int seed, bool *ok) {
        QRandomGenerator random { quint32(seed) };
        for (int n = 0; n < 20000; ++n) {
            const int64 id = random.bounded(1100);
            const Record found = (n & 1) ? find(id) : index->find(index->fromText(QString::number(id)), -1);
            if (!found || found.data(0).asInteger64() != id) {
                *ok = false;
                return;
            }
        }
    };
    bool ok[2] = { true, true };
    std::thread t1(work, 1, &ok[0]), t2(work, 2, &ok[1]);
    t1.join();
    t2.join();
    EXPECT_TRUE(ok[0] && ok[1]);
    EXPECT_LE(index->cacheCount(), 64);
}

} // namespace

// The O(1) key lookup against a scan of the list, while rows come and go,
// keys change through transactions and in place, and keys turn up twice.
TEST(MasterIndexFast, KeyLookupMatchesTheListUnderRandomChanges)
{
    WarningCatcher quiet; // keys written in place are found by a logged scan
    auto table = makeTable();
    auto *index = static_cast<MasterIndex_Fast *>(
            MasterIndex_Fast::createMasterIndex(table.get(), { QStringLiteral("id") }));
    std::mt19937 rng(17);
    auto randomId = [&rng] { return int64(rng() % 2000); };
    Record probe(table.get());
    auto keyOf = [&](int64 id) {
        probe.data(0) = id;
        return index->keyRecord(probe);
    };
    for (int i = 0; i < 1000; ++i)
        addRow(table.get(), int64(i) * 2);

    for (int step = 0; step < 600; ++step) {
        std::vector<Record> rows(index->begin(), index->end());
        Record some = rows.empty() ? Record() : rows[rng() % rows.size()];
        switch (rng() % 5) {
        case 0: // inserts, and now and then a key that is already there
            addRow(table.get(), step % 60 != 59 ? randomId() + 10000 : some.data(0).toInteger64());
            break;
        case 1: {
            RecordsTrans trans(table.get());
            RecordUpdater(some, trans).remove();
            break;
        }
        case 2: {
            RecordsTrans trans(table.get());
            RecordUpdater u(some, trans);
            u.data(0) = randomId() + 20000;
            break;
        }
        case 3:
            some.data(0) = randomId() + 30000; // in place, then reported
            table->updated(some, -1);
            break;
        default:
            table->remove(some, -1);
        }
        rows.assign(index->begin(), index->end());
        for (int t = 0; t < 30; ++t) {
            const int64 id = t % 2 && !rows.empty() ? rows[rng() % rows.size()].data(0).toInteger64()
                                                    : randomId() + 10000 * int64(rng() % 4);
            const MasterKey key = keyOf(id);
            ASSERT_EQ(index->findKey(key, -1), firstOfKey(*index, key)) << "step " << step;
        }
    }
}

// An empty master given all rows in one batch, or row by row by a filler (a
// table being read), holds the same list, in the same order among equal keys,
// and finds the same rows by key as one fed in small batches and row by row;
// then all go on alike. Keys of eight bytes and longer ones (whose prefix
// does not decide), unique (looked up by hash) and met twice.
TEST(MasterIndexFast, OneBatchIntoAnEmptyIndexEqualsManySmallOnes)
{
    auto table = makeTable();
    for (int run = 0; run < 4; ++run) {
        const QStringList columns = run % 2 ? QStringList { "id", "code" } : QStringList { "id" };
        const bool twice = run >= 2;
        MasterIndex_Fast whole(table.get(), columns), pieces(table.get(), columns),
                filled(table.get(), columns);
        std::mt19937 rng(3);
        auto row = [&](int64 id) {
            Record r(table.get());
            r.data(0) = id << (rng() % 2 ? 0 : 32);
            r.data(1) = QStringLiteral("c%1").arg(twice ? rng() % 3 : 0);
            return r;
        };
        QList<Record> rows, more; // `more` comes in later
        for (int i = 0; i < 3050; ++i)
            (i < 3000 ? rows : more).append(row(twice ? int64(rng() % 2500) : int64(i) * 7919));
        whole.process({}, {}, -1, -1, rows);
        MasterIndex_Fast::Filler filler(&filled);
        for (const Record &r : rows + QList<Record> { Record(table.get()) })
            filler.append(Record(r));
        filler.keepFirst(rows.size()); // the blank row goes
        filler.finish();
        for (int at = 0, n = 0; at < rows.size(); at += n, n = int(rng() % 300))
            n == 0 ? pieces.add(rows.at(at++)) : pieces.process({}, {}, -1, -1, rows.mid(at, n));
        for (int step = 0; step < 2; ++step) {
            SCOPED_TRACE(testing::Message() << "run " << run << " step " << step);
            for (const MasterIndex_Fast *index : { &pieces, &filled }) {
                ASSERT_TRUE(std::equal(whole.begin(), whole.end(), index->begin(), index->end()));
                for (const Record &probe : rows.mid(0, 300) + more + QList<Record> { row(1) }) {
                    const MasterKey key = whole.keyRecord(probe);
                    ASSERT_EQ(index->findKey(key, -1), firstOfKey(*index, key));
                    ASSERT_EQ(whole.findKey(key, -1), firstOfKey(whole, key));
                }
            }
            for (MasterIndex_Fast *index : { &whole, &pieces, &filled })
                index->process(rows.mid(0, 700), {}, -1, -1, more);
        }
    }
}

// An index filled while empty fits its prefix to the bytes its keys share;
// later keys that leave those bytes, above or below, must still be placed and
// found as by an index keyed by the plain first eight bytes.
TEST(MasterIndexFast, FittedPrefixKeepsTheOrderOfKeysThatLeaveTheSharedBytes)
{
    auto table = makeTable();
    const QStringList columns { "code", "n" }; // 12 + 4 key bytes
    std::mt19937 rng(5);
    const QString letters = QStringLiteral("AB");
    auto row = [&](bool leave) {
        Record r(table.get());
        QString code = QStringLiteral("X") + letters.at(int(rng() % 2)) + QStringLiteral("00")
                + QString::number(rng() % 10);
        int n = int(rng() % 50);
        if (leave) {
            switch (rng() % 4) {
            case 0: code[0] = QChar(rng() % 2 ? 'W' : 'Y'); break; // a shared byte, below or above
            case 1: code[2] = QChar(ushort(0x100 + rng() % 3)); break; // a shared high byte
            case 2: n = rng() % 2 ? -n - 1 : n << 20; break; // shared bytes of n
            default: code.truncate(int(rng() % 3)); break; // zeros where letters were
            }
        }
        r.data(1) = code;
        r.data(2) = n;
        return r;
    };
    QList<Record> first, later, probes;
    for (int i = 0; i < 800; ++i)
        first.append(row(false));
    for (int i = 0; i < 400; ++i) {
        later.append(row(i % 2 == 0));
        probes.append(row(i % 3 != 0));
    }
    MasterIndex_Fast fitted(table.get(), columns), plain(table.get(), columns);
    fitted.process({}, {}, -1, -1, first);
    for (const Record &r : first)
        plain.add(r);
    for (int at = 0; at < later.size(); at += 50) {
        fitted.process({}, {}, -1, -1, later.mid(at, 50));
        plain.process({}, {}, -1, -1, later.mid(at, 50));
    }
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), fitted.begin(), fitted.end()));
    for (const Record &probe : probes + first.mid(0, 100) + later) {
        ASSERT_EQ(fitted.search(probe, -1), plain.search(probe, -1));
        ASSERT_EQ(fitted.searchLast(probe, -1), plain.searchLast(probe, -1));
    }
    fitted.process(first.mid(0, 300), {}, -1, -1, {});
    plain.process(first.mid(0, 300), {}, -1, -1, {});
    ASSERT_TRUE(std::equal(plain.begin(), plain.end(), fitted.begin(), fitted.end()));
}
