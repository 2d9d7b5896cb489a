// Curves from a USD file, read at the Sdf level from the file's own layer (see ZUsdLayer:
// no composition, values at a time code as USD resolves them, the world matrix from the
// xformOps of the prim and every prim above it): a BasisCurves prim's points,
// curveVertexCounts, widths, primvars:st and ids (an int primvar "ids" or "id"), its type,
// basis and wrap. That is what a DCC's export (Blender's, Houdini's) or a flattened stage
// holds; a file whose curves come through references or payloads is flattened first (with
// usd-core in Python).
#pragma once

#include <string>
#include <vector>

#include "base/UlmexBase.h"

class ZCurvesFromUSD {
public:
    // Why the last read refused, in one line; empty after one that succeeded.
    Ulmex::ZString message;

    // The paths of every BasisCurves prim of the file's layer, in the layer's order.
    std::vector<std::string> curvePrims(const std::string& file);

    // The first and last time code at which the BasisCurves prim at `primPath`, or a transform
    // above it, is sampled. False for a prim nothing of which is animated, or one that
    // cannot be read (the reason in message).
    bool sampledTimes(const std::string& file, const std::string& primPath, double& first, double& last);

    // Reads the BasisCurves prim at `primPath` of `file` at `time` into `curves` (widths
    // with their count telling their interpolation, as ZAlembicCurves holds them). False,
    // with `curves` cleared and the reason in message, for a file that is no USD layer, no
    // prim there, a prim that is no BasisCurves, counts that do not add up to the points,
    // or an xformOp that cannot be read.
    bool read(const std::string& file, const std::string& primPath, double time, Ulmex::ZAlembicCurves& curves);
};
