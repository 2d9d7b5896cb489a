#include "toolkit/ZRootProjector.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

using namespace Ulmex;

namespace {

constexpr int kLeafSize = 4;

// The point of triangle (a, b, c) nearest p, as barycentric coordinates: the seven regions
// of the plane (three corners, three edges, the face) tested in turn with dot products.
ZTuple<3, float> nearestOnTriangle(const ZVector& p, const ZVector& a, const ZVector& b, const ZVector& c) {
    const ZVector ab = b - a, ac = c - a, ap = p - a;
    const float d1 = ab.dot(ap), d2 = ac.dot(ap);
    if (d1 <= 0.f && d2 <= 0.f) return ZTuple<3, float>(1.f, 0.f, 0.f);
    const ZVector bp = p - b;
    const float d3 = ab.dot(bp), d4 = ac.dot(bp);
    if (d3 >= 0.f && d4 <= d3) return ZTuple<3, float>(0.f, 1.f, 0.f);
    const float vc = d1 * d4 - d3 * d2;
    if (vc <= 0.f && d1 >= 0.f && d3 <= 0.f) {
        const float v = d1 / (d1 - d3);
        return ZTuple<3, float>(1.f - v, v, 0.f);
    }
    const ZVector cp = p - c;
    const float d5 = ab.dot(cp), d6 = ac.dot(cp);
    if (d6 >= 0.f && d5 <= d6) return ZTuple<3, float>(0.f, 0.f, 1.f);
    const float vb = d5 * d2 - d1 * d6;
    if (vb <= 0.f && d2 >= 0.f && d6 <= 0.f) {
        const float w = d2 / (d2 - d6);
        return ZTuple<3, float>(1.f - w, 0.f, w);
    }
    const float va = d3 * d6 - d5 * d4;
    if (va <= 0.f && d4 - d3 >= 0.f && d5 - d6 >= 0.f) {
        const float w = (d4 - d3) / ((d4 - d3) + (d5 - d6));
        return ZTuple<3, float>(0.f, 1.f - w, w);
    }
    const float sum = va + vb + vc;
    if (!(sum > 0.f)) {  // a degenerate triangle: its nearest corner
        const float da = (p - a).squaredLength(), db = (p - b).squaredLength(), dc = (p - c).squaredLength();
        return da <= db && da <= dc ? ZTuple<3, float>(1.f, 0.f, 0.f)
                                    : db <= dc ? ZTuple<3, float>(0.f, 1.f, 0.f) : ZTuple<3, float>(0.f, 0.f, 1.f);
    }
    const float v = vb / sum, w = vc / sum;
    return ZTuple<3, float>(1.f - v - w, v, w);
}

ZVector blend(const ZVector& a, const ZVector& b, const ZVector& c, const ZTuple<3, float>& w) {
    return a * w[0] + b * w[1] + c * w[2];
}

float boxDistance2(const float lo[3], const float hi[3], const ZVector& p) {
    const float q[3] = {p.x, p.y, p.z};
    float d = 0.f;
    for (int k = 0; k < 3; ++k) {
        const float e = q[k] < lo[k] ? lo[k] - q[k] : q[k] > hi[k] ? q[k] - hi[k] : 0.f;
        d += e * e;
    }
    return d;
}

} // namespace

bool ZRootProjector::build(const ZTriMesh& body) {
    const int n = body.numVertices(), t = body.numTriangles();
    if (t == 0) return false;
    for (const ZTuple<3, int>& tri : body.v012)
        for (int k = 0; k < 3; ++k)
            if (tri[k] < 0 || tri[k] >= n) return false;
    std::vector<Triangle> tris(static_cast<size_t>(t));
    std::vector<ZVector> centres(static_cast<size_t>(t));
    for (int i = 0; i < t; ++i) {
        const ZTuple<3, int>& tri = body.v012[i];
        tris[i] = Triangle{body.points[tri[0]], body.points[tri[1]], body.points[tri[2]]};
        centres[i] = (tris[i].a + tris[i].b + tris[i].c) * (1.f / 3.f);
    }
    _tris.swap(tris);
    _uvs.assign(body.uvs.begin(), body.uvs.end());
    if (_uvs.size() != 3 * _tris.size()) _uvs.clear();
    _order.resize(static_cast<size_t>(t));
    for (int i = 0; i < t; ++i) _order[i] = i;
    _nodes.clear();
    _nodes.reserve(2 * static_cast<size_t>(t) / kLeafSize + 2);
    _nodes.push_back(Node());
    buildNode(0, t, centres);
    // The corners again in leaf order, so that a leaf's triangles lie side by side.
    _leafTris.resize(_order.size());
    for (size_t i = 0; i < _order.size(); ++i) _leafTris[i] = _tris[_order[i]];
    return true;
}

