#pragma once

// Happens-before edges that ThreadSanitizer cannot see by itself.
//
// Qt's own libraries are not built with ThreadSanitizer, so hand-offs that
// go through them (a task posted to an event loop or a thread pool) look
// unsynchronised. The dispatch helpers mark each hand-off explicitly: a
// release on the sending side, an acquire on the receiving side, on the
// same address. Without ThreadSanitizer these compile to nothing.

#if defined(__SANITIZE_THREAD__)
#define QX_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QX_THREAD_SANITIZER 1
#endif
#endif

#ifdef QX_THREAD_SANITIZER
extern "C" void __tsan_acquire(void *address);
extern "C" void __tsan_release(void *address);
#endif

namespace QXTsan {

inline void release([[maybe_unused]] const void *address)
{
#ifdef QX_THREAD_SANITIZER
    __tsan_release(const_cast<void *>(address));
#endif
}

inline void acquire([[maybe_unused]] const void *address)
{
#ifdef QX_THREAD_SANITIZER
    __tsan_acquire(const_cast<void *>(address));
#endif
}

} // namespace QXTsan
