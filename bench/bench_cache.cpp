// The strand cache against its floor and its peer, on one animated groom (default 1M
// strands x 16 CVs over 24 frames), all in one run:
//   - groomcore: bakePerFrameData and readStrandsData, one frame per iteration;
//   - floor: the same bytes written and read with plain stream calls on reused buffers;
//   - peer: the same strands (CVs and one float per strand each frame, counts once) as an
//     Alembic curves cache through the real Alembic library (bench/alembic_curves_peer.py
//     on alembic3d), timed inside the script around the library calls.
// Posing the groom for a frame is not timed. Times are per frame (manual time); the
// counter `bytes` is what each writes to disk for the whole shot. Run it as root for
// comparable bake times (see settle()).
//
//   bench_cache [--benchmark_filter=...]   GROOMCORE_BENCH_STRANDS / _CVS / _FRAMES override
//   the groom size; GROOMCORE_BENCH_DIR the scratch directory (default: the temp dir).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "BenchSupport.h"
#include "cache/RuvoMisc.h"
#include "cache/ZCacheData.h"
#include "common/AnimatedGroom.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

const int kStrands = bench::envInt("GROOMCORE_BENCH_STRANDS", 1000000);
const int kCVs = bench::envInt("GROOMCORE_BENCH_CVS", 16);
const int kFrames = bench::envInt("GROOMCORE_BENCH_FRAMES", 24);

examples::AnimatedGroom& groom() {
    static std::unique_ptr<examples::AnimatedGroom> g;
    if (!g) g = std::make_unique<examples::AnimatedGroom>(kStrands, kCVs);
    return *g;
}

fs::path scratch() {
    static const fs::path p = bench::scratch("groomcore-bench-cache");
    return p;
}

using bench::bytesUnder;
using bench::seconds;
using bench::settle;

void setup(benchmark::State& state) {
    state.counters["strands"] = kStrands;
    state.counters["cvs"] = kCVs;
    state.counters["frames"] = kFrames;
}

// ------------------------------------------------------------------ groomcore

void BM_Bake_Groomcore(benchmark::State& state) {
    setup(state);
    examples::AnimatedGroom& g = groom();
    const fs::path root = scratch() / "groomcore";
    fs::remove_all(root);
    fs::create_directories(root);
    ZCacheData cache;
    cache.nodeName = "hair";
    cache.follicles = &g.follicles;
    cache.curves = &g.curves;
    cache.boundingBox = &g.box;
    if (!cache.bakeStaticData(root.string())) state.SkipWithError("static bake failed");
    state.counters["settled"] = settle();
    int frame = 0;
    for (auto _ : state) {
        g.setFrame(static_cast<float>(++frame));
        bool ok = true;
        state.SetIterationTime(seconds([&] { ok = cache.bakePerFrameData(root.string(), static_cast<float>(frame)); }));
        if (!ok) state.SkipWithError("bake failed");
    }
    state.counters["bytes"] = static_cast<double>(bytesUnder(root));
}

// The checks a bake makes before it writes anything (pointers, curves inside their CVs,
// per-strand arrays of one element per strand), alone: a bake into a directory that does
// not exist runs them in full, then stops at its first file. To set beside the bake.
void BM_BakeChecks_Groomcore(benchmark::State& state) {
    setup(state);
    examples::AnimatedGroom& g = groom();
    ZCacheData cache;
    cache.nodeName = "hair";
    cache.follicles = &g.follicles;
    cache.curves = &g.curves;
    cache.boundingBox = &g.box;
    const std::string missing = (scratch() / "no-such-directory").string();
    Ulmex::ZSetMessageSink([](const std::string&, void*) {}, nullptr);  // its one failure line
    for (auto _ : state)
        state.SetIterationTime(seconds([&] { benchmark::DoNotOptimize(cache.bakePerFrameData(missing, 1.f)); }));
    Ulmex::ZSetMessageSink(nullptr, nullptr);
}

