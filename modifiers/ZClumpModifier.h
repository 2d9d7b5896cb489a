// Draws each strand toward its guide strand (the first entry of its bdi set), CV by CV,
// with a weight that ramps from root to tip; stray strands partly return to their own
// shape; keepLength resamples the result.
#pragma once

#include <cstdint>

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZClumpModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, then the public
    // parameters the host sets. None has a default.
    int prevNum;
    float prevClump, prevClumpSeed, prevClumpRand, prevClumpFreq;
    Ulmex::ZString prevClumpExpr;
    Ulmex::ZFloatArray clumpValues;   // blend weight at full ramp
    float prevRate, prevRateSeed, prevRateRand, prevRateFreq;
    Ulmex::ZString prevRateExpr;
    Ulmex::ZFloatArray rateValues;    // exponent of the ramp along the strand
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    Ulmex::ZString prevStrayRatioExpr;
    Ulmex::ZCharArray strayFlags;     // 1: a stray strand
    Ulmex::ZString prevStrayAmountExpr;
    Ulmex::ZFloatArray strayAmounts;  // how far a stray strand returns to its own shape
    float clump, clumpSeed, clumpRand, clumpFreq;
    Ulmex::ZString clumpExpr;
    float rate, rateSeed, rateRand, rateFreq;
    Ulmex::ZString rateExpr;
    Ulmex::ZString maskExpr;
    Ulmex::ZString strayRatioExpr;    // maps only: the chance that a strand strays
    Ulmex::ZString strayAmountExpr;   // maps only: the return amount of a stray strand
    bool keepLength;                  // resample to the old length (deform only)
    // Weight along the strand, p = powf(t, rate), a = clump value: 0 a * p; 1 smoothstep
    // of p clamped; 2 smootherstep of p clamped; anything else 0 (deform only).
    int16_t rampType;

    ZClumpModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Recomputes the per-strand results when the strand count or one of the parameters
    // changed since the last call (or after reset() or invalidate()); otherwise keeps them.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Blends CVs 1.. of every bound, unmasked strand toward the guide strand of `guides`
    // at the same parameter; the guide is bdi's first entry.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& guides);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& guides) {
        evaluate(follicles, curves);
        deform(follicles, curves, guides);
    }
};
