// Counts the bytes that operator new hands out in this process, to bound what a reader
// allocates for a given input. Link AllocationMeter.cpp into the test program: it
// replaces the global operator new and delete.
#pragma once

#include <cstddef>

namespace testutil {

// Live bytes now, and the highest live count since the last resetPeak().
std::size_t liveBytes();
std::size_t peakBytes();
void resetPeak();

// Peak bytes allocated, above what was live at construction, while the meter lived.
class AllocationMeter {
public:
    AllocationMeter() : _base(liveBytes()) { resetPeak(); }
    std::size_t peakAbove() const { const std::size_t p = peakBytes(); return p > _base ? p - _base : 0; }

private:
    std::size_t _base;
};

} // namespace testutil
