#ifndef TABLEDB_INDEX_MASTERKEYHASH_H
#define TABLEDB_INDEX_MASTERKEYHASH_H

#include "table/record.h"

#include <QVector>

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
// Not thread-safe for writers; several readers may find() at once.
class MasterKeyHash
{
public:
    MasterKeyHash(int keyOffset, int keySize) : m_offset(keyOffset), m_size(keySize) { }

    void clear();
    // Whether find() answers for the list: false once a key was seen twice,
    // since the list's first row of a key is then not known here.
    bool isExact() const { return m_duplicates == 0 && !m_givenUp; }
    int count() const { return m_count; }

    void insert(const Record &row);
    // Takes the entry of `row` out, found under its present key. False if it
    // is not there (its key changed since it went in, or it never did).
    bool remove(const Record &row);
    // The row whose key bytes equal `key` (m_size bytes), or null. Allocates nothing.
    unsigned char *find(const char *key) const;
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

private:
    const char *keyOf(const unsigned char *row) const
    {
        return reinterpret_cast<const char *>(row + m_offset);
    }
    unsigned hashOf(const char *key) const;
    void reserve(int count);
    void place(unsigned char *row); // REQUIRES: a free slot
    // Empties `slot` and moves later entries of its cluster back where that
    // keeps each reachable from its home slot.
    void erase(int slot);
    void giveUp();

    int m_offset;
    int m_size;
    int m_count = 0;
    int m_duplicates = 0; // insertions that met an equal key
    bool m_givenUp = false; // keys repeat: nothing is kept
    QVector<unsigned char *> m_rows; // null: empty
};

#endif // TABLEDB_INDEX_MASTERKEYHASH_H
