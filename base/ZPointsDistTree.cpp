#include "base/ZPointsDistTree.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Ulmex {

namespace {

const int kLeaf = 8;

float distance2(const ZVector& a, const ZVector& b) {
    const ZVector d = a - b;
    return d.x * d.x + d.y * d.y + d.z * d.z;
}

} // namespace

void ZPointsDistTree::build(const ZVectorArray& points) {
    _points.assign(points.begin(), points.end());
    // A point with a NaN coordinate is at no distance from anything: it is left out of the
    // tree and never found (ordering it would also break the median split).
    _order.clear();
    for (size_t i = 0; i < _points.size(); ++i) {
        const ZVector& p = _points[i];
        if (!std::isnan(p.x) && !std::isnan(p.y) && !std::isnan(p.z)) _order.push_back(static_cast<int>(i));
    }
    _axis.assign(_order.size(), 0);
    buildRange(0, static_cast<int>(_order.size()));
}

void ZPointsDistTree::buildRange(int lo, int hi) {
    if (hi - lo <= kLeaf) return;
    // Split on the axis of largest extent, at the median (ties ordered by index, so the
    // layout is a pure function of the points).
    ZVector mn(std::numeric_limits<float>::max()), mx(-std::numeric_limits<float>::max());
    for (int i = lo; i < hi; ++i)
        for (int a = 0; a < 3; ++a) {
            mn[a] = std::min(mn[a], _points[_order[i]][a]);
            mx[a] = std::max(mx[a], _points[_order[i]][a]);
        }
    int axis = 0;
    for (int a = 1; a < 3; ++a)
        if (mx[a] - mn[a] > mx[axis] - mn[axis]) axis = a;
    const int mid = (lo + hi) / 2;
    std::nth_element(_order.begin() + lo, _order.begin() + mid, _order.begin() + hi, [&](int a, int b) {
        const float pa = _points[a][axis], pb = _points[b][axis];
        return pa < pb || (pa == pb && a < b);
    });
    _axis[mid] = static_cast<unsigned char>(axis);
    buildRange(lo, mid);
    buildRange(mid + 1, hi);
}

void ZPointsDistTree::search(int lo, int hi, const ZVector& q, int& best, float& bestD2) const {
    auto consider = [&](int idx) {
        const float d2 = distance2(q, _points[idx]);
        if (d2 < bestD2 || (d2 == bestD2 && idx < best)) {
            bestD2 = d2;
            best = idx;
        }
    };
    if (hi - lo <= kLeaf) {
        for (int i = lo; i < hi; ++i) consider(_order[i]);
        return;
    }
    const int mid = (lo + hi) / 2;
    const int idx = _order[mid];
    const int axis = _axis[mid];
    const float diff = q[axis] - _points[idx][axis];
    consider(idx);
    const bool leftFirst = diff <= 0.f;
    if (leftFirst) search(lo, mid, q, best, bestD2);
    else search(mid + 1, hi, q, best, bestD2);
    // The other side can hold a nearer (or equally near, lower-index) point only within
    // the splitting distance.
    if (diff * diff <= bestD2) {
        if (leftFirst) search(mid + 1, hi, q, best, bestD2);
        else search(lo, mid, q, best, bestD2);
    }
}

void ZPointsDistTree::findClosestPoint(const ZVector& query, int& index, float& distance) const {
    int best = -1;
    float bestD2 = std::numeric_limits<float>::max();
    if (!_order.empty()) search(0, static_cast<int>(_order.size()), query, best, bestD2);
    index = best;
    distance = best < 0 ? std::numeric_limits<float>::max() : std::sqrt(bestD2);
}

} // namespace Ulmex
