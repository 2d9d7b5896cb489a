// libFuzzer targets for every reader of the library, one executable each, chosen by the
// macro GROOMCORE_FUZZ_TARGET (see tests/fuzz/CMakeLists.txt). Each target writes the
// input where its reader expects a file, reads it, checks what it can (round trips, the
// operations that use what was read) and aborts when a read allocated more than four
// times its input plus 64 KiB. Built with clang and ASan + UBSan, no recovery.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/UlmexBase.h"
#include "cache/RuvoMisc.h"
#include "cache/ZCacheData.h"
#include "feathers/ZFeather.h"
#include "strands/ZFollicles.h"
#include "support/AllocationMeter.h"
#include "support/ReadWholeArchive.h"
#if GROOMCORE_FUZZ_TARGET == 9
#include "usd/ZCurvesFromUSD.h"
#include "usd/ZMeshFromUSD.h"
#endif

using namespace Ulmex;

namespace {

// A scratch directory of this process, on a memory file system where there is one.
const std::string& scratch() {
    static const std::string dir = [] {
        const char* base = std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp";
        std::string d = std::string(base) + "/groomcore-fuzz-" + std::to_string(::getpid());
        std::filesystem::create_directories(d);
        return d;
    }();
    return dir;
}

std::string put(const std::string& name, const uint8_t* data, size_t size) {
    const std::string path = scratch() + "/" + name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    return path;
}

void check(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "groomcore fuzz check failed: %s\n", what);
        std::abort();
    }
}

// Runs `read` under the allocation meter and holds it to 4x the input plus 64 KiB.
template <typename F>
void bounded(size_t inputBytes, F&& read) {
    testutil::AllocationMeter meter;
    read();
    check(meter.peakAbove() <= 4 * inputBytes + 64 * 1024, "allocation beyond 4x the input + 64 KiB");
}

template <typename T>
bool sameBytes(const T& a, const T& b, const std::string& tag) {
    const std::string pa = scratch() + "/" + tag + ".a", pb = scratch() + "/" + tag + ".b";
    {
        std::ofstream oa(pa, std::ios::binary), ob(pb, std::ios::binary);
        a.write(oa);
        b.write(ob);
    }
    std::ifstream ia(pa, std::ios::binary), ib(pb, std::ios::binary);
    return std::equal(std::istreambuf_iterator<char>(ia), {}, std::istreambuf_iterator<char>(ib), {});
}

