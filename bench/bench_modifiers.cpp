// The six attribute and shape modifiers against the floors that bound them, in one run:
//   deform   vs  a plain copy of the same arrays (memory bandwidth);
//   evaluate vs  the same per-strand value written in C++ (the arithmetic floor), and
//                the same expressions evaluated by KSeExpr alone in a tight loop.
// Sizes: 100k and 1M strands of 16 CVs; threads 1 and 2. Arguments: {strands, threads}.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstring>
#include <map>
#include <memory>
#include <type_traits>
#include <vector>

#include "base/UlmexBase.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZExpression.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"

using namespace Ulmex;

namespace {

const int kCVs = 16;

// A typical artist expression: reads u, v and id and calls znoise. `VALUE` stands for the
// group's value variable.
std::string typical(const std::string& value) {
    return value + " * (0.8 + 0.4 * znoise(freq, u, v, id * 0.001))";
}

// The same value in C++.
inline float handWritten(float value, float freq, float u, float v, int id) {
    return static_cast<float>(value * (0.8 + 0.4 * ZExpression::znoiseFuncHelper(freq, u, v,
                                                                                  static_cast<float>(id) * 0.001)));
}

struct Groom {
    ZFollicles f;
    ZCurves c;
};

// Strands on a unit square, rising along z, with frames and lean axes.
Groom& groom(int n) {
    static std::map<int, std::unique_ptr<Groom>> cache;
    auto& slot = cache[n];
    if (slot) return *slot;
    slot.reset(new Groom);
    Groom& g = *slot;
    g.f.reset();
    g.f.uid.resize(n);
    g.f.tgl.resize(n);
    g.f.uvw.resize(n);
    g.f.nmp.resize(n);
    g.f.axs.resize(n);
    g.f.rxy.assign(n, ZTuple<2, float>(0.6f, 0.8f));
    g.f.twh.setLength(n, true);
    g.f.rwh.setLength(n, true);
    g.f.top.setLength(n, true);
    g.f.rop.setLength(n, true);
    g.c.numCVs.assign(n, kCVs);
    g.c.start.resize(n);
    g.c.cvs.resize(static_cast<size_t>(n) * kCVs);
    for (int i = 0; i < n; ++i) {
        const float a = ZRandomUnit(static_cast<uint32_t>(i)), b = ZRandomUnit(static_cast<uint32_t>(i) ^ 0xabcdefu);
        g.f.uid[i] = i;
        g.f.uvw[i] = ZVector(a, b, 0);
        g.f.nmp[i] = ZVector(a * 10, b * 10, 0);
        g.f.axs[i].origin = ZVector(a, b, 0);
        g.c.start[i] = i * kCVs;
        for (int j = 0; j < kCVs; ++j) g.c.cvs[static_cast<size_t>(i) * kCVs + j] = ZVector(a, b, 0.05f * j);
    }
    return g;
}

int strands(const benchmark::State& s) { return static_cast<int>(s.range(0)); }
void threads(const benchmark::State& s) { omp_set_num_threads(static_cast<int>(s.range(1))); }

// ---------------------------------------------------------------- the modifiers' settings

void configure(ZWidthModifier& m) {
    m.tWidth = 0.01f; m.tSeed = 1; m.tRand = 0; m.tFreq = 3; m.tExpr = typical("tWidth");
    m.rWidth = 0.02f; m.rSeed = 2; m.rRand = 0; m.rFreq = 3; m.rExpr = typical("rWidth");
}
void configure(ZOpacityModifier& m) {
    m.tOpacity = 0.5f; m.tSeed = 1; m.tRand = 0; m.tFreq = 3; m.tExpr = typical("tOpacity");
    m.rOpacity = 1.f; m.rSeed = 2; m.rRand = 0; m.rFreq = 3; m.rExpr = typical("rOpacity");
}
template <typename M>
void configureMasked(M& m, float& value, const char* name, float v) {
    value = v; m.seed = 1; m.rand = 0; m.freq = 3; m.expr = typical(name); m.maskExpr = "";
}
void configure(ZScaleModifier& m) { configureMasked(m, m.scale, "scale", 1.f); }
void configure(ZCutModifier& m) { configureMasked(m, m.cut, "cut", 1.f); }
void configure(ZOffsetModifier& m) { configureMasked(m, m.offset, "offset", 0.001f); m.alongStrand = false; }
void configure(ZDirectionModifier& m) {
    m.pitch = 20; m.pitchSeed = 1; m.pitchRand = 0; m.pitchFreq = 3; m.pitchExpr = typical("pitch");
    m.yaw = 10; m.yawSeed = 2; m.yawRand = 0; m.yawFreq = 3; m.yawExpr = typical("yaw");
    m.maskExpr = "";
}

// Number of value expressions per strand (the references evaluate as many).
template <typename M> constexpr int exprsOf() { return 1; }
template <> constexpr int exprsOf<ZWidthModifier>() { return 2; }
template <> constexpr int exprsOf<ZOpacityModifier>() { return 2; }
template <> constexpr int exprsOf<ZDirectionModifier>() { return 2; }

template <typename M>
void BM_Evaluate(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    M m;
    configure(m);
    for (auto _ : state) {
        m.reset();  // forces the recomputation
        m.evaluate(g.f, g.c);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename M>
void BM_Deform(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    M m;
    configure(m);
    m.evaluate(g.f, g.c);
    // Shape modifiers start every iteration from the same strands, so repeated factors and
    // rotations do not drift the geometry (towards denormals, say); the restore is not timed.
    constexpr bool movesCVs = exprsOf<M>() == 1 || std::is_same<M, ZDirectionModifier>::value;
    const ZVectorArray pristine = g.c.cvs;
    for (auto _ : state) {
        m.deform(g.f, g.c, g.c);
        benchmark::ClobberMemory();
        if (movesCVs) {
            // Restored with deform's own static split, so that each thread finds its strands
            // where it left them, as on a host's later frame.
            state.PauseTiming();
            const int n = strands(state);
            #pragma omp parallel for schedule(static)
            for (int i = 0; i < n; ++i)
                std::memcpy(&g.c.cvs[static_cast<size_t>(i) * kCVs], &pristine[static_cast<size_t>(i) * kCVs],
                            kCVs * sizeof(ZVector));
            state.ResumeTiming();
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// ---------------------------------------------------------------- references

// Copy floor of the attribute modifiers: read two result arrays, write two follicle arrays.
void BM_CopyFloorAttributes(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    const int n = strands(state);
    std::vector<float> a(n, 1.f), b(n, 2.f);
    for (auto _ : state) {
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i) {
            g.f.twh[i] = a[i];
            g.f.rwh[i] = b[i];
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// Copy floor of the shape modifiers: read and write every CV once.
void BM_CopyFloorCVs(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    const int n = strands(state);
    std::vector<ZVector> dst(g.c.cvs.size());
    for (auto _ : state) {
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i)
            std::memcpy(&dst[static_cast<size_t>(i) * kCVs], &g.c.cvs[static_cast<size_t>(i) * kCVs],
                        kCVs * sizeof(ZVector));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// The per-strand values in C++, `exprs` of them per strand (the arithmetic floor).
void BM_HandWritten(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    const int n = strands(state), exprs = static_cast<int>(state.range(2));
    std::vector<float> out(static_cast<size_t>(n) * exprs);
    for (auto _ : state) {
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i)
            for (int e = 0; e < exprs; ++e)
                out[static_cast<size_t>(i) * exprs + e] =
                    handWritten(0.5f + e, 3.f, g.f.uvw[i].x, g.f.uvw[i].y, g.f.uid[i]);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// The same expressions through KSeExpr alone: one evaluator per thread, variables written
// through held references, results stored.
void BM_KSeExprLoop(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    const int n = strands(state), exprs = static_cast<int>(state.range(2));
    std::vector<float> out(static_cast<size_t>(n) * exprs);
    for (auto _ : state) {
        #pragma omp parallel
        {
            std::vector<std::unique_ptr<ZExpression>> ev;
            std::vector<float*> u, v, id;
            for (int e = 0; e < exprs; ++e) {
                ev.emplace_back(new ZExpression(typical("value")));
                ev.back()->variables["value"].value = 0.5f + e;
                ev.back()->variables["freq"].value = 3.f;
                u.push_back(&ev.back()->variables["u"].value);
                v.push_back(&ev.back()->variables["v"].value);
                id.push_back(&ev.back()->variables["id"].value);
            }
            #pragma omp for schedule(static)
            for (int i = 0; i < n; ++i)
                for (int e = 0; e < exprs; ++e) {
                    *u[e] = g.f.uvw[i].x;
                    *v[e] = g.f.uvw[i].y;
                    *id[e] = static_cast<float>(g.f.uid[i]);
                    out[static_cast<size_t>(i) * exprs + e] = static_cast<float>(ev[e]->evaluate()[0]);
                }
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

void sizes(benchmark::internal::Benchmark* b) {
    for (int n : {100000, 1000000})
        for (int t : {1, 2}) b->Args({n, t});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
void sizesExprs(benchmark::internal::Benchmark* b) {
    for (int n : {100000, 1000000})
        for (int t : {1, 2})
            for (int e : {1, 2}) b->Args({n, t, e});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}

} // namespace

BENCHMARK(BM_CopyFloorAttributes)->Apply(sizes);
BENCHMARK(BM_CopyFloorCVs)->Apply(sizes);
BENCHMARK(BM_HandWritten)->Apply(sizesExprs);
BENCHMARK(BM_KSeExprLoop)->Apply(sizesExprs);
BENCHMARK_TEMPLATE(BM_Deform, ZWidthModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZOpacityModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZScaleModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZCutModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZOffsetModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZDirectionModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZWidthModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZOpacityModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZScaleModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZCutModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZOffsetModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZDirectionModifier)->Apply(sizes);

BENCHMARK_MAIN();
