// Tip and root opacity of every strand from two expressions.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZOpacityModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, then the public
    // parameters the host sets. None has a default.
    int prevNum;
    float prevTOpacity, prevTSeed, prevTRand, prevTFreq;
    Ulmex::ZString prevTExpr;
    Ulmex::ZFloatArray tOpacities;
    float prevROpacity, prevRSeed, prevRRand, prevRFreq;
    Ulmex::ZString prevRExpr;
    Ulmex::ZFloatArray rOpacities;
    float tOpacity, tSeed, tRand, tFreq;
    Ulmex::ZString tExpr;
    float rOpacity, rSeed, rRand, rFreq;
    Ulmex::ZString rExpr;

    ZOpacityModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Recomputes the per-strand results when the strand count or one of the parameters
    // changed since the last call (or after reset() or invalidate()); otherwise keeps them.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Copies the tip and root results into the follicles' top and rop.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
