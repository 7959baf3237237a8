#include "index/masterkeyhash.h"

#include <cstring>

void MasterKeyHash::clear()
{
    m_slots.clear();
    m_count = 0;
    m_givenUp = false;
}

void MasterKeyHash::giveUp()
{
    m_slots = QVector<Slot>();
    m_count = 0;
    m_givenUp = true;
}

unsigned MasterKeyHash::hashOfBytes(const char *key) const
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
    // Up to four fifths full: a probe compares the hashes beside the rows,
    // four to a cache line, and reads a row only where they agree.
    const auto roomFor = [count](qint64 capacity) { return 4 * capacity >= 5 * qint64(count) + 4; };
    if (m_givenUp || roomFor(m_slots.size()))
        return;
    int capacity = 16;
    while (!roomFor(capacity))
        capacity *= 2;
    QVector<Slot> old(capacity, Slot { nullptr, 0 });
    old.swap(m_slots);
    m_count = 0;
    // Every key is known to differ from the others already here.
    for (const Slot &slot : qAsConst(old)) {
        if (slot.row)
            placeNew(slot.hash, slot.row);
    }
}

void MasterKeyHash::insert(const Record &row)
{
    if (m_givenUp)
        return;
    reserve(m_count + 1);
    unsigned char *p = const_cast<unsigned char *>(row.rowPtr());
    if (!place(p, hashOf(keyOf(p))))
        giveUp();
}

int MasterKeyHash::probe(const char *key, unsigned hash) const
{
    const int mask = m_slots.size() - 1;
    for (int slot = int(hash) & mask;; slot = (slot + 1) & mask) {
        const Slot &at = m_slots.at(slot);
        if (!at.row || (at.hash == hash && std::memcmp(keyOf(at.row), key, size_t(m_size)) == 0))
            return slot;
    }
}

bool MasterKeyHash::place(unsigned char *row, unsigned hash)
{
    const int slot = probe(keyOf(row), hash);
    if (m_slots.at(slot).row)
        return false;
    m_slots[slot] = { row, hash };
    ++m_count;
    return true;
}

void MasterKeyHash::erase(int slot)
{
    const int mask = m_slots.size() - 1;
    int hole = slot;
    for (int next = (slot + 1) & mask;; next = (next + 1) & mask) {
        const Slot at = m_slots.at(next);
        if (!at.row)
            break;
        // An entry may fill the hole unless its home lies after the hole, up
        // to where it stands (cyclically).
        const int home = int(at.hash) & mask;
        const bool homeAfterHole =
                hole <= next ? (home > hole && home <= next) : (home > hole || home <= next);
        if (!homeAfterHole) {
            m_slots[hole] = at;
            hole = next;
        }
    }
    m_slots[hole] = { nullptr, 0 };
    --m_count;
}

bool MasterKeyHash::remove(const Record &row)
{
    if (m_givenUp)
        return true;
    if (m_slots.isEmpty() || row.isNull())
        return false;
    const int mask = m_slots.size() - 1;
    for (int slot = int(hashOf(keyOf(row.rowPtr()))) & mask;; slot = (slot + 1) & mask) {
        const unsigned char *at = m_slots.at(slot).row;
        if (!at)
            return false;
        if (at == row.rowPtr()) {
            erase(slot);
            return true;
        }
    }
}

unsigned char *MasterKeyHash::find(const char *key) const
{
    if (m_slots.isEmpty())
        return nullptr;
    return m_slots.at(probe(key, hashOf(key))).row;
}

bool MasterKeyHash::holds(const Record &row) const
{
    if (m_givenUp)
        return true;
    return !row.isNull() && find(keyOf(row.rowPtr())) == row.rowPtr();
}
