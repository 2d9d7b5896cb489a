// The polygon-mesh layer of the Alembic reader: a PolyMesh's positions, velocities, faces,
// bounds and UVs (copied or viewed in place) with the world matrix above it, and the
// winding reversal the rebinding applies.
#include "base/alembic/ZAlembic.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "base/alembic/ZAlembicFormat.h"

namespace Ulmex {

using namespace alembic;

bool ZAlembicObject::getPolyMeshData(ZVectorArray* points, ZVectorArray* velocities, ZIntArray* counts,
                                     ZIntArray* connections, ZBoundingBox* box, ZMatrix* worldMatrix, ZFloatArray* uvs,
                                     ZIntArray* uvIndices, int sample) const {
    if (!_archive || !isPolyMesh()) return false;
    const Archive& a = *_archive;
    const ogawa::Group gg = geometryCompound(a, _group);
    const Property P = findProperty(a, gg, "P");
    if (points && !readArray(P, sample, kF32, 3, *points)) points->clear();
    if (velocities && !readArray(findProperty(a, gg, ".velocities"), sample, kF32, 3, *velocities)) velocities->clear();
    if (counts && !readArray(findProperty(a, gg, ".faceCounts"), sample, kI32, 1, *counts)) counts->clear();
    if (connections && !readArray(findProperty(a, gg, ".faceIndices"), sample, kI32, 1, *connections))
        connections->clear();
    if (box) {
        const std::uint8_t* raw = nullptr;
        int extent = 0;
        double b[6];
        ogawa::Data held;
        if (scalarValues(findProperty(a, gg, ".selfBnds"), sample, kF64, raw, extent, held) && extent == 6) {
            std::memcpy(b, raw, sizeof b);
            box->minPoint = ZVector(float(b[0]), float(b[1]), float(b[2]));
            box->maxPoint = ZVector(float(b[3]), float(b[4]), float(b[5]));
        } else {
            box->reset();
        }
    }
    if (uvs || uvIndices) {
        // Straight into the caller's arrays, reusing their memory from one sample to the next.
        ZFloatArray scratchValues;
        ZIntArray scratchIndices;
        ZFloatArray& values = uvs ? *uvs : scratchValues;
        ZIntArray& indices = uvIndices ? *uvIndices : scratchIndices;
        bool ok = false;
        const Property uv = findProperty(a, gg, "uv");
        if (uv.valid && uv.header.type == kArray) {
            ok = readArray(uv, sample, kF32, 2, values);
            if (ok) {
                indices.resize(values.size() / 2);
                for (size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<int>(i);
            }
        } else if (uv.valid && uv.header.type == kCompound) {
            // The unsigned indices are copied as they are; the rare one past INT_MAX is clamped.
            ok = readArray(findProperty(a, uv.group, ".vals"), sample, kF32, 2, values) &&
                 readArray(findProperty(a, uv.group, ".indices"), sample, kU32, 1, indices);
            if (ok)
                for (int& i : indices)
                    if (i < 0) i = INT_MAX;
        }
        if (!ok) {
            values.clear();
            indices.clear();
        }
    }
    if (worldMatrix) *worldMatrix = meshWorldMatrix(a, _ancestors, P, sample);
    return true;
}

bool ZAlembicObject::getPolyMeshViews(ZAlembicArrayView* points, ZAlembicArrayView* counts,
                                      ZAlembicArrayView* connections, ZMatrix* worldMatrix, int sample) const {
    if (!_archive || !isPolyMesh()) return false;
    const Archive& a = *_archive;
    const ogawa::Group gg = geometryCompound(a, _group);
    const Property P = findProperty(a, gg, "P");
    auto view = [&](ZAlembicArrayView* out, const Property& p, int pod, int extent) {
        if (!out) return;
        const std::uint8_t* v = nullptr;
        std::uint64_t count = 0;
        ogawa::Data held;
        *out = arrayValues(p, sample, pod, extent, v, count, held)
                   ? ZAlembicArrayView{v, static_cast<size_t>(count), held.hold}
                   : ZAlembicArrayView{};
    };
    view(points, P, kF32, 3);
    view(counts, findProperty(a, gg, ".faceCounts"), kI32, 1);
    view(connections, findProperty(a, gg, ".faceIndices"), kI32, 1);
    if (worldMatrix) *worldMatrix = meshWorldMatrix(a, _ancestors, P, sample);
    return true;
}

void ReverseConnections(const ZIntArray& counts, ZIntArray& connections) {
    size_t at = 0;
    for (int m : counts) {
        if (m < 0 || static_cast<size_t>(m) > connections.size() - at) return;
        if (m > 2) std::reverse(connections.begin() + static_cast<std::ptrdiff_t>(at + 1),
                                connections.begin() + static_cast<std::ptrdiff_t>(at + static_cast<size_t>(m)));
        at += static_cast<size_t>(m);
    }
}

} // namespace Ulmex
