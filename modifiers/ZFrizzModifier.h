// Jitters every CV but the root by a random vector, with an amount that follows the
// strand's length and runs from a root width to a tip width.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZFrizzModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, the per-CV jitter,
    // then the public parameters the host sets. None has a default.
    int prevNum;
    float prevFrizz, prevFrizzSeed, prevFrizzRand, prevFrizzFreq;
    Ulmex::ZString prevFrizzExpr;
    Ulmex::ZFloatArray frizzValues;    // overall amount
    float prevTWidth, prevTWidthSeed, prevTWidthRand, prevTWidthFreq;
    Ulmex::ZString prevTWidthExpr;
    Ulmex::ZFloatArray tWidthValues;   // amount at the tip
    float prevRWidth, prevRWidthSeed, prevRWidthRand, prevRWidthFreq;
    Ulmex::ZString prevRWidthExpr;
    Ulmex::ZFloatArray rWidthValues;   // amount at the root
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    Ulmex::ZVectorArray frizzJitter;   // per CV: a random vector in [0, 1]^3, keyed by the CV's index
    float frizz, frizzSeed, frizzRand, frizzFreq;
    Ulmex::ZString frizzExpr;
    float tWidth, tWidthSeed, tWidthRand, tWidthFreq;
    Ulmex::ZString tWidthExpr;
    float rWidth, rWidthSeed, rWidthRand, rWidthFreq;
    Ulmex::ZString rWidthExpr;
    Ulmex::ZString maskExpr;

    ZFrizzModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Per-strand amounts, then the jitter of every CV (the CV count is not watched).
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Moves CVs 1.. of every unmasked strand by its jitter spread to [-1, 1]^3 times the
    // width along the strand and frizz * ln0.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
