#include "modifiers/ZOffsetModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

std::vector<F::Item> describe(ZOffsetModifier& m) {
    return {F::group("offset", m.offset, m.prevOffset, m.seed, m.prevSeed, m.rand, m.prevRand, m.freq, m.prevFreq,
                     m.expr, m.prevExpr, m.offsets, m.seed, 546, 439, 785),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags)};
}

} // namespace

ZOffsetModifier::ZOffsetModifier() { reset(); }

void ZOffsetModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZOffsetModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), seed);
}

void ZOffsetModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    const bool along = alongStrand;
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int c = curves.numCVs[i];
        if (maskFlags[i] || c < 1) return;
        const float f = offsets[i];
        ZVector* cv = curves.cvs.data() + curves.start[i];
        // Along the strand: from the last CV to the second, towards the root. A strand of
        // one CV must not come here with the flag set (its "second" CV is not its own).
        const ZVector d = along ? fastNormalize(cv[1] - cv[c - 1]) : follicles.axs[i].zAxis;
        // Every CV moves, CV 0 included: f * d + v.
        for (int j = 0; j < c; ++j) cv[j] = d * f + cv[j];
    });
}
