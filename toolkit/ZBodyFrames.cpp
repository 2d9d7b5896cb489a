#include "toolkit/ZBodyFrames.h"

#include <cmath>

using namespace Ulmex;

bool ZBodyFrames::build(const ZTriMesh& body) {
    const int n = body.numVertices(), t = body.numTriangles();
    for (const ZTuple<3, int>& tri : body.v012)
        for (int k = 0; k < 3; ++k)
            if (tri[k] < 0 || tri[k] >= n) return false;
    // Counting sort of (point, triangle) pairs: each point's triangles in increasing order.
    std::vector<int> start(static_cast<size_t>(n) + 1, 0);
    for (const ZTuple<3, int>& tri : body.v012)
        for (int k = 0; k < 3; ++k) ++start[static_cast<size_t>(tri[k]) + 1];
    for (int v = 0; v < n; ++v) start[v + 1] += start[v];
    std::vector<int> around(static_cast<size_t>(start[n])), next(start.begin(), start.end() - 1);
    for (int i = 0; i < t; ++i)
        for (int k = 0; k < 3; ++k) {
            const int v = body.v012[i][k];
            // A triangle naming a point twice counts once around it.
            if (next[v] > start[v] && around[next[v] - 1] == i) continue;
            around[next[v]++] = i;
        }
    // Close the gaps duplicates left: keep each point's run packed.
    std::vector<int> packed;
    packed.reserve(around.size());
    std::vector<int> packedStart(static_cast<size_t>(n) + 1, 0);
    for (int v = 0; v < n; ++v) {
        packed.insert(packed.end(), around.begin() + start[v], around.begin() + next[v]);
        packedStart[v + 1] = static_cast<int>(packed.size());
    }
    _points = n;
    _triangles = t;
    _start.swap(packedStart);
    _around.swap(packed);
    return true;
}

bool ZBodyFrames::compute(const ZTriMesh& body, ZAxisArray& frames) const {
    if (body.numVertices() != _points || body.numTriangles() != _triangles) return false;
    const bool hasUVs = body.uvs.length() == 3 * _triangles;
    frames.setLengthForOverwrite(_points);
    #pragma omp parallel for schedule(static)
    for (int v = 0; v < _points; ++v) {
        ZVector normal(0, 0, 0), along(0, 0, 0);
        for (int k = _start[v]; k < _start[v + 1]; ++k) {
            const int t = _around[k];
            const ZTuple<3, int>& tri = body.v012[t];
            const ZVector& p0 = body.points[tri[0]];
            const ZVector e1 = body.points[tri[1]] - p0, e2 = body.points[tri[2]] - p0;
            normal += e1.cross(e2);
            if (!hasUVs) continue;
            const ZVector& u0 = body.uvs[3 * t];
            const ZVector d1 = body.uvs[3 * t + 1] - u0, d2 = body.uvs[3 * t + 2] - u0;
            // dP/du up to a positive factor: e1 dv2 - e2 dv1, turned by the sign of the UV
            // triangle's orientation so that mirrored UVs add up the same way.
            const float r = d1.x * d2.y - d2.x * d1.y;
            if (r != 0.f) along += (e1 * d2.y - e2 * d1.y) * (r > 0.f ? 1.f : -1.f);
        }
        ZAxis& a = frames[v];
        a = ZAxis();
        a.origin = body.points[v];
        const float nl = normal.length();
        if (!(nl > 0.f)) continue;  // on no triangle, or on degenerate ones only
        a.zAxis = normal * (1.f / nl);
        ZVector x = along - a.zAxis * along.dot(a.zAxis);
        if (!(x.length() > 1e-12f)) {
            // No u direction here: the world axis least along the normal.
            const float ax = std::fabs(a.zAxis.x), ay = std::fabs(a.zAxis.y), az = std::fabs(a.zAxis.z);
            const ZVector w = ax <= ay && ax <= az ? ZVector(1, 0, 0) : ay <= az ? ZVector(0, 1, 0) : ZVector(0, 0, 1);
            x = w - a.zAxis * w.dot(a.zAxis);
        }
        a.xAxis = x * (1.f / x.length());
        a.yAxis = a.zAxis.cross(a.xAxis);
    }
    return true;
}
