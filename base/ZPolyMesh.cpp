#include "base/ZPolyMesh.h"
#include "base/ZParallelProfile.h"

namespace Ulmex {

void ZPolyMesh::reset() {
    points.clear();
    vCounts.clear();
    vConnects.clear();
    boundingBox.reset();
    velocities.clear();
    uvs.clear();
    uvIndices.clear();
    normals.clear();
}

void ZPolyMesh::append(const ZPolyMesh& other, bool withAttributes) {
    if (&other == this) {  // appended to itself: as a copy
        const ZPolyMesh copy(other);
        append(copy, withAttributes);
        return;
    }
    const int pointShift = points.length();
    const int uvShift = uvs.length();
    points.append(other.points);
    vCounts.append(other.vCounts);
    const size_t old = vConnects.size();
    vConnects.append(other.vConnects);
    for (size_t i = old; i < vConnects.size(); ++i) vConnects[i] += pointShift;
    boundingBox.expand(other.boundingBox);
    if (withAttributes) {
        velocities.append(other.velocities);
        uvs.append(other.uvs);
        const size_t oldUv = uvIndices.size();
        uvIndices.append(other.uvIndices);
        for (size_t i = oldUv; i < uvIndices.size(); ++i) uvIndices[i] += uvShift;
        normals.append(other.normals);
    } else {
        velocities.clear();
        uvs.clear();
        uvIndices.clear();
        normals.clear();
    }
}

void ZPolyMesh::transform(const ZMatrix& m, bool useOpenMP) {
    const int n = points.length();
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) if (useOpenMP)
        for (int i = 0; i < n; ++i) points[i] = m.transformPoint(points[i]);
    }
    for (ZVector& v : velocities) v = m.transformVector(v);
    for (ZVector& v : normals) v = m.transformVector(v).normalized(false);
    computeBoundingBox();
}

void ZPolyMesh::computeBoundingBox() {
    boundingBox.reset();
    for (const ZVector& p : points) boundingBox.expand(p);
}

void ZPolyMesh::convertTo(ZTriMesh& mesh) const {
    mesh.reset();
    mesh.points = points;
    const bool withUvs = !uvs.empty() && uvIndices.size() == vConnects.size();
    size_t first = 0;
    for (int count : vCounts) {
        for (int k = 1; k + 1 < count; ++k) {
            const size_t c[3] = {first, first + static_cast<size_t>(k), first + static_cast<size_t>(k) + 1};
            mesh.v012.push_back(ZTuple<3, int>(vConnects[c[0]], vConnects[c[1]], vConnects[c[2]]));
            if (withUvs)
                for (size_t corner : c) {
                    const ZTuple<2, float>& uv = uvs[uvIndices[corner]];
                    mesh.uvs.push_back(ZVector(uv[0], uv[1], 0.f));
                }
        }
        first += static_cast<size_t>(count > 0 ? count : 0);
    }
}

} // namespace Ulmex
