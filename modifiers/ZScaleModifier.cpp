#include "modifiers/ZScaleModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

std::vector<F::Item> describe(ZScaleModifier& m) {
    return {F::group("scale", m.scale, m.prevScale, m.seed, m.prevSeed, m.rand, m.prevRand, m.freq, m.prevFreq,
                     m.expr, m.prevExpr, m.scales, m.seed, 851, 185, 382),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags)};
}

} // namespace

ZScaleModifier::ZScaleModifier() { reset(); }

void ZScaleModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZScaleModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), seed);
}

void ZScaleModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int c = curves.numCVs[i];
        if (maskFlags[i] || c < 2) return;
        const ZVector o = follicles.axs[i].origin;
        const float f = scales[i];
        ZVector* cv = curves.cvs.data() + curves.start[i];
        // About the frame's origin, CV 0 excluded: (v - o) * f + o.
        for (int j = 1; j < c; ++j) cv[j] = (cv[j] - o) * f + o;
    });
}
