// Control vertices of a set of strands: CV j of strand i is cvs[start[i] + j].
#pragma once

#include <fstream>

#include "base/ZArray.h"
#include "base/ZBoundingBox.h"

namespace Ulmex {

class ZCurves {
public:
    ZIntArray numCVs;  // control vertices per strand
    ZIntArray start;   // index in cvs of each strand's first control vertex
    ZVectorArray cvs;  // all control vertices, strand after strand, root first

    int numCurves() const { return numCVs.length(); }
    void reset() { numCVs.clear(); start.clear(); cvs.clear(); }

    // Appends one strand.
    void push(const ZVector* points, int n) {
        numCVs.push_back(n);
        start.push_back(cvs.length());
        if (n > 0) cvs.insert(cvs.end(), points, points + n);
    }

    // The point of strand `strand` at parameter t, 0 at the root and 1 at the tip.
    //
    // Interpolation: a uniform Catmull-Rom spline through the CVs, the same curve a
    // renderer draws for catmullRom basis curves with the end CVs doubled by reflection.
    // t is spread evenly over the CVs: s = t * (n - 1), segment floor(s). The end tangents
    // come from reflected phantom CVs (2*P0 - P1 and 2*Pn-1 - Pn-2), so position(0) is the
    // first CV and position(1) the last, exactly.
    //
    // Past the ends (t < 0 or t > 1) the curve continues as a straight line along the
    // first or last segment with the same speed, so that t slightly above 1 lengthens a
    // strand naturally. NaN gives the first CV; +inf and -inf give the last and first CV.
    // A strand with one CV gives that CV, one with none the zero vector. Only the given
    // strand's data is read.
    ZVector position(int strand, float t) const;

    // Position as above and the derivative with respect to s = t * (n - 1) (not unit
    // length; zero for strands of fewer than two CVs).
    void getPositionAndTangent(int strand, float t, ZVector& position, ZVector& tangent) const;

    // Sum of the segment lengths of the polyline through the CVs.
    float lineLength(int strand) const;

    // Box of all CVs, or of the roots only with `rootsOnly`; `useOpenMP` runs the scan
    // in parallel (the result is the same).
    ZBoundingBox boundingBox(bool rootsOnly, bool useOpenMP) const;

    // Binary form: numCVs, start and cvs, each as an int32 count and its elements.
    void write(std::ofstream& file) const;
    // Reads that form. A record whose strands point outside their CVs, or has a strand
    // without CVs, is rejected: the curves are left empty and the stream failed. What it
    // accepts is safe for every operation of the library.
    bool read(std::ifstream& file);

    bool operator==(const ZCurves& o) const {
        return numCVs == o.numCVs && start == o.start && cvs == o.cvs;
    }
};

} // namespace Ulmex
