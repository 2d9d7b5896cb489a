// groomcore's Alembic reader against the real Alembic library (alembic3d) on the same
// files, in one run: the positions of an animated mesh of 1M points over 24 samples; every
// array (positions, face counts and indices, indexed UV values and indices) of a 1M-point
// mesh over 10 samples; the hierarchy of a scene of 10,000 objects (names and full names of
// all); and a walk by index over 2,500 and 10,000 siblings (linear in the siblings). The files are
// written by bench/alembic_bench_peer.py with the real library; the peer's times are those
// it measures around its library calls.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>

#include "BenchSupport.h"
#include "base/UlmexBase.h"
#include "cache/RuvoMisc.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

const int kSamples = 24;

std::string dir() {
    static const std::string d = [] {
        const fs::path p = fs::temp_directory_path() / "groomcore-bench-alembic";
        fs::create_directories(p);
        if (!fs::exists(p / "wide_10000.abc")) {
            const std::string cmd = std::string("'") + GROOMCORE_PYTHON + "' '" + GROOMCORE_BENCH_SOURCE_DIR +
                                    "/alembic_bench_peer.py' write '" + p.string() + "' 1000000 " +
                                    std::to_string(kSamples) + " 10000";
            if (std::system(cmd.c_str()) != 0) std::cerr << "could not write the files\n";
        }
        return p.string();
    }();
    return d;
}

// The first top-level object of a file (it keeps the file mapped once the archive closes);
// opening is part of what the read benchmarks time.
ZAlembicObject firstObject(const std::string& file, benchmark::State& state) {
    ZAlembicArchive a;
    if (!a.open(file.c_str())) state.SkipWithError("cannot open");
    ZAlembicObject object;
    a.topObject().getChild(0, object);
    return object;
}

void BM_AbcMesh_Groomcore(benchmark::State& state) {
    const std::string file = dir() + "/mesh.abc";
    size_t total = 0;
    for (auto _ : state) {
        const ZAlembicObject shape = firstObject(file, state);
        ZVectorArray points;
        for (int k = 0; k < kSamples; ++k) {
            shape.getPolyMeshData(&points, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, k);
            total += points.size();
        }
    }
    state.counters["points_per_read"] = static_cast<double>(total) / static_cast<double>(state.iterations());
}

void BM_AbcTree_Groomcore(benchmark::State& state) {
    const std::string file = dir() + "/tree.abc";
    size_t names = 0;
    for (auto _ : state) {
        ZAlembicArchive a;
        if (!a.open(file.c_str())) state.SkipWithError("cannot open");
        ZAlembicObjectArray all;
        GetAllDescendantObjects(a.topObject(), all, false);
        for (int i = 0; i < all.length(); ++i) names += all[i].name().size() + all[i].fullPath().size();
    }
    state.counters["name_chars"] = static_cast<double>(names) / static_cast<double>(state.iterations());
}

