#include "join/joinrowfinder_p.h"

#include "index/masterindex_column.h"
#include "index/masterindex_fast.h"
#include "join/recordsranges.h"
#include "table/table.h"

#include <algorithm>
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

JoinRowFinder::JoinRowFinder(const MasterIndex *master)
    : m_master(master),
      m_fast(dynamic_cast<const MasterIndex_Fast *>(master)),
      m_eligible(master && master->table() && findsBySearch(master))
{
    if (m_eligible)
        m_form = MasterKeyForm::of(master, master->table());
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
    // A search is some log2(n) compares, the walk a step and a look at a mark
    // per row of the table.
    const size_t rows = size_t(m_master ? m_master->count() : 0);
    if (!m_eligible || m_expected.empty() || m_expected.size() * 16 < rows) {
        m_expected.clear();
        return;
    }
    // Marks by address, in bitmaps of 16-byte steps over the rows' span:
    // rows of one table mostly lie together. Spread thinner than a step in
    // 64, they are searched for.
    const auto span = std::minmax_element(m_expected.begin(), m_expected.end());
    const size_t steps = size_t(*span.second - *span.first) / 16 + 1;
    if (steps > 64 * m_expected.size()) {
        m_expected.clear();
        return;
    }
    m_low = *span.first;
    m_expectedBits.assign((steps + 63) / 64, 0);
    m_firstBits.assign((steps + 63) / 64, 0);
    for (const unsigned char *row : m_expected)
        mark(m_expectedBits, row);
    m_expected.clear();
    m_expected.shrink_to_fit();

    const Record *previous = nullptr;
    for (auto it = m_master->begin(), end = m_master->end(); it != end; ++it) {
        const Record &row = *it;
        if (isMarked(m_expectedBits, row.rowPtr())) {
            const bool first = !previous
                || (m_form.isHashed() ? !m_form.sameKey(previous->rowPtr(), row.rowPtr())
                                      : m_master->compare(*previous, row) != 0);
            if (first)
                mark(m_firstBits, row.rowPtr());
        }
        previous = &row;
    }
    m_walked = true;
}

void JoinRowFinder::mark(std::vector<quint64> &bits, const unsigned char *row) const
{
    const size_t step = size_t(row - m_low) / 16;
    bits[step / 64] |= quint64(1) << (step % 64);
}

bool JoinRowFinder::isMarked(const std::vector<quint64> &bits, const unsigned char *row) const
{
    if (row < m_low)
        return false;
    const size_t step = size_t(row - m_low) / 16;
    return step / 64 < bits.size() && (bits[step / 64] >> (step % 64) & 1) != 0;
}

bool JoinRowFinder::isFirst(const Record &row) const
{
    return m_walked && isMarked(m_firstBits, row.rowPtr());
}

Record JoinRowFinder::find(const Record &row) const
{
    return isFirst(row) ? row : m_master->find(row, -1);
}