void BM_Read_Groomcore(benchmark::State& state) {
    setup(state);
    const std::string dir = (scratch() / "groomcore" / "hair").string();
    ZCurves curves;
    ZFollicles follicles;
    int frame = 0;
    double checksum = 0;
    for (auto _ : state) {
        ++frame;
        bool ok = true;
        state.SetIterationTime(seconds([&] { ok = readStrandsData(dir, frame, &curves, &follicles); }));
        if (!ok) state.SkipWithError("read failed");
        checksum += curves.cvs.back().x + follicles.ln1.back();
    }
    benchmark::DoNotOptimize(checksum);
}

// ------------------------------------------------------------------ floor

template <typename T>
void put(std::ofstream& out, const T* data, size_t count) {
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(count * sizeof(T)));
}

template <typename T>
void putCounted(std::ofstream& out, const ZArray<T>& a) {
    const int32_t n = a.length();
    put(out, &n, 1);
    put(out, a.data(), a.size());
}

void putTag(std::ofstream& out, const char* tag) {
    const int32_t n = 3;
    put(out, &n, 1);
    put(out, tag, 3);
}

// The per-frame file's bytes, written straight from the arrays.
void floorWrite(const std::string& path, const ZCurves& c, const ZFollicles& f) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    putCounted(out, c.numCVs);
    putCounted(out, c.start);
    putCounted(out, c.cvs);
    const int32_t n = f.numStrands(), sections = 2;
    put(out, &n, 1);
    put(out, &sections, 1);
    putTag(out, "ln1");
    put(out, f.ln1.data(), f.ln1.size());
    put(out, &f.maxLn1, 1);
    putTag(out, "axs");
    put(out, f.axs.data(), f.axs.size());
}

template <typename T>
void getCounted(std::ifstream& in, ZArray<T>& a) {
    int32_t n = 0;
    in.read(reinterpret_cast<char*>(&n), sizeof n);
    a.resize(static_cast<size_t>(n));
    in.read(reinterpret_cast<char*>(a.data()), static_cast<std::streamsize>(a.size() * sizeof(T)));
}

// The static record's bytes as one block into a reused buffer (readStrandsData reads the
// static record for every frame), then the per-frame file into reused arrays.
void floorRead(const std::string& staticPath, std::vector<char>& staticBytes, const std::string& path, ZCurves& c,
               ZFollicles& f) {
    {
        std::ifstream in(staticPath, std::ios::binary | std::ios::ate);
        staticBytes.resize(static_cast<size_t>(in.tellg()));
        in.seekg(0);
        in.read(staticBytes.data(), static_cast<std::streamsize>(staticBytes.size()));
    }
    std::ifstream in(path, std::ios::binary);
    getCounted(in, c.numCVs);
    getCounted(in, c.start);
    getCounted(in, c.cvs);
    int32_t head[2 + 1];
    char tag[3];
    in.read(reinterpret_cast<char*>(head), 3 * sizeof(int32_t));
    in.read(tag, 3);
    f.ln1.resize(static_cast<size_t>(head[0]));
    in.read(reinterpret_cast<char*>(f.ln1.data()), static_cast<std::streamsize>(f.ln1.size() * sizeof(float)));
    in.read(reinterpret_cast<char*>(&f.maxLn1), sizeof(float));
    in.read(reinterpret_cast<char*>(head), sizeof(int32_t));
    in.read(tag, 3);
    f.axs.resize(static_cast<size_t>(head[0] > 0 ? f.ln1.size() : 0));
    in.read(reinterpret_cast<char*>(f.axs.data()), static_cast<std::streamsize>(f.axs.size() * sizeof(ZAxis)));
}

