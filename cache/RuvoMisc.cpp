#include "cache/RuvoMisc.h"
#include "base/ZParallelProfile.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

#include "cache/ZCacheCommon.h"

using namespace Ulmex;

bool isValidCachePathAndCacheName(const ZString& path, ZString name) {
    if (!ZFileExist(path.c_str())) return false;
    return ZFileExist((path + "/" + name).c_str());
}

bool readInfoData(const ZString& cacheDirectory, RuvoCacheInfo* info) {
    std::ifstream in((cacheDirectory + "/info").c_str());
    if (!in.is_open()) return false;
    ZCacheCommon::readInfoTokens(in, ZCacheCommon::infoFields(*info));
    return true;
}

bool readStrandsData(const ZString& cacheDirectory, int frame, ZCurves* curves, ZFollicles* follicles) {
    const float f = static_cast<float>(frame);
    const char* sign = f < 0.f ? "m" : (f > 0.f ? "p" : "z");
    const ZString name = cacheDirectory + "/curves_" + sign + ZString(std::to_string(frame));
    std::ifstream curvesFile(name.c_str());
    if (!curvesFile.is_open()) return false;
    curves->read(curvesFile);
    std::ifstream folliclesFile((cacheDirectory + "/follicles").c_str());
    if (!folliclesFile.is_open()) return false;
    // The static record first, then the per-frame record behind the curves overlays it.
    follicles->read(folliclesFile);
    follicles->read(curvesFile);
    return true;
}

// ------------------------------------------------------------------ body rebinding

bool findBodyMeshShapeNode(const ZString& abcPath, const ZString& bodyName, ZAlembicObject* object) {
    ZAlembicArchive archive;
    if (!archive.open(abcPath.c_str())) return false;
    ZAlembicObjectArray all;
    GetAllDescendantObjects(archive.topObject(), all, true);
    std::vector<ZAlembicObject> kept;
    // Polygon meshes only: the one kind of shape the rebinding can read (a subdivision
    // surface, points or an empty group of the same name are not a body).
    for (int i = 0; i < all.length(); ++i)
        if (all[i].schema() == "AbcGeom_PolyMesh_v1" && all[i].name().find(bodyName) != std::string::npos)
            kept.push_back(all[i]);
    archive.close();
    if (kept.size() != 1) return false;
    *object = kept[0];
    return true;
}

namespace {

// Where each polygon of the fan walk starts in the connections and in the triangles. The
// walk stops at a polygon with a negative count or one running past the `available`
// connections (outside the contract: nothing beyond them is read). A short serial pass
// over the counts, so that the triangles can then be written in parallel.
struct FanLayout {
    std::vector<size_t> offset;    // first connection of each polygon visited
    std::vector<size_t> triangle;  // index of its first triangle
    size_t triangles = 0;
};

FanLayout fanLayout(const ZIntArray& counts, size_t available) {
    FanLayout l;
    l.offset.reserve(counts.size());
    l.triangle.reserve(counts.size());
    size_t offset = 0;
    for (int m : counts) {
        if (m < 0 || static_cast<size_t>(m) > available - std::min(offset, available)) break;
        l.offset.push_back(offset);
        l.triangle.push_back(l.triangles);
        l.triangles += m > 2 ? static_cast<size_t>(m - 2) : 0;
        offset += static_cast<size_t>(m);
    }
    return l;
}

// fan(o, m, first) for every polygon of the layout, in parallel: o its first connection, m
// its vertex count, first the index of its first triangle.
template <typename F>
void forEachFan(const FanLayout& l, const ZIntArray& counts, F&& fan) {
    const long long polygons = static_cast<long long>(l.offset.size());
    const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
    #pragma omp parallel for schedule(static)
    for (long long p = 0; p < polygons; ++p)
        fan(l.offset[static_cast<size_t>(p)], counts[static_cast<size_t>(p)], l.triangle[static_cast<size_t>(p)]);
}

} // namespace

