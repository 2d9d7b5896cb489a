// One feather template: a triangle mesh and curves authored in the feather's local space
// (Y along the strand from root to tip, X across, Z out of the plane), the proxy lattice
// derived from them, renderer attributes, and OpenGL display lists for the viewport.
#pragma once

#include <cstdint>
#include <fstream>

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

class ZFeather {
public:
    Ulmex::ZString name;                   // the feather kind's name (its USD prim)
    float color[4] = {0.f, 0.f, 0.f, 1.f};  // reset() makes it 1, 1, 1, 1
    Ulmex::ZTriMesh mesh;                  // the vane, in the feather's local space
    Ulmex::ZCurves curves;                 // the shaft and barbs, in the feather's local space
    Ulmex::ZBoundingBox boundingBox;       // set by initialize()
    int32_t storedInt = 0;                 // the host's, saved
    Ulmex::ZString storedText;             // the host's, saved
    char transientFlag = 0;                // the host's, never saved
    Ulmex::ZString transientText;          // the host's, never saved
    int latticeResolution = 0;             // lattice rows; below 3 acts as 3
    Ulmex::ZQuadMesh lattice;              // built by genLatticeForCurves()
    int displayLists[7];                   // OpenGL list ids; negative: none
    Ulmex::ZString txBasePath;
    Ulmex::ZString txLayerName;
    Ulmex::ZString MaterialSet;
    int32_t txmultiUV = 0;

    // All list ids -1, then reset().
    ZFeather();
    // A copy has no lists of its own (ids -1) and then takes the fields by assignment; the
    // original's lists are neither shared nor touched.
    ZFeather(const ZFeather& other);
    // Deletes the lists this object holds.
    ~ZFeather();
    // Copies every field but the list ids, deleting this object's lists on the way (their
    // numbers stay in displayLists).
    ZFeather& operator=(const ZFeather& other);
    // Back to the state after construction, deleting the lists (their numbers stay).
    void reset();

    // Records the seven lists: box; mesh vertices, wireframe, surface; lattice vertices,
    // wireframe, surface. Needs a current OpenGL context. An object whose ids are all
    // negative makes no OpenGL call in reset, assignment or destruction.
    void genDisplayLists();
    void drawVertices() const;
    void drawWireframe() const;
    void drawSurface() const;

    // Geometry record: name, color, mesh, curves, box, storedInt, storedText.
    void write(std::ofstream& file) const;
    void read(std::ifstream& file);
    // Attribute block: the count 2 (kept as the format has it), then four key/value
    // entries. The reader reads as many entries as the count says.
    void writeRManAttrs(std::ofstream& file) const;
    void readRManAttrs(std::ifstream& file);

    // Measures the template and rebuilds the lattice; call after changing mesh, curves or
    // latticeResolution, and after read().
    void initialize();
    void genLatticeForCurves();

    // Maps the template along strand `strandIndex` of `curves`: Y to the strand parameter,
    // X across along a side vector (from the strand's bend, or from rxy and the root frame),
    // Z out of the plane; the two halves fold by +-angle about the chord. Outputs that are
    // not null must already have the length of their source.
    void deform(const ZFollicles& follicles, const Ulmex::ZCurves& curves, int strandIndex, float scale, float angle,
                Ulmex::ZVectorArray* outMesh, Ulmex::ZVectorArray* outLattice, Ulmex::ZVectorArray* outCurves,
                bool useStrandBend) const;
    // The same placement, straight along the chord from root to tip.
    void rotate(const ZFollicles& follicles, const Ulmex::ZCurves& curves, int strandIndex, float scale, float angle,
                Ulmex::ZVectorArray* outMesh, Ulmex::ZVectorArray* outLattice, Ulmex::ZVectorArray* outCurves) const;
};