void BM_Bake_Floor(benchmark::State& state) {
    setup(state);
    examples::AnimatedGroom& g = groom();
    const fs::path root = scratch() / "floor";
    fs::remove_all(root);
    fs::create_directories(root);
    {
        std::ofstream out((root / "follicles").string(), std::ios::binary);
        g.follicles.write(out, true);
    }
    state.counters["settled"] = settle();
    int frame = 0;
    for (auto _ : state) {
        g.setFrame(static_cast<float>(++frame));
        const std::string path = (root / ("curves_p" + std::to_string(frame))).string();
        state.SetIterationTime(seconds([&] { floorWrite(path, g.curves, g.follicles); }));
    }
    state.counters["bytes"] = static_cast<double>(bytesUnder(root));
    // The floor writes what the cache writes, or the comparison means nothing.
    std::ifstream a((root / "curves_p1").string(), std::ios::binary);
    std::ifstream b((scratch() / "groomcore" / "hair" / "curves_p1").string(), std::ios::binary);
    if (fs::exists(scratch() / "groomcore") &&
        !std::equal(std::istreambuf_iterator<char>(a), {}, std::istreambuf_iterator<char>(b), {}))
        state.SkipWithError("the floor's bytes differ from the cache's");
}

void BM_Read_Floor(benchmark::State& state) {
    setup(state);
    const fs::path root = scratch() / "floor";
    ZCurves curves;
    ZFollicles follicles;
    std::vector<char> staticBytes;
    const std::string staticPath = (root / "follicles").string();
    int frame = 0;
    double checksum = 0;
    for (auto _ : state) {
        const std::string path = (root / ("curves_p" + std::to_string(++frame))).string();
        state.SetIterationTime(seconds([&] { floorRead(staticPath, staticBytes, path, curves, follicles); }));
        checksum += curves.cvs.back().x + follicles.ln1.back();
    }
    benchmark::DoNotOptimize(checksum);
    fs::remove_all(root);
}

// ------------------------------------------------------------------ Alembic peer

struct PeerResult {
    bool ok = false;
    double write = 0, read = 0, bytes = 0;
};

PeerResult& peer() {
    static PeerResult r;
    static bool ran = false;
    if (ran) return r;
    ran = true;
    const fs::path abc = scratch() / "peer.abc";
    const std::string cmd = std::string("'") + GROOMCORE_PYTHON + "' '" + GROOMCORE_BENCH_SOURCE_DIR +
                            "/alembic_curves_peer.py' '" + (scratch() / "groomcore" / "hair").string() + "' " +
                            std::to_string(kFrames) + " '" + abc.string() + "'";
    settle();
    const std::string out = bench::run(cmd);
    auto number = [&](const char* key) { return bench::jsonNumber(out, key); };
    r.write = number("write_s_per_frame");
    r.read = number("read_s_per_frame");
    r.bytes = number("bytes");
    r.ok = r.write > 0 && r.read > 0;
    fs::remove(abc);
    return r;
}

void BM_Bake_AlembicPeer(benchmark::State& state) {
    setup(state);
    const PeerResult& r = peer();
    if (!r.ok) state.SkipWithError("the Alembic peer did not run");
    for (auto _ : state) state.SetIterationTime(r.write);
    state.counters["bytes"] = r.bytes;
}

void BM_Read_AlembicPeer(benchmark::State& state) {
    setup(state);
    const PeerResult& r = peer();
    if (!r.ok) state.SkipWithError("the Alembic peer did not run");
    for (auto _ : state) state.SetIterationTime(r.read);
}

void cleanup(benchmark::State& state) {
    for (auto _ : state) {}
    fs::remove_all(scratch());
}

} // namespace

// Each method bakes from a settled machine, then reads its own frames back while they are
// still in the page cache, as the peer's script does.
BENCHMARK(BM_Bake_Groomcore)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_BakeChecks_Groomcore)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_Groomcore)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bake_Floor)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_Floor)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bake_AlembicPeer)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_AlembicPeer)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(cleanup)->Iterations(1);

BENCHMARK_MAIN();
