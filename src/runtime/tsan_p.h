#ifndef TABLEDB_RUNTIME_TSAN_P_H
#define TABLEDB_RUNTIME_TSAN_P_H

// ThreadSanitizer cannot see Qt 5's QMutex and QReadWriteLock (futexes and
// atomics in an uninstrumented library), so the library's own lock paths tell
// it what they do. Everything here compiles to nothing outside the TSan build.

#if defined(TABLEDB_TSAN)
#include <sanitizer/tsan_interface.h>

namespace tsan {
inline void lockCreated(void *lock) { __tsan_mutex_create(lock, __tsan_mutex_not_static); }
inline void lockDestroyed(void *lock) { __tsan_mutex_destroy(lock, 0); }
inline void locked(void *lock) { __tsan_mutex_pre_lock(lock, 0); __tsan_mutex_post_lock(lock, 0, 0); }
inline void lockedForRead(void *lock)
{
    __tsan_mutex_pre_lock(lock, __tsan_mutex_read_lock);
    __tsan_mutex_post_lock(lock, __tsan_mutex_read_lock, 0);
}
inline void unlocking(void *lock) { __tsan_mutex_pre_unlock(lock, 0); __tsan_mutex_post_unlock(lock, 0); }
inline void unlockingRead(void *lock)
{
    __tsan_mutex_pre_unlock(lock, __tsan_mutex_read_lock);
    __tsan_mutex_post_unlock(lock, __tsan_mutex_read_lock);
}
// A hand-over between threads through a channel TSan cannot see.
inline void release(void *addr) { __tsan_release(addr); }
inline void acquire(void *addr) { __tsan_acquire(addr); }
} // namespace tsan

#else

namespace tsan {
inline void lockCreated(void *) { }
inline void lockDestroyed(void *) { }
inline void locked(void *) { }
inline void lockedForRead(void *) { }
inline void unlocking(void *) { }
inline void unlockingRead(void *) { }
inline void release(void *) { }
inline void acquire(void *) { }
} // namespace tsan

#endif

#endif // TABLEDB_RUNTIME_TSAN_P_H
