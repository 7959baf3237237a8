#include "index/masterindex_fast.h"

#include "index/masterindex_column.h"
#include "index/masterindexfactory_p.h"
#include "index/masterkeyhash.h"

template class MasterIndexKey<MasterIndex_Fast_Pure>;

namespace {

// A counted Record of a row that the list holds.
struct RowRecord : Record
{
    explicit RowRecord(unsigned char *row) : Record(row) { }
};

} // namespace

MasterIndex_Fast::MasterIndex_Fast(Table *table, const QStringList &columns)
    : MasterIndexKey<MasterIndex_Fast_Pure>(table, columns),
      m_keys(new MasterKeyHash(int(keyOffset()), int(keySize())))
{
}

MasterIndex_Fast::MasterIndex_Fast(Table *table, const QList<int> &columns)
    : MasterIndexKey<MasterIndex_Fast_Pure>(table, columns),
      m_keys(new MasterKeyHash(int(keyOffset()), int(keySize())))
{
}

MasterIndex_Fast::~MasterIndex_Fast() = default;

void MasterIndex_Fast::rehash()
{
    m_keys->rebuild(begin(), end(), count());
}

Record MasterIndex_Fast::findKey(const MasterKey &key, int from) const
{
    return findKeyBytes(key.constData(), key.size(), from);
}

Record MasterIndex_Fast::findKeyBytes(const char *key, int size, int from) const
{
    if (from == -1 && size == int(keySize()) && m_keys->isExact()) {
        unsigned char *row = m_keys->find(key);
        return row ? Record(RowRecord(row)) : Record();
    }
    return MasterIndexKey<MasterIndex_Fast_Pure>::findKey(MasterKey(key, size), from);
}

void MasterIndex_Fast::prefetchFind(const Record &record) const
{
    if (!record.isNull() && m_keys->isExact())
        m_keys->prefetch(reinterpret_cast<const char *>(record.rowPtr()) + keyOffset());
}

void MasterIndex_Fast::add(const Record &record)
{
    MasterIndexKey<MasterIndex_Fast_Pure>::add(record);
    m_keys->insert(record);
}

void MasterIndex_Fast::clear()
{
    MasterIndexKey<MasterIndex_Fast_Pure>::clear();
    m_keys->clear();
}

void MasterIndex_Fast::remove(const Record &record, int index)
{
    MasterIndexKey<MasterIndex_Fast_Pure>::remove(record, index);
    if (!m_keys->remove(record))
        rehash(); // its key changed in place, or it was never here
}

void MasterIndex_Fast::removeRanges(const RangeSet<int> &ranges)
{
    bool stale = false;
    const int n = count();
    for (int i = 0; i < ranges.rangeCount(); ++i) {
        const int b = qBound(0, ranges.rangeBegin(i), n);
        const int e = qBound(0, ranges.rangeEnd(i), n);
        auto it = begin() + b;
        for (int p = b; p < e; ++p, ++it)
            stale = !m_keys->remove(*it) || stale;
    }
    MasterIndexKey<MasterIndex_Fast_Pure>::removeRanges(ranges);
    if (stale)
        rehash();
}

void MasterIndex_Fast::update(const Record &record, int first, int last, int index)
{
    MasterIndexKey<MasterIndex_Fast_Pure>::update(record, first, last, index);
    if (!m_keys->holds(record))
        rehash();
}

void MasterIndex_Fast::process(const QList<Record> &removed, const QList<Record> &updated,
                               int first, int last, const QList<Record> &inserted)
{
    if (count() == 0 && removed.isEmpty() && updated.isEmpty()
        && keyPrefixKind() != NoKeyPrefix) {
        fill(inserted);
        return;
    }
    bool stale = false;
    for (const Record &row : removed)
        stale = !m_keys->remove(row) || stale;
    // The hash holds no reference, so a row that leaves by its filter must
    // leave it too; a key written in place shows as a row not held.
    const bool keysKept = unaffectedBy(first, last);
    for (const Record &row : updated) {
        if (!filter(row))
            stale = !m_keys->remove(row) || stale;
        else if (!keysKept)
            stale = !m_keys->holds(row) || stale;
    }
    MasterIndexKey<MasterIndex_Fast_Pure>::process(removed, updated, first, last, inserted);
    if (stale) {
        rehash(); // the new rows with the rest
        return;
    }
    m_keys->reserve(m_keys->count() + inserted.size());
    for (const Record &row : inserted) {
        if (filter(row))
            m_keys->insert(row);
    }
}

void MasterIndex_Fast::fill(const QList<Record> &inserted)
{
    timer.restart();
    fitKeyPrefix(inserted);
    // Where IndexSort::process would place them (a stable sort by key), but
    // each row is counted in the order it came, which is the order of memory
    // for a table being read, and then moved, not copied, into key order.
    for (const Record &row : inserted) {
        if (filter(row))
            m_list.append(row);
    }
    sortFilled();
    m_nsecsElapsed += timer.nsecsElapsed();
    // A second reading on purpose, as in Index::process.
    m_nsecsElapsedTotal += timer.nsecsElapsed();
}

void MasterIndex_Fast::sortFilled()
{
    IndexSort::resort();
    // Every prefix in the list is that of the row's present key bytes.
    m_keys->rebuildSorted(begin(), end(), count(), [](PartitionList<Record>::const_iterator it) {
        return PartitionList<Record>::key(it);
    });
}

MasterIndex_Fast::Filler::Filler(MasterIndex_Fast *index) : m_index(index)
{
    // With nothing in it a batch only starts the index's key prefixes, so
    // that each row's prefix is taken as it comes.
    m_index->IndexSort::preprocess({}, {}, -1, -1, {}, {});
}

MasterIndex_Fast::Filler::~Filler()
{
    finish();
}

void MasterIndex_Fast::Filler::append(Record &&row)
{
    if (m_index->filter(row))
        m_index->m_list.append(std::move(row));
}

void MasterIndex_Fast::Filler::keepFirst(int n)
{
    const int count = m_index->count();
    if (n >= count)
        return;
    RangeSet<int> tail;
    tail.add(n, count);
    m_index->m_list.removeRanges(tail);
}

void MasterIndex_Fast::Filler::finish()
{
    if (m_done)
        return;
    m_done = true;
    m_index->timer.restart();
    m_index->sortFilled();
    m_index->m_nsecsElapsed += m_index->timer.nsecsElapsed();
    m_nsecsElapsedTotal += m_index->timer.nsecsElapsed();
}

QString MasterIndex_Fast::getClassName() const
{
    return QStringLiteral("MasterIndex_Fast");
}

MasterIndex *MasterIndex_Fast::create(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::create<MasterIndex_Fast, MasterIndex_Column>(
        table, columns, "MasterIndex_Fast : Cannot create optimized MasterIndex for '%1': ");
}

MasterIndex *MasterIndex_Fast::createMasterIndex(Table *table, const QStringList &columns)
{
    return MasterIndexFactory::install(table, create(table, columns));
}

MasterIndex *MasterIndex_Fast::createIndex(const QString &name, Table *table,
                                           const QStringList &columns)
{
    return MasterIndexFactory::addNamed(name, table, create(table, columns));
}
