#include "modifiers/ZWidthModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// Both groups take their x, y, z offsets from the tip seed; the root seed reaches the root
// expression only as its `seed` variable.
std::vector<F::Item> describe(ZWidthModifier& m) {
    return {F::group("tWidth", m.tWidth, m.prevTWidth, m.tSeed, m.prevTSeed, m.tRand, m.prevTRand, m.tFreq,
                     m.prevTFreq, m.tExpr, m.prevTExpr, m.tWidths, m.tSeed, 681, 145, 347),
            F::group("rWidth", m.rWidth, m.prevRWidth, m.rSeed, m.prevRSeed, m.rRand, m.prevRRand, m.rFreq,
                     m.prevRFreq, m.rExpr, m.prevRExpr, m.rWidths, m.tSeed, 736, 761, 591)};
}

} // namespace

ZWidthModifier::ZWidthModifier() { reset(); }

void ZWidthModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZWidthModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), tSeed);
}

void ZWidthModifier::deform(ZFollicles& follicles, ZCurves&, const ZCurves&) {
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        follicles.twh[i] = tWidths[i];
        follicles.rwh[i] = rWidths[i];
    });
}
