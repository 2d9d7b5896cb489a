// Shifts each strand rigidly along its root normal or along itself.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZOffsetModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, then the public
    // parameters the host sets. None has a default.
    int prevNum;
    float prevOffset, prevSeed, prevRand, prevFreq;
    Ulmex::ZString prevExpr;
    Ulmex::ZFloatArray offsets;
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    float offset, seed, rand, freq;
    Ulmex::ZString expr;
    Ulmex::ZString maskExpr;
    // Direction of the shift: false the root normal, true along the strand towards the
    // root. Read only by deform, so it takes effect without a recomputation.
    bool alongStrand;

    ZOffsetModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Recomputes the per-strand results when the strand count or one of the parameters
    // changed since the last call (or after reset() or invalidate()); otherwise keeps them.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Moves every CV of every unmasked strand by offsets[i] along the chosen direction.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
