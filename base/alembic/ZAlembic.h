// The base library's own Alembic reader: Ogawa archives (every current Alembic file; an
// HDF5 archive is recognised and refused), the object hierarchy, and the samples of the
// two schemas the system reads, Xform and PolyMesh. Read-only, with pread (no mapping).
//
// Conventions:
// - A sample index past the last sample reads the last one, per property, as Alembic's own
//   index selectors do (and a negative one the first); a constant property has one sample.
// - Nothing here throws or prints. A corrupt file reads as fewer objects, properties or
//   values, never as a read outside the file, and never loops.
// - Objects keep the file open: a copy stays usable after its archive is closed. A file
//   cut short or rewritten while open reads as missing data (false), never as a signal.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/ZArray.h"
#include "base/ZBoundingBox.h"
#include "base/ZMatrix.h"
#include "base/ZString.h"
#include "base/ZVector.h"

namespace Ulmex {

namespace alembic {
struct Archive;
} // namespace alembic

class ZAlembicObject;

// One array sample as read from the file in one block: `count` elements at `data`,
// little-endian and not aligned (read each with memcpy). The view holds its block: valid
// as long as the view (or a copy of it) lives, whatever happens to the file.
struct ZAlembicArrayView {
    const unsigned char* data = nullptr;
    size_t count = 0;
    std::shared_ptr<const void> block;
};
class ZAlembicObjectArray;
struct ZAlembicCurves;
void GetAllDescendantObjects(const ZAlembicObject& object, ZAlembicObjectArray& objects, bool leavesOnly);

class ZAlembicObject {
public:
    ZAlembicObject() = default;

    // Its own name, and Alembic's full name ("/body/bodyShape"); the top object is "ABC"
    // and "/".
    ZString name() const;
    ZString fullPath() const;
    bool isLeaf() const { return numChildren() == 0; }  // an object without children
    // An object with a geometry schema (polygon mesh, subdivision surface, points, curves,
    // NURBS patch): a shape, whatever hangs below it (a mesh's face sets).
    bool isShape() const;
    // A polygon mesh (schema kPolyMeshSchema): the one shape getPolyMeshData reads.
    bool isPolyMesh() const;
    static constexpr const char* kPolyMeshSchema = "AbcGeom_PolyMesh_v1";
    // Curves (schema kCurvesSchema): the shape getCurvesData reads.
    bool isCurves() const;
    static constexpr const char* kCurvesSchema = "AbcGeom_Curve_v2";
    int numChildren() const;
    // False, leaving `child` alone, for an index out of range.
    bool getChild(int index, ZAlembicObject& child) const;

    // Reads an Xform at `sample`: translate, rotation in degrees about x, y and z, and scale
    // such that T * Rz * Ry * Rx * S is the object's local matrix. A stack of at most one
    // translate, rotate z, y, x and scale in that order gives its channels (a missing op
    // gives 0, 0 and 1); any other stack (a matrix op, pivots, other orders) is composed
    // and decomposed (shear is lost; a mirroring matrix negates the x scale). False, with
    // the outputs untouched, for an object that is not a transform.
    bool getTransformations(ZVector& translate, ZVector& rotateDegrees, ZVector& scale, int sample) const;

    // Reads a PolyMesh at `sample`; any pointer may be null. points and velocities (empty
    // without any), the face vertex counts and indices in the file's order, the self
    // bounds, the world matrix (the product of the transforms above the object, parent
    // times child, translation in the last column, each transform at its sample nearest to
    // the time of sample `sample` of the mesh's sampling, counted past the mesh's last stored
    // sample for uniform and cyclic samplings, so that a mesh stored once under animated
    // transforms moves with them; a transform that does not inherit restarts the product),
    // and the
    // UVs: indexed UVs
    // give the stored values and indices, plain UVs their per-corner values with the
    // indices 0, 1, 2, ...; uvs holds two floats per value. False, with the outputs
    // untouched, for an object that is not a polygon mesh.
    bool getPolyMeshData(ZVectorArray* points, ZVectorArray* velocities, ZIntArray* counts, ZIntArray* connections,
                         ZBoundingBox* box, ZMatrix* worldMatrix, ZFloatArray* uvs, ZIntArray* uvIndices,
                         int sample) const;

    // The positions (three floats each), face vertex counts and face indices of a PolyMesh
    // at `sample` as views into the file, and its world matrix as getPolyMeshData gives it:
    // for readers of large bodies that touch each value once, in parallel, rather than
    // copy it on the calling thread first. Any pointer may be null; an absent or mistyped
    // array is an empty view. False, with the outputs untouched, for an object that is not
    // a polygon mesh.
    bool getPolyMeshViews(ZAlembicArrayView* points, ZAlembicArrayView* counts, ZAlembicArrayView* connections,
                          ZMatrix* worldMatrix, int sample) const;

