// Prints what groomcore's Alembic reader sees in a file, for check_alembic_reader.py to
// hold against what the real Alembic library (alembic3d) reads from the same file:
//
//   abc_dump FILE SAMPLES
//
// One line per fact, floats as their exact bits in hex (world matrices in decimal):
//   obj PATH NAME CHILDREN SCHEMA
//   xf PATH SAMPLE tx ty tz rx ry rz sx sy sz
//   mesh PATH SAMPLE KEY COUNT VALUES...   KEY: P V C I B UV UVI
//   curves PATH SAMPLE KEY COUNT VALUES... KEY: P C W UV ID T (type, wrap, basis)
//   world PATH SAMPLE m00 m01 ... m33
// for every object and every sample index from 0 to SAMPLES - 1.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/UlmexBase.h"

using namespace Ulmex;

namespace {

void hex(float f) {
    std::uint32_t b;
    std::memcpy(&b, &f, 4);
    std::printf(" %08x", b);
}

template <typename T>
void floats(const char* what, const char* path, int s, const char* key, const ZArray<T>& a) {
    const float* f = reinterpret_cast<const float*>(a.data());
    const size_t n = a.size() * sizeof(T) / sizeof(float);
    std::printf("%s %s %d %s %zu", what, path, s, key, n);
    for (size_t i = 0; i < n; ++i) hex(f[i]);
    std::printf("\n");
}

void ints(const char* what, const char* path, int s, const char* key, const ZIntArray& a) {
    std::printf("%s %s %d %s %zu", what, path, s, key, a.size());
    for (int v : a) std::printf(" %d", v);
    std::printf("\n");
}

void world(const char* path, int s, const ZMatrix& w) {
    std::printf("world %s %d", path, s);
    for (float f : w.data) std::printf(" %.9g", f);
    std::printf("\n");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: abc_dump FILE SAMPLES\n");
        return 2;
    }
    ZAlembicArchive archive;
    if (!archive.open(argv[1])) {
        std::printf("refused\n");
        return 0;
    }
    const int samples = std::atoi(argv[2]);
    ZAlembicObjectArray all;
    GetAllDescendantObjects(archive.topObject(), all, false);
    archive.close();  // objects stay usable without their archive
    for (int k = 0; k < all.length(); ++k) {
        const ZAlembicObject& o = all[k];
        const std::string path = o.fullPath();
        std::printf("obj %s %s %d %s\n", path.c_str(), o.name().c_str(), o.numChildren(),
                    o.schema().empty() ? "-" : o.schema().c_str());
        for (int s = 0; s < samples; ++s) {
            ZVector t, r, sc;
            if (o.getTransformations(t, r, sc, s)) {
                std::printf("xf %s %d", path.c_str(), s);
                for (float f : {t.x, t.y, t.z, r.x, r.y, r.z, sc.x, sc.y, sc.z}) hex(f);
                std::printf("\n");
            }
            ZAlembicCurves curves;
            if (o.getCurvesData(curves, s)) {
                floats("curves", path.c_str(), s, "P", curves.points);
                ints("curves", path.c_str(), s, "C", curves.counts);
                floats("curves", path.c_str(), s, "W", curves.widths);
                floats("curves", path.c_str(), s, "UV", curves.uvs);
                ints("curves", path.c_str(), s, "ID", curves.ids);
                ints("curves", path.c_str(), s, "T", ZIntArray{curves.type, curves.wrap, curves.basis});
                world(path.c_str(), s, curves.worldMatrix);
                continue;
            }
            ZVectorArray P, V;
            ZIntArray C, I, UVI;
            ZBoundingBox B;
            ZMatrix W;
            ZFloatArray UV;
            if (!o.getPolyMeshData(&P, &V, &C, &I, &B, &W, &UV, &UVI, s)) continue;
            floats("mesh", path.c_str(), s, "P", P);
            floats("mesh", path.c_str(), s, "V", V);
            ints("mesh", path.c_str(), s, "C", C);
            ints("mesh", path.c_str(), s, "I", I);
            ZVectorArray box{B.minPoint, B.maxPoint};
            floats("mesh", path.c_str(), s, "B", box);
            floats("mesh", path.c_str(), s, "UV", UV);
            ints("mesh", path.c_str(), s, "UVI", UVI);
            world(path.c_str(), s, W);
        }
    }
    return 0;
}
