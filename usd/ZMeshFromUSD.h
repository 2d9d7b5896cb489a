// A body from a USD file: a Mesh prim of the file's own layer read at the Sdf level (see
// ZUsdLayer: no composition; a composed stage is flattened first, with usd-core in Python)
// at a time code, into a world-space ZTriMesh a host grooms on. Each polygon is fanned from
// its first corner in USD's counter-clockwise order (a "leftHanded" mesh's corners after
// the first are reversed first, as ReverseConnections turns an Alembic face), so a body
// keeps its triangles from frame to frame while its points move. Per-corner UVs come from
// primvars:st, or else from the first two-float primvar (Blender writes the active UV map
// under its own name), faceVarying or vertex, plain or indexed; a mesh without them is at
// (0, 0) everywhere, as ZAlembicBody makes it (ZFollicles::updateAxes needs per-corner UVs).
#pragma once

#include <string>
#include <vector>

#include "base/UlmexBase.h"

class ZMeshFromUSD {
public:
    // Why the last call refused, in one line; empty after one that succeeded.
    Ulmex::ZString message;

    // The paths of every Mesh prim of the file's layer, sorted.
    std::vector<std::string> meshPrims(const std::string& file);

    // The first and last time code at which the Mesh prim at `primPath`, or a transform
    // above it, is sampled. False for a prim nothing of which is animated, or one that
    // cannot be read (the reason in message).
    bool sampledTimes(const std::string& file, const std::string& primPath, double& first, double& last);

    // Reads the Mesh prim at `primPath` of `file` at `time` into `body`, in world space.
    // False, with `body` emptied and the reason in message, for a file that is no USD layer,
    // no prim there, a prim that is no Mesh, face counts that do not add up to the indices,
    // an index naming a missing point, no triangles, or an xformOp that cannot be read.
    bool read(const std::string& file, const std::string& primPath, double time, Ulmex::ZTriMesh& body);
};
