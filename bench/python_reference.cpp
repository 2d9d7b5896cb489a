// The C++ side of bench/bench_python.py: the same calls the script times through the
// Python package, on the same cache, timed the same way (median of REPS runs).
//
//   bench_python_reference CACHE_DIR REPS      prints {"read_ms": R, "apply_ms": A}
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "cache/RuvoMisc.h"
#include "modifiers/ZScaleModifier.h"

using namespace Ulmex;

namespace {

template <typename F>
double medianMillis(int reps, F&& f) {
    std::vector<double> t;
    for (int r = 0; r < reps; ++r) {
        const auto t0 = std::chrono::steady_clock::now();
        f(r);
        t.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    }
    std::sort(t.begin(), t.end());
    return t[t.size() / 2];
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: bench_python_reference CACHE_DIR REPS\n");
        return 2;
    }
    const ZString dir = argv[1];
    const int reps = std::max(1, std::atoi(argv[2]));
    ZCurves curves;
    ZFollicles follicles;
    const double read = medianMillis(reps, [&](int) {
        if (!readStrandsData(dir, 1, &curves, &follicles)) std::exit(1);
    });
    // The scale modifier, its value toggled so that every apply evaluates and deforms.
    ZScaleModifier scale;
    scale.scale = 1.f; scale.seed = 5.f; scale.rand = 0.25f; scale.freq = 1.f;
    scale.expr = "scale + rand * znoise(6, x, y, z)";
    scale.maskExpr = "";
    const ZCurves rest = curves;
    const double apply = medianMillis(reps, [&](int r) {
        scale.scale = r % 2 ? 1.1f : 0.9f;
        scale.apply(follicles, curves, rest);
    });
    std::printf("{\"read_ms\": %.4f, \"apply_ms\": %.4f}\n", read, apply);
    return 0;
}
