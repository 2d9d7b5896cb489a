#include "cache/RuvoMisc.h"
#include "base/ZParallelProfile.h"

#include <omp.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>

#include "cache/ZCacheCommon.h"

using namespace Ulmex;

bool isValidCachePathAndCacheName(const ZString& path, ZString name) {
    if (!ZFileExist(path.c_str())) return false;
    return ZFileExist((path + "/" + name).c_str());
}

bool readInfoData(const ZString& cacheDirectory, RuvoCacheInfo* info) {
    std::ifstream in(ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kInfo).c_str());
    if (!in.is_open()) return false;
    ZCacheCommon::readInfoTokens(in, ZCacheCommon::infoFields(*info));
    return true;
}

bool readInfoRecord(const ZString& cacheDirectory, std::vector<std::pair<ZString, ZString>>* record) {
    std::ifstream in(ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kInfo).c_str());
    if (!in.is_open()) return false;
    *record = ZCacheCommon::readInfoRecord(in);
    return true;
}

bool readStrandsData(const ZString& cacheDirectory, int frame, ZCurves* curves, ZFollicles* follicles) {
    const float f = static_cast<float>(frame);
    const char* sign = f < 0.f ? "m" : (f > 0.f ? "p" : "z");
    const ZString name = cacheDirectory + "/curves_" + sign + ZString(std::to_string(frame));
    std::ifstream curvesFile(name.c_str());
    if (!curvesFile.is_open()) return false;
    curves->read(curvesFile);
    std::ifstream folliclesFile(ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kFollicles).c_str());
    if (!folliclesFile.is_open()) return false;
    // The static record first, then the per-frame record behind the curves overlays it.
    follicles->read(folliclesFile);
    follicles->read(curvesFile);
    return true;
}

bool isStrandsFrameWhole(const ZString& cacheDirectory, float frame) {
    std::ifstream records(ZCacheCommon::frameFile(cacheDirectory, ZCacheCommon::kCurves, frame).c_str(),
                          std::ios::binary);
    std::ifstream statics(ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kFollicles).c_str(),
                          std::ios::binary);
    if (!records.is_open() || !statics.is_open()) return false;
    ZCurves curves;
    ZFollicles follicles;
    if (!curves.read(records)) return false;
    follicles.read(statics);
    const int strands = follicles.numStrands();
    // A record the stream cannot fill fails the stream, whatever the zeros that stand in.
    follicles.read(records);
    return !records.fail() && records.peek() == std::char_traits<char>::eof() && curves.numCurves() == strands &&
           follicles.ln1.length() == strands && follicles.axs.length() == strands;
}

bool readCacheFrames(const ZString& cacheDirectory, std::vector<float>* frames) {
    std::error_code error;
    std::filesystem::directory_iterator entries(cacheDirectory.c_str(), error), end;
    if (error) return false;
    std::vector<float> found;
    for (; entries != end; entries.increment(error)) {
        if (error) return false;
        float frame;
        if (ZCacheCommon::frameOfFile(entries->path().filename().string(), ZCacheCommon::kCurves, &frame))
            found.push_back(frame);
    }
    std::sort(found.begin(), found.end());
    *frames = std::move(found);
    return true;
}

namespace {

// Bytes in the file, or -1 when it cannot be opened for reading.
std::int64_t openSized(std::ifstream& in, const ZString& path) {
    in.open(path.c_str(), std::ios::binary);
    if (!in.is_open()) return -1;
    return ZStreamRemaining(in);
}

// A count of records read from a file, each taking at least `minBytes` of the `bytes` the
// file holds: a larger count is a damaged file (and must not size anything).
bool plausibleCount(int32_t count, std::int64_t bytes, std::int64_t minBytes) {
    return count >= 0 && std::int64_t(count) * minBytes <= bytes;
}

// The renderer attributes of one feather as ZFeather::writeRManAttrs writes them: a count of
// 2, then four entries (the count names pairs of them).
bool readFeatherAttributes(std::ifstream& in, ZFeather& f) {
    int32_t count = 0;
    if (!readPod(in, count) || count < 0 || count > 2) return false;
    ZString key;
    for (int32_t e = 0; e < 2 * count; ++e) {
        if (!key.read(in, true)) return false;
        if (key == "txBasePath") f.txBasePath.read(in, true);
        else if (key == "txLayerName") f.txLayerName.read(in, true);
        else if (key == "txmultiUV") readPod(in, f.txmultiUV);
        else if (key == "MaterialSet") f.MaterialSet.read(in, true);
        else return false;  // a value of unknown form: nothing behind it can be trusted
    }
    return !in.fail();
}

// The shortest records on file: a feather with empty meshes, curves and texts, and its
// attribute block; a source's twelve fields, likewise empty.
constexpr std::int64_t kMinFeatherBytes = 76;
constexpr std::int64_t kMinAttributeBytes = 77;
constexpr std::int64_t kMinSourceBytes = 146;

} // namespace

