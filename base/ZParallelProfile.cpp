#include "base/ZParallelProfile.h"

#include <chrono>

namespace Ulmex {

#ifdef GROOMCORE_PARALLEL_PROFILE
namespace {
thread_local double inside = 0.0;

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
} // namespace

double ZParallelSeconds() { return inside; }
ZParallelRegion::ZParallelRegion() : _start(now()) {}
ZParallelRegion::~ZParallelRegion() { inside += now() - _start; }
#else
double ZParallelSeconds() { return 0.0; }
#endif

} // namespace Ulmex
