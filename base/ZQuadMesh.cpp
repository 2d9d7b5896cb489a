#include "base/ZQuadMesh.h"

#include <GL/gl.h>

#include <vector>

namespace Ulmex {

namespace {

// Area-weighted normal of a quad (sum of its two triangles' cross products).
ZVector quadNormal(const ZVectorArray& p, const ZTuple<4, int>& q) {
    return (p[q[2]] - p[q[0]]).cross(p[q[3]] - p[q[1]]);
}

} // namespace

void ZQuadMesh::drawVertices() const {
    glBegin(GL_POINTS);
    for (const ZVector& p : points) glVertex3fv(&p.x);
    glEnd();
}

void ZQuadMesh::drawWireframe() const {
    glBegin(GL_LINES);
    for (const auto& q : quads)
        for (int e = 0; e < 4; ++e) {
            glVertex3fv(&points[q[e]].x);
            glVertex3fv(&points[q[(e + 1) % 4]].x);
        }
    glEnd();
}

void ZQuadMesh::drawSurface(bool smoothNormals) const {
    std::vector<ZVector> normals;
    if (smoothNormals) {
        normals.assign(points.size(), ZVector());
        for (const auto& q : quads) {
            const ZVector n = quadNormal(points, q);
            for (int c = 0; c < 4; ++c) normals[q[c]] += n;
        }
        for (ZVector& n : normals) n.normalize(false);
    }
    glBegin(GL_QUADS);
    for (const auto& q : quads) {
        if (!smoothNormals) {
            const ZVector n = quadNormal(points, q).normalized(false);
            glNormal3fv(&n.x);
        }
        for (int c = 0; c < 4; ++c) {
            if (smoothNormals) glNormal3fv(&normals[q[c]].x);
            glVertex3fv(&points[q[c]].x);
        }
    }
    glEnd();
}

} // namespace Ulmex
