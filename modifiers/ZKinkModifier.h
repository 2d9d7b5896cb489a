// Shifts each CV sideways from the strand, along a direction that wanders along the strand
// under simplex noise, by an amount running from a root width to a tip width.
#pragma once

#include "base/UlmexBase.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

class ZKinkModifier : public ZModifier {
public:
    // Members in the order of the modifier pattern (see ZModifier.h): remembered counts,
    // per group the remembered parameters, expression and results, the per-CV direction,
    // then the public parameters the host sets. None has a default.
    int prevNum;
    int prevNumCVs;                    // total CV count of the last evaluate
    float prevKink, prevKinkSeed, prevKinkRand, prevKinkFreq;
    Ulmex::ZString prevKinkExpr;
    Ulmex::ZFloatArray kinkValues;     // amount of noise in the direction
    float prevTWidth, prevTWidthSeed, prevTWidthRand, prevTWidthFreq;
    Ulmex::ZString prevTWidthExpr;
    Ulmex::ZFloatArray tWidthValues;   // offset at the tip
    float prevRWidth, prevRWidthSeed, prevRWidthRand, prevRWidthFreq;
    Ulmex::ZString prevRWidthExpr;
    Ulmex::ZFloatArray rWidthValues;   // offset at the root
    Ulmex::ZString prevMaskExpr;
    Ulmex::ZCharArray maskFlags;
    Ulmex::ZSimplexNoise kinkNoise;    // seed 0, never reseeded
    Ulmex::ZFloatArray kinkCos;        // per CV: cosine of the direction angle
    Ulmex::ZFloatArray kinkSin;        // per CV: sine of the direction angle
    float kink, kinkSeed, kinkRand, kinkFreq;
    Ulmex::ZString kinkExpr;
    float tWidth, tWidthSeed, tWidthRand, tWidthFreq;
    Ulmex::ZString tWidthExpr;
    float rWidth, rWidthSeed, rWidthRand, rWidthFreq;
    Ulmex::ZString rWidthExpr;
    Ulmex::ZString maskExpr;
    float tipFade;                     // fraction of the CVs from the tip that fade out (deform only)
    float rootFade;                    // fraction of the strand from the root that fades in (deform only)

    ZKinkModifier();
    void reset();
    // "Another groom": the next evaluate recomputes even when the strand count and every
    // parameter are as they were (results are kept while both are unchanged, so a host that
    // applies one modifier to two grooms of the same count calls this in between).
    void invalidate() { prevNum = -1; }
    // Per-strand amounts, then one direction per CV; also watches the total CV count.
    void evaluate(const ZFollicles& follicles, const Ulmex::ZCurves& curves);
    // Adds to CVs 1.. of every unmasked strand the direction of its CV, carried from the
    // root frame's plane to the plane across the strand there, scaled by the width.
    void deform(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0);
    void apply(ZFollicles& follicles, Ulmex::ZCurves& curves, const Ulmex::ZCurves& curves0) {
        evaluate(follicles, curves);
        deform(follicles, curves, curves0);
    }
};
