// An example host: what a DCC plug-in does with groomcore, end to end, on built-in data.
//
// It builds a body (a UV sphere with per-corner surface coordinates and per-vertex
// frames), grows a few thousand strands on it, computes their root frames and lean axes,
// draws random widths and opacities, runs a stack of modifiers driven by artist
// expressions (width, opacity, direction, scale, cut, offset), writes the static and the
// per-frame follicle records the way a cache does, reads them back into a fresh set,
// places a feather template along every strand, saves and reloads the feather, and prints
// a short summary.
//
//   groom_host OUTPUT_DIR [STRAND_COUNT]

#include <omp.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <vector>

#include "base/UlmexBase.h"
#include "common/BuiltinGroom.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"
#include "strands/ZFollicles.h"

using namespace Ulmex;

namespace {

// The modifier stack of this host: every modifier is configured once (a host sets every
// public parameter; the library has no defaults) and applied in the host's order.
struct Stack {
    ZWidthModifier width;
    ZOpacityModifier opacity;
    ZDirectionModifier direction;
    ZScaleModifier scale;
    ZCutModifier cut;
    ZOffsetModifier offset;

    Stack() {
        width.tWidth = 0.003f; width.tSeed = 1; width.tRand = 0.3f; width.tFreq = 3;
        width.tExpr = "tWidth * clamp(0.6 + 0.4 * znoise(freq, x, y, z) + 0.2 * (v > 0.5), 0.1, 1.5)";
        width.rWidth = 0.015f; width.rSeed = 2; width.rRand = 0; width.rFreq = 1;
        width.rExpr = "rWidth";
        opacity.tOpacity = 0.4f; opacity.tSeed = 1; opacity.tRand = 0; opacity.tFreq = 1;
        opacity.tExpr = "tOpacity + 0.2 * znoise(5, x, y, z)";
        opacity.rOpacity = 1; opacity.rSeed = 1; opacity.rRand = 0; opacity.rFreq = 1;
        opacity.rExpr = "rOpacity";
        // Comb the strands down the body: pitch towards the lean, a little yaw noise.
        direction.pitch = 55; direction.pitchSeed = 3; direction.pitchRand = 0; direction.pitchFreq = 2;
        direction.pitchExpr = "pitch + 15 * znoise(freq, x, y, z)";
        direction.yaw = 0; direction.yawSeed = 4; direction.yawRand = 0; direction.yawFreq = 4;
        direction.yawExpr = "20 * znoise(freq, x, y, z)";
        direction.maskExpr = "";
        scale.scale = 1; scale.seed = 5; scale.rand = 0.25f; scale.freq = 1;
        scale.expr = "scale + rand * znoise(6, x, y, z)";
        scale.maskExpr = "";
        // Trim a random tenth of the strands to 60-90% of their length.
        cut.cut = 0.75f; cut.seed = 6; cut.rand = 0.15f; cut.freq = 1;
        cut.expr = "cut + rand * znoise(9, x, y, z)";
        cut.maskExpr = "0.9";
        offset.offset = 0.002f; offset.seed = 7; offset.rand = 0; offset.freq = 1;
        offset.expr = "offset";
        offset.maskExpr = "";
        offset.alongStrand = false;
    }

    void apply(ZFollicles& f, ZCurves& c) {
        const ZCurves rest = c;
        width.apply(f, c, rest);
        opacity.apply(f, c, rest);
        direction.apply(f, c, rest);
        scale.apply(f, c, rest);
        cut.apply(f, c, rest);
        offset.apply(f, c, rest);
    }
};

bool sameData(const ZFollicles& a, const ZFollicles& b) {
    return a.uid == b.uid && a.rtp == b.rtp && a.tgl == b.tgl && a.bcc == b.bcc && a.uvw == b.uvw &&
           a.nmp == b.nmp && a.ln0 == b.ln0 && a.ln1 == b.ln1 && a.rxy == b.rxy && a.twh == b.twh &&
           a.rwh == b.rwh && a.top == b.top && a.rop == b.rop && a.bdi == b.bdi && a.bdw == b.bdw &&
           a.axs == b.axs && a.maxLn0 == b.maxLn0 && a.maxLn1 == b.maxLn1;
}

template <typename F>
double millis(F&& f) {
    const auto t0 = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: groom_host OUTPUT_DIR [STRAND_COUNT]\n";
        return 2;
    }
    const std::string outDir = argv[1];
    const int count = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5000;
    const int cvCount = 8;
    const float frame = 1001.f;

    ZTriMesh body;
    ZAxisArray frames;
    examples::buildSphere(1.f, 24, 48, body, frames);

    ZFollicles groom;
    ZCurves curves;
    examples::growStrands(body, frames, count, cvCount, 0.325f, groom, curves);

    double tAxes = 0, tRxy = 0, tStack = 0, tDeformOnly = 0;
    tAxes = millis([&] {
        if (!groom.updateAxes(body, frames, true)) std::exit(1);
    });
    tRxy = millis([&] {
        if (!groom.calcRxy(curves, true)) std::exit(1);
    });
    groom.setTipWidth(0.002f, 0.004f, true);
    groom.setRootWidth(0.01f, 0.02f, true);
    groom.setTipOpacity(0.3f, 0.6f, true);
    groom.setRootOpacity(0.9f, 1.f, true);
    const ZCurves grown = curves;
    Stack stack;
    tStack = millis([&] { stack.apply(groom, curves); });
    // The next frame: nothing changed, so every evaluate returns at once and only the
    // deforms run (on the grown strands again).
    ZCurves again = grown;
    ZFollicles sameGroom = groom;
    tDeformOnly = millis([&] { stack.apply(sameGroom, again); });
    const bool reproducible = again == curves && sameGroom.twh == groom.twh;