ZInt3Array getv012(const ZIntArray& counts, const ZIntArray& connections) {
    const FanLayout l = fanLayout(counts, connections.size());
    ZInt3Array out(l.triangles);
    forEachFan(l, counts, [&](size_t o, int m, size_t first) {
        for (int j = 0; j + 2 < m; ++j)
            out[first + j] = ZTuple<3, int>(connections[o], connections[o + 1 + j], connections[o + 2 + j]);
    });
    return out;
}

ZVectorArray getuvs(const ZIntArray& counts, const ZFloatArray& uvs, const ZIntArray& uvIndices) {
    auto uv = [&](int u) {
        const size_t k = 2 * static_cast<size_t>(u);
        return u >= 0 && k + 1 < uvs.size() ? ZVector(uvs[k], uvs[k + 1], 0.f) : ZVector(0.f, 0.f, 0.f);
    };
    const FanLayout l = fanLayout(counts, uvIndices.size());
    ZVectorArray out(3 * l.triangles);
    forEachFan(l, counts, [&](size_t o, int m, size_t first) {
        for (int j = 0; j + 2 < m; ++j) {
            ZVector* t = &out[3 * (first + j)];
            t[0] = uv(uvIndices[o]);
            t[1] = uv(uvIndices[o + 1 + j]);
            t[2] = uv(uvIndices[o + 2 + j]);
        }
    });
    return out;
}

