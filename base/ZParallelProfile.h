// Time spent inside the library's parallel regions, for the benchmarks' serial fractions
// (the share of a one-thread call spent outside its parallel regions, which Amdahl's law
// turns into the speed-up more threads can give). Counted only in a build with
// GROOMCORE_PARALLEL_PROFILE (the CMake option of that name, the `profile` preset); in
// every other build a region costs nothing and the count stays 0.
#pragma once

namespace Ulmex {

// Seconds the calling thread has spent inside parallel regions it started.
double ZParallelSeconds();

// Wraps one parallel region: its wall time, on the thread that starts it.
class ZParallelRegion {
public:
#ifdef GROOMCORE_PARALLEL_PROFILE
    ZParallelRegion();
    ~ZParallelRegion();

private:
    double _start;
#else
    ZParallelRegion() {}
#endif
    ZParallelRegion(const ZParallelRegion&) = delete;
    ZParallelRegion& operator=(const ZParallelRegion&) = delete;
};

} // namespace Ulmex