// Every array (argument 0), the positions alone (1) or the UVs alone (2), with the bytes
// each copies per second: the UV path costs what the positions path does per byte.
void BM_AbcFullRead_Groomcore(benchmark::State& state) {
    const std::string file = dir() + "/full.abc";
    const int what = static_cast<int>(state.range(0));
    size_t bytes = 0;
    for (auto _ : state) {
        const ZAlembicObject shape = firstObject(file, state);
        ZVectorArray points;
        ZIntArray counts, indices, uvIndices;
        ZFloatArray uvs;
        const bool all = what == 0, pts = what != 2, uv = what != 1;
        for (int k = 0; k < shape.numSamples(); ++k) {
            shape.getPolyMeshData(pts ? &points : nullptr, nullptr, all ? &counts : nullptr, all ? &indices : nullptr,
                                  nullptr, nullptr, uv ? &uvs : nullptr, uv ? &uvIndices : nullptr, k);
            bytes += 12 * points.size() + 4 * (counts.size() + indices.size() + uvs.size() + uvIndices.size());
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

// numChildren and getChild(i) over every sibling, as ZSource's walk does.
void BM_AbcWide_Groomcore(benchmark::State& state) {
    const std::string file = dir() + "/wide_" + std::to_string(state.range(0)) + ".abc";
    size_t names = 0;
    for (auto _ : state) {
        ZAlembicArchive a;
        if (!a.open(file.c_str())) state.SkipWithError("cannot open");
        const ZAlembicObject top = a.topObject();
        for (int i = 0; i < top.numChildren(); ++i) {
            ZAlembicObject child;
            top.getChild(i, child);
            names += child.name().size();
        }
    }
    state.counters["name_chars"] = static_cast<double>(names) / static_cast<double>(state.iterations());
}

// Rebinding 1M strands of 16 CVs to the 1M-point grid of mesh.abc (2M triangles): the body
// is triangulated and the strands bound in parallel. With the `profile` preset it reports
// the serial fraction of a later frame (argument 1: 0) and of a first frame, whose call
// sizes the outputs (1).
void BM_SetRefIdxAndInvRot(benchmark::State& state) {
    const std::string file = dir() + "/mesh.abc";
    const int n = 1000000, cvs = 16;
    omp_set_num_threads(static_cast<int>(state.range(0)));
    const ZAlembicObject body = firstObject(file, state);
    ZFollicles f;
    f.tgl.setLength(n, false);
    f.axs.setLength(n, true);
    ZCurves rest;
    rest.numCVs.assign(static_cast<size_t>(n), cvs);
    rest.start.resize(static_cast<size_t>(n));
    rest.cvs.resize(static_cast<size_t>(n) * cvs);
    for (int i = 0; i < n; ++i) {
        f.tgl[i] = (2 * i) % 1996002;  // the grid's 999 x 999 quads, two triangles each
        rest.start[i] = i * cvs;
        for (int j = 0; j < cvs; ++j) rest.cvs[static_cast<size_t>(i) * cvs + j] = ZVector(float(i % 1000), float(j), 0.f);
    }
    ZIntArray refIdx;
    ZMatrixArray invRot;
    const bool firstFrame = state.range(1) != 0;
    bench::SerialFraction serial;
    auto call = [&] {
        ZCurves curves = rest;
        if (firstFrame) {  // outputs of another size: the call sizes them again
            ZIntArray().swap(refIdx);
            ZMatrixArray().swap(invRot);
        }
        serial.time([&] { setRefIdxAndInvRotAndCurves(0.0, body, f, &curves, &refIdx, &invRot); });
    };
    call();  // sizes the outputs; on later frames a host's outputs already have their size
    serial = bench::SerialFraction();
    for (auto _ : state) call();
    if (refIdx.length() != n) state.SkipWithError("the strands were not bound");
    serial.report(state);
}

struct Peer {
    double mesh = -1, tree = -1, full = -1, wide2500 = -1, wide10000 = -1;
};

const Peer& peer() {
    static Peer p;
    static bool ran = false;
    if (ran) return p;
    ran = true;
    const std::string cmd = std::string("'") + GROOMCORE_PYTHON + "' '" + GROOMCORE_BENCH_SOURCE_DIR +
                            "/alembic_bench_peer.py' read '" + dir() + "' " + std::to_string(kSamples);
    const std::string out = bench::run(cmd);
    auto number = [&](const char* key) { return bench::jsonNumber(out, key); };
    p.mesh = number("mesh_s");
    p.tree = number("tree_s");
    p.full = number("full_s");
    p.wide2500 = number("wide_2500_s");
    p.wide10000 = number("wide_10000_s");
    return p;
}

void BM_AbcMesh_Alembic3d(benchmark::State& state) {
    if (peer().mesh <= 0) state.SkipWithError("the alembic3d peer did not run");
    for (auto _ : state) state.SetIterationTime(peer().mesh);
}

void BM_AbcTree_Alembic3d(benchmark::State& state) {
    if (peer().tree <= 0) state.SkipWithError("the alembic3d peer did not run");
    for (auto _ : state) state.SetIterationTime(peer().tree);
}

void BM_AbcFullRead_Alembic3d(benchmark::State& state) {
    if (peer().full <= 0) state.SkipWithError("the alembic3d peer did not run");
    for (auto _ : state) state.SetIterationTime(peer().full);
}

void BM_AbcWide_Alembic3d(benchmark::State& state) {
    const double t = state.range(0) == 2500 ? peer().wide2500 : peer().wide10000;
    if (t <= 0) state.SkipWithError("the alembic3d peer did not run");
    for (auto _ : state) state.SetIterationTime(t);
}

} // namespace

BENCHMARK(BM_SetRefIdxAndInvRot)->Apply([](benchmark::internal::Benchmark* b) {
    for (int first : {0, 1})
        for (int t : bench::threadCounts()) b->Args({t, first});
    b->Unit(benchmark::kMillisecond)->UseRealTime();
});
BENCHMARK(BM_AbcFullRead_Groomcore)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcFullRead_Alembic3d)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcWide_Groomcore)->Arg(2500)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcWide_Alembic3d)->Arg(2500)->Arg(10000)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcMesh_Groomcore)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcMesh_Alembic3d)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcTree_Groomcore)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_AbcTree_Alembic3d)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
