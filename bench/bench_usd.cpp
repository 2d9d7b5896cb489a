// USD export of an animated groom (default 1M strands x 16 CVs, 24 frames): the attribute
// half once, then the geometry half per frame, into one file with a frame range and into
// per-frame files, all in one run:
//   - groomcore: ZCurvesToUSD, one frame per iteration;
//   - floor: the same arrays written raw with plain stream calls;
//   - peer: the same calls through usd-core's Usd/UsdGeom Python API
//     (bench/usd_export_peer.py), timed inside the script around the USD calls.
// Counters: bytes on disk, and for each frame the process's resident memory, so that the
// growth over a long shot shows (rss_first, rss_last; time of the first and last frames).
//
//   bench_usd   GROOMCORE_BENCH_STRANDS / _CVS / _FRAMES override the groom size;
//               GROOMCORE_BENCH_DIR the scratch directory (default: the temp dir).
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "common/AnimatedGroom.h"
#include "common/BuiltinGroom.h"
#include "usd/ZCurvesToUSD.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

const int kStrands = bench::envInt("GROOMCORE_BENCH_STRANDS", 1000000);
const int kCVs = bench::envInt("GROOMCORE_BENCH_CVS", 16);
const int kFrames = bench::envInt("GROOMCORE_BENCH_FRAMES", 24);

examples::AnimatedGroom& groom() {
    static std::unique_ptr<examples::AnimatedGroom> g;
    if (!g) {
        g = std::make_unique<examples::AnimatedGroom>(kStrands, kCVs);
        g->follicles.setTipWidth(0.002f, 0.004f, true);
        g->follicles.setRootWidth(0.01f, 0.02f, true);
    }
    return *g;
}

fs::path scratch() {
    static const fs::path p = bench::scratch("groomcore-bench-usd");
    return p;
}

using bench::bytesUnder;
using bench::seconds;
using bench::settle;

// Resident and peak resident memory of this process, in MiB.
double statusMiB(const char* key) {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind(key, 0) == 0) return std::atof(line.c_str() + std::strlen(key)) / 1024.0;
    return 0;
}

void setup(benchmark::State& state) {
    state.counters["strands"] = kStrands;
    state.counters["cvs"] = kCVs;
    state.counters["frames"] = kFrames;
}

// ------------------------------------------------------------------ groomcore

void exportShot(benchmark::State& state, bool perFrameFiles) {
    setup(state);
    examples::AnimatedGroom& g = groom();
    const fs::path dir = scratch() / (perFrameFiles ? "perframe" : "onefile");
    fs::remove_all(dir);
    fs::create_directories(dir);
    ZCurvesToUSD x;
    x.name = "ns:hair";
    x.basePath = (dir / "hair").string();
    x.follicles = &g.follicles;
    x.curves = &g.curves;
    x.boundingBox = &g.box;
    x.exportRatio = 1.f;
    x.perFrameFiles = perFrameFiles;
    x.hasFrameRange = !perFrameFiles;
    x.startTime = 1.f;
    x.endTime = static_cast<float>(kFrames);
    g.setFrame(1.f);
    state.counters["settled"] = settle();
    state.counters["attribute_s"] = seconds([&] { x.writeAttributeToUSD(true); });
    int frame = 0;
    double first = 0, last = 0, rssFirst = 0;
    for (auto _ : state) {
        g.setFrame(static_cast<float>(++frame));
        const double s = seconds([&] { x.writeGeometryToUSD(static_cast<float>(frame), true, false); });
        state.SetIterationTime(s);
        if (frame == 1) {
            first = s;
            rssFirst = statusMiB("VmRSS:");
        }
        last = s;
    }
    state.counters["first_frame_s"] = first;
    state.counters["last_frame_s"] = last;
    state.counters["rss_first_MiB"] = rssFirst;
    state.counters["rss_last_MiB"] = statusMiB("VmRSS:");
    state.counters["peak_MiB"] = statusMiB("VmHWM:");
    state.counters["bytes"] = static_cast<double>(bytesUnder(dir));
    x.stage.Reset();
    fs::remove_all(dir);
}

void BM_Usd_OneFile_Groomcore(benchmark::State& state) { exportShot(state, false); }
void BM_Usd_PerFrameFiles_Groomcore(benchmark::State& state) { exportShot(state, true); }

// ------------------------------------------------------------------ feathers

