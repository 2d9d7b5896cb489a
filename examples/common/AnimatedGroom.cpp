#include "common/AnimatedGroom.h"

#include <cmath>
#include <cstdlib>

#include "common/BuiltinGroom.h"

using namespace Ulmex;

namespace examples {

AnimatedGroom::AnimatedGroom(int count, int cvCount, float length, int rings, int segments) {
    buildSphere(1.f, rings, segments, restBody);
    if (!_topology.build(restBody) || !_topology.compute(restBody, restFrames)) std::exit(1);
    growStrands(restBody, restFrames, count, cvCount, length, follicles, restCurves);
    setFrame(0.f);
}

void AnimatedGroom::setFrame(float frame) {
    // The body's pose: a turn about Y and a walk along X with a little bob.
    const float angle = 0.05f * frame;
    const ZVector up(0.f, 1.f, 0.f);
    const ZVector move(0.04f * frame, 0.05f * std::sin(0.4f * frame), 0.f);
    const float s = std::sin(angle), c = std::cos(angle);
    auto pose = [&](const ZVector& p) { return Rotate(p, up, s, c) + move; };

    body = restBody;
    for (ZVector& p : body.points) p = pose(p);
    if (!_topology.compute(body, frames)) std::exit(1);

    // Strands follow the body and sway sideways, more towards the tip.
    curves = restCurves;
    const int n = curves.numCurves();
    for (int i = 0; i < n; ++i) {
        const int m = curves.numCVs[i];
        const float phase = 0.5f * frame + 3.f * follicles.nmp[i].x;
        const ZVector sway(0.04f * std::sin(phase), 0.f, 0.04f * std::cos(phase));
        float t = 0.f;
        const float dt = m > 1 ? 1.f / static_cast<float>(m - 1) : 0.f;
        for (int j = 0; j < m; ++j, t += dt) {
            ZVector& p = curves.cvs[curves.start[i] + j];
            p = pose(p + sway * (t * t));
        }
    }
    follicles.maxLn1 = 0.f;
    for (int i = 0; i < n; ++i) {
        follicles.ln1[i] = curves.lineLength(i);
        follicles.maxLn1 = std::max(follicles.maxLn1, follicles.ln1[i]);
    }
    follicles.updateAxes(body, frames, true);
    box = curves.boundingBox(false, true);
}

} // namespace examples
