// The body a host grooms on, from an Alembic polygon mesh at a sample: its points in world
// space (through the world matrix above it), its polygons as triangles in the triangulation
// the rebinding binds to (ReverseConnections, then the fan of getv012), and per-corner UVs
// where the mesh has them (their indices reversed alike, then getuvs), so that roots placed
// on it carry the tgl and bcc setRefIdxAndInvRotAndCurves expects. A mesh without UVs gets
// (0, 0) at every corner: ZFollicles::updateAxes needs per-corner UVs.
#pragma once

#include "base/UlmexBase.h"

class ZAlembicBody {
public:
    // Reads `mesh` at `sample` into `body`. False, with `body` emptied and the reason in
    // `why` (when given), for an object that is not a polygon mesh or a mesh without
    // triangles or with a face naming a missing point.
    static bool read(const Ulmex::ZAlembicObject& mesh, int sample, Ulmex::ZTriMesh& body, Ulmex::ZString* why);
};
