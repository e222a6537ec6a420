// Tells ThreadSanitizer what the locks of GLib order, and the references of GStreamer.
//
// Debian's libraries are not instrumented, and GLib's locks are its own, so the sanitizer sees none
// of the order that they establish. Compiled into a program, these functions stand before GLib's in
// the search order, call the real ones, and note each acquisition and release.

#include <dlfcn.h>
#include <gst/gst.h>
#include <sanitizer/tsan_interface.h>

namespace
{

template <typename Function>
Function* next(const char* symbol)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, symbol));
}

} // namespace

#define ZRN_REAL(symbol) static auto* const real = next<decltype(symbol)>(#symbol)

#define ZRN_ACQUIRE(symbol, Lock)                                                                  \
    void symbol(Lock* lock)                                                                        \
    {                                                                                              \
        ZRN_REAL(symbol);                                                                          \
        real(lock);                                                                                \
        __tsan_acquire(lock);                                                                      \
    }
#define ZRN_TRY_ACQUIRE(symbol, Lock)                                                              \
    gboolean symbol(Lock* lock)                                                                    \
    {                                                                                              \
        ZRN_REAL(symbol);                                                                          \
        const gboolean isLocked = real(lock);                                                      \
        if (isLocked) {                                                                            \
            __tsan_acquire(lock);                                                                  \
        }                                                                                          \
        return isLocked;                                                                           \
    }
#define ZRN_RELEASE(symbol, Lock)                                                                  \
    void symbol(Lock* lock)                                                                        \
    {                                                                                              \
        ZRN_REAL(symbol);                                                                          \
        __tsan_release(lock);                                                                      \
        real(lock);                                                                                \
    }
/// Whoever gives back the last reference of an object comes after all who gave one back before.
#define ZRN_UNREF(symbol, Object)                                                                  \
    void symbol(Object* object)                                                                    \
    {                                                                                              \
        ZRN_REAL(symbol);                                                                          \
        __tsan_release(object);                                                                    \
        __tsan_acquire(object);                                                                    \
        real(object);                                                                              \
    }

#pragma GCC visibility push(default)
extern "C" {

ZRN_ACQUIRE(g_mutex_lock, GMutex)
ZRN_TRY_ACQUIRE(g_mutex_trylock, GMutex)
ZRN_RELEASE(g_mutex_unlock, GMutex)
ZRN_ACQUIRE(g_rw_lock_reader_lock, GRWLock)
ZRN_RELEASE(g_rw_lock_reader_unlock, GRWLock)
ZRN_ACQUIRE(g_rw_lock_writer_lock, GRWLock)
ZRN_RELEASE(g_rw_lock_writer_unlock, GRWLock)

// The sanitizer sees the lock inside of these, but not how one thread comes to know what another
// allocated.

void g_rec_mutex_init(GRecMutex* mutex)
{
    ZRN_REAL(g_rec_mutex_init);
    real(mutex);
    __tsan_release(mutex);
}

void g_rec_mutex_lock(GRecMutex* mutex)
{
    ZRN_REAL(g_rec_mutex_lock);
    __tsan_acquire(mutex);
    real(mutex);
    __tsan_release(mutex);
}

/// Gives the mutex away and takes it again.
void g_cond_wait(GCond* condition, GMutex* mutex)
{
    ZRN_REAL(g_cond_wait);
    __tsan_release(mutex);
    real(condition, mutex);
    __tsan_acquire(mutex);
}

gboolean g_cond_wait_until(GCond* condition, GMutex* mutex, gint64 end)
{
    ZRN_REAL(g_cond_wait_until);
    __tsan_release(mutex);
    const gboolean isSignalled = real(condition, mutex, end);
    __tsan_acquire(mutex);
    return isSignalled;
}

ZRN_UNREF(g_object_unref, void)
ZRN_UNREF(gst_object_unref, void)
ZRN_UNREF(gst_mini_object_unref, GstMiniObject)

// What these hand over is locked by GLib itself, and by nobody.

void g_async_queue_push(GAsyncQueue* queue, gpointer data)
{
    ZRN_REAL(g_async_queue_push);
    __tsan_release(queue);
    real(queue, data);
}

gpointer g_async_queue_timeout_pop(GAsyncQueue* queue, guint64 timeout)
{
    ZRN_REAL(g_async_queue_timeout_pop);
    const gpointer data = real(queue, timeout);
    __tsan_acquire(queue);
    return data;
}

gpointer g_async_queue_try_pop(GAsyncQueue* queue)
{
    ZRN_REAL(g_async_queue_try_pop);
    const gpointer data = real(queue);
    __tsan_acquire(queue);
    return data;
}

gboolean gst_bus_post(GstBus* bus, GstMessage* message)
{
    ZRN_REAL(gst_bus_post);
    __tsan_release(bus);
    return real(bus, message);
}

GstMessage* gst_bus_timed_pop_filtered(GstBus* bus, GstClockTime timeout, GstMessageType types)
{
    ZRN_REAL(gst_bus_timed_pop_filtered);
    GstMessage* const message = real(bus, timeout, types);
    __tsan_acquire(bus);
    return message;
}

} // extern "C"
#pragma GCC visibility pop
