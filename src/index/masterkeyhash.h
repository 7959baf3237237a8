#ifndef TABLEDB_INDEX_MASTERKEYHASH_H
#define TABLEDB_INDEX_MASTERKEYHASH_H

#include "table/record.h"

#include <QVector>
#include <QtEndian>

#include <cstring>

// The rows of a Fast key master by their key bytes, read where they sit in
// each row: an O(1) lookup beside the sorted list. Open addressing with linear
// probing; a removal shifts the rest of its cluster back instead of leaving a
// tombstone, so a table that keeps removing and inserting rows never has to
// be rehashed whole. It holds no reference: the owner keeps it to the rows of
// its list, and rebuilds it when it finds an entry gone stale (a key written in
// place) or a row it cannot take out.
//
// A key met twice makes it give up: find() could not answer for the list, so
// its table is freed and it keeps nothing (taking and holding every row) until
// the next clear() or rebuild(). An index whose keys repeat pays neither the
// memory nor the probes along runs of equal keys.
//
// Each slot keeps its row's hash beside the row: a probe reads a row only when
// the hashes agree, and neither a removal nor a rehash reads rows at all.
//
// Not thread-safe for writers; several readers may find() at once.
class MasterKeyHash
{
public:
    MasterKeyHash(int keyOffset, int keySize) : m_offset(keyOffset), m_size(keySize) { }

    void clear();
    // Whether find() answers for the list: false once a key was seen twice,
    // since the list's first row of a key is then not known here.
    bool isExact() const { return !m_givenUp; }
    int count() const { return m_count; }

    void insert(const Record &row);
    // Room for `count` entries in all, so that inserting up to there does
    // not rehash. Nothing once it has given up.
    void reserve(int count);
    // Takes the entry of `row` out, found under its present key. False if it
    // is not there (its key changed since it went in, or it never did).
    bool remove(const Record &row);
    // The row whose key bytes equal `key` (m_size bytes), or null. Allocates nothing.
    unsigned char *find(const char *key) const;
    // Starts loading the slot where find(key) begins, for a find soon after.
    void prefetch(const char *key) const
    {
        if (!m_slots.isEmpty())
            __builtin_prefetch(m_slots.constData() + (int(hashOf(key)) & (m_slots.size() - 1)));
    }
    // Whether `row` is entered under its present key.
    bool holds(const Record &row) const;

    // Empties and enters each row of [begin, end).
    template <typename Iterator>
    void rebuild(Iterator begin, Iterator end, int count)
    {
        clear();
        reserve(count);
        for (Iterator it = begin; it != end && !m_givenUp; ++it)
            insert(*it);
    }
    // rebuild() for rows in the order of their present key bytes, with
    // prefix(it) their first eight key bytes read as a big-endian number:
    // equal keys are neighbours, so no entry is compared with another, and an
    // eight-byte key is hashed from its prefix without reading the row.
    template <typename Iterator, typename Prefix>
    void rebuildSorted(Iterator begin, Iterator end, int count, Prefix prefix)
    {
        clear();
        reserve(count);
        // Slots are far apart in a large table: each row's slot is fetched
        // some rows ahead of its placing, so that the misses overlap.
        const int ahead = 16;
        struct Pending
        {
            unsigned hash;
            unsigned char *row;
        } pending[ahead];
        int queued = 0;
        const int mask = m_slots.size() - 1;
        const unsigned char *previous = nullptr;
        quint64 previousPrefix = 0;
        for (Iterator it = begin; it != end; ++it) {
            unsigned char *row = const_cast<unsigned char *>(it->rowPtr());
            const quint64 p = prefix(it);
            if (previous && p == previousPrefix
                && (m_size == 8 || std::memcmp(keyOf(previous), keyOf(row), size_t(m_size)) == 0)) {
                giveUp();
                return;
            }
            previous = row;
            previousPrefix = p;
            const unsigned hash = m_size == 8 ? hashOfWord(qbswap(p)) : hashOf(keyOf(row));
            __builtin_prefetch(m_slots.constData() + (int(hash) & mask));
            Pending &slot = pending[queued % ahead];
            if (queued >= ahead)
                placeNew(slot.hash, slot.row);
            slot = { hash, row };
            ++queued;
        }
        // The last ones, in the order they came.
        for (int i = qMax(0, queued - ahead); i < queued; ++i)
            placeNew(pending[i % ahead].hash, pending[i % ahead].row);
    }

private:
    const char *keyOf(const unsigned char *row) const
    {
        return reinterpret_cast<const char *>(row + m_offset);
    }
    unsigned hashOf(const char *key) const
    {
        if (m_size != 8)
            return hashOfBytes(key);
        quint64 word;
        std::memcpy(&word, key, sizeof word);
        return hashOfWord(word);
    }
    unsigned hashOfBytes(const char *key) const;
    // hashOf() of an eight-byte key, given as its little-endian word.
    static unsigned hashOfWord(quint64 word)
    {
        quint64 h = (0x9e3779b97f4a7c15ULL ^ word) * 0xff51afd7ed558ccdULL;
        return unsigned(h ^ (h >> 32));
    }
    // The slot that holds `key`, or else the empty slot that ends its probe.
    // REQUIRES: a table with an empty slot.
    int probe(const char *key, unsigned hash) const;
    // False, storing nothing, when an equal key is there. REQUIRES: a free slot.
    bool place(unsigned char *row, unsigned hash);
    // place() of a row whose key is known to be new here. REQUIRES: a free slot.
    void placeNew(unsigned hash, unsigned char *row)
    {
        const int mask = m_slots.size() - 1;
        int slot = int(hash) & mask;
        Slot *table = m_slots.data();
        while (table[slot].row)
            slot = (slot + 1) & mask;
        table[slot] = { row, hash };
        ++m_count;
    }
    // Empties `slot` and moves later entries of its cluster back where that
    // keeps each reachable from its home slot.
    void erase(int slot);
    void giveUp();

    int m_offset;
    int m_size;
    int m_count = 0;
    bool m_givenUp = false; // keys repeat: nothing is kept
    // A row with its hash, side by side, so that a probe costs one cache line.
    struct Slot
    {
        unsigned char *row; // null: empty
        unsigned hash; // hashOf() of the row's key
    };
    QVector<Slot> m_slots;
};

#endif // TABLEDB_INDEX_MASTERKEYHASH_H
