#include "feathers/ZSource.h"

#include <algorithm>
#include <cmath>

#include "feathers/ZFeatherCommon.h"

using namespace Ulmex;
namespace C = ZFeatherCommon;

ZSource::ZSource() {
    for (int& id : displayLists) id = -1;
    reset();
}

ZSource::ZSource(const ZSource& other) {
    for (int& id : displayLists) id = -1;
    *this = other;
}

ZSource::~ZSource() { C::deleteDisplayLists(displayLists); }

ZSource& ZSource::operator=(const ZSource& other) {
    C::assignShared(*this, other);
    auxMeshA = other.auxMeshA;
    auxMeshB = other.auxMeshB;
    auxTextA = other.auxTextA;
    auxTextB = other.auxTextB;
    C::deleteDisplayLists(displayLists);
    txAssetName = other.txAssetName;
    txLayerName = other.txLayerName;
    return *this;
}

void ZSource::reset() {
    C::resetShared(*this);
    auxMeshA = ZTriMesh();
    auxMeshB = ZTriMesh();
    auxTextA.clear();
    auxTextB.clear();
    C::deleteDisplayLists(displayLists);
    txAssetName.clear();
    txLayerName.clear();
}

void ZSource::genDisplayLists() { C::genDisplayLists(displayLists, boundingBox, mesh, lattice); }
void ZSource::drawVertices() const { C::drawVertices(mesh, lattice); }
void ZSource::drawWireframe() const { C::drawWireframe(mesh, lattice); }
void ZSource::drawSurface() const { C::drawSurface(mesh, lattice); }

void ZSource::initialize() { C::initialize(mesh, curves, boundingBox, latticeResolution, lattice); }

void ZSource::genLatticeForCurves() { C::genLatticeForCurves(curves, boundingBox, latticeResolution, lattice); }

void ZSource::deform(const ZFollicles& follicles, const ZCurves& strands, int strandIndex, float scale, float angle,
                     ZVectorArray* outMesh, ZVectorArray* outLattice, ZVectorArray* outCurves,
                     bool useStrandBend) const {
    C::place(C::Mapping::SourceDeform, {mesh, curves, boundingBox, lattice}, follicles, strands, strandIndex, scale,
             angle, outMesh, outLattice, outCurves, useStrandBend);
}

void ZSource::rotate(const ZFollicles& follicles, const ZCurves& strands, int strandIndex, float scale, float angle,
                     ZVectorArray* outMesh, ZVectorArray* outLattice, ZVectorArray* outCurves) const {
    C::place(C::Mapping::Rotate, {mesh, curves, boundingBox, lattice}, follicles, strands, strandIndex, scale, angle,
             outMesh, outLattice, outCurves, false);
}

// ------------------------------------------------------------------ Alembic loading

void ZSource::getAlembicXformMatrix(ZAlembicObject object, ZMatrix& matrix) {
    ZVector t(0, 0, 0), r(0, 0, 0), s(0, 0, 0);
    object.getTransformations(t, r, s, 1);
    if (s.x == 0.f && s.y == 0.f && s.z == 0.f) s = ZVector(1, 1, 1);
    float sx, cx, sy, cy, sz, cz;
    ::sincosf(r.x * 0.017453292f, &sx, &cx);
    ::sincosf(r.y * 0.017453292f, &sy, &cy);
    ::sincosf(r.z * 0.017453292f, &sz, &cz);
    const float m[16] = {cy * cz * s.x, (sx * sy * cz - cx * sz) * s.y, (cx * sy * cz + sx * sz) * s.z, t.x,
                         cy * sz * s.x, (sx * sy * sz + cx * cz) * s.y, (cx * sy * sz - sx * cz) * s.z, t.y,
                         -sy * s.x,     sx * cy * s.y,                  cx * cy * s.z,                  t.z,
                         0.f,           0.f,                            0.f,                            1.f};
    std::copy(m, m + 16, matrix.data);
}

void ZSource::DFS(ZAlembicObject object, std::map<ZString, bool> visited, ZMatrix matrix,
                  std::vector<ZPolyMesh>& meshes) {
    visited[object.fullPath()] = true;
    // A shape is read whole, whatever hangs below it (a mesh's face sets).
    if (object.isLeaf() || object.isShape()) {
        ZPolyMesh leaf;
        object.getPolyMeshData(&leaf.points, nullptr, &leaf.vCounts, &leaf.vConnects, &leaf.boundingBox, nullptr,
                               nullptr, nullptr, 0);
        leaf.transform(matrix, false);
        meshes.push_back(leaf);
        return;
    }
    ZMatrix x;
    getAlembicXformMatrix(object, x);
    // A child's transform applies before its parent's; a singular one is left out whole.
    if (std::fabs(static_cast<float>(x.det())) > 1e-30f) matrix = matrix * x;
    for (int i = 0; i < object.numChildren(); ++i) {
        ZAlembicObject child;
        if (!object.getChild(i, child)) continue;
        // Absent counts as not seen. Looked up, not inserted: the map each call copies holds
        // the path down to it only, so a walk over thousands of siblings stays linear.
        const auto seen = visited.find(child.fullPath());
        if (seen == visited.end() || !seen->second) DFS(child, visited, matrix, meshes);
    }
}

void ZSource::setAlembic(ZString path) {
    ZAlembicArchive archive;
    if (!archive.open(path.c_str())) return;
    ZAlembicObject top = archive.topObject(), first;
    if (!top.getChild(0, first)) return;
    ZMatrix r;
    getAlembicXformMatrix(first, r);
    if (!(std::fabs(static_cast<float>(r.det())) > 1e-30f)) r = ZMatrix::identity();
    if (first.numChildren() == 0) return;
    // Every object starts unseen; the walk marks the path it is on.
    std::map<ZString, bool> visited;
    std::vector<ZPolyMesh> meshes;
    DFS(first, visited, r, meshes);
    ZPolyMesh joined;
    for (const ZPolyMesh& m : meshes) joined.append(m, false);
    joined.convertTo(mesh);
}