    // Write as a cache does: the static record once, then curves and the per-frame record
    // of the frame in one file.
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(outDir).parent_path(), ec);
    if (!ZCreateDirectory(outDir.c_str(), 0755)) {
        std::cerr << "cannot create " << outDir << "\n";
        return 1;
    }
    const std::string staticPath = outDir + "/follicles";
    const std::string framePath = outDir + "/curves_" + std::string(frame < 0.f ? "m" : "p") + std::string(ZString(frame));
    {
        std::ofstream out(staticPath, std::ios::binary | std::ios::trunc);
        groom.write(out, true);
        std::ofstream perFrame(framePath, std::ios::binary | std::ios::trunc);
        curves.write(perFrame);
        groom.write(perFrame, false);
        if (!out || !perFrame) {
            std::cerr << "cannot write to " << outDir << "\n";
            return 1;
        }
    }

    // Read back as a host loading the cache would.
    ZFollicles loaded;
    loaded.reset();
    ZCurves loadedCurves;
    {
        std::ifstream in(staticPath, std::ios::binary);
        loaded.read(in);
        std::ifstream perFrame(framePath, std::ios::binary);
        if (!loadedCurves.read(perFrame)) {
            std::cerr << "cannot read curves back\n";
            return 1;
        }
        loaded.read(perFrame);
    }
    const bool roundTrip = sameData(groom, loaded) && loadedCurves == curves;

    // Feathers: a template placed along every strand, with a fold, and kept the way a
    // cache keeps its feathers (a count, then one geometry record each).
    ZFeather feather;
    examples::buildFeatherTemplate(30, 7, feather);
    ZVectorArray placed(feather.mesh.points.size());
    ZBoundingBox plumage;
    const double tFeathers = millis([&] {
        for (int i = 0; i < groom.numStrands(); ++i) {
            feather.deform(loaded, loadedCurves, i, 1.f, 0.3f, &placed, nullptr, nullptr, false);
            for (const ZVector& p : placed) plumage.expand(p);
        }
    });
    const std::string featherPath = outDir + "/feathers";
    {
        std::ofstream out(featherPath, std::ios::binary | std::ios::trunc);
        const int32_t count = 1;
        out.write(reinterpret_cast<const char*>(&count), sizeof count);
        feather.write(out);
    }
    ZFeather loadedFeather;
    {
        std::ifstream in(featherPath, std::ios::binary);
        int32_t count = 0;
        readPod(in, count);
        if (count == 1) loadedFeather.read(in);
        loadedFeather.initialize();
    }
    const bool featherTrip = loadedFeather.mesh == feather.mesh && loadedFeather.curves == feather.curves &&
                             loadedFeather.lattice.numVertices() == 3 * (3 + 1);

    double meanTip = 0, meanRoot = 0, lean = 0;
    for (int i = 0; i < loaded.numStrands(); ++i) {
        meanTip += loaded.twh[i];
        meanRoot += loaded.rwh[i];
        lean += std::hypot(loaded.rxy[i][0], loaded.rxy[i][1]);
    }
    const int n = loaded.numStrands();
    std::cout << std::fixed << std::setprecision(4);
    std::cout << "groomcore example host\n"
              << "  body:        " << body.numVertices() << " points, " << body.numTriangles() << " triangles\n"
              << "  strands:     " << n << " x " << cvCount << " CVs, total length "
              << [&] { double l = 0; for (int i = 0; i < n; ++i) l += loadedCurves.lineLength(i); return l; }() << "\n"
              << "  threads:     " << omp_get_max_threads() << "\n"
              << "  updateAxes:  " << tAxes << " ms, calcRxy: " << tRxy << " ms\n"
              << "  modifiers:   width, opacity, direction, scale, cut, offset: " << tStack
              << " ms; unchanged re-apply " << tDeformOnly << " ms, " << (reproducible ? "same result" : "DIFFERENT")
              << "\n"
              << "  width expr:  " << stack.width.tExpr << "\n"
              << "  cut strands: " << [&] { int k = 0; for (char m : stack.cut.maskFlags) k += !m; return k; }()
              << " of " << n << " trimmed\n"
              << "  tip width:   mean " << meanTip / n << "\n"
              << "  root width:  mean " << meanRoot / n << "\n"
              << "  |rxy| mean:  " << lean / n << "\n"
              << "  memory:      " << loaded.usedMemorySize(ZDataUnit::zKilobytes) << " KiB of attributes\n"
              << "  files:       " << staticPath << ", " << framePath << "\n"
              << "  round trip:  " << (roundTrip ? "identical" : "DIFFERENT") << "\n"
              << "  feathers:    " << feather.mesh.numVertices() << "-point template on " << n << " strands in "
              << tFeathers << " ms, plumage box " << plumage.minPoint << " to " << plumage.maxPoint << "\n"
              << "  feather file " << featherPath << ": " << (featherTrip ? "read back" : "DIFFERENT") << "\n";
    return roundTrip && reproducible && featherTrip ? 0 : 1;
}
