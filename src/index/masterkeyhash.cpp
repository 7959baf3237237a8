#include "index/masterkeyhash.h"

#include <cstring>

void MasterKeyHash::clear()
{
    m_rows.clear();
    m_count = 0;
    m_used = 0;
    m_duplicates = 0;
    m_givenUp = false;
}

void MasterKeyHash::giveUp()
{
    // The counts are left to the next clear().
    m_rows = QVector<unsigned char *>();
    m_givenUp = true;
}

unsigned MasterKeyHash::hashOf(const char *key) const
{
    quint64 h = 0x9e3779b97f4a7c15ULL;
    for (int i = 0; i < m_size; i += 8) {
        quint64 word = 0;
        std::memcpy(&word, key + i, size_t(qMin(8, m_size - i)));
        h = (h ^ word) * 0xff51afd7ed558ccdULL;
        h ^= h >> 32;
    }
    return unsigned(h);
}

void MasterKeyHash::reserve(int count)
{
    // Below half full, tombstones counted, so that probes stay short.
    if (2 * (m_used + 1) <= m_rows.size() && 2 * count + 2 <= m_rows.size())
        return;
    int capacity = 16;
    while (capacity < 2 * count + 2)
        capacity *= 2;
    QVector<unsigned char *> rows(capacity, nullptr);
    rows.swap(m_rows);
    m_count = 0;
    m_used = 0;
    m_duplicates = 0;
    for (unsigned char *row : qAsConst(rows)) {
        if (row && row != deleted())
            place(row);
    }
}

void MasterKeyHash::insert(const Record &row)
{
    if (m_givenUp)
        return;
    reserve(m_count + 1);
    place(const_cast<unsigned char *>(row.rowPtr()));
    if (m_duplicates > 0)
        giveUp();
}

void MasterKeyHash::place(unsigned char *row)
{
    const char *key = keyOf(row);
    const int mask = m_rows.size() - 1;
    int slot = int(hashOf(key)) & mask;
    int free = -1;
    for (;; slot = (slot + 1) & mask) {
        unsigned char *at = m_rows.at(slot);
        if (!at)
            break;
        if (at == deleted()) {
            if (free < 0)
                free = slot;
        } else if (std::memcmp(keyOf(at), key, size_t(m_size)) == 0) {
            ++m_duplicates;
        }
    }
    if (free < 0) {
        free = slot;
        ++m_used;
    }
    m_rows[free] = row;
    ++m_count;
}

bool MasterKeyHash::remove(const Record &row)
{
    if (m_givenUp)
        return true;
    if (m_rows.isEmpty() || row.isNull())
        return false;
    const int mask = m_rows.size() - 1;
    for (int slot = int(hashOf(keyOf(row.rowPtr()))) & mask;; slot = (slot + 1) & mask) {
        unsigned char *at = m_rows.at(slot);
        if (!at)
            return false;
        if (at == row.rowPtr()) {
            m_rows[slot] = deleted();
            --m_count;
            return true;
        }
    }
}

unsigned char *MasterKeyHash::find(const char *key) const
{
    if (m_rows.isEmpty())
        return nullptr;
    const int mask = m_rows.size() - 1;
    for (int slot = int(hashOf(key)) & mask;; slot = (slot + 1) & mask) {
        unsigned char *at = m_rows.at(slot);
        if (!at)
            return nullptr;
        if (at != deleted() && std::memcmp(keyOf(at), key, size_t(m_size)) == 0)
            return at;
    }
}

bool MasterKeyHash::holds(const Record &row) const
{
    if (m_givenUp)
        return true;
    return !row.isNull() && find(keyOf(row.rowPtr())) == row.rowPtr();
}
