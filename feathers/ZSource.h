// A source mesh placed along strands: a feather-like template with three triangle meshes
// (the first drawn, measured and mapped; two more carried for the host) and renderer
// texture attributes. Filled by the host or, later, from an Alembic file.
#pragma once

#include <cstdint>

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

class ZSource {
public:
    Ulmex::ZString name;
    float color[4] = {0.f, 0.f, 0.f, 1.f};  // reset() makes it 1, 1, 1, 1
    Ulmex::ZTriMesh mesh;                  // drawn, measured and mapped
    Ulmex::ZTriMesh auxMeshA;              // carried and saved only
    Ulmex::ZTriMesh auxMeshB;              // carried and saved only
    Ulmex::ZString auxTextA;
    Ulmex::ZCurves curves;
    Ulmex::ZString auxTextB;
    Ulmex::ZBoundingBox boundingBox;
    int32_t storedInt = 0;
    char transientFlag = 0;
    Ulmex::ZString transientText;
    int latticeResolution = 0;
    Ulmex::ZQuadMesh lattice;
    int displayLists[7];
    Ulmex::ZString txAssetName;
    Ulmex::ZString txLayerName;

    // Lifecycle, lists and drawing as ZFeather's.
    ZSource();
    ZSource(const ZSource& other);
    ~ZSource();
    ZSource& operator=(const ZSource& other);
    void reset();

    void genDisplayLists();
    void drawVertices() const;
    void drawWireframe() const;
    void drawSurface() const;

    void initialize();
    void genLatticeForCurves();

    // As ZFeather::deform, except that the fold is always blended and normalised, even at
    // angle 0 (the result is then the side vector up to rounding).
    void deform(const ZFollicles& follicles, const Ulmex::ZCurves& curves, int strandIndex, float scale, float angle,
                Ulmex::ZVectorArray* outMesh, Ulmex::ZVectorArray* outLattice, Ulmex::ZVectorArray* outCurves,
                bool useStrandBend) const;
    // As ZFeather::rotate.
    void rotate(const ZFollicles& follicles, const Ulmex::ZCurves& curves, int strandIndex, float scale, float angle,
                Ulmex::ZVectorArray* outMesh, Ulmex::ZVectorArray* outLattice, Ulmex::ZVectorArray* outCurves) const;
};
