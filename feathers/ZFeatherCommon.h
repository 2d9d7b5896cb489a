// What feathers and sources share, written once: their display lists and direct drawing,
// the measuring of the template and its lattice, and the mapping of the template along a
// strand. ZFeather and ZSource hold the same fields under the same names and call these.
#pragma once

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

namespace ZFeatherCommon {

const int kNumDisplayLists = 7;

// glDeleteLists(id, 1) for every id that is not negative; the ids stay as they are. No
// OpenGL call at all when every id is negative.
void deleteDisplayLists(const int ids[kNumDisplayLists]);

// The fields feathers and sources both carry, from the name to the lattice: copied from
// another object, or put back to their state after construction (white colour, empty
// geometry and texts, zero numbers). The display list ids are not touched.
template <typename T>
void assignShared(T& dst, const T& src) {
    dst.name = src.name;
    for (int c = 0; c < 4; ++c) dst.color[c] = src.color[c];
    dst.mesh = src.mesh;
    dst.curves = src.curves;
    dst.boundingBox = src.boundingBox;
    dst.storedInt = src.storedInt;
    dst.transientFlag = src.transientFlag;
    dst.transientText = src.transientText;
    dst.latticeResolution = src.latticeResolution;
    dst.lattice = src.lattice;
}

template <typename T>
void resetShared(T& o) {
    o.name.clear();
    for (float& c : o.color) c = 1.f;
    o.mesh = Ulmex::ZTriMesh();
    o.curves = Ulmex::ZCurves();
    o.boundingBox = Ulmex::ZBoundingBox();
    o.storedInt = 0;
    o.transientFlag = 0;
    o.transientText.clear();
    o.latticeResolution = 0;
    o.lattice = Ulmex::ZQuadMesh();
}

// Deletes the old lists, makes seven new ones and records: 0 the box, 1-3 the mesh's
// vertices, wireframe and surface, 4-6 the lattice's. Needs a current OpenGL context.
void genDisplayLists(int ids[kNumDisplayLists], const Ulmex::ZBoundingBox& box, const Ulmex::ZTriMesh& mesh,
                     const Ulmex::ZQuadMesh& lattice);

// The mesh, then the lattice, drawn directly.
void drawVertices(const Ulmex::ZTriMesh& mesh, const Ulmex::ZQuadMesh& lattice);
void drawWireframe(const Ulmex::ZTriMesh& mesh, const Ulmex::ZQuadMesh& lattice);
void drawSurface(const Ulmex::ZTriMesh& mesh, const Ulmex::ZQuadMesh& lattice);

// Measures the template (box of the usable mesh and curves) and rebuilds the lattice;
// with neither usable, leaves box and lattice as they are.
void initialize(const Ulmex::ZTriMesh& mesh, const Ulmex::ZCurves& curves, Ulmex::ZBoundingBox& box,
                int latticeResolution, Ulmex::ZQuadMesh& lattice);

// The proxy grid: R rows of two quads (R = latticeResolution, at least 3) spanning the
// box, three points a row (maxX edge, centre, minX edge), each point taking the depth of
// the nearest template CV. Empty when the template has no curves.
void genLatticeForCurves(const Ulmex::ZCurves& curves, const Ulmex::ZBoundingBox& box, int latticeResolution,
                         Ulmex::ZQuadMesh& lattice);

// How a template is mapped onto a strand.
enum class Mapping {
    FeatherDeform,  // along the curve; folds only when |angle| > 1e-30
    SourceDeform,   // along the curve; always blends the fold
    Rotate,         // rigidly along the chord from root to tip; always blends the fold
};

struct Template {
    const Ulmex::ZTriMesh& mesh;
    const Ulmex::ZCurves& curves;
    const Ulmex::ZBoundingBox& box;
    const Ulmex::ZQuadMesh& lattice;
};

// Maps the template's mesh points, lattice points and CVs onto strand `strandIndex` of
// `curves` into the outputs that are not null (each already as long as its source).
void place(Mapping mapping, const Template& shape, const ZFollicles& follicles, const Ulmex::ZCurves& curves,
           int strandIndex, float scale, float angle, Ulmex::ZVectorArray* outMesh, Ulmex::ZVectorArray* outLattice,
           Ulmex::ZVectorArray* outCurves, bool useStrandBend);

} // namespace ZFeatherCommon