    // Reads Curves at `sample` into `curves` (see ZAlembicCurves): points and counts that do
    // not add up (a negative count, a sum other than the point count) read as no curves;
    // the world matrix is taken as for a mesh. False, with `curves` untouched, for an
    // object that is not curves.
    bool getCurvesData(ZAlembicCurves& curves, int sample) const;

    // The schema named in the object's metadata ("AbcGeom_PolyMesh_v1", ...); empty if none.
    ZString schema() const;

    // Samples of what moves: a geometry's points (.geom/P) or a transform's values
    // (.xform/.vals, 1 for a transform without animated values); 0 for an object with
    // neither.
    int numSamples() const;
    // Hosts think in frames. The time in seconds of sample `sample` of those samples (the
    // mesh's points, else the transform's values), past the last stored sample too for
    // uniform and cyclic samplings (an acyclic one ends at its last stored time); and the
    // sample whose time is nearest `time` (ties to the earlier), counted the same way, so
    // that getPolyMeshData(sampleAtFrame(1012, 24)) reads a rigid prop stored once at the
    // transforms of frame 1012. An object with no samples counts in seconds from 0.
    double sampleTime(int sample) const;
    int sampleAt(double time) const;
    int sampleAtFrame(double frame, double framesPerSecond) const;

    // Deepest nesting read: objects further down are not reached (real scenes stay far
    // below; a hostile file nested deeper cannot make a reader's memory grow with the
    // square of its depth).
    static constexpr int kMaxDepth = 1024;

private:
    friend class ZAlembicArchive;
    friend void GetAllDescendantObjects(const ZAlembicObject&, ZAlembicObjectArray&, bool);
    // Every child, built once per object (copies share it), so that a walk by index is
    // linear in the children.
    std::shared_ptr<const std::vector<ZAlembicObject>> children() const;
    std::vector<ZAlembicObject> buildChildren() const;
    std::shared_ptr<const alembic::Archive> _archive;
    std::uint64_t _group = 0;
    ZString _name, _path;
    std::string _meta;
    // The group positions of the objects above this one, from the top down: the
    // transforms of the world matrix, and a guard against files whose groups loop.
    std::vector<std::uint64_t> _ancestors;
    // Reached through an instance (shares its groups with the instanced objects).
    bool _instance = false;
    mutable std::shared_ptr<const std::vector<ZAlembicObject>> _children;
};

class ZAlembicArchive {
public:
    // False when the file cannot be opened or is not an Ogawa Alembic archive (an HDF5
    // archive included). Closes what was open before.
    bool open(const char* path);
    void close();
    bool isOpen() const { return static_cast<bool>(_archive); }
    // The root object, "/"; an empty object when nothing is open.
    ZAlembicObject topObject() const;

private:
    std::shared_ptr<const alembic::Archive> _archive;
};

class ZAlembicObjectArray {
public:
    int length() const { return static_cast<int>(_objects.size()); }
    ZAlembicObject& operator[](int i) { return _objects[static_cast<size_t>(i)]; }
    const ZAlembicObject& operator[](int i) const { return _objects[static_cast<size_t>(i)]; }
    void clear() { _objects.clear(); }
    void push_back(const ZAlembicObject& o) { _objects.push_back(o); }

private:
    std::vector<ZAlembicObject> _objects;
};

// Reverses the vertex order of each polygon in place, keeping its first vertex first:
// (v0, v1, ..., vm-1) becomes (v0, vm-1, ..., v1). A fan around the first vertex then gives
// the same triangles as before, each with the opposite winding and in reverse order, so a
// quad is still split along the diagonal from its first vertex. Polygons running past the
// end of `connections` are left as they are.
void ReverseConnections(const ZIntArray& counts, ZIntArray& connections);

// Replaces `objects` with the objects below `object`, depth first, parents before their
// children, instances followed to the objects they name (listed under the instance's path);
// with `leavesOnly`, only the shape nodes: objects with a geometry schema (not the face
// sets below them) and objects without children. A walk lists at most max(4096, file
// bytes / 4) objects, so that instancing cannot make a small file describe an endless tree.
void GetAllDescendantObjects(const ZAlembicObject& object, ZAlembicObjectArray& objects, bool leavesOnly);

} // namespace Ulmex
