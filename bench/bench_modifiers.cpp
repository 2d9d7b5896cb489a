// The modifiers against the floors that bound them, in one run:
//   deform   vs  a plain copy of the same arrays (memory bandwidth);
//   evaluate vs  the same per-strand value written in C++ (the arithmetic floor), and
//                the same expressions evaluated by KSeExpr alone in a tight loop.
// Sizes: 100k and 1M strands of 16 CVs; threads 1 and 2. Arguments: {strands, threads}.
// The bend, quadratic in the CV count by design, is also run on 8 to 64 CVs.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstring>
#include <map>
#include <memory>
#include <type_traits>
#include <vector>

#include "BenchSupport.h"
#include "base/UlmexBase.h"
#include "modifiers/ZBendModifier.h"
#include "modifiers/ZClumpModifier.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZExpression.h"
#include "modifiers/ZFrizzModifier.h"
#include "modifiers/ZKinkModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"

using namespace Ulmex;

namespace {

const int kDefaultCVs = 16;

// A typical artist expression: reads u, v and id and calls znoise. `VALUE` stands for the
// group's value variable.
std::string typical(const std::string& value, const std::string& freq = "freq") {
    return value + " * (0.8 + 0.4 * znoise(" + freq + ", u, v, id * 0.001))";
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

// Strands on a unit square, rising along z, with frames, lean axes, lengths and a guide
// for every 50 strands (the first of each run of 50).
Groom& groom(int n, int kCVs = kDefaultCVs) {
    static std::map<std::pair<int, int>, std::unique_ptr<Groom>> cache;
    auto& slot = cache[{n, kCVs}];
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
    g.f.ln0.assign(n, 1.f);
    g.f.maxLn0 = 1.f;
    for (int i = 0; i < n; ++i) {
        const int guide = (i / 50) * 50;
        g.f.bdi.push(&guide, 1);
    }
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
        for (int j = 0; j < kCVs; ++j)
            g.c.cvs[static_cast<size_t>(i) * kCVs + j] = ZVector(a, b, 0.8f * static_cast<float>(j) / (kCVs - 1));
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

void configure(ZBendModifier& m) {
    m.bend = 10; m.bendSeed = 1; m.bendRand = 0; m.bendFreq = 3; m.bendExpr = typical("bend");
    m.rate = 1; m.rateSeed = 2; m.rateRand = 0; m.rateFreq = 3; m.rateExpr = typical("rate");
    m.maskExpr = "";
    // Start and end have no freq variable: the frequency is written out.
    m.start = 0.1f; m.startExpr = typical("start", "3");
    m.end = 1; m.endExpr = typical("end", "3");
    m.tipWeighted = true;
}
void configure(ZClumpModifier& m) {
    m.clump = 0.8f; m.clumpSeed = 1; m.clumpRand = 0; m.clumpFreq = 3; m.clumpExpr = typical("clump");
    m.rate = 1; m.rateSeed = 2; m.rateRand = 0; m.rateFreq = 3; m.rateExpr = typical("rate");
    m.maskExpr = ""; m.strayRatioExpr = ""; m.strayAmountExpr = "";
    m.keepLength = false;
    m.rampType = 1;
}
void configure(ZKinkModifier& m) {
    m.kink = 1; m.kinkSeed = 1; m.kinkRand = 0; m.kinkFreq = 3; m.kinkExpr = typical("kink");
    m.tWidth = 0.05f; m.tWidthSeed = 2; m.tWidthRand = 0; m.tWidthFreq = 3; m.tWidthExpr = typical("tWidth");
    m.rWidth = 0.01f; m.rWidthSeed = 3; m.rWidthRand = 0; m.rWidthFreq = 3; m.rWidthExpr = typical("rWidth");
    m.maskExpr = ""; m.tipFade = 0.1f; m.rootFade = 0.1f;
}
void configure(ZFrizzModifier& m) {
    m.frizz = 0.1f; m.frizzSeed = 1; m.frizzRand = 0; m.frizzFreq = 3; m.frizzExpr = typical("frizz");
    m.tWidth = 0.05f; m.tWidthSeed = 2; m.tWidthRand = 0; m.tWidthFreq = 3; m.tWidthExpr = typical("tWidth");
    m.rWidth = 0.01f; m.rWidthSeed = 3; m.rWidthRand = 0; m.rWidthFreq = 3; m.rWidthExpr = typical("rWidth");
    m.maskExpr = "";
}

// Attribute modifiers write follicle arrays; all others move CVs.
template <typename M>
constexpr bool movesCVs() {
    return !std::is_same<M, ZWidthModifier>::value && !std::is_same<M, ZOpacityModifier>::value;
}

template <typename M>
void BM_Evaluate(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    M m;
    configure(m);
    // Sized once, as on a host's first frame: later evaluates (the ones timed) reuse the
    // arrays. The first allocation of a std::vector-backed array is a serial step.
    m.evaluate(g.f, g.c);
    bench::SerialFraction serial;
    for (auto _ : state) {
        m.reset();  // forces the recomputation
        serial.time([&] { m.evaluate(g.f, g.c); });
        benchmark::ClobberMemory();
    }
    serial.report(state);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// A host's first frame, or the first after the strand or CV count changed: a new modifier
// sizes every array it keeps. Freeing the previous one is not timed.
template <typename M>
void BM_EvaluateFirst(benchmark::State& state) {
    Groom& g = groom(strands(state));
    threads(state);
    bench::SerialFraction serial;
    for (auto _ : state) {
        state.PauseTiming();
        auto m = std::make_unique<M>();
        configure(*m);
        state.ResumeTiming();
        serial.time([&] { m->evaluate(g.f, g.c); });
        benchmark::ClobberMemory();
        state.PauseTiming();
        m.reset();
        state.ResumeTiming();
    }
    serial.report(state);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <typename M>
void BM_Deform(benchmark::State& state) {
    const int kCVs = state.range(2) ? static_cast<int>(state.range(2)) : kDefaultCVs;
    Groom& g = groom(strands(state), kCVs);
    threads(state);
    M m;
    configure(m);
    m.evaluate(g.f, g.c);
    // Shape modifiers start every iteration from the same strands, so repeated factors and
    // rotations do not drift the geometry (towards denormals, say); the restore is not timed.
    const ZVectorArray pristine = g.c.cvs;
    bench::SerialFraction serial;
    for (auto _ : state) {
        serial.time([&] { m.deform(g.f, g.c, g.c); });
        benchmark::ClobberMemory();
        if (movesCVs<M>()) {
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
    serial.report(state);
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
    const int kCVs = state.range(2) ? static_cast<int>(state.range(2)) : kDefaultCVs;
    Groom& g = groom(strands(state), kCVs);
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

// {strands, threads, CVs per strand (0: the default 16)}; threads from
// GROOMCORE_BENCH_THREADS (1 and 2 by default).
void sizes(benchmark::internal::Benchmark* b) {
    for (int n : {100000, 1000000})
        for (int t : bench::threadCounts()) b->Args({n, t, 0});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
// {strands, threads, expressions per strand}
void sizesExprs(benchmark::internal::Benchmark* b) {
    for (int n : {100000, 1000000})
        for (int t : bench::threadCounts())
            for (int e : {1, 2, 3, 4}) b->Args({n, t, e});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
}
// The bend's cost against the CV count: 100k strands, one thread.
void cvCounts(benchmark::internal::Benchmark* b) {
    for (int cvs : {8, 16, 32, 64}) b->Args({100000, 1, cvs});
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
BENCHMARK_TEMPLATE(BM_Deform, ZBendModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZClumpModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZKinkModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Deform, ZFrizzModifier)->Apply(sizes);
BENCHMARK(BM_CopyFloorCVs)->Name("BM_CopyFloorCVs/cvs")->Apply(cvCounts);
BENCHMARK_TEMPLATE(BM_Deform, ZBendModifier)->Name("BM_Deform<ZBendModifier>/cvs")->Apply(cvCounts);
BENCHMARK_TEMPLATE(BM_EvaluateFirst, ZKinkModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_EvaluateFirst, ZFrizzModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_EvaluateFirst, ZClumpModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZWidthModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZOpacityModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZScaleModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZCutModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZOffsetModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZDirectionModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZBendModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZClumpModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZKinkModifier)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Evaluate, ZFrizzModifier)->Apply(sizes);

BENCHMARK_MAIN();
