// An animated groom for the example hosts, tests and benchmarks: the built-in sphere body
// and strands, moved over frames as a shot would move them. The body turns about Y and
// travels along X; the strands follow it rigidly and sway towards their tips. Every frame
// is a pure function of the frame number, so two processes that build the same groom see
// the same data bit for bit. The body's vertex frames come from the host toolkit, at rest
// and again for every pose, as a host computes them on a deforming body.
#pragma once

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"
#include "toolkit/ZBodyFrames.h"

namespace examples {

class AnimatedGroom {
public:
    // The rest body and rest strands (count x cvCount, about `length` long).
    AnimatedGroom(int count, int cvCount, float length = 0.325f, int rings = 24, int segments = 48);

    // Poses body, vertex frames, curves and the per-frame follicle data (ln1, maxLn1, axs)
    // for `frame`, and the bounding box of the posed curves.
    void setFrame(float frame);

    Ulmex::ZTriMesh restBody;
    Ulmex::ZAxisArray restFrames;
    Ulmex::ZCurves restCurves;

    Ulmex::ZTriMesh body;
    Ulmex::ZAxisArray frames;
    ZFollicles follicles;
    Ulmex::ZCurves curves;
    Ulmex::ZBoundingBox box;

private:
    ZBodyFrames _topology;
};

} // namespace examples
