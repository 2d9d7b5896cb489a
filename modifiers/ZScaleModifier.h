// Stretches each strand about its root frame's origin by a per-strand factor.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZScaleModifier : public ZModifier {
public:
    int prevNum;
    float prevScale, prevSeed, prevRand, prevFreq;
    Ulmex::ZString prevExpr;
    Ulmex::ZFloatArray scales;
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    float scale, seed, rand, freq;
    Ulmex::ZString expr;
    Ulmex::ZString maskExpr;

    // Builds the members and calls reset(); the public parameters get no value.
    ZScaleModifier();
    // Forgets the remembered parameters (the next evaluate recomputes) and the maps; the
    // results stay.
    void reset();
    // Recomputes the per-strand results if the strand count or a parameter changed.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Scales CVs 1.. of every unmasked strand about axs[i].origin.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    // evaluate, then deform.
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
