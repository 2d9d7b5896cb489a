#include "toolkit/ZGroomFromCurves.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "toolkit/ZRootProjector.h"

using namespace Ulmex;

namespace {

std::string number(float v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", double(v));
    return buf;
}

} // namespace

bool ZGroomFromCurves::build(const ZAlembicCurves& curves, const ZTriMesh& body, const ZAxisArray& frames,
                             ZFollicles& f, ZCurves& strands) {
    message.clear();
    farthestRoot = 0.f;
    auto refuse = [&](const std::string& why) {
        message = why;
        f.reset();
        strands.reset();
        return false;
    };
    ZRootProjector projector;
    if (!projector.build(body)) return refuse("the body has no triangles, or a triangle names a missing point");
    if (frames.length() != body.numVertices())
        return refuse("the body has " + std::to_string(body.numVertices()) + " points but " +
                      std::to_string(frames.length()) + " frames");
    if (body.uvs.length() != 3 * body.numTriangles())
        return refuse("the body has no per-corner UVs (the root frames are blended through them)");
    const int n = curves.counts.length();
    if (n == 0) return refuse("the curves have no points");

    // The kept span of every curve: a pinned catmull-rom curve drops its doubled ends.
    const bool pinnable = curves.type == ZAlembicCurves::kCubic && curves.basis == ZAlembicCurves::kCatmullRom;
    std::vector<int> first(static_cast<size_t>(n)), kept(static_cast<size_t>(n));
    int at = 0, totalKept = 0;
    for (int i = 0; i < n; ++i) {
        int b = at, e = at + curves.counts[i];
        if (pinnable && e - b >= 4) {
            if (curves.points[b] == curves.points[b + 1]) ++b;
            if (curves.points[e - 1] == curves.points[e - 2]) --e;
        }
        first[i] = b;
        kept[i] = e - b;
        totalKept += e - b;
        at += curves.counts[i];
    }
    if (totalKept == 0) return refuse("the curves have no points");

    // The strands in world space.
    strands.reset();
    strands.numCVs.setLengthForOverwrite(n);
    strands.start.setLengthForOverwrite(n);
    for (int i = 0, s = 0; i < n; ++i) {
        strands.numCVs[i] = kept[i];
        strands.start[i] = s;
        s += kept[i];
    }
    strands.cvs.setLengthForOverwrite(totalKept);
    const ZMatrix& m = curves.worldMatrix;
    #pragma omp parallel for schedule(static)
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < kept[i]; ++j) strands.cvs[strands.start[i] + j] = m.transformPoint(curves.points[first[i] + j]);

    // Roots: each strand's first CV, projected (a curve without points keeps the origin).
    ZVectorArray roots;
    roots.setLengthForOverwrite(n);
    for (int i = 0; i < n; ++i) roots[i] = kept[i] > 0 ? strands.cvs[strands.start[i]] : ZVector(0, 0, 0);
    f.reset();
    ZFloatArray distances;
    if (!projector.project(roots, f, &distances)) return refuse("a curve point is not a finite number");
    float limit = maxRootDistance;
    if (limit < 0.f) {
        const ZBoundingBox box = body.boundingBox(true);
        limit = 0.01f * (box.maxPoint - box.minPoint).length();
    }
    int far = 0;
    for (int i = 0; i < n; ++i) {
        farthestRoot = std::max(farthestRoot, distances[i]);
        far += distances[i] > limit;
    }
    if (far > 0)
        return refuse(std::to_string(far) + " of " + std::to_string(n) + " curve roots lie farther than " +
                      number(limit) + " from the body (the farthest " + number(farthestRoot) + ")");

    // Per-strand attributes.
    const bool ids = curves.ids.length() == n;
    const int nw = curves.widths.length();
    const int np = curves.points.length();
    f.uid.setLengthForOverwrite(n);
    f.rtp.setLengthForOverwrite(n);
    f.ln0.setLengthForOverwrite(n);
    f.twh.setLengthForOverwrite(n);
    f.rwh.setLengthForOverwrite(n);
    f.top.setLengthForOverwrite(n);
    f.rop.setLengthForOverwrite(n);
    #pragma omp parallel for schedule(static)
    for (int i = 0; i < n; ++i) {
        f.uid[i] = ids ? curves.ids[i] : i;
        f.rtp[i] = 0;
        float length = 0.f;
        const ZVector* p = strands.cvs.data() + strands.start[i];
        for (int j = 1; j < kept[i]; ++j) length += (p[j] - p[j - 1]).length();
        f.ln0[i] = length;
        float root = defaultWidth, tip = defaultWidth;
        if (nw == 1) {
            root = tip = curves.widths[0];
        } else if (nw == n && nw != np) {
            root = tip = curves.widths[i];
        } else if (nw == np && kept[i] > 0) {
            root = curves.widths[first[i]];
            tip = curves.widths[first[i] + kept[i] - 1];
        }
        f.rwh[i] = root;
        f.twh[i] = tip;
        f.top[i] = 1.f;
        f.rop[i] = 1.f;
    }
    f.ln1 = f.ln0;
    f.maxLn0 = 0.f;
    for (float l : f.ln0) f.maxLn0 = std::max(f.maxLn0, l);
    f.maxLn1 = f.maxLn0;
    for (int i = 0; i < n; ++i) {
        const float one = 1.f;
        f.bdi.push(&i, 1);
        f.bdw.push(&one, 1);
    }
    f.axs.setLength(n, true);
    f.rxy.setLength(n, true);
    if (!f.updateAxes(body, frames, true) || !f.calcRxy(strands, true)) return refuse("the root frames cannot be set");
    return true;
}
