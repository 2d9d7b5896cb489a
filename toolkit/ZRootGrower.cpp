#include "toolkit/ZRootGrower.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;

namespace {

// What grow and growByDensity share: the body checked, each triangle's area, the most
// density it can have, and the density at a point of it.
struct Density {
    const ZTriMesh& body;
    const ZFloatArray& points;
    const ZImageMap* map;
    float mapMost = 1.f;
    bool hasUVs = false;

    ZVector uv(int t, const ZTuple<3, float>& w) const {
        if (!hasUVs) return ZVector(0, 0, 0);
        ZVector q = body.uvs[3 * t] * w[0] + body.uvs[3 * t + 1] * w[1] + body.uvs[3 * t + 2] * w[2];
        q.z = 0.f;
        return q;
    }
    float most(int t) const {
        float m = 1.f;
        if (!points.empty()) {
            const ZTuple<3, int>& v = body.v012[t];
            m = std::max(points[v[0]], std::max(points[v[1]], points[v[2]]));
        }
        return map ? m * mapMost : m;
    }
    float at(int t, const ZTuple<3, float>& w) const {
        float d = 1.f;
        if (!points.empty()) {
            const ZTuple<3, int>& v = body.v012[t];
            d = points[v[0]] * w[0] + points[v[1]] * w[1] + points[v[2]] * w[2];
        }
        if (map) {
            const ZVector q = uv(t, w);
            d *= std::max(0.f, ZModifierFrame::sample(*map, q.x, q.y));
        }
        return d;
    }
};

float area(const ZTriMesh& body, int t) {
    const ZTuple<3, int>& v = body.v012[t];
    return 0.5f * (body.points[v[1]] - body.points[v[0]]).cross(body.points[v[2]] - body.points[v[0]]).length();
}

// The next unit draw of a root's stream.
float draw(uint32_t& state) {
    state = ZRandomHash(state + 0x9e3779b9u);
    return static_cast<float>(static_cast<double>(state) * 2.3283064365386963e-10);
}

} // namespace

namespace {

// Checks the body and the density; the reason in `why` when they cannot be grown on.
bool usable(const ZRootGrower& g, const ZTriMesh& body, std::string& why) {
    const int n = body.numVertices();
    if (body.numTriangles() == 0) return why = "the body has no triangles", false;
    for (const ZTuple<3, int>& tri : body.v012)
        for (int k = 0; k < 3; ++k)
            if (tri[k] < 0 || tri[k] >= n) return why = "a triangle names a missing point", false;
    if (!g.pointDensity.empty()) {
        if (g.pointDensity.length() != n)
            return why = "pointDensity has " + std::to_string(g.pointDensity.length()) + " weights for " +
                         std::to_string(n) + " points", false;
        for (float d : g.pointDensity)
            if (!(d >= 0.f) || !std::isfinite(d)) return why = "pointDensity has a negative or non-finite weight", false;
    }
    if (g.densityMap && (g.densityMap->width < 1 || g.densityMap->height < 1 || g.densityMap->numChannels < 1 ||
                         !g.densityMap->pixels))
        return why = "the density map has no pixels", false;
    return true;
}

} // namespace

bool ZRootGrower::grow(const ZTriMesh& body, int count, ZFollicles& f) {
    message.clear();
    std::string why;
    if (count < 0) return message = "a negative root count", false;
    // Roots that could not fit in this machine's memory are refused before anything is
    // allocated (the follicle arrays take 44 bytes a root).
    const double need = 44.0 * count, have = double(::sysconf(_SC_PHYS_PAGES)) * double(::sysconf(_SC_PAGESIZE));
    if (have > 0.0 && need > have)
        return message = std::to_string(count) + " roots need " + std::to_string(static_cast<long long>(need / 1e9)) +
                         " GB, more than this machine's " + std::to_string(static_cast<long long>(have / 1e9)) + " GB",
               false;
    if (!usable(*this, body, why)) return message = why, false;
    Density density{body, pointDensity, densityMap};
    density.hasUVs = body.uvs.length() == 3 * body.numTriangles();
    if (densityMap) {
        const ZImageMap& m = *densityMap;
        density.mapMost = 0.f;
        for (size_t p = 0; p < static_cast<size_t>(m.width) * static_cast<size_t>(m.height); ++p)
            density.mapMost = std::max(density.mapMost, m.pixels[p * static_cast<size_t>(m.numChannels)]);
    }
    // Triangles by area times their most density: a running sum, in double.
    const int t = body.numTriangles();
    std::vector<double> cdf(static_cast<size_t>(t));
    double total = 0.0;
    for (int i = 0; i < t; ++i) cdf[i] = total += static_cast<double>(area(body, i)) * density.most(i);
    if (!(total > 0.0)) return message = "the density is zero everywhere on the body", false;

    f.tgl.setLengthForOverwrite(count);
    f.bcc.setLengthForOverwrite(count);
    f.uvw.setLengthForOverwrite(count);
    f.nmp.setLengthForOverwrite(count);
    f.uid.setLengthForOverwrite(count);
    int unkept = 0;
    const uint32_t salt = ZRandomHash(static_cast<uint32_t>(seed) ^ 0x85ebca6bu);
    #pragma omp parallel for schedule(dynamic, 4096) reduction(+ : unkept)
    for (int k = 0; k < count; ++k) {
        uint32_t state = ZRandomHash(salt + static_cast<uint32_t>(k));
        int tri = 0;
        ZTuple<3, float> w(1.f, 0.f, 0.f);
        bool kept = false;
        for (int attempt = 0; attempt < kMaxDraws && !kept; ++attempt) {
            const double at = static_cast<double>(draw(state)) * total;
            tri = static_cast<int>(std::upper_bound(cdf.begin(), cdf.end(), at) - cdf.begin());
            if (tri >= t) tri = t - 1;
            // A uniform point of the triangle from two unit draws.
            const float r1 = std::sqrt(draw(state)), r2 = draw(state);
            w = ZTuple<3, float>(1.f - r1, r1 * (1.f - r2), r1 * r2);
            const float most = density.most(tri);
            kept = draw(state) * most < density.at(tri, w) || most <= 0.f;
        }
        unkept += !kept;
        const ZTuple<3, int>& v = body.v012[tri];
        f.tgl[k] = tri;
        f.bcc[k] = w;
        f.nmp[k] = body.points[v[0]] * w[0] + body.points[v[1]] * w[1] + body.points[v[2]] * w[2];
        f.uvw[k] = density.uv(tri, w);
        f.uid[k] = k;
    }
    if (unkept > 0)
        message = std::to_string(unkept) + " of " + std::to_string(count) + " roots stay where their last of " +
                  std::to_string(kMaxDraws) + " draws fell: the density is almost zero everywhere";
    return true;
}

