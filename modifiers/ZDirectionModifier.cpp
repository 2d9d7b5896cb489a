#include "modifiers/ZDirectionModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// Both angle groups take their offsets from pitchSeed; yawSeed reaches the yaw expression
// only as its `seed` variable. The mask is salted by pitchSeed.
std::vector<F::Item> describe(ZDirectionModifier& m) {
    return {F::group("pitch", m.pitch, m.prevPitch, m.pitchSeed, m.prevPitchSeed, m.pitchRand, m.prevPitchRand,
                     m.pitchFreq, m.prevPitchFreq, m.pitchExpr, m.prevPitchExpr, m.pitchValues, m.pitchSeed, 127,
                     444, 195, true),
            F::group("yaw", m.yaw, m.prevYaw, m.yawSeed, m.prevYawSeed, m.yawRand, m.prevYawRand, m.yawFreq,
                     m.prevYawFreq, m.yawExpr, m.prevYawExpr, m.yawValues, m.pitchSeed, 127, 444, 195, true),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags)};
}

} // namespace

ZDirectionModifier::ZDirectionModifier() { reset(); }

void ZDirectionModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZDirectionModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), pitchSeed);
}

void ZDirectionModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        if (maskFlags[i] || n <= 1) return;
        const ZAxis& a = follicles.axs[i];
        // The lean axis as it comes, not normalised.
        const ZVector k = a.xAxis * follicles.rxy[i][0] + a.yAxis * follicles.rxy[i][1];
        const float p = pitchValues[i];
        const float y = yawValues[i];
        const bool doPitch = p > 0.01f || p < -0.01f;
        const bool doYaw = y > 0.01f || y < -0.01f;
        // One sincosf per angle and strand; the rotation of each CV is what Rotate(v, axis,
        // angle) gives.
        float ps = 0.f, pc = 1.f, ys = 0.f, yc = 1.f;
        if (doPitch) ::sincosf(p, &ps, &pc);
        if (doYaw) ::sincosf(y, &ys, &yc);
        ZVector* cv = curves.cvs.data() + curves.start[i];
        for (int j = 1; j < n; ++j) {
            ZVector v = cv[j] - a.origin;
            if (doPitch) v = Rotate(v, k, ps, pc);
            if (doYaw) v = Rotate(v, a.zAxis, ys, yc);
            cv[j] = v + a.origin;
        }
    });
}
