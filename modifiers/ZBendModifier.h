// Curls each strand about its lean axis by rotating the part beyond each CV of a run of
// pivot CVs, by an angle that ramps along the pivots.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZBendModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered count,
    // per group the remembered parameters, expression and results, then the public
    // parameters the host sets. None has a default.
    int prevNum;
    float prevBend, prevBendSeed, prevBendRand, prevBendFreq;
    Ulmex::ZString prevBendExpr;
    Ulmex::ZFloatArray bendValues;   // radians
    float prevRate, prevRateSeed, prevRateRand, prevRateFreq;
    Ulmex::ZString prevRateExpr;
    Ulmex::ZFloatArray rateValues;   // exponent of the angle ramp
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    float prevStart;
    Ulmex::ZString prevStartExpr;
    Ulmex::ZFloatArray startValues;  // first pivot, fraction of the strand
    float prevEnd;
    Ulmex::ZString prevEndExpr;
    Ulmex::ZFloatArray endValues;    // last pivot, fraction of the strand
    float bend, bendSeed, bendRand, bendFreq;
    Ulmex::ZString bendExpr;
    float rate, rateSeed, rateRand, rateFreq;
    Ulmex::ZString rateExpr;
    Ulmex::ZString maskExpr;
    float start;
    Ulmex::ZString startExpr;
    float end;
    Ulmex::ZString endExpr;
    // Which way the angle ramp runs along the pivots: powf(t, rate) when true,
    // powf(1 - t, rate) when false. Read by deform only.
    bool tipWeighted;

    ZBendModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Recomputes the per-strand results when the strand count or one of the parameters
    // changed since the last call (or after reset() or invalidate()); otherwise keeps them.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // For each pivot p from the start to the end CV (never CV 0), rotates every CV beyond
    // it about the pivot and the normalised lean axis. CV spacing is preserved.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
