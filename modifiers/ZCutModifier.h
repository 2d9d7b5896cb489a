// Resamples each strand over a per-strand fraction of its parameter range.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZCutModifier : public ZModifier {
public:
    int prevNum;
    float prevCut, prevSeed, prevRand, prevFreq;
    Ulmex::ZString prevExpr;
    Ulmex::ZFloatArray cuts;
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    float cut, seed, rand, freq;
    Ulmex::ZString expr;
    Ulmex::ZString maskExpr;

    // Builds the members and calls reset(); the public parameters get no value.
    ZCutModifier();
    // Forgets the remembered parameters (the next evaluate recomputes) and the maps; the
    // results stay.
    void reset();
    // Recomputes the per-strand results if the strand count or a parameter changed.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Resamples CVs 1.. of every unmasked strand at parameters up to cuts[i].
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    // evaluate, then deform.
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
