#include "modifiers/ZFrizzModifier.h"

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// All nine offsets come from frizzSeed; the width groups' seeds reach their expressions
// only as `seed`. The mask is salted by frizzSeed.
std::vector<F::Item> describe(ZFrizzModifier& m) {
    return {F::group("frizz", m.frizz, m.prevFrizz, m.frizzSeed, m.prevFrizzSeed, m.frizzRand, m.prevFrizzRand,
                     m.frizzFreq, m.prevFrizzFreq, m.frizzExpr, m.prevFrizzExpr, m.frizzValues, m.frizzSeed, 489,
                     740, 114),
            F::group("tWidth", m.tWidth, m.prevTWidth, m.tWidthSeed, m.prevTWidthSeed, m.tWidthRand,
                     m.prevTWidthRand, m.tWidthFreq, m.prevTWidthFreq, m.tWidthExpr, m.prevTWidthExpr,
                     m.tWidthValues, m.frizzSeed, 325, 512, 650),
            F::group("rWidth", m.rWidth, m.prevRWidth, m.rWidthSeed, m.prevRWidthSeed, m.rWidthRand,
                     m.prevRWidthRand, m.rWidthFreq, m.prevRWidthFreq, m.rWidthExpr, m.prevRWidthExpr,
                     m.rWidthValues, m.frizzSeed, 895, 323, 930),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags)};
}

} // namespace

ZFrizzModifier::ZFrizzModifier() { reset(); }

void ZFrizzModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZFrizzModifier::evaluate(const ZFollicles& follicles, const ZCurves& curves) {
    if (!F::evaluate(*this, follicles, prevNum, describe(*this), frizzSeed)) return;
    // The jitter of a CV depends on its global index alone: no seed, no uid.
    F::zeroedInParallel(frizzJitter, curves.cvs.length());
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        const int f = curves.start[i];
        for (int c = f; c < f + n; ++c) {
            const uint32_t key = 3u * static_cast<uint32_t>(c);
            frizzJitter[c] = ZVector(ZRandomUnit(key), ZRandomUnit(key + 1u), ZRandomUnit(key + 2u));
        }
    });
}

void ZFrizzModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        if (maskFlags[i] || n <= 1) return;
        const int f = curves.start[i];
        const float amp = frizzValues[i] * follicles.ln0[i];
        const float rw = rWidthValues[i], tw = tWidthValues[i];
        const float dt = 1.f / static_cast<float>(n - 1);
        float t = 0.f;
        for (int j = 1; j < n; ++j) {
            t += dt;
            const float width = t <= 0.f ? rw : (t >= 1.f ? tw : (1.f - t) * rw + tw * t);
            const float w = width * amp;
            const ZVector& r = frizzJitter[f + j];
            ZVector& cv = curves.cvs[f + j];
            cv = ZVector((r.x + r.x - 1.f) * w + cv.x, (r.y + r.y - 1.f) * w + cv.y, (r.z + r.z - 1.f) * w + cv.z);
        }
    });
}
