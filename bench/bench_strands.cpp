// Strand-set operations against the references that bound them: a plain copy of the same
// arrays (memory bandwidth) and a hand-written loop (the arithmetic floor). Thread counts
// 1 and 2 show the parallel scaling. Report ratios from one run, never absolute claims.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstring>
#include <vector>

#include "BenchSupport.h"
#include "base/UlmexBase.h"
#include "modifiers/ZExpression.h"
#include "strands/ZFollicles.h"

using namespace Ulmex;

namespace {

struct Groom {
    ZFollicles f;
    ZCurves curves;
    ZTriMesh mesh;
    ZAxisArray frames;
};

Groom& groom(int n) {
    static Groom g;
    if (g.f.numStrands() == n) return g;
    g.f.reset();
    g.curves.reset();
    g.mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    g.mesh.v012 = {ZTuple<3, int>(0, 1, 2), ZTuple<3, int>(0, 2, 3)};
    g.mesh.uvs.assign(6, ZVector());
    g.frames.assign(4, ZAxis());
    for (int i = 0; i < n; ++i) {
        const float a = ZRandomUnit(static_cast<uint32_t>(i)), b = ZRandomUnit(static_cast<uint32_t>(i) + 77777u);
        g.f.uid.push_back(i);
        g.f.tgl.push_back(i & 1);
        g.f.bcc.push_back(ZTuple<3, float>(a * 0.5f, b * 0.5f, 1.f - 0.5f * (a + b)));
        g.f.uvw.push_back(ZVector(a, b, 0));
        const ZVector cv[] = {ZVector(a, b, 0), ZVector(a + 0.1f, b, 1)};
        g.curves.push(cv, 2);
    }
    g.f.axs.setLength(n, true);
    g.f.rxy.setLength(n, true);
    g.f.twh.setLength(n, true);
    g.f.updateAxes(g.mesh, g.frames, true);
    return g;
}

void setThreads(benchmark::State& state) { omp_set_num_threads(static_cast<int>(state.range(1))); }

void BM_CopyFloor(benchmark::State& state) {
    Groom& g = groom(static_cast<int>(state.range(0)));
    std::vector<ZAxis> dst(g.f.axs.size());
    for (auto _ : state) {
        std::memcpy(dst.data(), g.f.axs.data(), dst.size() * sizeof(ZAxis));
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_UpdateAxes(benchmark::State& state) {
    Groom& g = groom(static_cast<int>(state.range(0)));
    setThreads(state);
    bench::SerialFraction serial;
    for (auto _ : state) serial.time([&] { benchmark::DoNotOptimize(g.f.updateAxes(g.mesh, g.frames, true)); });
    serial.report(state);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_CalcRxy(benchmark::State& state) {
    Groom& g = groom(static_cast<int>(state.range(0)));
    setThreads(state);
    bench::SerialFraction serial;
    for (auto _ : state) serial.time([&] { benchmark::DoNotOptimize(g.f.calcRxy(g.curves, true)); });
    serial.report(state);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_SetTipWidth(benchmark::State& state) {
    Groom& g = groom(static_cast<int>(state.range(0)));
    setThreads(state);
    for (auto _ : state) {
        g.f.setTipWidth(0.1f, 0.2f, true);
        benchmark::DoNotOptimize(g.f.twh.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// One expression per strand through KSeExpr, against the same value written in C++.
const char* kExpr = "0.5 + 0.5 * znoise(3, u, v, id * 0.001)";

void BM_ExpressionKSeExpr(benchmark::State& state) {
    Groom& g = groom(static_cast<int>(state.range(0)));
    const int n = g.f.numStrands();
    ZExpression e(kExpr);
    float& u = e.variables["u"].value;
    float& v = e.variables["v"].value;
    float& id = e.variables["id"].value;
    for (auto _ : state) {
        double sum = 0;
        for (int i = 0; i < n; ++i) {
            u = g.f.uvw[i].x;
            v = g.f.uvw[i].y;
            id = static_cast<float>(g.f.uid[i]);
            sum += e.evaluate()[0];
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_ExpressionHandWritten(benchmark::State& state) {
    Groom& g = groom(static_cast<int>(state.range(0)));
    const int n = g.f.numStrands();
    for (auto _ : state) {
        double sum = 0;
        for (int i = 0; i < n; ++i)
            sum += 0.5 + 0.5 * ZExpression::znoiseFuncHelper(3.0, g.f.uvw[i].x, g.f.uvw[i].y,
                                                             static_cast<float>(g.f.uid[i]) * 0.001);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * n);
}

} // namespace

BENCHMARK(BM_CopyFloor)->Args({100000, 1})->Unit(benchmark::kMicrosecond);
// {strands, threads}: threads from GROOMCORE_BENCH_THREADS (1 and 2 by default).
template <int... Strands>
void strandsThreads(benchmark::internal::Benchmark* b) {
    for (int n : {Strands...})
        for (int t : bench::threadCounts()) b->Args({n, t});
    b->Unit(benchmark::kMicrosecond)->UseRealTime();
}
BENCHMARK(BM_UpdateAxes)->Apply(strandsThreads<100000, 1000000>);
BENCHMARK(BM_CalcRxy)->Apply(strandsThreads<100000, 1000000>);
BENCHMARK(BM_SetTipWidth)->Apply(strandsThreads<100000>);
BENCHMARK(BM_ExpressionKSeExpr)->Args({100000, 1})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ExpressionHandWritten)->Args({100000, 1})->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
