// Everything a host can ask of an Alembic file, so that a damaged one is read all the way
// through: every object's transform, mesh and curves at three samples, its fans, and a rebinding
// of three strands to it at one sample. Shared by the reader's tests and its fuzz target.
#pragma once

#include <string>

#include "base/UlmexBase.h"
#include "cache/RuvoMisc.h"

namespace testutil {

// The number of values read; 0 for a file that does not open.
inline size_t readWholeArchive(const std::string& path) {
    using namespace Ulmex;
    ZAlembicArchive a;
    if (!a.open(path.c_str())) return 0;
    ZAlembicObjectArray all;
    GetAllDescendantObjects(a.topObject(), all, false);
    ZFollicles strands;  // three strands of two CVs on the first three triangles
    strands.tgl = {0, 1, 2};
    strands.axs.resize(3);
    size_t values = static_cast<size_t>(all.length());
    for (int i = 0; i < all.length(); ++i) {
        (void)all[i].numSamples();
        for (int sample : {0, 1, 7}) {
            ZVector t, r, s;
            ZVectorArray P, V;
            ZIntArray C, I, UVI;
            ZBoundingBox B;
            ZMatrix W;
            ZFloatArray UV;
            all[i].getTransformations(t, r, s, sample);
            if (all[i].getPolyMeshData(&P, &V, &C, &I, &B, &W, &UV, &UVI, sample)) {
                values += P.size() + C.size() + I.size() + UV.size() + getv012(C, I).size() + getuvs(C, UV, UVI).size();
                ReverseConnections(C, I);
            }
            ZAlembicCurves guides;
            if (all[i].getCurvesData(guides, sample))
                values += guides.points.size() + guides.widths.size() + guides.uvs.size() + guides.ids.size();
        }
        ZCurves curves;
        curves.numCVs = {2, 2, 2};
        curves.start = {0, 2, 4};
        curves.cvs.resize(6);
        ZIntArray refIdx;
        ZMatrixArray invRot;
        setRefIdxAndInvRotAndCurves(1.0, all[i], strands, &curves, &refIdx, &invRot);
        values += refIdx.size();
    }
    return values;
}

} // namespace testutil
