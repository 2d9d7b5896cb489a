// Shifts each strand rigidly along its root normal or along itself.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZOffsetModifier : public ZModifier {
public:
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

    // Builds the members and calls reset(); the public parameters get no value.
    ZOffsetModifier();
    // Forgets the remembered parameters (the next evaluate recomputes) and the maps; the
    // results stay.
    void reset();
    // Recomputes the per-strand results if the strand count or a parameter changed.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Moves every CV of every unmasked strand by offsets[i] along the chosen direction.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    // evaluate, then deform.
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
