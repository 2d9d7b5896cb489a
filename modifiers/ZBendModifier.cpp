#include "modifiers/ZBendModifier.h"

#include <algorithm>
#include <cmath>

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// Every group takes its x, y, z offsets from bendSeed; rateSeed reaches the rate
// expression only as `seed`. Start and end have no seed, rand or freq variables.
std::vector<F::Item> describe(ZBendModifier& m) {
    return {F::group("bend", m.bend, m.prevBend, m.bendSeed, m.prevBendSeed, m.bendRand, m.prevBendRand, m.bendFreq,
                     m.prevBendFreq, m.bendExpr, m.prevBendExpr, m.bendValues, m.bendSeed, 127, 444, 195, true),
            F::group("rate", m.rate, m.prevRate, m.rateSeed, m.prevRateSeed, m.rateRand, m.prevRateRand, m.rateFreq,
                     m.prevRateFreq, m.rateExpr, m.prevRateExpr, m.rateValues, m.bendSeed, 127, 444, 195),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags),
            F::valueGroup("start", m.start, m.prevStart, m.startExpr, m.prevStartExpr, m.startValues, m.bendSeed, 127,
                          444, 195),
            F::valueGroup("end", m.end, m.prevEnd, m.endExpr, m.prevEndExpr, m.endValues, m.bendSeed, 127, 444, 195)};
}

// A pivot index from a fraction of the strand: truncated, at least 1, at most n - 1.
int pivot(float fraction, float m, int n) {
    const int p = F::truncToInt(fraction * m);
    return p <= 0 ? 1 : std::min(p, n - 1);
}

} // namespace

ZBendModifier::ZBendModifier() { reset(); }

void ZBendModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZBendModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), bendSeed);
}

void ZBendModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    const bool towardsTip = tipWeighted;
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        if (maskFlags[i] || n < 1) return;
        const float m = static_cast<float>(n - 1);
        const int s = pivot(startValues[i], m, n);
        const int e = pivot(endValues[i], m, n);
        if (s >= e) return;
        const ZAxis& a = follicles.axs[i];
        // One axis per strand, not following the strand as it bends.
        const ZVector k = fastNormalize(a.xAxis * follicles.rxy[i][0] + a.yAxis * follicles.rxy[i][1]);
        const float dt = 1.f / m;
        const float bendAngle = bendValues[i], exponent = rateValues[i];
        ZVector* cv = curves.cvs.data() + curves.start[i];
        float t = 0.f;
        for (int p = s; p <= e; ++p) {
            t += dt;  // counts from the first pivot, whatever the start fraction
            const float angle = bendAngle * std::pow(towardsTip ? t : 1.f - t, exponent);
            float sn, c;
            ::sincosf(angle, &sn, &c);
            const ZVector pivotCV = cv[p];
            for (int q = p + 1; q < n; ++q) cv[q] = Rotate(cv[q] - pivotCV, k, sn, c) + pivotCV;
        }
    });
}
