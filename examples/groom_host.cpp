// An example host: what a DCC plug-in does with groomcore, end to end, on built-in data.
//
// It builds a body (a UV sphere with per-corner surface coordinates), and with the host
// toolkit its per-vertex frames (again for every pose), a few thousand roots and their
// guides; it computes the strands' root frames and lean axes,
// draws random widths and opacities, and runs a stack of modifiers driven by artist
// expressions (width, opacity, direction, scale, cut, offset). Two feather templates and
// a source mesh are placed along some of the strands. Then it animates the shot (the body
// turns and walks, the strands follow and sway) and bakes it to a cache directory over 24
// frames, with the feathers, the source and per-strand feather transforms and folds. A
// second pass tests the cache, reads its info record and every frame back into fresh
// objects, and checks each bit for bit against the shot; it prints the cache's size and
// the time per frame. Last it exports the shot to USD at both levels of detail: the
// strands as curves gathered in one file per level, the feathered groom as one file per
// frame. With an Alembic body file it finds the body shape in it and rebinds the strands
// to it; with an Alembic source file it loads the source's mesh from there.
//
//   groom_host OUTPUT_DIR [STRAND_COUNT]

#include <omp.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <iostream>
#include <vector>

#include "base/UlmexBase.h"
#include "cache/RuvoMisc.h"
#include "cache/ZCacheData2.h"
#include "common/AnimatedGroom.h"
#include "common/BuiltinGroom.h"
#include "feathers/ZSource.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"
#include "strands/ZFollicles.h"
#include "usd/ZCurvesToUSD.h"

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

template <typename F>
double millis(F&& f) {
    const auto t0 = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
}