// A steady feather frame: 20k strands (GROOMCORE_BENCH_FEATHER_STRANDS) each carrying a
// 400-point feather mesh with its curves, placed rigidly, one file per frame. `reuse`: one
// exporter for the shot, as a host keeps it; otherwise a copy of it per frame, which
// gathers into arrays of its own (what every frame cost before the exporter kept them).
// Counters per frame, over every frame but the first: minor page faults and seconds.
void featherFrames(benchmark::State& state, bool reuse) {
    static const int strands = bench::envInt("GROOMCORE_BENCH_FEATHER_STRANDS", 20000);
    static std::unique_ptr<examples::AnimatedGroom> g;
    static ZFeather feather;
    static ZVectorArray scales, rotations;
    static ZFloatArray folds;
    if (!g) {
        g = std::make_unique<examples::AnimatedGroom>(strands, kCVs);
        examples::buildFeatherTemplate(40, 10, feather);
        g->follicles.rtp.assign(static_cast<size_t>(strands), 0);
        scales.assign(static_cast<size_t>(strands), ZVector(0.1f, 0.1f, 0.1f));
        rotations.assign(static_cast<size_t>(strands), ZVector(0.f, 0.f, 0.f));
        folds.assign(static_cast<size_t>(strands), 0.f);
    }
    const fs::path dir = scratch() / (reuse ? "feathers-reused" : "feathers-fresh");
    fs::remove_all(dir);
    fs::create_directories(dir);
    ZCurvesToUSD x;
    x.name = "plumage";
    x.basePath = (dir / "plumage").string();
    x.featherMode = true;
    x.perFrameFiles = true;
    x.follicles = &g->follicles;
    x.curves = &g->curves;
    x.boundingBox = &g->box;
    x.feathers = {&feather};
    x.scales = &scales;
    x.rotations = &rotations;
    x.folds = &folds;
    int frame = 0;
    double faults = 0, secs = 0;
    for (auto _ : state) {
        g->setFrame(static_cast<float>(++frame));
        for (int i = 0; i < strands; ++i) rotations[i].y = 0.01f * static_cast<float>(frame);
        ZCurvesToUSD fresh;
        if (!reuse) fresh = x;
        ZCurvesToUSD& writer = reuse ? x : fresh;
        const long before = bench::minorFaults();
        const double s = seconds([&] { writer.writeGeometryToUSD(static_cast<float>(frame), true, false); });
        state.SetIterationTime(s);
        if (frame > 1) {
            faults += static_cast<double>(bench::minorFaults() - before);
            secs += s;
        }
    }
    state.counters["faults_per_frame"] = frame > 1 ? faults / (frame - 1) : 0;
    state.counters["s_per_frame"] = frame > 1 ? secs / (frame - 1) : 0;
    state.counters["strands"] = strands;
    state.counters["bytes"] = static_cast<double>(bytesUnder(dir));
    fs::remove_all(dir);
}

void BM_Usd_FeatherFrames_Reused(benchmark::State& state) { featherFrames(state, true); }
void BM_Usd_FeatherFrames_Fresh(benchmark::State& state) { featherFrames(state, false); }

// ------------------------------------------------------------------ floor

