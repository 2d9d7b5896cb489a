// A source mesh placed along strands: a feather-like template with three triangle meshes
// (the first drawn, measured and mapped; two more carried for the host) and renderer
// texture attributes. Filled by the host or, later, from an Alembic file.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

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
    // Loads `mesh` from an Alembic file: every shape below the archive's first top-level
    // object O, each baked into one space by the transforms above it (read at sample 1;
    // geometry at sample 0), joined in walk order and triangulated. O's own transform
    // applies twice, once as the start of the walk and once when the walk enters O. A file
    // that cannot be opened, or an O without children, leaves `mesh` as it was. Nothing
    // else changes: call initialize() afterwards.
    void setAlembic(Ulmex::ZString path);
    // The walk of setAlembic: `matrix` is what the objects above have accumulated; a
    // transform with a determinant of magnitude 1e-30 or less is skipped. `visited` holds
    // the objects marked seen on the way down (absent is unseen); a child marked seen is
    // not entered.
    void DFS(Ulmex::ZAlembicObject object, std::map<Ulmex::ZString, bool> visited, Ulmex::ZMatrix matrix,
             std::vector<Ulmex::ZPolyMesh>& meshes);
    // The object's transform at sample 1 as T * Rz * Ry * Rx * S (a scale of exactly zero
    // reads as 1), replacing what `matrix` held.
    void getAlembicXformMatrix(Ulmex::ZAlembicObject object, Ulmex::ZMatrix& matrix);

    // As ZFeather::rotate.
    void rotate(const ZFollicles& follicles, const Ulmex::ZCurves& curves, int strandIndex, float scale, float angle,
                Ulmex::ZVectorArray* outMesh, Ulmex::ZVectorArray* outLattice, Ulmex::ZVectorArray* outCurves) const;
};
