#include "feathers/ZFeatherCommon.h"

#include <GL/gl.h>

#include <cmath>

using namespace Ulmex;

namespace ZFeatherCommon {

void deleteDisplayLists(const int ids[kNumDisplayLists]) {
    for (int s = 0; s < kNumDisplayLists; ++s)
        if (ids[s] >= 0) glDeleteLists(static_cast<GLuint>(ids[s]), 1);
}

void genDisplayLists(int ids[kNumDisplayLists], const ZBoundingBox& box, const ZTriMesh& mesh,
                     const ZQuadMesh& lattice) {
    deleteDisplayLists(ids);
    for (int s = 0; s < kNumDisplayLists; ++s) ids[s] = static_cast<int>(glGenLists(1));
    auto record = [&](int slot, auto&& draw) {
        glNewList(static_cast<GLuint>(ids[slot]), GL_COMPILE);
        draw();
        glEndList();
    };
    record(0, [&] { box.draw(); });
    record(1, [&] { mesh.drawVertices(); });
    record(2, [&] { mesh.drawWireframe(); });
    record(3, [&] { mesh.drawSurface(true); });
    record(4, [&] { lattice.drawVertices(); });
    record(5, [&] { lattice.drawWireframe(); });
    record(6, [&] { lattice.drawSurface(true); });
}

void drawVertices(const ZTriMesh& mesh, const ZQuadMesh& lattice) {
    mesh.drawVertices();
    lattice.drawVertices();
}

void drawWireframe(const ZTriMesh& mesh, const ZQuadMesh& lattice) {
    mesh.drawWireframe();
    lattice.drawWireframe();
}

void drawSurface(const ZTriMesh& mesh, const ZQuadMesh& lattice) {
    mesh.drawSurface(true);
    lattice.drawSurface(true);
}

void initialize(const ZTriMesh& mesh, const ZCurves& curves, ZBoundingBox& box, int latticeResolution,
                ZQuadMesh& lattice) {
    const bool meshCounts = !mesh.points.empty() && !mesh.v012.empty();
    const bool curvesCount = !curves.numCVs.empty() && !curves.cvs.empty();
    if (!meshCounts && !curvesCount) return;
    box.reset();
    if (meshCounts) box.expand(mesh.boundingBox(true));
    if (curvesCount) box.expand(curves.boundingBox(false, false));
    genLatticeForCurves(curves, box, latticeResolution, lattice);
}

void genLatticeForCurves(const ZCurves& curves, const ZBoundingBox& box, int latticeResolution, ZQuadMesh& lattice) {
    lattice.reset();
    if (curves.numCVs.empty() || curves.cvs.empty()) return;
    const int R = latticeResolution > 2 ? latticeResolution : 3;
    const float rowPitch = box.width(1) / static_cast<float>(R);
    const float minX = box.minPoint.x, maxX = box.maxPoint.x, minY = box.minPoint.y;
    lattice.points.setLength(3 * (R + 1), true);
    for (int r = 0; r <= R; ++r) {
        const float y = minY + static_cast<float>(r) * rowPitch;
        lattice.points[3 * r] = ZVector(maxX, y, 0.f);
        lattice.points[3 * r + 1] = ZVector(0.f, y, 0.f);
        lattice.points[3 * r + 2] = ZVector(minX, y, 0.f);
    }
    // Depth from the nearest template CV, searched at the point's own (x, y, 0).
    const ZPointsDistTree tree(curves.cvs);
    for (ZVector& p : lattice.points) {
        int nearest = -1;
        float distance = 0.f;
        tree.findClosestPoint(p, nearest, distance);
        if (nearest >= 0) p.z = curves.cvs[nearest].z;
    }
    lattice.quads.resize(static_cast<size_t>(2 * R));
    for (int r = 0; r < R; ++r) {
        const int b = 3 * r;
        lattice.quads[2 * r] = ZTuple<4, int>(b, b + 1, b + 4, b + 3);
        lattice.quads[2 * r + 1] = ZTuple<4, int>(b + 1, b + 2, b + 5, b + 4);
    }
}

void place(Mapping mapping, const Template& shape, const ZFollicles& follicles, const ZCurves& curves,
           int strandIndex, float scale, float angle, ZVectorArray* outMesh, ZVectorArray* outLattice,
           ZVectorArray* outCurves, bool useStrandBend) {
    const int n = curves.numCVs[strandIndex];
    const int f = curves.start[strandIndex];
    const ZVector root = curves.cvs[f];
    const ZVector tip = curves.cvs[f + n - 1];
    const ZVector d = fastNormalize(tip - root);

    const float minX = shape.box.minPoint.x, maxX = shape.box.maxPoint.x;
    const float minY = shape.box.minPoint.y;
    const float H = shape.box.maxPoint.y - minY;
    if (H < 1e-30f) {
        // A template of no height cannot be placed: the unmapped points, and for the
        // curves the argument's whole CV array (every strand), as the file format expects.
        if (outMesh) *outMesh = shape.mesh.points;
        if (outLattice) *outLattice = shape.lattice.points;
        if (outCurves) *outCurves = curves.cvs;
        return;
    }
    const float invH = 1.f / H;

    // The side vector: across the strand, in the plane the strand bows in or from the frame.
    ZVector s;
    if (mapping != Mapping::Rotate && useStrandBend) {
        ZVector m(0.f, 0.f, 0.f);
        for (int k = 1; k <= n - 2; ++k) m += curves.cvs[f + k] - root;
        m = m * (1.f / (static_cast<float>(n - 2) + 1e-30f));
        m = fastNormalize(m);
        s = fastNormalize(d.cross(m));
    } else {
        const ZTuple<2, float>& r = follicles.rxy[strandIndex];
        const ZAxis& a = follicles.axs[strandIndex];
        s = -fastNormalize(a.xAxis * r[0] + a.yAxis * r[1]);
    }
    // The positive X half turns by -angle, the negative half by +angle.
    const ZVector sidePlus = Rotate(s, d, -angle);
    const ZVector sideMinus = Rotate(s, d, angle);
    const float k = invH * follicles.ln1[strandIndex] * scale;
    const bool fold = mapping != Mapping::FeatherDeform || std::fabs(angle) > 1e-30f;
    const float chord = mapping == Mapping::Rotate ? (tip - root).length() : 0.f;

    auto mapPoints = [&](const ZVectorArray& src, ZVectorArray& dst) {
        const int count = src.length();
        for (int i = 0; i < count; ++i) {
            const ZVector& p = src[i];
            ZVector q = s;
            if (fold) {
                if (p.x > 0.f) {
                    const float w = p.x / (maxX + 1e-30f);
                    q = fastNormalize(s * (1.f - w) + sidePlus * w);
                } else {
                    const float w = p.x / (minX - 1e-30f);
                    q = fastNormalize(s * (1.f - w) + sideMinus * w);
                }
            }
            const float t = (p.y - minY) * invH;
            ZVector P, T;
            if (mapping == Mapping::Rotate) {
                P = root + d * (t * chord);
                T = d;
            } else {
                curves.getPositionAndTangent(strandIndex, t, P, T);
            }
            const ZVector b = fastNormalize(q.cross(T));
            dst[i] = P + q * (p.x * k) + b * (p.z * k);
        }
    };
    if (outMesh) mapPoints(shape.mesh.points, *outMesh);
    if (outLattice) mapPoints(shape.lattice.points, *outLattice);
    if (outCurves) mapPoints(shape.curves.cvs, *outCurves);
}

} // namespace ZFeatherCommon
