#include "table/rowallocator_p.h"

#include "runtime/tsan_p.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#if defined(TABLEDB_ROWS_POISONED)
#include <sanitizer/asan_interface.h>
#endif

// Sanitizer builds take slabs from the heap, which the leak checker scans (row
// cells hold strings) and the race checker tracks; the others map them.
#if defined(TABLEDB_ROWS_POISONED) || defined(TABLEDB_TSAN)
#define TABLEDB_ROWS_HEAP_SLABS 1
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {

#if defined(TABLEDB_ROWS_HEAP_SLABS)
const size_t kSlabBytes = size_t(64) << 10;
#else
// One transparent huge page.
const size_t kSlabBytes = size_t(2) << 20;
#endif
const size_t kPageBytes = 4096;

size_t roundUp(size_t value, size_t to)
{
    return (value + to - 1) / to * to;
}

#if defined(TABLEDB_ROWS_POISONED)
// Bytes behind each block that stay poisoned, so that an overrun lands there.
const size_t kRedzone = 16;

void poison(const void *p, size_t bytes)
{
    ASAN_POISON_MEMORY_REGION(p, bytes);
}

void unpoison(const void *p, size_t bytes)
{
    ASAN_UNPOISON_MEMORY_REGION(p, bytes);
}
#else
const size_t kRedzone = 0;
void poison(const void *, size_t) { }
void unpoison(const void *, size_t) { }
#endif

// The free list runs through the first word of each free block; in the
// sanitizer build that word is only opened for the allocator's own access.
unsigned char *nextFree(unsigned char *block)
{
    unpoison(block, sizeof(void *));
    unsigned char *next = *reinterpret_cast<unsigned char **>(block);
    poison(block, sizeof(void *));
    return next;
}

void setNextFree(unsigned char *block, unsigned char *next)
{
    unpoison(block, sizeof(void *));
    *reinterpret_cast<unsigned char **>(block) = next;
    poison(block, sizeof(void *));
}

void *mapSlab(size_t bytes)
{
#if defined(TABLEDB_ROWS_HEAP_SLABS)
    return std::aligned_alloc(kSlabBytes, roundUp(bytes, kSlabBytes));
#else
    // Map more than needed and trim to the alignment.
    const size_t span = bytes + kSlabBytes;
    void *raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED)
        return nullptr;
    const uintptr_t start = uintptr_t(raw);
    const uintptr_t aligned = (start + kSlabBytes - 1) & ~uintptr_t(kSlabBytes - 1);
    if (aligned > start)
        munmap(raw, aligned - start);
    const uintptr_t tail = aligned + bytes;
    if (start + span > tail)
        munmap(reinterpret_cast<void *>(tail), start + span - tail);
    return reinterpret_cast<void *>(aligned);
#endif
}

void unmapSlab(void *slab, size_t bytes)
{
#if defined(TABLEDB_ROWS_HEAP_SLABS)
    Q_UNUSED(bytes);
    std::free(slab);
#else
    munmap(slab, bytes);
#endif
}

} // namespace

// The allocator's lock, as ThreadSanitizer is to see it.
class RowAllocator::Locker
{
public:
    explicit Locker(QBasicMutex *mutex) : m_mutex(mutex)
    {
        m_mutex->lock();
        tsan::locked(m_mutex);
    }
    ~Locker()
    {
        tsan::unlocking(m_mutex);
        m_mutex->unlock();
    }
    Locker(const Locker &) = delete;
    Locker &operator=(const Locker &) = delete;

private:
    QBasicMutex *m_mutex;
};

struct RowAllocator::Slab
{
    RowAllocator *owner;
    Slab *prev; // in the owner's list of all slabs
    Slab *next;
    Slab *availablePrev; // in the owner's list of slabs with room
    Slab *availableNext;
    unsigned char *freeList; // released blocks
    unsigned char *bump; // the first block never handed out
    unsigned char *end; // behind the last block
    size_t stride;
    size_t mapBytes;
    size_t live; // handed out, quarantined ones included
    bool available;
    bool spare; // empty and counted in m_emptySlabs

    bool hasRoom() const { return freeList || bump < end; }
};

namespace {

const size_t kHeaderBytes = roundUp(sizeof(RowAllocator::Slab), 64);

RowAllocator::Slab *slabOf(unsigned char *block)
{
    return reinterpret_cast<RowAllocator::Slab *>(uintptr_t(block) & ~uintptr_t(kSlabBytes - 1));
}

} // namespace

