#ifndef TABLEDB_TABLE_ROWALLOCATOR_P_H
#define TABLEDB_TABLE_ROWALLOCATOR_P_H

#include "runtime/global.h"

#include <QMutex>

#include <cstddef>

// Under AddressSanitizer free blocks are poisoned and quarantined.
#if defined(__SANITIZE_ADDRESS__)
#define TABLEDB_ROWS_POISONED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TABLEDB_ROWS_POISONED 1
#endif
#endif

// Fixed-size row blocks for one table, carved from slabs of many blocks.
//
// A slab is a run of memory aligned to its nominal size, with its header at
// the start, so that a block finds its slab (and the allocator) by masking its
// address: release() needs nothing but the block. Blocks are 8-aligned. A
// table keeps one allocator; when its row size changes, later blocks come in
// the new size while blocks of the old size stay valid until released.
//
// Memory: freed blocks go back to their slab's free list and are reused by the
// table; a slab whose last block is released goes back to the system, except
// one empty spare (whose pages are returned all the same), so that a table
// whose row count swings around a slab boundary does not map and unmap on
// every transaction.
// A table's slabs after its first take transparent huge pages as they are
// touched: random reads of a large table's rows cost about a tenth less, and
// filling it takes fewer page faults. (Collapsing full slabs afterwards, so
// that the slab being filled stays on small pages, made loads far slower.)
//
// Threads: allocate() and release() may be called on any thread at once; one
// short lock per allocator orders them. The last release of a row may happen
// on a pool thread.
//
// Sanitizer builds take smaller slabs from the heap, where the leak checker
// scans them and the race checker follows them. Under AddressSanitizer free
// blocks and at least 16 bytes behind each block are poisoned, and a freed
// block waits in a short quarantine before it is reused, so that overruns and
// uses after free of rows are still reported.
class TABLEDB_EXPORT RowAllocator
{
public:
    RowAllocator();
    // Slabs that still hold live blocks are left alone: those rows are
    // counted somewhere and would be released through a dead table anyway.
    ~RowAllocator();

    // Later blocks hold `bytes`; blocks handed out before keep their size.
    void setBlockSize(size_t bytes);
    size_t blockSize() const { return m_blockSize; }

    // An uninitialised block of blockSize() bytes, 8-aligned; null when no
    // memory could be had. Never throws.
    unsigned char *allocate();
    // Gives a block of any allocator back. REQUIRES: it came from allocate()
    // and is released once.
    static void release(unsigned char *block);

    // Gives back the pages behind the last block in use of each slab, which
    // a burst of short-lived blocks (the clones of a bulk transaction) left
    // touched. Costs a sort of each slab's free blocks: for after large work.
    void trim();

    // Bytes taken from the system and blocks handed out, for statistics.
    // Blocks in quarantine are not live but keep their slabs.
    size_t reservedBytes() const;
    size_t liveBlocks() const;

#if defined(TABLEDB_ROWS_POISONED)
    static const int QuarantineBlocks = 64;
#else
    static const int QuarantineBlocks = 0;
#endif

    RowAllocator(const RowAllocator &) = delete;
    RowAllocator &operator=(const RowAllocator &) = delete;

    struct Slab;

private:
    Slab *newSlab();
    void releaseLocked(Slab *slab, unsigned char *block);
    void freeSlab(Slab *slab);
    void resetSlab(Slab *slab); // empty: back to unused blocks, pages returned
    void unlinkAvailable(Slab *slab);
    void pushAvailable(Slab *slab);

    class Locker;
    // Its fast paths are inline: a locked exchange each way.
    mutable QBasicMutex m_mutex;
    size_t m_blockSize = 0; // what callers asked for
    size_t m_stride = 0; // bytes from one block to the next
    Slab *m_slabs = nullptr; // every slab, linked through `next`/`prev`
    Slab *m_available = nullptr; // slabs of the present stride with room
    size_t m_slabCount = 0;
    size_t m_emptySlabs = 0; // kept empty: at most one
    size_t m_reserved = 0;
    size_t m_live = 0; // handed out and not released
#if defined(TABLEDB_ROWS_POISONED)
    unsigned char *m_quarantine[QuarantineBlocks] = {};
    int m_quarantineNext = 0;
#endif
};

#endif // TABLEDB_TABLE_ROWALLOCATOR_P_H
