// Writes the seed corpora of the fuzz targets from the library's own writers:
//   make_seeds OUT_DIR      -> OUT_DIR/<target>/seed-N
// (The Alembic target is seeded with files the real Alembic library writes, by
// tests/alembic/abc_scenes.py.)
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "base/UlmexBase.h"
#include "cache/ZCacheData.h"
#include "cache/ZCacheData2.h"
#include "feathers/ZFeather.h"
#include "strands/FollicleFixtures.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

void seed(const fs::path& dir, int k, const std::function<void(std::ofstream&)>& write) {
    fs::create_directories(dir);
    std::ofstream out(dir / ("seed-" + std::to_string(k)), std::ios::binary);
    write(out);
}

std::string bytesOf(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

ZCurves strands(int n) {
    ZCurves c;
    for (int i = 0; i < n; ++i) {
        const ZVector cv[] = {{float(i), 0, 0}, {float(i), 0.2f, 1}, {float(i), 0.5f, 2}, {float(i), 1, 2.5f}};
        c.push(cv, 2 + i % 3);
    }
    return c;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const fs::path out = argv[1];
    for (int k = 0; k < 3; ++k) {
        seed(out / "string", k, [&](std::ofstream& o) {
            for (int j = 0; j <= k; ++j) ZString(std::string(static_cast<size_t>(j * 3), 'a' + char(j))).write(o, j % 2 == 0);
        });
        seed(out / "array", k, [&](std::ofstream& o) {
            ZIntArray{1, 2, 3}.write(o, true);
            ZVectorArray(static_cast<size_t>(k), ZVector(1, 2, 3)).write(o, true);
            ZAxisArray(static_cast<size_t>(k)).write(o, true);
            ZFloatArray{0.5f, 1.5f, 2.5f}.write(o, false);
            ZIntSetArray s;
            const int ids[] = {4, 5, 6};
            s.push(ids, k);
            s.push(ids, 3 - k);
            s.write(o);
            ZFloatSetArray f;
            const float w[] = {0.25f, 0.5f};
            f.push(w, 2);
            f.write(o);
        });
        seed(out / "geometry", k, [&](std::ofstream& o) {
            strands(1 + 4 * k).write(o);
            ZTriMesh m;
            m.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
            m.v012 = {ZTuple<3, int>(0, 1, 2)};
            m.uvs.assign(3, ZVector());
            m.write(o);
            ZBoundingBox(ZVector(0, 0, 0), ZVector(1, 2, 3)).write(o);
        });
        seed(out / "follicles", k, [&](std::ofstream& o) {
            const ZFollicles f = fixtures::makeFollicles(1 + 3 * k, k);
            f.write(o, true);
            f.write(o, false);
        });
        seed(out / "feather", k, [&](std::ofstream& o) {
            ZFeather f;
            f.name = "ns:seed";
            f.mesh.points = {{0, 0, 0}, {0.5f, 1, 0}, {0, 2, 0}, {-0.5f, 1, 0}};
            f.mesh.v012 = {ZTuple<3, int>(0, 1, 2), ZTuple<3, int>(0, 2, 3)};
            f.mesh.uvs.assign(6, ZVector());
            const ZVector shaft[] = {{0, 0, 0.1f}, {0, 1, 0.1f}, {0, 2, 0.1f}};
            f.curves.push(shaft, 1 + k);
            f.txBasePath = "/tex";
            f.write(o);
            f.writeRManAttrs(o);
        });
        // A real cache directory, framed the way the cache target cuts its input.
        const fs::path tmp = fs::temp_directory_path() / ("groomcore-seed-" + std::to_string(k));
        fs::remove_all(tmp);
        fs::create_directories(tmp);
        ZFollicles f = fixtures::makeFollicles(2 + k);
        ZCurves c = strands(2 + k);
        ZBoundingBox box = c.boundingBox(false, false);
        ZCacheData cache;
        cache.nodeName = "hair";
        cache.follicles = &f;
        cache.curves = &c;
        cache.boundingBox = &box;
        cache.bakeStaticData(tmp.string());
        cache.bakePerFrameData(tmp.string(), 1.f);
        seed(out / "cache", k, [&](std::ofstream& o) {
            for (const char* name : {"info", "follicles", "curves_p1"}) {
                const std::string b = bytesOf(tmp / "hair" / name);
                const size_t n = std::min<size_t>(b.size(), 65535);
                o.put(static_cast<char>(n & 0xff)).put(static_cast<char>(n >> 8));
                o.write(b.data(), static_cast<std::streamsize>(n));
            }
            const std::string last = bytesOf(tmp / "hair" / "curves_p1");
            o.write(last.data(), static_cast<std::streamsize>(last.size()));  // as curves_z0
        });
        // The host's files of a feathered cache, framed the way the host-files target cuts them.
        ZFeather feather;
        feather.mesh.points = {{0, 0, 0}, {0.5f, 1, 0}, {0, 2, 0}};
        feather.mesh.v012 = {ZTuple<3, int>(0, 1, 2)};
        feather.txBasePath = "/tex";
        ZSource source;
        source.name = "leaf";
        source.mesh = feather.mesh;
        ZVectorArray scales(static_cast<size_t>(2 + k), ZVector(1, 1, 1)), rotations(static_cast<size_t>(2 + k));
        ZFloatArray folds(static_cast<size_t>(2 + k), 0.3f);
        ZCacheData2 plumes;
        plumes.nodeName = "plumes";
        plumes.follicles = &f;
        plumes.curves = &c;
        plumes.boundingBox = &box;
        plumes.feathers = {&feather};
        plumes.sources = {&source};
        plumes.scales = &scales;
        plumes.rotations = &rotations;
        plumes.folds = &folds;
        plumes.bakeStaticData(tmp.string());
        plumes.bakePerFrameData(tmp.string(), 1.f);
        seed(out / "hostfiles", k, [&](std::ofstream& o) {
            for (const char* name : {"feathers", "rmanAttrs", "sources", "xforms_p1", "folds_p1"}) {
                const std::string b = bytesOf(tmp / "plumes" / name);
                const size_t n = std::min<size_t>(b.size(), 65535);
                o.put(static_cast<char>(n & 0xff)).put(static_cast<char>(n >> 8));
                o.write(b.data(), static_cast<std::streamsize>(n));
            }
            const std::string last = bytesOf(tmp / "plumes" / "bbox_p1");
            o.write(last.data(), static_cast<std::streamsize>(last.size()));
        });
        fs::remove_all(tmp);
    }
    return 0;
}