RowAllocator::RowAllocator()
{
    tsan::lockCreated(&m_mutex);
}

RowAllocator::~RowAllocator()
{
    {
        Locker lock(&m_mutex);
#if defined(TABLEDB_ROWS_POISONED)
        for (unsigned char *&block : m_quarantine) {
            if (block)
                releaseLocked(slabOf(block), block);
            block = nullptr;
        }
#endif
        Slab *slab = m_slabs;
        while (slab) {
            Slab *next = slab->next;
            if (slab->live == 0)
                freeSlab(slab);
            else
                slab->owner = nullptr; // left to its rows; see the header
            slab = next;
        }
    }
    tsan::lockDestroyed(&m_mutex);
}

void RowAllocator::setBlockSize(size_t bytes)
{
    Locker lock(&m_mutex);
    m_blockSize = bytes;
    const size_t stride = roundUp(bytes + kRedzone, 8);
    if (stride == m_stride)
        return;
    m_stride = stride;
    // Slabs of the old size take no new blocks; the empty ones go now, the
    // others as their last block is released.
    Slab *slab = m_slabs;
    while (slab) {
        Slab *next = slab->next;
        if (slab->available)
            unlinkAvailable(slab);
        if (slab->live == 0)
            freeSlab(slab);
        slab = next;
    }
}

unsigned char *RowAllocator::allocate()
{
    Locker lock(&m_mutex);
    Slab *slab = m_available;
    if (!slab) {
        slab = newSlab();
        if (!slab)
            return nullptr;
    }
    unsigned char *block;
    if (slab->freeList) {
        block = slab->freeList;
        slab->freeList = nextFree(block);
        // Clones come in bursts: the next free block is likely wanted soon.
        __builtin_prefetch(slab->freeList, 1);
    } else {
        block = slab->bump;
        slab->bump += slab->stride;
    }
    if (!slab->hasRoom())
        unlinkAvailable(slab);
    if (slab->spare) {
        slab->spare = false;
        --m_emptySlabs;
    }
    ++slab->live;
    ++m_live;
    unpoison(block, m_blockSize);
    return block;
}

void RowAllocator::release(unsigned char *block)
{
    Slab *slab = slabOf(block);
    RowAllocator *owner = slab->owner;
    Locker lock(&owner->m_mutex);
    --owner->m_live;
#if defined(TABLEDB_ROWS_POISONED)
    // The block waits poisoned; the one it displaces goes back for reuse.
    poison(block, slab->stride);
    unsigned char *&place = owner->m_quarantine[owner->m_quarantineNext];
    owner->m_quarantineNext = (owner->m_quarantineNext + 1) % QuarantineBlocks;
    unsigned char *oldest = place;
    place = block;
    if (oldest)
        owner->releaseLocked(slabOf(oldest), oldest);
#else
    owner->releaseLocked(slab, block);
#endif
}

void RowAllocator::releaseLocked(Slab *slab, unsigned char *block)
{
    setNextFree(block, slab->freeList);
    slab->freeList = block;
    --slab->live;
    if (slab->stride != m_stride) {
        if (slab->live == 0)
            freeSlab(slab);
        return;
    }
    if (slab->live == 0) {
        // One empty slab is kept, against mapping and unmapping on every
        // transaction of a table whose row count swings around a slab
        // boundary; its pages still go back to the system.
        if (m_emptySlabs > 0) {
            freeSlab(slab);
            return;
        }
        resetSlab(slab);
        slab->spare = true;
        ++m_emptySlabs;
    }
    // Most recently freed first: its memory is likely still in cache.
    if (!slab->available)
        pushAvailable(slab);
}

void RowAllocator::resetSlab(Slab *slab)
{
    unsigned char *first = reinterpret_cast<unsigned char *>(slab) + kHeaderBytes;
    slab->freeList = nullptr;
    slab->bump = first;
#if !defined(TABLEDB_ROWS_HEAP_SLABS)
    // Pages after the header's; their blocks are all free.
    madvise(reinterpret_cast<unsigned char *>(slab) + kPageBytes, slab->mapBytes - kPageBytes,
            MADV_DONTNEED);
#endif
}

