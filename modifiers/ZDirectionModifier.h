// Turns each strand rigidly about its root: first by pitch about the lean axis, then by
// yaw about the surface normal. Angles come from expressions in degrees.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZDirectionModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, then the public
    // parameters the host sets. None has a default.
    int prevNum;
    float prevPitch, prevPitchSeed, prevPitchRand, prevPitchFreq;
    Ulmex::ZString prevPitchExpr;
    Ulmex::ZFloatArray pitchValues;  // radians
    float prevYaw, prevYawSeed, prevYawRand, prevYawFreq;
    Ulmex::ZString prevYawExpr;
    Ulmex::ZFloatArray yawValues;    // radians
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    float pitch, pitchSeed, pitchRand, pitchFreq;
    Ulmex::ZString pitchExpr;
    float yaw, yawSeed, yawRand, yawFreq;
    Ulmex::ZString yawExpr;
    Ulmex::ZString maskExpr;

    ZDirectionModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Recomputes the per-strand results when the strand count or one of the parameters
    // changed since the last call (or after reset() or invalidate()); otherwise keeps them.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Rotates CVs 1.. of every unmasked strand about axs[i].origin: pitch about the lean
    // axis rxy (not normalised), then yaw about the normal; angles within 0.01 radian of
    // zero are skipped.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
