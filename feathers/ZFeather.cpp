#include "feathers/ZFeather.h"

#include "feathers/ZFeatherCommon.h"

using namespace Ulmex;
namespace C = ZFeatherCommon;

namespace {

void setNoLists(int ids[C::kNumDisplayLists]) {
    for (int s = 0; s < C::kNumDisplayLists; ++s) ids[s] = -1;
}

} // namespace

ZFeather::ZFeather() {
    setNoLists(displayLists);
    reset();
}

ZFeather::ZFeather(const ZFeather& other) {
    setNoLists(displayLists);
    txmultiUV = 0;
    *this = other;
}

ZFeather::~ZFeather() { C::deleteDisplayLists(displayLists); }

ZFeather& ZFeather::operator=(const ZFeather& other) {
    C::assignShared(*this, other);
    storedText = other.storedText;
    C::deleteDisplayLists(displayLists);
    txBasePath = other.txBasePath;
    txLayerName = other.txLayerName;
    MaterialSet = other.MaterialSet;
    txmultiUV = other.txmultiUV;
    return *this;
}

void ZFeather::reset() {
    C::resetShared(*this);
    storedText.clear();
    C::deleteDisplayLists(displayLists);
    txBasePath.clear();
    txLayerName.clear();
    MaterialSet.clear();
    txmultiUV = 0;
}

void ZFeather::genDisplayLists() { C::genDisplayLists(displayLists, boundingBox, mesh, lattice); }
void ZFeather::drawVertices() const { C::drawVertices(mesh, lattice); }
void ZFeather::drawWireframe() const { C::drawWireframe(mesh, lattice); }
void ZFeather::drawSurface() const { C::drawSurface(mesh, lattice); }

void ZFeather::write(std::ofstream& file) const {
    name.write(file, true);
    file.write(reinterpret_cast<const char*>(color), sizeof color);
    mesh.write(file);
    curves.write(file);
    boundingBox.write(file);
    file.write(reinterpret_cast<const char*>(&storedInt), sizeof storedInt);
    storedText.write(file, true);
}

void ZFeather::read(std::ifstream& file) {
    name.read(file, true);
    readRaw(file, color, sizeof color);
    mesh.read(file);
    curves.read(file);
    boundingBox.read(file);
    readPod(file, storedInt);
    storedText.read(file, true);
}

void ZFeather::writeRManAttrs(std::ofstream& file) const {
    const int32_t count = 2;  // four entries follow; the format says 2
    file.write(reinterpret_cast<const char*>(&count), sizeof count);
    ZString("txBasePath").write(file, true);
    txBasePath.write(file, true);
    ZString("txLayerName").write(file, true);
    txLayerName.write(file, true);
    ZString("txmultiUV").write(file, true);
    file.write(reinterpret_cast<const char*>(&txmultiUV), sizeof txmultiUV);
    ZString("MaterialSet").write(file, true);
    MaterialSet.write(file, true);
}

void ZFeather::readRManAttrs(std::ifstream& file) {
    int32_t count = 0;
    readPod(file, count);
    ZString key;
    for (int32_t e = 0; e < count; ++e) {
        // However large the count, the loop ends with the stream.
        if (!key.read(file, true)) break;
        if (key == "txBasePath") txBasePath.read(file, true);
        else if (key == "txLayerName") txLayerName.read(file, true);
        else if (key == "txmultiUV") readPod(file, txmultiUV);
        else if (key == "MaterialSet") MaterialSet.read(file, true);
    }
}

void ZFeather::initialize() { C::initialize(mesh, curves, boundingBox, latticeResolution, lattice); }

void ZFeather::genLatticeForCurves() { C::genLatticeForCurves(curves, boundingBox, latticeResolution, lattice); }

void ZFeather::deform(const ZFollicles& follicles, const ZCurves& strands, int strandIndex, float scale, float angle,
                      ZVectorArray* outMesh, ZVectorArray* outLattice, ZVectorArray* outCurves,
                      bool useStrandBend) const {
    C::place(C::Mapping::FeatherDeform, {mesh, curves, boundingBox, lattice}, follicles, strands, strandIndex, scale,
             angle, outMesh, outLattice, outCurves, useStrandBend);
}

void ZFeather::rotate(const ZFollicles& follicles, const ZCurves& strands, int strandIndex, float scale, float angle,
                      ZVectorArray* outMesh, ZVectorArray* outLattice, ZVectorArray* outCurves) const {
    C::place(C::Mapping::Rotate, {mesh, curves, boundingBox, lattice}, follicles, strands, strandIndex, scale, angle,
             outMesh, outLattice, outCurves, false);
}