void RowAllocator::trim()
{
    Locker lock(&m_mutex);
    std::vector<unsigned char *> blocks;
    for (Slab *slab = m_slabs; slab; slab = slab->next) {
        blocks.clear();
        for (unsigned char *block = slab->freeList; block; block = nextFree(block))
            blocks.push_back(block);
        std::sort(blocks.begin(), blocks.end());
        // The free blocks that end at the untouched part join it.
        size_t kept = blocks.size();
        while (kept > 0 && blocks[kept - 1] + slab->stride == slab->bump) {
            slab->bump -= slab->stride;
            --kept;
        }
        if (kept == blocks.size())
            continue;
        // The rest in address order, which later fills like fresh memory.
        slab->freeList = nullptr;
        for (size_t i = kept; i-- > 0;) {
            setNextFree(blocks[i], slab->freeList);
            slab->freeList = blocks[i];
        }
#if !defined(TABLEDB_ROWS_HEAP_SLABS)
        const uintptr_t from = roundUp(uintptr_t(slab->bump), kPageBytes);
        const uintptr_t to = uintptr_t(slab) + slab->mapBytes;
        if (from < to)
            madvise(reinterpret_cast<void *>(from), to - from, MADV_DONTNEED);
#endif
    }
}

RowAllocator::Slab *RowAllocator::newSlab()
{
    const size_t blocks = (kSlabBytes - kHeaderBytes) / m_stride;
    // A block larger than a slab gets a mapping of its own; its start still
    // lies within the first kSlabBytes, which is all that slabOf() needs.
    const size_t mapBytes = blocks > 0 ? kSlabBytes : roundUp(kHeaderBytes + m_stride, kPageBytes);
    void *memory = mapSlab(mapBytes);
    if (!memory)
        return nullptr;
#if !defined(TABLEDB_ROWS_HEAP_SLABS)
    // A table that needs another slab is large: fewer TLB misses on its rows
    // are worth huge pages, taken as the slab's memory is first touched.
    if (m_slabCount > 0 && mapBytes == kSlabBytes)
        madvise(memory, mapBytes, MADV_HUGEPAGE);
#endif
    auto *slab = new (memory) Slab;
    slab->owner = this;
    slab->prev = nullptr;
    slab->next = m_slabs;
    if (m_slabs)
        m_slabs->prev = slab;
    m_slabs = slab;
    slab->availablePrev = slab->availableNext = nullptr;
    slab->available = false;
    slab->spare = false;
    slab->freeList = nullptr;
    slab->stride = m_stride;
    slab->mapBytes = mapBytes;
    slab->live = 0;
    slab->bump = static_cast<unsigned char *>(memory) + kHeaderBytes;
    slab->end = slab->bump + (blocks > 0 ? blocks : 1) * m_stride;
    poison(slab->bump, mapBytes - kHeaderBytes);
    ++m_slabCount;
    m_reserved += mapBytes;
    pushAvailable(slab);
    return slab;
}

void RowAllocator::freeSlab(Slab *slab)
{
    if (slab->available)
        unlinkAvailable(slab);
    if (slab->spare)
        --m_emptySlabs;
    if (slab->prev)
        slab->prev->next = slab->next;
    else
        m_slabs = slab->next;
    if (slab->next)
        slab->next->prev = slab->prev;
    --m_slabCount;
    m_reserved -= slab->mapBytes;
    const size_t bytes = slab->mapBytes;
    unpoison(slab, bytes);
    slab->~Slab();
    unmapSlab(slab, bytes);
}

void RowAllocator::unlinkAvailable(Slab *slab)
{
    if (slab->availablePrev)
        slab->availablePrev->availableNext = slab->availableNext;
    else
        m_available = slab->availableNext;
    if (slab->availableNext)
        slab->availableNext->availablePrev = slab->availablePrev;
    slab->availablePrev = slab->availableNext = nullptr;
    slab->available = false;
}

void RowAllocator::pushAvailable(Slab *slab)
{
    slab->availablePrev = nullptr;
    slab->availableNext = m_available;
    if (m_available)
        m_available->availablePrev = slab;
    m_available = slab;
    slab->available = true;
}

size_t RowAllocator::reservedBytes() const
{
    Locker lock(&m_mutex);
    return m_reserved;
}

size_t RowAllocator::liveBlocks() const
{
    Locker lock(&m_mutex);
    return m_live;
}
