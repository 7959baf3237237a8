#ifndef TABLEDB_BENCH_ALLOCCOUNTER_H
#define TABLEDB_BENCH_ALLOCCOUNTER_H

// Counts every heap allocation of the process, Qt's and the library's
// included, by interposing glibc's malloc family. Include it in exactly one
// translation unit of a benchmark program.

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *p, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
}

namespace alloccounter {

inline std::atomic<long> &counter()
{
    static std::atomic<long> count(0);
    return count;
}

// Allocations made so far.
inline long count()
{
    return counter().load(std::memory_order_relaxed);
}

} // namespace alloccounter

extern "C" {

void *malloc(size_t size) noexcept
{
    alloccounter::counter().fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size) noexcept
{
    alloccounter::counter().fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void *realloc(void *p, size_t size) noexcept
{
    alloccounter::counter().fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, size);
}

void *memalign(size_t alignment, size_t size) noexcept
{
    alloccounter::counter().fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}

int posix_memalign(void **out, size_t alignment, size_t size) noexcept
{
    alloccounter::counter().fetch_add(1, std::memory_order_relaxed);
    void *p = __libc_memalign(alignment, size);
    if (!p)
        return 12; // ENOMEM
    *out = p;
    return 0;
}

} // extern "C"

#endif // TABLEDB_BENCH_ALLOCCOUNTER_H