bool readFeathersData(const ZString& cacheDirectory, std::vector<ZFeather>* feathers) {
    std::ifstream records, attributes;
    const std::int64_t recordBytes = openSized(records, ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kFeathers));
    const std::int64_t attributeBytes =
        openSized(attributes, ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kRManAttrs));
    int32_t count = 0, attributeCount = 0;
    if (recordBytes < 0 || attributeBytes < 0 || !readPod(records, count) || !readPod(attributes, attributeCount) ||
        count != attributeCount || !plausibleCount(count, recordBytes, kMinFeatherBytes) ||
        !plausibleCount(count, attributeBytes, kMinAttributeBytes))
        return false;
    std::vector<ZFeather> read(static_cast<size_t>(count));
    for (ZFeather& f : read) {
        f.read(records);
        if (records.fail() || !readFeatherAttributes(attributes, f)) return false;
    }
    *feathers = std::move(read);
    return true;
}

bool readSourcesData(const ZString& cacheDirectory, std::vector<ZSource>* sources) {
    std::ifstream in;
    const std::int64_t bytes = openSized(in, ZCacheCommon::staticFile(cacheDirectory, ZCacheCommon::kSources));
    int32_t count = 0, fields = 0;
    if (bytes < 0 || !readPod(in, count) || !readPod(in, fields) || fields != ZCacheCommon::kSourceFields ||
        !plausibleCount(count, bytes, kMinSourceBytes))
        return false;
    std::vector<ZSource> read(static_cast<size_t>(count));
    // Column by column, as they are written; a column that fails ends the read.
    auto column = [&](auto&& field) {
        for (ZSource& s : read)
            if (!field(s)) return false;
        return true;
    };
    const bool ok =
        column([&](ZSource& s) { return s.name.read(in, true); }) &&
        column([&](ZSource& s) { return readRaw(in, s.color, sizeof s.color); }) &&
        column([&](ZSource& s) { return s.mesh.read(in); }) && column([&](ZSource& s) { return s.auxMeshA.read(in); }) &&
        column([&](ZSource& s) { return s.auxMeshB.read(in); }) &&
        column([&](ZSource& s) { return s.auxTextA.read(in, true); }) &&
        column([&](ZSource& s) { return s.curves.read(in); }) &&
        column([&](ZSource& s) { return s.auxTextB.read(in, true); }) &&
        column([&](ZSource& s) {
            s.boundingBox.read(in);
            return !in.fail();
        }) &&
        column([&](ZSource& s) { return readPod(in, s.storedInt); }) && column([&](ZSource& s) {
            int32_t entries = 0;
            if (!readPod(in, entries) || entries < 0 || entries > 2) return false;
            ZString key;
            for (int32_t e = 0; e < entries; ++e) {
                if (!key.read(in, true)) return false;
                if (key == "txAssetName") s.txAssetName.read(in, true);
                else if (key == "txLayerName") s.txLayerName.read(in, true);
                else return false;
            }
            return !in.fail();
        });
    if (!ok) return false;
    *sources = std::move(read);
    return true;
}

bool readBoundingBoxData(const ZString& cacheDirectory, float frame, ZBoundingBox* box) {
    std::ifstream in(ZCacheCommon::frameFile(cacheDirectory, ZCacheCommon::kBoundingBox, frame).c_str());
    // Six numbers: a line of text, read to a bound (a device named as the file must not
    // make this read forever).
    char text[512] = {};
    in.read(text, sizeof text - 1);
    if (in.bad() || in.gcount() <= 0) return false;
    const char* at = text;
    float v[6];
    for (float& value : v) {
        char* end = nullptr;
        const double d = std::strtod(at, &end);
        if (end == at || !std::isfinite(d) || std::fabs(d) > double(std::numeric_limits<float>::max())) return false;
        value = static_cast<float>(d);
        at = end;
    }
    // One whole line, as written: a file cut short has lost at least its newline.
    if (std::strcmp(at, "\n") != 0) return false;
    box->minPoint = ZVector(v[0], v[2], v[4]);
    box->maxPoint = ZVector(v[1], v[3], v[5]);
    return true;
}

bool readFeatherTransformsData(const ZString& cacheDirectory, float frame, ZVectorArray* scales,
                               ZVectorArray* rotations) {
    std::ifstream in(ZCacheCommon::frameFile(cacheDirectory, ZCacheCommon::kTransforms, frame).c_str(),
                     std::ios::binary);
    ZVectorArray s, r;
    if (!in.is_open() || !s.read(in, true) || !r.read(in, true) || s.size() != r.size()) return false;
    *scales = std::move(s);
    *rotations = std::move(r);
    return true;
}

