#include "modifiers/ZOpacityModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// Both groups take their x, y, z offsets from the tip seed; the root seed reaches the root
// expression only as its `seed` variable.
std::vector<F::Item> describe(ZOpacityModifier& m) {
    return {F::group("tOpacity", m.tOpacity, m.prevTOpacity, m.tSeed, m.prevTSeed, m.tRand, m.prevTRand, m.tFreq,
                     m.prevTFreq, m.tExpr, m.prevTExpr, m.tOpacities, m.tSeed, 540, 816, 959),
            F::group("rOpacity", m.rOpacity, m.prevROpacity, m.rSeed, m.prevRSeed, m.rRand, m.prevRRand, m.rFreq,
                     m.prevRFreq, m.rExpr, m.prevRExpr, m.rOpacities, m.tSeed, 171, 328, 913)};
}

} // namespace

ZOpacityModifier::ZOpacityModifier() { reset(); }

void ZOpacityModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZOpacityModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), tSeed);
}

void ZOpacityModifier::deform(ZFollicles& follicles, ZCurves&, const ZCurves&) {
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        follicles.top[i] = tOpacities[i];
        follicles.rop[i] = rOpacities[i];
    });
}