// The node over _order[begin, end) at _nodes.back(): split at the median of the triangles'
// centres along the box's longest side (ties by triangle number, so the tree depends on the
// body alone); its children are appended as a pair.
int ZRootProjector::buildNode(int begin, int end, std::vector<ZVector>& centres) {
    struct Range { int node, begin, end; };
    std::vector<Range> todo{{0, begin, end}};
    while (!todo.empty()) {
        const Range r = todo.back();
        todo.pop_back();
        Node node;
        for (int k = 0; k < 3; ++k) node.lo[k] = FLT_MAX, node.hi[k] = -FLT_MAX;
        for (int i = r.begin; i < r.end; ++i) {
            const Triangle& tri = _tris[_order[i]];
            for (const ZVector* p : {&tri.a, &tri.b, &tri.c}) {
                const float q[3] = {p->x, p->y, p->z};
                for (int k = 0; k < 3; ++k) node.lo[k] = std::min(node.lo[k], q[k]), node.hi[k] = std::max(node.hi[k], q[k]);
            }
        }
        if (r.end - r.begin <= kLeafSize) {
            node.first = r.begin;
            node.count = r.end - r.begin;
            _nodes[r.node] = node;
            continue;
        }
        int axis = 0;
        for (int k = 1; k < 3; ++k)
            if (node.hi[k] - node.lo[k] > node.hi[axis] - node.lo[axis]) axis = k;
        const int mid = r.begin + (r.end - r.begin) / 2;
        auto key = [&](int t) { const ZVector& c = centres[t]; return axis == 0 ? c.x : axis == 1 ? c.y : c.z; };
        std::nth_element(_order.begin() + r.begin, _order.begin() + mid, _order.begin() + r.end,
                         [&](int a, int b) { return key(a) < key(b) || (key(a) == key(b) && a < b); });
        node.first = static_cast<int>(_nodes.size());
        node.count = 0;
        _nodes[r.node] = node;
        _nodes.push_back(Node());
        _nodes.push_back(Node());
        todo.push_back({node.first + 1, mid, r.end});
        todo.push_back({node.first, r.begin, mid});
    }
    return 0;
}

int ZRootProjector::nearest(const ZVector& point, ZTuple<3, float>& bcc, float& distance) const {
    if (_nodes.empty() || !std::isfinite(point.x) || !std::isfinite(point.y) || !std::isfinite(point.z)) return -1;
    int best = -1;
    float bestD2 = FLT_MAX;
    ZTuple<3, float> bestW;
    int stack[128];
    int top = 0;
    stack[top++] = 0;
    while (top > 0) {
        const Node& node = _nodes[stack[--top]];
        // Equal distances are still visited: a tie goes to the lower triangle number.
        if (boxDistance2(node.lo, node.hi, point) > bestD2) continue;
        if (node.count > 0) {
            for (int i = node.first; i < node.first + node.count; ++i) {
                const int t = _order[i];
                const Triangle& tri = _leafTris[i];
                const ZTuple<3, float> w = nearestOnTriangle(point, tri.a, tri.b, tri.c);
                const float d2 = (blend(tri.a, tri.b, tri.c, w) - point).squaredLength();
                if (d2 < bestD2 || (d2 == bestD2 && t < best)) best = t, bestD2 = d2, bestW = w;
            }
            continue;
        }
        const int a = node.first, b = node.first + 1;
        const float da = boxDistance2(_nodes[a].lo, _nodes[a].hi, point), db = boxDistance2(_nodes[b].lo, _nodes[b].hi, point);
        // The nearer child on top; a tree of 2^31 triangles is at most 31 deep, so the
        // stack never holds more than two entries per level.
        if (top + 2 > 128) continue;
        stack[top++] = da <= db ? b : a;
        stack[top++] = da <= db ? a : b;
    }
    bcc = bestW;
    distance = std::sqrt(bestD2);
    return best;
}

bool ZRootProjector::project(const ZVectorArray& points, ZFollicles& f, ZFloatArray* distances) const {
    if (_nodes.empty()) return false;
    const int n = points.length();
    int unplaceable = 0;
    #pragma omp parallel for schedule(static) reduction(+ : unplaceable)
    for (int i = 0; i < n; ++i)
        unplaceable += !std::isfinite(points[i].x) || !std::isfinite(points[i].y) || !std::isfinite(points[i].z);
    if (unplaceable) return false;
    f.tgl.setLengthForOverwrite(n);
    f.bcc.setLengthForOverwrite(n);
    f.uvw.setLengthForOverwrite(n);
    f.nmp.setLengthForOverwrite(n);
    if (distances) distances->setLengthForOverwrite(n);
    #pragma omp parallel for schedule(dynamic, 1024)
    for (int i = 0; i < n; ++i) {
        ZTuple<3, float> w;
        float d = 0.f;
        const int t = nearest(points[i], w, d);
        const Triangle& tri = _tris[t];
        f.tgl[i] = t;
        f.bcc[i] = w;
        f.nmp[i] = blend(tri.a, tri.b, tri.c, w);
        f.uvw[i] = _uvs.empty() ? ZVector(0, 0, 0) : blend(_uvs[3 * t], _uvs[3 * t + 1], _uvs[3 * t + 2], w);
        f.uvw[i].z = 0.f;
        if (distances) (*distances)[i] = d;
    }
    return true;
}
