#include "feathers/ZSource.h"

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