bool readFoldsData(const ZString& cacheDirectory, float frame, ZFloatArray* folds) {
    std::ifstream in(ZCacheCommon::frameFile(cacheDirectory, ZCacheCommon::kFolds, frame).c_str(), std::ios::binary);
    ZFloatArray f;
    if (!in.is_open() || !f.read(in, true)) return false;
    *folds = std::move(f);
    return true;
}

// ------------------------------------------------------------------ body rebinding

bool findBodyMeshCandidates(const ZString& abcPath, const ZString& bodyName, ZAlembicObjectArray* candidates) {
    ZAlembicArchive archive;
    if (!archive.open(abcPath.c_str())) return false;
    ZAlembicObjectArray all;
    GetAllDescendantObjects(archive.topObject(), all, true);
    candidates->clear();
    // Polygon meshes only: the one kind of shape the rebinding can read (a subdivision
    // surface, points or an empty group of the same name are not a body).
    for (int i = 0; i < all.length(); ++i)
        if (all[i].isPolyMesh() && all[i].name().find(bodyName) != std::string::npos) candidates->push_back(all[i]);
    return true;
}

bool findBodyMeshShapeNode(const ZString& abcPath, const ZString& bodyName, ZAlembicObject* object) {
    ZAlembicObjectArray kept;
    if (!findBodyMeshCandidates(abcPath, bodyName, &kept) || kept.length() != 1) return false;
    *object = kept[0];
    return true;
}

namespace {

// 32-bit little-endian ints at any alignment: a ZIntArray's elements or an array lying in a
// mapped Alembic file.
struct IntSpan {
    const unsigned char* bytes = nullptr;
    size_t size = 0;
    int operator[](size_t i) const {
        int v;
        std::memcpy(&v, bytes + 4 * i, sizeof v);
        return v;
    }
};
IntSpan span(const ZIntArray& a) { return {reinterpret_cast<const unsigned char*>(a.data()), a.size()}; }
IntSpan span(const ZAlembicArrayView& v) { return {v.data, v.count}; }

size_t fanTriangles(int m) { return m > 2 ? static_cast<size_t>(m - 2) : 0; }

// The fan walk visits polygon after polygon and stops at one with a negative count or one
// running past the `available` connections (outside the contract: nothing beyond them is
// read). It is laid out in parallel: the polygons are cut into one block per thread, the
// connections and triangles of each block are summed in parallel, and a serial pass over
// the blocks (not the polygons) gives each its first connection and first triangle. Only a
// block where the walk stops is walked alone, to find the polygon. Where each polygon's
// triangles go depends on the counts alone, never on the blocks.
struct FanWalk {
    IntSpan counts;
    std::vector<size_t> begin;              // first polygon of each block, and the end
    std::vector<size_t> offset, triangle;   // first connection and first triangle of each block
    size_t blocks = 0;                      // blocks the walk reaches
    size_t polygons = 0, triangles = 0;     // polygons it visits, triangles they make
};

FanWalk fanWalk(IntSpan counts, size_t available) {
    FanWalk w;
    w.counts = counts;
    const size_t n = std::max(1, omp_get_max_threads());
    w.begin.resize(n + 1);
    for (size_t b = 0; b <= n; ++b) w.begin[b] = counts.size / n * b + std::min(b, counts.size % n);
    std::vector<size_t> connections(n), triangles(n);
    std::vector<char> negative(n, 0);
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static)
        for (long long b = 0; b < static_cast<long long>(n); ++b) {
            size_t c = 0, t = 0;
            for (size_t p = w.begin[b]; p < w.begin[b + 1]; ++p) {
                const int m = counts[p];
                if (m < 0) { negative[b] = 1; break; }
                c += static_cast<size_t>(m);
                t += fanTriangles(m);
            }
            connections[b] = c;
            triangles[b] = t;
        }
    }
    w.offset.resize(n);
    w.triangle.resize(n);
    size_t o = 0, t = 0;
    w.polygons = counts.size;
    for (; w.blocks < n; ++w.blocks) {
        const size_t b = w.blocks;
        w.offset[b] = o;
        w.triangle[b] = t;
        if (negative[b] || connections[b] > available - o) {
            size_t p = w.begin[b];
            for (; p < w.begin[b + 1]; ++p) {
                const int m = counts[p];
                if (m < 0 || static_cast<size_t>(m) > available - o) break;
                o += static_cast<size_t>(m);
                t += fanTriangles(m);
            }
            w.polygons = p;
            ++w.blocks;
            break;
        }
        o += connections[b];
        t += triangles[b];
    }
    w.triangles = t;
    return w;
}

