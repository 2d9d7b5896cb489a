#include "modifiers/ZCutModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

std::vector<F::Item> describe(ZCutModifier& m) {
    return {F::group("cut", m.cut, m.prevCut, m.seed, m.prevSeed, m.rand, m.prevRand, m.freq, m.prevFreq, m.expr,
                     m.prevExpr, m.cuts, m.seed, 325, 589, 932),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags)};
}

} // namespace

ZCutModifier::ZCutModifier() { reset(); }

void ZCutModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZCutModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), seed);
}

void ZCutModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int c = curves.numCVs[i];
        if (maskFlags[i] || c < 1) return;
        const float f = cuts[i];
        ZVectorArray tmp(c);
        if (c == 1) return;
        const float step = 1.f / static_cast<float>(c - 1);
        // All samples first: position() reads the strand being rewritten.
        float t = 0.f;
        for (int k = 1; k < c; ++k) {
            t += step;  // repeated addition, as the parameter along a strand always is
            tmp[k] = curves.position(i, t * f);
        }
        ZVector* cv = curves.cvs.data() + curves.start[i];
        for (int k = 1; k < c; ++k) cv[k] = tmp[k];
    });
}
