// The lock in the segment. On the camera it is the pthread mutex the peer
// process also uses; on a 64-bit PC it is a futex word of the same behaviour.
#include <errno.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "share_memory/shm_lock.h"

namespace {

// Only the overloads for the slot's type are used; the others compile all the same.

// The camera's lock: a process-shared pthread mutex.
[[maybe_unused]] void lock_init(pthread_mutex_t *mutex) {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

[[maybe_unused]] int lock_until(pthread_mutex_t *mutex, const struct timespec &deadline) {
    return pthread_mutex_timedlock(mutex, &deadline);
}

[[maybe_unused]] void unlock(pthread_mutex_t *mutex) {
    pthread_mutex_unlock(mutex);
}

// A mutex on one word (0 free, 1 locked, 2 locked with waiters). The futex
// calls are the shared kind, as the word is in memory of several processes.
[[maybe_unused]] void lock_init(ShmFutexLock *lock) {
    __atomic_store_n(&lock->word, 0u, __ATOMIC_RELEASE);
}

[[maybe_unused]] int lock_until(ShmFutexLock *lock, const struct timespec &deadline) {
    uint32_t expected = 0;
    if (__atomic_compare_exchange_n(&lock->word, &expected, 1u, false, __ATOMIC_ACQUIRE, __ATOMIC_RELAXED)) {
        return 0;
    }
    uint32_t seen = expected == 2 ? 2 : __atomic_exchange_n(&lock->word, 2u, __ATOMIC_ACQUIRE);
    while (seen != 0) {
        long r = syscall(SYS_futex, &lock->word, FUTEX_WAIT_BITSET | FUTEX_CLOCK_REALTIME, 2u, &deadline,
                         nullptr, FUTEX_BITSET_MATCH_ANY);
        if (r != 0 && errno == ETIMEDOUT) {
            return ETIMEDOUT;
        }
        seen = __atomic_exchange_n(&lock->word, 2u, __ATOMIC_ACQUIRE);
    }
    return 0;
}

[[maybe_unused]] void unlock(ShmFutexLock *lock) {
    if (__atomic_fetch_sub(&lock->word, 1u, __ATOMIC_RELEASE) != 1) {
        __atomic_store_n(&lock->word, 0u, __ATOMIC_RELEASE);
        syscall(SYS_futex, &lock->word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
    }
}

}  // namespace

void shm_lock_init(ShmLockSlot *slot) {
    lock_init(slot);
}

int shm_lock_until(ShmLockSlot *slot, const struct timespec &deadline) {
    return lock_until(slot, deadline);
}

void shm_lock_release(ShmLockSlot *slot) {
    unlock(slot);
}
