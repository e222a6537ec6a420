// Tells ThreadSanitizer what Qt's locks order.
//
// Debian's QtCore is not instrumented, so the sanitizer sees none of the order that its locks
// establish, and reports data that they guard. This library stands before QtCore in the search
// order, calls the real functions, and notes each acquisition and release. A build with an
// instrumented QtCore would not need it.

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace
{

template <typename Function>
Function* next(const char* symbol)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

} // namespace

// The names are QtCore's own, as the Itanium C++ ABI writes them.
#define ZRN_ACQUIRE(symbol)                                                                        \
    extern "C" __attribute__((visibility("default"))) void symbol(void* lock)                      \
    {                                                                                              \
        static auto* const real = next<void(void*)>(#symbol);                                      \
        real(lock);                                                                                \
        __tsan_acquire(lock);                                                                      \
    }
#define ZRN_TRY_ACQUIRE(symbol)                                                                    \
    extern "C" __attribute__((visibility("default"))) bool symbol(void* lock, int timeout)         \
    {                                                                                              \
        static auto* const real = next<bool(void*, int)>(#symbol);                                 \
        const bool locked = real(lock, timeout);                                                   \
        if (locked) {                                                                              \
            __tsan_acquire(lock);                                                                  \
        }                                                                                          \
        return locked;                                                                             \
    }
#define ZRN_RELEASE(symbol)                                                                        \
    extern "C" __attribute__((visibility("default"))) void symbol(void* lock)                      \
    {                                                                                              \
        static auto* const real = next<void(void*)>(#symbol);                                      \
        __tsan_release(lock);                                                                      \
        real(lock);                                                                                \
    }

ZRN_ACQUIRE(_ZN6QMutex4lockEv)
ZRN_TRY_ACQUIRE(_ZN6QMutex7tryLockEi)
ZRN_RELEASE(_ZN6QMutex6unlockEv)
ZRN_ACQUIRE(_ZN14QReadWriteLock11lockForReadEv)
ZRN_TRY_ACQUIRE(_ZN14QReadWriteLock14tryLockForReadEi)
ZRN_ACQUIRE(_ZN14QReadWriteLock12lockForWriteEv)
ZRN_TRY_ACQUIRE(_ZN14QReadWriteLock15tryLockForWriteEi)
ZRN_RELEASE(_ZN14QReadWriteLock6unlockEv)

/// QWaitCondition::wait(QMutex*, unsigned long) gives the mutex away and takes it again.
extern "C" __attribute__((visibility("default"))) bool
_ZN14QWaitCondition4waitEP6QMutexm(void* condition, void* mutex, unsigned long time)
{
    static auto* const real =
        next<bool(void*, void*, unsigned long)>("_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_release(mutex);
    const bool woken = real(condition, mutex, time);
    __tsan_acquire(mutex);
    return woken;
}
