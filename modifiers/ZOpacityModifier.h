// Tip and root opacity of every strand from two expressions.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZOpacityModifier : public ZModifier {
public:
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

    // Builds the members and calls reset(); the public parameters get no value.
    ZOpacityModifier();
    // Forgets the remembered parameters (the next evaluate recomputes) and the maps; the
    // results stay.
    void reset();
    // Recomputes the per-strand results if the strand count or a parameter changed.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Copies the tip and root results into the follicles' top and rop.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    // evaluate, then deform.
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