// Bit-for-bit equality of two arrays (== on floats would let -0 pass for 0 and fail NaN).
template <typename T>
bool sameBits(const ZArray<T>& a, const ZArray<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool sameFrame(const ZFollicles& a, const ZCurves& ca, const ZFollicles& b, const ZCurves& cb) {
    return sameBits(ca.numCVs, cb.numCVs) && sameBits(ca.start, cb.start) && sameBits(ca.cvs, cb.cvs) &&
           sameBits(a.uid, b.uid) && sameBits(a.rtp, b.rtp) && sameBits(a.tgl, b.tgl) && sameBits(a.bcc, b.bcc) &&
           sameBits(a.uvw, b.uvw) && sameBits(a.nmp, b.nmp) && sameBits(a.ln0, b.ln0) && sameBits(a.ln1, b.ln1) &&
           sameBits(a.rxy, b.rxy) && sameBits(a.twh, b.twh) && sameBits(a.rwh, b.rwh) && sameBits(a.top, b.top) &&
           sameBits(a.rop, b.rop) && a.bdi == b.bdi && a.bdw == b.bdw && sameBits(a.axs, b.axs) &&
           std::memcmp(&a.maxLn0, &b.maxLn0, 4) == 0 && std::memcmp(&a.maxLn1, &b.maxLn1, 4) == 0;
}

uint64_t bytesUnder(const std::string& dir) {
    uint64_t total = 0;
    for (const auto& e : std::filesystem::directory_iterator(dir))
        if (e.is_regular_file()) total += e.file_size();
    return total;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: groom_host OUTPUT_DIR [STRAND_COUNT [BODY_ABC [SOURCE_ABC]]]\n"
                     "       groom_host OUTPUT_DIR --export-body BODY_RAW\n";
        return 2;
    }
    const std::string outDir = argv[1];
    if (argc == 4 && std::string(argv[2]) == "--export-body") {
        // The rest body as raw arrays, for write_example_abc.py to write as Alembic.
        examples::AnimatedGroom rest(1, 2);
        std::ofstream out(argv[3], std::ios::binary);
        rest.restBody.points.write(out, true);
        rest.restBody.v012.write(out, true);
        return out ? 0 : 1;
    }
    const int count = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5000;
    const std::string bodyAbc = argc > 3 ? argv[3] : "", sourceAbc = argc > 4 ? argv[4] : "";
    const int cvCount = 8;
    const int firstFrame = 1001, frameCount = 24;

    // The groom at rest: grown, framed, combed and shaped.
    examples::AnimatedGroom shot(count, cvCount);
    ZFollicles& groom = shot.follicles;
    double tAxes = millis([&] {
        if (!groom.updateAxes(shot.restBody, shot.restFrames, true)) std::exit(1);
    });
    double tRxy = millis([&] {
        if (!groom.calcRxy(shot.restCurves, true)) std::exit(1);
    });
    groom.setTipWidth(0.002f, 0.004f, true);
    groom.setRootWidth(0.01f, 0.02f, true);
    groom.setTipOpacity(0.3f, 0.6f, true);
    groom.setRootOpacity(0.9f, 1.f, true);
    const ZCurves grown = shot.restCurves;
    Stack stack;
    const double tStack = millis([&] { stack.apply(groom, shot.restCurves); });
    // The next frame: nothing changed, so every evaluate returns at once and only the
    // deforms run (on the grown strands again).
    ZCurves again = grown;
    ZFollicles sameGroom = groom;
    const double tDeformOnly = millis([&] { stack.apply(sameGroom, again); });
    const bool reproducible = again == shot.restCurves && sameGroom.twh == groom.twh;

    // Two feather templates, a contour feather on two strands in three and a small covert
    // on the rest, each with a per-strand scale, rotation and fold; and a source mesh.
    ZFeather contour, covert;
    examples::buildFeatherTemplate(30, 7, contour);
    examples::buildFeatherTemplate(12, 5, covert);
    covert.name = "builtin:covert";
    const int n = groom.numStrands();
    ZVectorArray scales(static_cast<size_t>(n)), rotations(static_cast<size_t>(n));
    ZFloatArray folds(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        groom.rtp[i] = i % 3 == 2 ? 1 : 0;
        const float r = ZRandomUnit(static_cast<uint32_t>(groom.uid[i]) * 7u);
        scales[i] = ZVector(0.8f + 0.4f * r, 1.f, 1.f);
        rotations[i] = ZVector(0.f, 40.f * r - 20.f, 0.f);
    }
    ZSource leaf;
    leaf.name = "builtin:leaf";
    leaf.mesh = covert.mesh;
    leaf.curves = covert.curves;
    leaf.txAssetName = "leaf_tex";
    leaf.txLayerName = "diffuse";
    leaf.latticeResolution = 4;
    if (!sourceAbc.empty()) leaf.setAlembic(sourceAbc);  // the source's mesh from a file
    leaf.initialize();
    const bool leafFromFile = !sourceAbc.empty() && leaf.mesh.points.length() != covert.mesh.points.length();

    ZVectorArray placed(contour.mesh.points.size()), placedLeaf(leaf.mesh.points.size());
    ZBoundingBox plumage, foliage;
    const double tFeathers = millis([&] {
        for (int i = 0; i < n; ++i) {
            const ZFeather& f = groom.rtp[i] == 0 ? contour : covert;
            placed.resize(f.mesh.points.size());
            f.deform(groom, shot.restCurves, i, scales[i].x, 0.3f, &placed, nullptr, nullptr, false);
            for (const ZVector& p : placed) plumage.expand(p);
        }
    });
    for (int i = 0; i < n; i += 10) {
        leaf.deform(groom, shot.restCurves, i, 0.5f, 0.f, &placedLeaf, nullptr, nullptr, false);
        for (const ZVector& p : placedLeaf) foliage.expand(p);
    }

    // Bake the shot: the static files once, then one set of files per frame.
    std::error_code ec;
    std::filesystem::create_directories(outDir, ec);
    ZCacheData2 cache;
    cache.nodeName = "hair";
    cache.nodeType = "groomcoreExample";
    cache.meshNodeName = "bodyShape";
    cache.bindingScheme = 4;
    cache.textureType = 0;
    cache.follicles = &groom;
    cache.curves = &shot.curves;
    cache.boundingBox = &shot.box;
    cache.feathers = {&contour, &covert};
    cache.sources = {&leaf};
    cache.scales = &scales;
    cache.rotations = &rotations;
    cache.folds = &folds;
    shot.setFrame(static_cast<float>(firstFrame));
    if (!cache.bakeStaticData(outDir)) return 1;
    const bool interactive = ::isatty(1);
    double tBake = 0;
    for (int k = 0; k < frameCount; ++k) {
        const int frame = firstFrame + k;
        shot.setFrame(static_cast<float>(frame));
        for (int i = 0; i < n; ++i) folds[i] = 0.3f + 0.1f * std::sin(0.3f * static_cast<float>(frame) + static_cast<float>(i));
        bool ok = true;
        tBake += millis([&] { ok = cache.bakePerFrameData(outDir, static_cast<float>(frame)); });
        if (!ok) return 1;
        // One progress line, rewritten in place on a terminal; a log gets every sixth frame.
        if (interactive)
            std::cout << "\r  baking frame " << frame << " (" << k + 1 << "/" << frameCount << ")" << std::flush;
        else if ((k + 1) % 6 == 0 || k + 1 == frameCount)
            std::cout << "  baked frame " << frame << " (" << k + 1 << "/" << frameCount << ")\n";
    }
    if (interactive) std::cout << "\n";

    // Second pass, as a farm job would: test the cache, read its record, load every frame
    // into fresh objects and compare it with the shot.
    const std::string cacheDir = outDir + "/hair";
    RuvoCacheInfo info{};
    const bool found = isValidCachePathAndCacheName(outDir, "hair") && readInfoData(cacheDir, &info);
    int identical = 0;
    double tRead = 0;
    for (int k = frameCount - 1; k >= 0; --k) {
        const int frame = firstFrame + k;
        ZCurves curves;
        ZFollicles loaded;
        bool ok = false;
        tRead += millis([&] { ok = readStrandsData(cacheDir, frame, &curves, &loaded); });
        shot.setFrame(static_cast<float>(frame));
        identical += ok && sameFrame(groom, shot.curves, loaded, curves);
    }
    // The feather templates come back with the library's reader of the cache's feather files.
    std::vector<ZFeather> loadedFeathers;
    const bool feathersRead = readFeathersData(cacheDir, &loadedFeathers) && loadedFeathers.size() == 2;
    const bool featherTrip = feathersRead && loadedFeathers[0].mesh == contour.mesh &&
                             loadedFeathers[1].curves == covert.curves && loadedFeathers[1].name == covert.name;
    const bool cacheTrip = found && identical == frameCount && featherTrip;

    // The body as animation delivers it: found by name in an Alembic file, and the groom
    // rebound to it at rest: a reference corner and the inverse root frame per strand, and
    // the strands relative to their roots.
    std::string rebindLine = "no body file given";
    if (!bodyAbc.empty()) {
        ZAlembicObject bodyShape;
        if (!findBodyMeshShapeNode(bodyAbc, "Body", &bodyShape)) {
            std::cerr << "no single body shape in " << bodyAbc << "\n";
            return 1;
        }
        ZFollicles rest = groom;
        rest.updateAxes(shot.restBody, shot.restFrames, true);
        ZCurves rebound = shot.restCurves;
        ZIntArray refIdx;
        ZMatrixArray invRot;
        const double tRebind = millis([&] { setRefIdxAndInvRotAndCurves(0.0, bodyShape, rest, &rebound, &refIdx, &invRot); });
        // Each reference is a corner of the strand's triangle, each inverse frame takes the
        // triangle's outward normal to +z, and every root sits at zero.
        int cornersOk = 0, rootsAtZero = 0;
        double normalError = 0;
        for (int i = 0; i < n; ++i) {
            const ZTuple<3, int>& t = shot.restBody.v012[rest.tgl[i]];
            cornersOk += refIdx[i] == t[0] || refIdx[i] == t[1] || refIdx[i] == t[2];
            const ZVector& A = shot.restBody.points[t[0]];
            const ZVector N = (shot.restBody.points[t[1]] - A).cross(shot.restBody.points[t[2]] - A).normalized(false);
            normalError += (invRot[i].transformVector(N) - ZVector(0, 0, 1)).length();
            rootsAtZero += rebound.cvs[rebound.start[i]] == ZVector(0, 0, 0);
        }
        std::ostringstream line;
        line << "strands bound to " << bodyShape.fullPath() << " in " << std::setprecision(3) << tRebind
             << " ms: references on their triangle " << cornersOk << "/" << n << ", roots at zero " << rootsAtZero
             << "/" << n << ", mean normal error " << std::setprecision(2) << normalError / n;
        rebindLine = line.str();
        if (cornersOk != n || rootsAtZero != n || normalError / n > 1e-4) {
            std::cerr << "rebinding failed: " << rebindLine << "\n";
            return 1;
        }
    }

    // USD for lighting: the strands as curves, both levels of detail, all frames gathered in
    // one file per level; then the feathered groom, every feather kind one Mesh of all its
    // copies, one file per frame and level. The attribute half goes first: it clears the file.
    const std::string usdDir = outDir + "/usd";
    std::filesystem::create_directories(usdDir, ec);
    ZCurvesToUSD usd;
    usd.name = "example:hair";
    usd.basePath = usdDir + "/hair";
    usd.follicles = &groom;
    usd.curves = &shot.curves;
    usd.boundingBox = &shot.box;
    usd.exportRatio = 1.f;
    usd.writeNormals = true;
    usd.hasFrameRange = true;
    usd.startTime = static_cast<float>(firstFrame);
    usd.endTime = static_cast<float>(firstFrame + frameCount - 1);
    ZCurvesToUSD plumes = usd;
    plumes.name = "example:plumage";
    plumes.basePath = usdDir + "/plumage";
    plumes.featherMode = true;
    plumes.perFrameFiles = true;
    plumes.bindingScheme = 4;  // feathers follow their strand's curve
    plumes.feathers = {&contour, &covert};
    plumes.scales = &scales;
    plumes.rotations = &rotations;
    plumes.folds = &folds;
    double tUsd = 0;
    for (bool detail : {true, false}) {
        tUsd += millis([&] {
            usd.writeAttributeToUSD(detail);
            plumes.writeAttributeToUSD(detail);
        });
        for (int k = 0; k < frameCount; ++k) {
            const float frame = static_cast<float>(firstFrame + k);
            shot.setFrame(frame);
            tUsd += millis([&] {
                usd.writeGeometryToUSD(frame, detail, false);
                plumes.writeGeometryToUSD(frame, detail, false);
            });
        }
    }
    int usdFiles = 0;
    for (const auto& e : std::filesystem::directory_iterator(usdDir)) usdFiles += e.path().extension() == ".usd";

    double meanTip = 0, meanRoot = 0, lean = 0, length = 0;
    for (int i = 0; i < n; ++i) {
        meanTip += groom.twh[i];
        meanRoot += groom.rwh[i];
        lean += std::hypot(groom.rxy[i][0], groom.rxy[i][1]);
        length += shot.restCurves.lineLength(i);
    }
    const double mib = static_cast<double>(bytesUnder(cacheDir)) / (1024.0 * 1024.0);
    std::cout << std::fixed << std::setprecision(4);
    std::cout << "groomcore example host\n"
              << "  body:        " << shot.restBody.numVertices() << " points, " << shot.restBody.numTriangles()
              << " triangles\n"
              << "  strands:     " << n << " x " << cvCount << " CVs, total length " << length << "\n"
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
              << "  feathers:    " << contour.mesh.numVertices() << "- and " << covert.mesh.numVertices()
              << "-point templates on " << n << " strands in " << tFeathers << " ms, plumage box "
              << plumage.minPoint << " to " << plumage.maxPoint << "\n"
              << "  source:      " << leaf.name << (leafFromFile ? " (mesh from " + sourceAbc + ")" : std::string())
              << ", " << leaf.mesh.numTriangles() << " triangles, on every tenth strand, box " << foliage.minPoint
              << " to " << foliage.maxPoint << "\n"
              << "  body:        " << rebindLine << "\n"
              << "  cache:       " << cacheDir << ", " << info.cacheType << " of node " << info.nodeName << ", "
              << frameCount << " frames (" << firstFrame << "-" << firstFrame + frameCount - 1 << "), "
              << std::setprecision(1) << mib << " MiB\n"
              << std::setprecision(3) << "  per frame:   bake " << tBake / frameCount << " ms, read "
              << tRead / frameCount << " ms\n"
              << "  read back:   " << identical << " of " << frameCount << " frames bit for bit, feathers "
              << (featherTrip ? "identical" : "DIFFERENT") << "\n"
              << "  USD:         " << usdFiles << " files in " << usdDir << " (curves "
              << usd.basePath << ".{high,low}_geom.usd with " << frameCount << " time samples; feathers "
              << plumes.basePath << ".{high,low}_geom.NNNN.usd), " << std::setprecision(1)
              << static_cast<double>(bytesUnder(usdDir)) / (1024.0 * 1024.0) << " MiB, " << std::setprecision(3)
              << tUsd / (2 * frameCount) << " ms per frame and level\n";
    return cacheTrip && reproducible ? 0 : 1;
}