// fan(o, m, first) for every polygon the walk visits, in parallel: o its first connection,
// m its vertex count, first the index of its first triangle.
template <typename F>
void forEachFan(const FanWalk& w, F&& fan) {
    const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
    #pragma omp parallel for schedule(static)
    for (long long b = 0; b < static_cast<long long>(w.blocks); ++b) {
        size_t o = w.offset[b], t = w.triangle[b];
        const size_t end = std::min(w.begin[b + 1], w.polygons);
        for (size_t p = w.begin[b]; p < end; ++p) {
            const int m = w.counts[p];
            fan(o, m, t);
            o += static_cast<size_t>(m);
            t += fanTriangles(m);
        }
    }
}

} // namespace

ZInt3Array getv012(const ZIntArray& counts, const ZIntArray& connections) {
    const FanWalk w = fanWalk(span(counts), connections.size());
    ZInt3Array out(w.triangles);
    forEachFan(w, [&](size_t o, int m, size_t first) {
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
    const FanWalk w = fanWalk(span(counts), uvIndices.size());
    ZVectorArray out(3 * w.triangles);
    forEachFan(w, [&](size_t o, int m, size_t first) {
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
    // Only what the binding uses: points, faces and the world matrix, read where they lie
    // in the file. No polygon mesh, nothing to bind to.
    ZAlembicArrayView pointsView, countsView, connectionsView;
    ZMatrix matrix;
    if (!object.getPolyMeshViews(&pointsView, &countsView, &connectionsView, &matrix, static_cast<int>(frame + 0.5)))
        return refuse();
    // The body's triangles and world-space points, in buffers first touched by the threads
    // that fill them. The fan of a reversed polygon (v0, vm-1, ..., v1) is (v0, vm-1-j,
    // vm-2-j): written straight from the file's order, what ReverseConnections then getv012
    // would give. Surface coordinates play no part in the binding.
    // A body with a triangle naming a missing point is refused whole, so that the strands'
    // triangle numbers are then the only thing left to check.
    const IntSpan connections = span(connectionsView);
    const FanWalk fan = fanWalk(span(countsView), connections.size);
    const size_t triangles = fan.triangles, vertices = pointsView.count;
    const std::unique_ptr<int[]> v012(new int[3 * triangles]);
    std::atomic<bool> missingPoint{false};
    forEachFan(fan, [&](size_t o, int m, size_t first) {
        for (int k = 0; k < m && m >= 3; ++k) {
            const int v = connections[o + static_cast<size_t>(k)];
            if (v < 0 || static_cast<size_t>(v) >= vertices) missingPoint.store(true, std::memory_order_relaxed);
        }
        for (int j = 0; j + 2 < m; ++j) {
            int* t = &v012[3 * (first + static_cast<size_t>(j))];
            t[0] = connections[o];
            t[1] = connections[o + static_cast<size_t>(m - 1 - j)];
            t[2] = connections[o + static_cast<size_t>(m - 2 - j)];
        }
    });
    if (missingPoint.load()) return refuse();
    auto corner = [&](int t, int k) { return v012[3 * static_cast<size_t>(t) + static_cast<size_t>(k)]; };
    // A body point in world space, transformed where a strand needs it.
    auto point = [&](int v) {
        ZVector p;
        std::memcpy(&p, pointsView.data + sizeof p * static_cast<size_t>(v), sizeof p);
        return matrix.transformPoint(p);
    };

    const int n = curves->numCurves();
    // Strands on triangles the body does not have leave the outputs empty rather than read
    // outside the body.
    bool bound = n >= 1 && follicles.tgl.length() >= n && follicles.axs.length() >= n;
    if (bound) {
        int bad = 0;
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) reduction(+ : bad)
        for (int i = 0; i < n; ++i) {
            const int t = follicles.tgl[i];
            bad += t < 0 || static_cast<size_t>(t) >= triangles;
        }
        bound = bad == 0;
    }
    if (!bound) return refuse();
    // Every entry is written below: sized only when the count changes, never cleared or
    // initialised first, so that the threads that fill them touch their pages first.
    if (refIdx->length() != n) refIdx->setLengthForOverwrite(n);
    if (invRot->length() != n) invRot->setLengthForOverwrite(n);
    const double eps = static_cast<double>(1e-30f);  // the float constant, widened
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i) {
            const int tri[3] = {corner(follicles.tgl[i], 0), corner(follicles.tgl[i], 1), corner(follicles.tgl[i], 2)};
            const ZVector A = point(tri[0]), B = point(tri[1]), C = point(tri[2]);
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
