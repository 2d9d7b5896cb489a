#include "support/AllocationMeter.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<std::size_t> gLive{0}, gPeak{0};

void* take(std::size_t n) {
    void* p = std::malloc(n ? n : 1);
    if (!p) throw std::bad_alloc();
    const std::size_t now = gLive.fetch_add(malloc_usable_size(p)) + malloc_usable_size(p);
    std::size_t peak = gPeak.load();
    while (now > peak && !gPeak.compare_exchange_weak(peak, now)) {}
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
void operator delete(void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { give(p); }
void operator delete(void* p) noexcept { give(p); }
void operator delete[](void* p) noexcept { give(p); }
void operator delete(void* p, std::size_t) noexcept { give(p); }
void operator delete[](void* p, std::size_t) noexcept { give(p); }

namespace testutil {
std::size_t liveBytes() { return gLive.load(); }
std::size_t peakBytes() { return gPeak.load(); }
void resetPeak() { gPeak.store(gLive.load()); }
} // namespace testutil
