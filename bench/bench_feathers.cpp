// Feather placement: ZFeather::deform of a 2,000-point template on 100k strands of 16 CVs,
// against the floor of a plain per-point affine transform of the same points (one matrix
// per strand). Arguments: {strands, threads}; strands are split over the threads, each with
// its own output array, as a host placing feathers in parallel would.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>

#include "BenchSupport.h"
#include "common/BuiltinGroom.h"

using namespace Ulmex;

namespace {

struct Setup {
    ZFeather feather;
    ZFollicles follicles;
    ZCurves curves;
    std::vector<ZMatrix> matrices;
};

Setup& setup() {
    static Setup s;
    if (!s.matrices.empty()) return s;
    examples::buildFeatherTemplate(200, 10, s.feather);  // 2,000 mesh points
    const int n = 100000, cvs = 16;
    s.follicles.reset();
    std::vector<ZVector> p(cvs);
    for (int i = 0; i < n; ++i) {
        const float a = ZRandomUnit(static_cast<uint32_t>(i)), b = ZRandomUnit(static_cast<uint32_t>(i) + 99u);
        for (int j = 0; j < cvs; ++j) {
            const float t = static_cast<float>(j) / (cvs - 1);
            p[j] = ZVector(a + 0.3f * t * t, b, t);  // gently bent
        }
        s.curves.push(p.data(), cvs);
        s.follicles.tgl.push_back(0);
        s.follicles.ln1.push_back(1.f);
        s.follicles.rxy.push_back(ZTuple<2, float>(0.f, 1.f));
        s.follicles.axs.push_back(ZAxis());
        ZMatrix m;
        m(0, 0) = std::cos(a); m(0, 2) = std::sin(a); m(2, 0) = -std::sin(a); m(2, 2) = std::cos(a);
        m(0, 3) = a; m(1, 3) = b;
        s.matrices.push_back(m);
    }
    return s;
}

void BM_FeatherDeform(benchmark::State& state) {
    Setup& s = setup();
    omp_set_num_threads(static_cast<int>(state.range(1)));
    const int n = static_cast<int>(state.range(0));
    const size_t points = s.feather.mesh.points.size();
    bench::SerialFraction serial;
    for (auto _ : state) {
        serial.time([&] {
            // The host's loop over the strands, timed as a parallel region of its own.
            const Ulmex::ZParallelRegion region;
            #pragma omp parallel
            {
                ZVectorArray out(points);
                #pragma omp for schedule(static)
                for (int i = 0; i < n; ++i) {
                    s.feather.deform(s.follicles, s.curves, i, 1.f, 0.4f, &out, nullptr, nullptr, false);
                    benchmark::DoNotOptimize(out.data());
                }
            }
        });
    }
    serial.report(state);
    state.SetItemsProcessed(state.iterations() * n * static_cast<int64_t>(points));
}

void BM_AffineFloor(benchmark::State& state) {
    Setup& s = setup();
    omp_set_num_threads(static_cast<int>(state.range(1)));
    const int n = static_cast<int>(state.range(0));
    const ZVectorArray& src = s.feather.mesh.points;
    for (auto _ : state) {
        #pragma omp parallel
        {
            ZVectorArray out(src.size());
            #pragma omp for schedule(static)
            for (int i = 0; i < n; ++i) {
                const ZMatrix& m = s.matrices[i];
                for (size_t k = 0; k < src.size(); ++k) out[k] = m.transformPoint(src[k]);
                benchmark::DoNotOptimize(out.data());
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * n * static_cast<int64_t>(src.size()));
}

} // namespace

// {strands, threads}: the floor is measured at the same thread counts as the placement it
// is the reference for, GROOMCORE_BENCH_THREADS (1 and 2 by default).
void strandsThreads(benchmark::internal::Benchmark* b) {
    for (int t : bench::threadCounts()) b->Args({100000, t});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
BENCHMARK(BM_AffineFloor)->Apply(strandsThreads);
BENCHMARK(BM_FeatherDeform)->Apply(strandsThreads);

BENCHMARK_MAIN();
