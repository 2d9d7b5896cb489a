#include "support/AllocationMeter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> gLive{0}, gPeak{0};

void added(std::size_t n) {
    const std::size_t now = gLive.fetch_add(n) + n;
    std::size_t peak = gPeak.load();
    while (now > peak && !gPeak.compare_exchange_weak(peak, now)) {}
}

} // namespace

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define GROOMCORE_METER_BY_HOOKS 1
#endif
#endif

#ifdef GROOMCORE_METER_BY_HOOKS
// ThreadSanitizer's runtime owns operator new and delete; it reports every allocation to
// these hooks instead, with the sizes it keeps.
#include <sanitizer/allocator_interface.h>

namespace {
void onMalloc(const volatile void*, std::size_t n) { added(n); }
void onFree(const volatile void* p) { gLive.fetch_sub(__sanitizer_get_allocated_size(const_cast<const void*>(p))); }
const int gHooked = __sanitizer_install_malloc_and_free_hooks(onMalloc, onFree);
} // namespace

#else
#include <malloc.h>

namespace {

void* take(std::size_t n) {
    void* p = std::malloc(n ? n : 1);
    if (!p) throw std::bad_alloc();
    added(malloc_usable_size(p));
    return p;
}

void give(void* p) {
    if (!p) return;
    gLive.fetch_sub(malloc_usable_size(p));
    std::free(p);
}

} // namespace

// Every form of the plain and the nothrow operators is replaced together, so that memory
// from any of them is given back through the same pair (a sanitizer checks that).
void* operator new(std::size_t n) { return take(n); }
void* operator new[](std::size_t n) { return take(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    try { return take(n); } catch (...) { return nullptr; }
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
    try { return take(n); } catch (...) { return nullptr; }
}
void operator delete(void* p) noexcept { give(p); }
void operator delete[](void* p) noexcept { give(p); }
void operator delete(void* p, std::size_t) noexcept { give(p); }
void operator delete[](void* p, std::size_t) noexcept { give(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { give(p); }
#endif

namespace testutil {
std::size_t liveBytes() { return gLive.load(); }
std::size_t peakBytes() { return gPeak.load(); }
void resetPeak() { gPeak.store(gLive.load()); }
} // namespace testutil
