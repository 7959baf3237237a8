#include "join/joinrowfinder_p.h"

#include "index/masterindex_column.h"
#include "index/masterindex_fast.h"
#include "join/recordsranges.h"
#include "table/table.h"

#include <typeinfo>

bool JoinRowFinder::findsBySearch(const MasterIndex *master)
{
    const std::type_info &type = typeid(*master);
    if (type == typeid(MasterIndex_Fast) || type == typeid(MasterIndex_Fast_Pure)
        || type == typeid(MasterPtrIndex) || type == typeid(MasterIndexOrdered))
        return true;
    if (type != typeid(MasterIndex_Column) && type != typeid(MasterIndex_Column_Pure))
        return false;
    const Table *table = master->table();
    for (int column : master->columns()) {
        if (column < 0 || column >= table->columnCount()
            || table->columnType(column) == FieldType::Double)
            return false;
    }
    return true;
}

namespace {

size_t hashOf(const unsigned char *row)
{
    quint64 h = quint64(quintptr(row)) * 0x9e3779b97f4a7c15ULL;
    return size_t(h ^ (h >> 29));
}

} // namespace

JoinRowFinder::JoinRowFinder(const MasterIndex *master)
    : m_master(master), m_eligible(master && master->table() && findsBySearch(master))
{
}

void JoinRowFinder::expectRecords(const RecordsRanges &ranges)
{
    if (!m_eligible)
        return;
    for (const Record &row : ranges.records)
        m_expected.push_back(row.rowPtr());
}

void JoinRowFinder::expectPositions(const RecordsRanges &ranges, const IndexSort *index)
{
    if (!m_eligible)
        return;
    const auto rows = index->begin();
    for (const RangeSet<int> &set : ranges.ranges) {
        for (int r = 0; r < set.rangeCount(); ++r) {
            auto row = rows + set.rangeBegin(r);
            for (int p = set.rangeBegin(r); p < set.rangeEnd(r); ++p, ++row)
                m_expected.push_back(row->rowPtr());
        }
    }
}

void JoinRowFinder::prepare()
{
    // A search is some log2(n) compares, the walk a step and a probe per row.
    const size_t rows = size_t(m_master ? m_master->count() : 0);
    if (!m_eligible || m_expected.empty() || m_expected.size() * 16 < rows) {
        m_expected.clear();
        return;
    }
    size_t capacity = 16;
    while (capacity < 2 * m_expected.size())
        capacity *= 2;
    m_slots.assign(capacity, Slot { nullptr, false });
    for (const unsigned char *row : m_expected) {
        if (Slot *slot = slotOf(row))
            slot->row = row;
    }
    m_expected.clear();
    m_expected.shrink_to_fit();
    const Record *previous = nullptr;
    for (auto it = m_master->begin(), end = m_master->end(); it != end; ++it) {
        const Record &row = *it;
        Slot *slot = slotOf(row.rowPtr());
        if (slot && slot->row)
            slot->first = !previous || m_master->compare(*previous, row) != 0;
        previous = &row;
    }
    m_walked = true;
}

JoinRowFinder::Slot *JoinRowFinder::slotOf(const unsigned char *row)
{
    return const_cast<Slot *>(static_cast<const JoinRowFinder *>(this)->slotOf(row));
}

// The slot of `row`, or the free slot where it would go.
const JoinRowFinder::Slot *JoinRowFinder::slotOf(const unsigned char *row) const
{
    if (m_slots.empty())
        return nullptr;
    const size_t mask = m_slots.size() - 1;
    for (size_t i = hashOf(row) & mask;; i = (i + 1) & mask) {
        const Slot &slot = m_slots[i];
        if (!slot.row || slot.row == row)
            return &slot;
    }
}

Record JoinRowFinder::find(const Record &row) const
{
    if (m_walked) {
        const Slot *slot = slotOf(row.rowPtr());
        if (slot && slot->row && slot->first)
            return row;
    }
    return m_master->find(row, -1);
}
