#ifndef TABLEDB_TESTS_INDEX_KEYEDTABLE_H
#define TABLEDB_TESTS_INDEX_KEYEDTABLE_H

#include "index/indexsort.h"
#include "support/warningcatcher.h"
#include "table/tabletestsupport.h"

#include <QAtomicInt>

#include <vector>

// A table with an integer key column, and a sorted index over it that counts
// its compares and admits only rows with a key of 0 or more that aren't hidden.
// keyOf() is the shared one: one definition per test program.
inline void setKey(const Record &r, int key)
{
    FieldType::setInt(r.data(0).data(), key);
}

// A second column that the filter looks at, so that a row can leave an index
// without a change of its key.
inline void setHidden(const Record &r, bool hidden)
{
    FieldType::setInt(r.data(1).data(), hidden ? 1 : 0);
}

class KeyedTable : public Table
{
public:
    KeyedTable() : Table(QStringLiteral("keyed"))
    {
        addColumn(QStringLiteral("k"), FieldType::Integer, 0, false);
        addColumn(QStringLiteral("hidden"), FieldType::Integer, 0, false);
    }

    Record row(int key)
    {
        Record r(this);
        setKey(r, key);
        return r;
    }
};

class KeyIndex : public IndexSort
{
public:
    explicit KeyIndex(Table *table, bool registered = false,
                      KeyPrefixKind kind = NoKeyPrefix)
        : IndexSort(table, registered), prefixKind(kind)
    {
    }

    using IndexSort::indexOfAdd;

    int compare(const Record &a, const Record &b) const override
    {
        compares.fetchAndAddRelaxed(1);
        const int x = keyOf(a);
        const int y = keyOf(b);
        return (x > y) - (x < y);
    }
    bool filter(const Record &r) const override
    {
        return keyOf(r) >= 0 && FieldType::getInt(r.data(1).data()) == 0;
    }
    // Exact: the key itself; partial: a quarter of it, so that prefixes tie.
    KeyPrefixKind keyPrefixKind() const override { return prefixKind; }
    quint64 keyPrefix(const Record &r) const override
    {
        if (prefixKind == PartialKeyPrefix)
            return quint64(keyOf(r) + 1000) / 4;
        return prefixOf(qint64(keyOf(r)));
    }

    // Places a row at the end, whatever its key.
    void appendUnsorted(const Record &r) { m_list.append(r); }

    std::vector<Record> rows() const { return std::vector<Record>(begin(), end()); }
    std::vector<int> keys() const
    {
        std::vector<int> out;
        for (auto it = begin(); it != end(); ++it)
            out.push_back(keyOf(*it));
        return out;
    }

    mutable QAtomicInt compares;
    const KeyPrefixKind prefixKind;
};

#endif // TABLEDB_TESTS_INDEX_KEYEDTABLE_H
