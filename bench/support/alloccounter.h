#ifndef TABLEDB_BENCH_ALLOCCOUNTER_H
#define TABLEDB_BENCH_ALLOCCOUNTER_H

// Counts every heap allocation of the process, the library's and Qt's
// included: the program's own malloc family interposes glibc's and forwards
// to it. Include from exactly one file of a benchmark program.

#include <atomic>
#include <cstddef>

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
void __libc_free(void *);
}

namespace alloccounter {
inline std::atomic<long> count { 0 };
inline long now() { return count.load(std::memory_order_relaxed); }
} // namespace alloccounter

extern "C" {
void *malloc(size_t size)
{
    alloccounter::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
void *calloc(size_t n, size_t size)
{
    alloccounter::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}
void *realloc(void *p, size_t size)
{
    alloccounter::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, size);
}
void *memalign(size_t alignment, size_t size)
{
    alloccounter::count.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}
void *aligned_alloc(size_t alignment, size_t size)
{
    return memalign(alignment, size);
}
int posix_memalign(void **out, size_t alignment, size_t size)
{
    void *p = memalign(alignment, size);
    if (!p)
        return 12; // ENOMEM
    *out = p;
    return 0;
}
void free(void *p)
{
    __libc_free(p);
}
}

#endif // TABLEDB_BENCH_ALLOCCOUNTER_H