void setRefIdxAndInvRotAndCurves(double frame, const ZAlembicObject& object, const ZFollicles& follicles,
                                 ZCurves* curves, ZIntArray* refIdx, ZMatrixArray* invRot) {
    auto refuse = [&] {
        refIdx->clear();
        invRot->clear();
    };
    // Only what the binding uses: points, faces and the world matrix. No polygon mesh,
    // nothing to bind to.
    ZVectorArray points;
    ZIntArray counts, connections;
    ZMatrix matrix;
    if (!object.getPolyMeshData(&points, nullptr, &counts, &connections, nullptr, &matrix, nullptr, nullptr,
                                static_cast<int>(frame + 0.5)))
        return refuse();
    // The body's triangles and world-space points. The fan of a reversed polygon (v0, vm-1,
    // ..., v1) is (v0, vm-1-j, vm-2-j): written straight from the file's order, each polygon
    // on its own, in parallel, with what ReverseConnections then getv012 would give.
    // Surface coordinates play no part in the binding.
    ZTriMesh bodyMesh;
    bodyMesh.points = std::move(points);
    const FanLayout fan = fanLayout(counts, connections.size());
    bodyMesh.v012.resize(fan.triangles);
    forEachFan(fan, counts, [&](size_t o, int m, size_t first) {
        for (int j = 0; j + 2 < m; ++j)
            bodyMesh.v012[first + j] = ZTuple<3, int>(connections[o], connections[o + static_cast<size_t>(m - 1 - j)],
                                                      connections[o + static_cast<size_t>(m - 2 - j)]);
    });
    bodyMesh.transform(matrix, true);

    const int n = curves->numCurves();
    // Strands on triangles the body does not have, or triangles naming missing points,
    // leave the outputs empty rather than read outside the body.
    bool bound = n >= 1 && follicles.tgl.length() >= n && follicles.axs.length() >= n;
    if (bound) {
        const int triangles = bodyMesh.numTriangles(), vertices = bodyMesh.numVertices();
        int bad = 0;
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) reduction(+ : bad)
        for (int i = 0; i < n; ++i) {
            const int t = follicles.tgl[i];
            if (t < 0 || t >= triangles) { ++bad; continue; }
            const ZTuple<3, int>& c = bodyMesh.v012[t];
            bad += c[0] < 0 || c[1] < 0 || c[2] < 0 || c[0] >= vertices || c[1] >= vertices || c[2] >= vertices;
        }
        bound = bad == 0;
    }
    if (!bound) return refuse();
    // Every entry is written below: sized only when the count changes, never cleared first.
    if (refIdx->length() != n) refIdx->resize(static_cast<size_t>(n));
    if (invRot->length() != n) invRot->resize(static_cast<size_t>(n));
    const double eps = static_cast<double>(1e-30f);  // the float constant, widened
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i) {
            const ZTuple<3, int>& tri = bodyMesh.v012[follicles.tgl[i]];
            const ZVector& A = bodyMesh.points[tri[0]];
            const ZVector& B = bodyMesh.points[tri[1]];
            const ZVector& C = bodyMesh.points[tri[2]];
            const ZVector o = follicles.axs[i].origin;
            const float dA = (A - o).squaredLength(), dB = (B - o).squaredLength(), dC = (C - o).squaredLength();
            int pick;
            if (dB > dA) pick = dC > dB ? 2 : 1;
            else pick = dC > dA ? 2 : 0;
            const ZVector& P = pick == 0 ? A : pick == 1 ? B : C;
            (*refIdx)[i] = tri[pick];

            // Tangent towards the far corner, in double, narrowed.
            const ZVector ef = P - o;
            const double ex = ef.x, ey = ef.y, ez = ef.z;
            const double el = std::sqrt(ex * ex + ey * ey + ez * ez + eps);
            ZVector T(static_cast<float>(ex / el), static_cast<float>(ey / el), static_cast<float>(ez / el));
            // The triangle's normal in double, with the double 1e-20.
            const double e1[3] = {double(B.x) - A.x, double(B.y) - A.y, double(B.z) - A.z};
            const double e2[3] = {double(C.x) - A.x, double(C.y) - A.y, double(C.z) - A.z};
            const double nx = e1[1] * e2[2] - e1[2] * e2[1], ny = e1[2] * e2[0] - e1[0] * e2[2],
                         nz = e1[0] * e2[1] - e1[1] * e2[0];
            const double nl = std::sqrt(nx * nx + ny * ny + nz * nz + 1e-20);
            const ZVector N(static_cast<float>(nx / nl), static_cast<float>(ny / nl), static_cast<float>(nz / nl));
            auto unit = [eps](const ZVector& v) {
                const double x = v.x, y = v.y, z = v.z, l = std::sqrt(x * x + y * y + z * z + eps);
                return ZVector(static_cast<float>(x / l), static_cast<float>(y / l), static_cast<float>(z / l));
            };
            // The tangent without its normal part, then the binormal: a right-handed frame.
            T = unit(T - N * T.dot(N));
            const ZVector G = unit(N.cross(T));

            // F: columns T, G, N; its general inverse by cofactors.
            ZMatrix F;
            const ZVector cols[3] = {T, G, N};
            for (int c = 0; c < 3; ++c) {
                F(0, c) = cols[c].x;
                F(1, c) = cols[c].y;
                F(2, c) = cols[c].z;
                F(3, c) = 0.f;
            }
            F(0, 3) = F(1, 3) = F(2, 3) = 0.f;
            F(3, 3) = 1.f;
            const float D = static_cast<float>(F.det());
            const double scale = 1.0 / (static_cast<double>(D) + 1e-30);
            ZMatrix& inv = (*invRot)[i];
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < 4; ++c) {
                    // Cofactor of entry (c, r): the transpose of the cofactor matrix.
                    double m[9];
                    int k = 0;
                    for (int rr = 0; rr < 4; ++rr)
                        for (int cc = 0; cc < 4; ++cc)
                            if (rr != c && cc != r) m[k++] = F(rr, cc);
                    const double minor = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                                         m[2] * (m[3] * m[7] - m[4] * m[6]);
                    const double cof = ((r + c) % 2 == 0 ? 1.0 : -1.0) * minor;
                    inv(r, c) = static_cast<float>(cof * scale);
                }

            // The strand relative to its root, without rotation; the root exactly at zero.
            const int f = curves->start[i], m = curves->numCVs[i];
            for (int j = 1; j < m; ++j) curves->cvs[f + j] = curves->cvs[f + j] - o;
            if (m > 0) curves->cvs[f] = ZVector(0.f, 0.f, 0.f);  // a strand without CVs owns no CV f
        }
    }
}