// The arrays the export writes, raw: per frame the padded points and the extent; once the
// counts, widths, uids and st. They are also what the peer reads.
void BM_Usd_Floor(benchmark::State& state) {
    setup(state);
    examples::AnimatedGroom& g = groom();
    const fs::path dir = scratch() / "raw";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const ZCurves& c = g.curves;
    const ZFollicles& f = g.follicles;
    const int n = c.numCurves();
    {
        std::vector<int> counts(static_cast<size_t>(n));
        std::vector<float> widths, uids(static_cast<size_t>(n)), st(2 * static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            const int k = c.numCVs[i];
            counts[i] = k + 2;
            uids[i] = static_cast<float>(i);
            st[2 * i] = f.uvw[i].x;
            st[2 * i + 1] = f.uvw[i].y;
            const float r = f.rwh[i], t = f.twh[i];
            widths.push_back(r);
            for (int q = 0; q < k; ++q)
                widths.push_back(t + (r - t) * (1.f - static_cast<float>(q) / static_cast<float>(k - 1)));
            widths.push_back(t);
        }
        std::ofstream out((dir / "attributes.raw").string(), std::ios::binary);
        const int32_t sizes[4] = {n, static_cast<int32_t>(widths.size()), n, n};
        out.write(reinterpret_cast<const char*>(sizes), sizeof sizes);
        out.write(reinterpret_cast<const char*>(counts.data()), static_cast<std::streamsize>(counts.size() * 4));
        out.write(reinterpret_cast<const char*>(widths.data()), static_cast<std::streamsize>(widths.size() * 4));
        out.write(reinterpret_cast<const char*>(uids.data()), static_cast<std::streamsize>(uids.size() * 4));
        out.write(reinterpret_cast<const char*>(st.data()), static_cast<std::streamsize>(st.size() * 4));
    }
    std::vector<ZVector> points;
    state.counters["settled"] = settle();
    int frame = 0;
    for (auto _ : state) {
        g.setFrame(static_cast<float>(++frame));
        const std::string path = (dir / ("points." + std::to_string(frame) + ".raw")).string();
        state.SetIterationTime(seconds([&] {
            points.clear();
            for (int i = 0; i < n; ++i) {
                const ZVector* p = c.cvs.data() + c.start[i];
                const int k = c.numCVs[i];
                points.push_back(p[0]);
                points.insert(points.end(), p, p + k);
                points.push_back(p[k - 1]);
            }
            std::ofstream out(path, std::ios::binary);
            const int32_t count = static_cast<int32_t>(points.size());
            out.write(reinterpret_cast<const char*>(&count), 4);
            out.write(reinterpret_cast<const char*>(points.data()), static_cast<std::streamsize>(points.size() * 12));
            out.write(reinterpret_cast<const char*>(&g.box), 24);
        }));
    }
    state.counters["bytes"] = static_cast<double>(bytesUnder(dir));
}

// ------------------------------------------------------------------ usd-core peer

struct PeerResult {
    bool ok = false;
    double oneFile = 0, perFrame = 0, oneFirst = 0, oneLast = 0, peakMiB = 0, rssFirst = 0, rssLast = 0;
    double bytesOne = 0, bytesPer = 0;
};

PeerResult& peer() {
    static PeerResult r;
    static bool ran = false;
    if (ran) return r;
    ran = true;
    const std::string cmd = std::string("'") + GROOMCORE_PYTHON + "' '" + GROOMCORE_BENCH_SOURCE_DIR +
                            "/usd_export_peer.py' '" + (scratch() / "raw").string() + "' " + std::to_string(kFrames) +
                            " '" + (scratch() / "peer").string() + "'";
    settle();
    const std::string out = bench::run(cmd);
    auto number = [&](const char* key) { return bench::jsonNumber(out, key); };
    r.oneFile = number("one_file_s_per_frame");
    r.perFrame = number("per_frame_s_per_frame");
    r.oneFirst = number("one_file_first_s");
    r.oneLast = number("one_file_last_s");
    r.rssFirst = number("rss_first_MiB");
    r.rssLast = number("rss_last_MiB");
    r.peakMiB = number("peak_MiB");
    r.bytesOne = number("one_file_bytes");
    r.bytesPer = number("per_frame_bytes");
    r.ok = r.oneFile > 0 && r.perFrame > 0;
    return r;
}

void BM_Usd_OneFile_Peer(benchmark::State& state) {
    setup(state);
    const PeerResult& r = peer();
    if (!r.ok) state.SkipWithError("the usd-core peer did not run");
    for (auto _ : state) state.SetIterationTime(r.oneFile);
    state.counters["first_frame_s"] = r.oneFirst;
    state.counters["last_frame_s"] = r.oneLast;
    state.counters["rss_first_MiB"] = r.rssFirst;
    state.counters["rss_last_MiB"] = r.rssLast;
    state.counters["peak_MiB"] = r.peakMiB;
    state.counters["bytes"] = r.bytesOne;
}

void BM_Usd_PerFrameFiles_Peer(benchmark::State& state) {
    setup(state);
    const PeerResult& r = peer();
    if (!r.ok) state.SkipWithError("the usd-core peer did not run");
    for (auto _ : state) state.SetIterationTime(r.perFrame);
    state.counters["bytes"] = r.bytesPer;
}

void cleanup(benchmark::State& state) {
    for (auto _ : state) {}
    fs::remove_all(scratch());
}

} // namespace

BENCHMARK(BM_Usd_OneFile_Groomcore)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Usd_PerFrameFiles_Groomcore)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Usd_FeatherFrames_Fresh)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Usd_FeatherFrames_Reused)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Usd_Floor)->Iterations(kFrames)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Usd_OneFile_Peer)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Usd_PerFrameFiles_Peer)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(cleanup)->Iterations(1);

BENCHMARK_MAIN();
