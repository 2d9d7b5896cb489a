// Stretches each strand about its root frame's origin by a per-strand factor.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZScaleModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, then the public
    // parameters the host sets. None has a default.
    int prevNum;
    float prevScale, prevSeed, prevRand, prevFreq;
    Ulmex::ZString prevExpr;
    Ulmex::ZFloatArray scales;
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    float scale, seed, rand, freq;
    Ulmex::ZString expr;
    Ulmex::ZString maskExpr;

    ZScaleModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Recomputes the per-strand results when the strand count or one of the parameters
    // changed since the last call (or after reset() or invalidate()); otherwise keeps them.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Scales CVs 1.. of every unmasked strand about axs[i].origin.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
