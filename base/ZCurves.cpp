#include "base/ZCurves.h"
#include "base/ZParallelProfile.h"

#include <omp.h>

#include <cmath>

namespace Ulmex {

namespace {

// Evaluates strand P[0..n-1] at t: position and d/ds, s = t * (n - 1).
void evalCurve(const ZVector* P, int n, float t, ZVector& pos, ZVector& tan) {
    if (n <= 0) { pos = ZVector(); tan = ZVector(); return; }
    if (n == 1) { pos = P[0]; tan = ZVector(); return; }
    if (std::isnan(t)) t = 0.f;
    if (std::isinf(t)) t = t > 0.f ? 1.f : 0.f;

    const int last = n - 1;
    const float s = t * static_cast<float>(last);
    if (s <= 0.f) {
        // Straight continuation of the first segment (s <= 0 includes t == 0 exactly).
        tan = P[1] - P[0];
        pos = P[0] + tan * s;
        return;
    }
    if (s >= static_cast<float>(last)) {
        tan = P[last] - P[last - 1];
        pos = P[last] + tan * (s - static_cast<float>(last));
        return;
    }
    int k = static_cast<int>(s);
    if (k > last - 1) k = last - 1;
    const float f = s - static_cast<float>(k);

    const ZVector& p1 = P[k];
    const ZVector& p2 = P[k + 1];
    const ZVector p0 = k > 0 ? P[k - 1] : p1 * 2.f - p2;
    const ZVector p3 = k + 2 <= last ? P[k + 2] : p2 * 2.f - p1;

    // Catmull-Rom in Hermite form: tangents m1 = (p2 - p0)/2, m2 = (p3 - p1)/2.
    const ZVector m1 = (p2 - p0) * 0.5f;
    const ZVector m2 = (p3 - p1) * 0.5f;
    const float f2 = f * f;
    const float f3 = f2 * f;
    const float h00 = 2.f * f3 - 3.f * f2 + 1.f;
    const float h10 = f3 - 2.f * f2 + f;
    const float h01 = -2.f * f3 + 3.f * f2;
    const float h11 = f3 - f2;
    pos = p1 * h00 + m1 * h10 + p2 * h01 + m2 * h11;

    const float d00 = 6.f * f2 - 6.f * f;
    const float d10 = 3.f * f2 - 4.f * f + 1.f;
    const float d01 = -6.f * f2 + 6.f * f;
    const float d11 = 3.f * f2 - 2.f * f;
    tan = p1 * d00 + m1 * d10 + p2 * d01 + m2 * d11;
}

} // namespace

ZVector ZCurves::position(int strand, float t) const {
    ZVector p, d;
    evalCurve(cvs.data() + start[strand], numCVs[strand], t, p, d);
    return p;
}

void ZCurves::getPositionAndTangent(int strand, float t, ZVector& position, ZVector& tangent) const {
    evalCurve(cvs.data() + start[strand], numCVs[strand], t, position, tangent);
}

float ZCurves::lineLength(int strand) const {
    const ZVector* P = cvs.data() + start[strand];
    const int n = numCVs[strand];
    float len = 0.f;
    for (int j = 1; j < n; ++j) len += (P[j] - P[j - 1]).length();
    return len;
}

ZBoundingBox ZCurves::boundingBox(bool rootsOnly, bool useOpenMP) const {
    const int n = numCurves();
    // One box per thread, merged afterwards: min and max do not depend on the order.
    std::vector<ZBoundingBox> partial(static_cast<size_t>(useOpenMP ? omp_get_max_threads() : 1));
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel num_threads(static_cast<int>(partial.size())) if (useOpenMP)
        {
            ZBoundingBox& local = partial[static_cast<size_t>(omp_get_thread_num())];
            #pragma omp for schedule(static)
            for (int i = 0; i < n; ++i) {
                const int m = rootsOnly ? (numCVs[i] > 0 ? 1 : 0) : numCVs[i];
                for (int j = 0; j < m; ++j) local.expand(cvs[start[i] + j]);
            }
        }
    }
    ZBoundingBox box;
    for (const ZBoundingBox& b : partial) box.expand(b);
    return box;
}

void ZCurves::write(std::ofstream& file) const {
    numCVs.write(file, true);
    start.write(file, true);
    cvs.write(file, true);
}

bool ZCurves::read(std::ifstream& file) {
    // Straight into this object's arrays, so that reading frame after frame reuses their
    // memory; a rejected record leaves them empty all the same.
    bool ok = numCVs.read(file, true) && start.read(file, true) && cvs.read(file, true);
    ok = ok && numCVs.size() == start.size();
    for (size_t i = 0; ok && i < numCVs.size(); ++i) {
        const long long s = start[i], m = numCVs[i];
        // Every strand has a root: a strand without CVs would send the operations that
        // read its first and last CV outside the array.
        ok = s >= 0 && m >= 1 && s + m <= static_cast<long long>(cvs.size());
    }
    if (!ok) {
        reset();
        markFailed(file);
        return false;
    }
    return true;
}

} // namespace Ulmex
