#include "base/ZTriMesh.h"
#include "base/ZParallelProfile.h"

#include <GL/gl.h>
#include <omp.h>

#include <vector>

namespace Ulmex {

ZBoundingBox ZTriMesh::boundingBox(bool useOpenMP) const {
    const int n = numVertices();
    std::vector<ZBoundingBox> partial(static_cast<size_t>(useOpenMP ? omp_get_max_threads() : 1));
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel num_threads(static_cast<int>(partial.size())) if (useOpenMP)
        {
            ZBoundingBox& local = partial[static_cast<size_t>(omp_get_thread_num())];
            #pragma omp for schedule(static)
            for (int i = 0; i < n; ++i) local.expand(points[i]);
        }
    }
    ZBoundingBox box;
    for (const ZBoundingBox& b : partial) box.expand(b);
    return box;
}

void ZTriMesh::transform(const ZMatrix& m, bool useOpenMP) {
    const int n = numVertices();
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) if (useOpenMP)
        for (int i = 0; i < n; ++i) points[i] = m.transformPoint(points[i]);
    }
}

void ZTriMesh::drawVertices() const {
    glBegin(GL_POINTS);
    for (const ZVector& p : points) glVertex3fv(&p.x);
    glEnd();
}

void ZTriMesh::drawWireframe() const {
    glBegin(GL_LINES);
    for (const auto& t : v012) {
        for (int e = 0; e < 3; ++e) {
            glVertex3fv(&points[t[e]].x);
            glVertex3fv(&points[t[(e + 1) % 3]].x);
        }
    }
    glEnd();
}

void ZTriMesh::drawSurface(bool smoothNormals) const {
    std::vector<ZVector> normals;
    if (smoothNormals) {
        normals.assign(points.size(), ZVector());
        for (const auto& t : v012) {
            const ZVector n = (points[t[1]] - points[t[0]]).cross(points[t[2]] - points[t[0]]);
            for (int c = 0; c < 3; ++c) normals[t[c]] += n;
        }
        for (ZVector& n : normals) n.normalize(false);
    }
    glBegin(GL_TRIANGLES);
    for (const auto& t : v012) {
        if (!smoothNormals) {
            const ZVector n = (points[t[1]] - points[t[0]]).cross(points[t[2]] - points[t[0]]).normalized(false);
            glNormal3fv(&n.x);
        }
        for (int c = 0; c < 3; ++c) {
            if (smoothNormals) glNormal3fv(&normals[t[c]].x);
            glVertex3fv(&points[t[c]].x);
        }
    }
    glEnd();
}

void ZTriMesh::write(std::ofstream& file) const {
    points.write(file, true);
    v012.write(file, true);
    uvs.write(file, true);
}

bool ZTriMesh::read(std::ifstream& file) {
    ZTriMesh m;
    bool ok = m.points.read(file, true) && m.v012.read(file, true) && m.uvs.read(file, true);
    const int np = m.points.length();
    for (size_t i = 0; ok && i < m.v012.size(); ++i)
        for (int c = 0; c < 3; ++c) ok = ok && m.v012[i][c] >= 0 && m.v012[i][c] < np;
    if (!ok) {
        reset();
        markFailed(file);
        return false;
    }
    *this = std::move(m);
    return true;
}

} // namespace Ulmex