// Every operation that reads strands, on curves a reader accepted.
[[maybe_unused]] void useCurves(const ZCurves& c) {
    float sum = 0.f;
    for (int i = 0; i < c.numCurves(); ++i) {
        sum += c.position(i, 0.37f).x + c.lineLength(i);
        ZVector p, t;
        c.getPositionAndTangent(i, 1.2f, p, t);
    }
    const int n = std::min(c.numCurves(), 64);
    if (n > 0) {
        ZFollicles f;
        f.reset();
        f.tgl.assign(static_cast<size_t>(c.numCurves()), 0);
        f.axs.assign(static_cast<size_t>(c.numCurves()), ZAxis());
        f.rxy.setLength(c.numCurves(), true);
        f.ln1.assign(static_cast<size_t>(c.numCurves()), 1.f);
        f.calcRxy(c, false);
        static const ZFeather feather = [] {
            ZFeather fe;
            fe.mesh.points = {{0, 0, 0}, {0.5f, 1, 0}, {0, 2, 0}, {-0.5f, 1, 0}};
            fe.mesh.v012 = {ZTuple<3, int>(0, 1, 2), ZTuple<3, int>(0, 2, 3)};
            const ZVector shaft[] = {{0, 0, 0}, {0, 2, 0}};
            fe.curves.push(shaft, 2);
            fe.initialize();
            return fe;
        }();
        ZVectorArray out(feather.mesh.points.size());
        for (int i = 0; i < n; ++i) {
            feather.deform(f, c, i, 1.f, 0.3f, &out, nullptr, nullptr, i % 2 == 0);
            feather.rotate(f, c, i, 1.f, 0.3f, &out, nullptr, nullptr);
        }
    }
    (void)c.boundingBox(false, false);
    volatile float keep = sum;
    (void)keep;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
#if GROOMCORE_FUZZ_TARGET == 1  // ZString, both forms
    const std::string path = put("string", data, size);
    bounded(size, [&] {
        std::ifstream in(path, std::ios::binary);
        ZString s;
        for (int k = 0; k < 1 << 20 && s.read(in, k % 2 == 0); ++k) check(s.size() <= size, "string longer than its file");
    });
#elif GROOMCORE_FUZZ_TARGET == 2  // ZArray in all its forms, and the set arrays
    const std::string path = put("array", data, size);
    bounded(size, [&] {
        std::ifstream in(path, std::ios::binary);
        ZIntArray a;
        ZVectorArray v;
        ZAxisArray x;
        ZIntSetArray si;
        ZFloatSetArray sf;
        while (in.good()) {
            a.read(in, true);
            v.read(in, true);
            x.read(in, true);
            ZFloatArray fixed(3);
            fixed.read(in, false);
            for (ZSetArray<int>* s : {&si}) {
                if (s->read(in))
                    for (int i = 0; i < s->numSets(); ++i)
                        check(s->starts[i] + s->counts[i] <= s->values.length(), "set outside its values");
            }
            if (sf.read(in))
                for (int i = 0; i < sf.numSets(); ++i)
                    check(sf.starts[i] + sf.counts[i] <= sf.values.length(), "set outside its values");
        }
    });
#elif GROOMCORE_FUZZ_TARGET == 3  // ZCurves, ZTriMesh, ZBoundingBox
    const std::string path = put("geometry", data, size);
    bounded(size, [&] {
        std::ifstream in(path, std::ios::binary);
        ZCurves c;
        if (c.read(in)) {
            useCurves(c);
            ZCurves again;
            check(sameBytes(c, c, "curves"), "curves round trip");
        }
        ZTriMesh m;
        if (m.read(in)) {
            for (const auto& t : m.v012)
                for (int k = 0; k < 3; ++k) check(t[k] >= 0 && t[k] < m.points.length(), "triangle outside its points");
            (void)m.boundingBox(false);
        }
        ZBoundingBox b;
        b.read(in);
    });
#elif GROOMCORE_FUZZ_TARGET == 4  // ZFollicles: static, per-frame, and the pair a cache reader makes
    const std::string path = put("follicles", data, size);
    bounded(size, [&] {
        ZFollicles f;
        f.reset();
        std::ifstream in(path, std::ios::binary);
        f.read(in);
        f.read(in);  // the per-frame record behind the static one
        for (int i = 0; i < f.bdi.numSets(); ++i)
            check(f.bdi.starts[i] + f.bdi.counts[i] <= f.bdi.values.length(), "binding outside its values");
        (void)f.usedMemorySize(ZDataUnit::zBytes);
    });
#elif GROOMCORE_FUZZ_TARGET == 5  // ZFeather::read and readRManAttrs
    const std::string path = put("feather", data, size);
    bounded(size, [&] {
        std::ifstream in(path, std::ios::binary);
        ZFeather f;
        f.read(in);
        f.readRManAttrs(in);
        f.initialize();
        ZCurves strand;
        const ZVector cv[] = {{0, 0, 0}, {0, 0, 1}, {0.2f, 0, 2}};
        strand.push(cv, 3);
        ZFollicles fol;
        fol.reset();
        fol.tgl = {0};
        fol.axs = {ZAxis()};
        fol.rxy = {ZTuple<2, float>(1, 0)};
        fol.ln1 = {2.f};
        ZVectorArray out(f.mesh.points.size()), lat(f.lattice.points.size()), crv(f.curves.cvs.size());
        f.deform(fol, strand, 0, 1.f, 0.2f, &out, &lat, &crv, true);
    });
#elif GROOMCORE_FUZZ_TARGET == 6  // the cache readers on a whole cache directory
    // The input is cut into the directory's files: info, follicles, curves_p1, curves_z0,
    // each behind a 2-byte little-endian length (what is left goes to the last).
    const std::string dir = scratch() + "/cache";
    std::filesystem::create_directories(dir);
    size_t at = 0;
    for (const char* name : {"info", "follicles", "curves_p1", "curves_z0"}) {
        size_t n = size - at;
        if (at + 2 <= size && std::strcmp(name, "curves_z0") != 0) {
            n = std::min<size_t>(size - at - 2, data[at] | (data[at + 1] << 8));
            at += 2;
        }
        put(std::string("cache/") + name, data + at, n);
        at += n;
    }
    bounded(size, [&] {
        RuvoCacheInfo info{};
        readInfoData(dir, &info);
        ZCacheData d;
        d.getInfo((dir + "/info").c_str());
        ZCurves c;
        ZFollicles f;
        for (int frame : {1, 0, 1})
            if (readStrandsData(dir, frame, &c, &f)) useCurves(c);
    });
#elif GROOMCORE_FUZZ_TARGET == 8  // the readers of the host's files of a cache
    // The input is cut into feathers, rmanAttrs, sources, xforms_p1, folds_p1 and bbox_p1,
    // each behind a 2-byte little-endian length (what is left goes to the last).
    const std::string dir = scratch() + "/hostfiles";
    std::filesystem::create_directories(dir);
    size_t at = 0;
    for (const char* name : {"feathers", "rmanAttrs", "sources", "xforms_p1", "folds_p1", "bbox_p1"}) {
        size_t n = size - at;
        if (at + 2 <= size && std::strcmp(name, "bbox_p1") != 0) {
            n = std::min<size_t>(size - at - 2, data[at] | (data[at + 1] << 8));
            at += 2;
        }
        put(std::string("hostfiles/") + name, data + at, n);
        at += n;
    }
    // The templates a file describes are the caller's objects: a source record of empty
    // meshes and texts is 146 bytes for a 640-byte ZSource, so this target allows 5x.
    testutil::AllocationMeter meter;
    {
        std::vector<ZFeather> feathers;
        std::vector<ZSource> sources;
        if (readFeathersData(dir, &feathers))
            for (ZFeather& f : feathers) f.initialize();
        if (readSourcesData(dir, &sources))
            for (ZSource& s : sources) s.initialize();
        ZVectorArray scales, rotations;
        if (readFeatherTransformsData(dir, 1.f, &scales, &rotations))
            check(scales.size() == rotations.size(), "transforms of two lengths");
        ZFloatArray folds;
        readFoldsData(dir, 1.f, &folds);
        ZBoundingBox box;
        if (readBoundingBoxData(dir, 1.f, &box))
            check(std::isfinite(box.minPoint.x) && std::isfinite(box.maxPoint.z), "bounds not finite");
        std::vector<float> frames;
        readCacheFrames(dir, &frames);
    }
    check(meter.peakAbove() <= 5 * size + 64 * 1024, "allocation beyond 5x the input + 64 KiB");
#elif GROOMCORE_FUZZ_TARGET == 9  // the USD readers: curves and bodies of a layer
    // A crate file by its magic, a text layer otherwise. OpenUSD parses the layer; the
    // readers then take every BasisCurves and Mesh prim at three times.
    static const bool warm = [] {  // OpenUSD's registries, once per process, outside the meter
        ZCurvesFromUSD().curvePrims(put("warm.usda", reinterpret_cast<const uint8_t*>("#usda 1.0\n"), 10));
        return true;
    }();
    (void)warm;
    const bool crate = size >= 8 && std::memcmp(data, "PXR-USDC", 8) == 0;
    const std::string path = put(crate ? "layer.usdc" : "layer.usda", data, size);
    testutil::AllocationMeter meter;
    {
        ZCurvesFromUSD curves;
        ZMeshFromUSD meshes;
        for (const std::string& prim : curves.curvePrims(path))
            for (double t : {-1e300, 1.5, 1e300}) {
                ZAlembicCurves c;
                if (curves.read(path, prim, t, c)) {
                    size_t total = 0;
                    for (int n : c.counts) total += static_cast<size_t>(n);
                    check(total == c.points.size(), "counts that do not add up");
                }
            }
        for (const std::string& prim : meshes.meshPrims(path))
            for (double t : {-1e300, 1.5, 1e300}) {
                ZTriMesh body;
                if (meshes.read(path, prim, t, body)) {
                    check(body.uvs.size() == 3 * body.v012.size(), "corners without UVs");
                    for (const ZTuple<3, int>& v : body.v012)
                        for (int k = 0; k < 3; ++k)
                            check(v[k] >= 0 && v[k] < body.numVertices(), "a triangle naming a missing point");
                }
            }
    }
    // OpenUSD holds a layer's parsed values in its own structures (value types, paths and
    // tokens interned process-wide): this target allows 16x the input plus 1 MiB.
    check(meter.peakAbove() <= 16 * size + 1024 * 1024, "allocation beyond 16x the input + 1 MiB");
#elif GROOMCORE_FUZZ_TARGET == 7  // the Alembic reader
    const std::string path = put("archive.abc", data, size);
    bounded(size, [&] { testutil::readWholeArchive(path); });
#else
#error "GROOMCORE_FUZZ_TARGET names no target"
#endif
    return 0;
}
