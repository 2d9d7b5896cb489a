// The host toolkit on a 1M-triangle body (a wavy 707 x 707 grid): growing 1M roots, and
// projecting 1M points near the body onto it, against the floor of one nearest-point query
// per root in the base library's point tree over the body's points (a projection must at
// least find the nearest point of the body). Also the build of each search structure.
// Threads from GROOMCORE_BENCH_THREADS (1 and 2 by default).
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>

#include "BenchSupport.h"
#include "base/UlmexBase.h"
#include "toolkit/ZRootGrower.h"
#include "toolkit/ZRootProjector.h"

using namespace Ulmex;

namespace {

constexpr int kRoots = 1000000;

struct Scene {
    ZTriMesh body;
    ZVectorArray points;  // near the body: grown roots lifted off it a little
};

const Scene& scene() {
    static Scene s;
    if (!s.points.empty()) return s;
    const int n = 707;
    for (int r = 0; r <= n; ++r)
        for (int c = 0; c <= n; ++c) {
            const float x = float(c) / n, z = float(r) / n;
            s.body.points.push_back(ZVector(x, 0.05f * std::sin(12.f * x) * std::cos(9.f * z), z));
        }
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const int a = r * (n + 1) + c;
            s.body.v012.push_back(ZTuple<3, int>(a, a + n + 1, a + 1));
            s.body.v012.push_back(ZTuple<3, int>(a + 1, a + n + 1, a + n + 2));
        }
    ZRootGrower g;
    ZFollicles f;
    g.grow(s.body, kRoots, f);
    s.points = f.nmp;
    for (int i = 0; i < kRoots; ++i) s.points[i].y += 0.01f * (ZRandomUnit(static_cast<uint32_t>(i)) - 0.5f);
    return s;
}

void threads(benchmark::State& state) { omp_set_num_threads(static_cast<int>(state.range(0))); }

void BM_GrowRoots(benchmark::State& state) {
    const Scene& s = scene();
    threads(state);
    ZRootGrower g;
    ZFollicles f;
    for (auto _ : state) {
        g.grow(s.body, kRoots, f);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kRoots);
}

void BM_ProjectRoots(benchmark::State& state) {
    const Scene& s = scene();
    threads(state);
    ZRootProjector p;
    p.build(s.body);
    ZFollicles f;
    for (auto _ : state) {
        p.project(s.points, f, nullptr);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kRoots);
}

// The floor: one nearest-point query per root among the body's points.
void BM_NearestPointFloor(benchmark::State& state) {
    const Scene& s = scene();
    threads(state);
    const ZPointsDistTree tree(s.body.points);
    ZIntArray nearest(kRoots);
    for (auto _ : state) {
        #pragma omp parallel for schedule(dynamic, 1024)
        for (int i = 0; i < kRoots; ++i) {
            float d = 0.f;
            tree.findClosestPoint(s.points[i], nearest[i], d);
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kRoots);
}

void BM_BuildProjector(benchmark::State& state) {
    const Scene& s = scene();
    for (auto _ : state) {
        ZRootProjector p;
        p.build(s.body);
        benchmark::DoNotOptimize(p.numTriangles());
    }
}

void BM_BuildPointTree(benchmark::State& state) {
    const Scene& s = scene();
    for (auto _ : state) {
        ZPointsDistTree tree(s.body.points);
        benchmark::DoNotOptimize(tree.size());
    }
}

void threadCounts(benchmark::internal::Benchmark* b) {
    for (int t : bench::threadCounts()) b->Arg(t);
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

} // namespace

BENCHMARK(BM_NearestPointFloor)->Apply(threadCounts);
BENCHMARK(BM_ProjectRoots)->Apply(threadCounts);
BENCHMARK(BM_GrowRoots)->Apply(threadCounts);
BENCHMARK(BM_BuildPointTree)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BuildProjector)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