bool ZRootGrower::growByDensity(const ZTriMesh& body, float rootsPerUnitArea, ZFollicles& f) {
    message.clear();
    std::string why;
    if (!usable(*this, body, why)) return message = why, false;
    if (!(rootsPerUnitArea >= 0.f) || !std::isfinite(rootsPerUnitArea))
        return message = "a negative or non-finite density", false;
    Density density{body, pointDensity, densityMap};
    density.hasUVs = body.uvs.length() == 3 * body.numTriangles();
    const ZTuple<3, float> middle(1.f / 3.f, 1.f / 3.f, 1.f / 3.f);
    double weighted = 0.0;
    for (int i = 0; i < body.numTriangles(); ++i)
        weighted += static_cast<double>(area(body, i)) * density.at(i, middle);
    const double count = std::round(weighted * rootsPerUnitArea);
    if (count > 2147483647.0) return message = "more than 2^31 - 1 roots", false;
    return grow(body, static_cast<int>(count), f);
}

bool ZRootGrower::growStrands(const ZTriMesh& body, const ZAxisArray& frames, int count, int cvCount, float length,
                              float lengthRandom, ZFollicles& follicles, ZCurves& strands) {
    message.clear();
    if (frames.length() != body.numVertices())
        return message = std::to_string(frames.length()) + " frames for a body of " +
                         std::to_string(body.numVertices()) + " points",
               false;
    if (cvCount < 2) return message = "strands need 2 CVs or more, not " + std::to_string(cvCount), false;
    if (!(length >= 0.f) || !std::isfinite(length) || !std::isfinite(lengthRandom))
        return message = "a strand length that is negative or not a number", false;
    ZFollicles f;
    f.reset();
    if (!grow(body, count, f)) return false;
    const int n = f.numStrands();
    f.rtp.setLength(n, true);
    f.ln0.setLengthForOverwrite(n);
    f.axs.setLength(n, true);
    f.rxy.setLength(n, true);
    f.twh.setLength(n, true);
    f.rwh.setLength(n, true);
    f.top.setLength(n, true);
    f.rop.setLength(n, true);
    const float shortest = 1.f - lengthRandom / 2.f;
    {
        const ZParallelRegion region;
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i)
            f.ln0[i] = length * (shortest + lengthRandom * ZRandomUnit(static_cast<uint32_t>(f.uid[i]) ^ 0x5bd1e995u));
    }
    f.ln1 = f.ln0;
    f.maxLn0 = 0.f;
    for (float l : f.ln0) f.maxLn0 = std::max(f.maxLn0, l);
    f.maxLn1 = f.maxLn0;
    if (n > 0 && !f.updateAxes(body, frames, true)) return message = "the body has no per-corner UVs", false;

    // Straight out of the body along each root frame's normal.
    ZCurves c;
    c.numCVs.assign(static_cast<size_t>(n), cvCount);
    c.start.setLengthForOverwrite(n);
    for (int i = 0; i < n; ++i) c.start[i] = i * cvCount;
    c.cvs.setLengthForOverwrite(n * cvCount);
    {
        const ZParallelRegion region;
        #pragma omp parallel for schedule(static)
        for (int i = 0; i < n; ++i) {
            const ZVector& p = f.nmp[i];
            const ZVector& normal = f.axs[i].zAxis;
            for (int j = 0; j < cvCount; ++j)
                c.cvs[i * cvCount + j] = p + normal * (f.ln0[i] * static_cast<float>(j) / static_cast<float>(cvCount - 1));
        }
    }
    // Each strand its own guide: one binding a strand, to itself, of weight 1.
    f.bdi.counts.assign(static_cast<size_t>(n), 1);
    f.bdi.starts.setLengthForOverwrite(n);
    for (int i = 0; i < n; ++i) f.bdi.starts[i] = i;
    f.bdi.values = f.bdi.starts;
    f.bdw.counts = f.bdi.counts;
    f.bdw.starts = f.bdi.starts;
    f.bdw.values.assign(static_cast<size_t>(n), 1.f);
    f.calcRxy(c, true);
    follicles = std::move(f);
    strands = std::move(c);
    return true;
}
