#include "modifiers/ZKinkModifier.h"

#include <cmath>

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// Each group draws its offsets from its own seed; the mask is salted by kinkSeed.
std::vector<F::Item> describe(ZKinkModifier& m) {
    return {F::group("kink", m.kink, m.prevKink, m.kinkSeed, m.prevKinkSeed, m.kinkRand, m.prevKinkRand, m.kinkFreq,
                     m.prevKinkFreq, m.kinkExpr, m.prevKinkExpr, m.kinkValues, m.kinkSeed, 253, 303, 885),
            F::group("tWidth", m.tWidth, m.prevTWidth, m.tWidthSeed, m.prevTWidthSeed, m.tWidthRand,
                     m.prevTWidthRand, m.tWidthFreq, m.prevTWidthFreq, m.tWidthExpr, m.prevTWidthExpr,
                     m.tWidthValues, m.tWidthSeed, 444, 342, 676),
            F::group("rWidth", m.rWidth, m.prevRWidth, m.rWidthSeed, m.prevRWidthSeed, m.rWidthRand,
                     m.prevRWidthRand, m.rWidthFreq, m.prevRWidthFreq, m.rWidthExpr, m.prevRWidthExpr,
                     m.rWidthValues, m.rWidthSeed, 434, 783, 681),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags)};
}

} // namespace

ZKinkModifier::ZKinkModifier() : kinkNoise(0u) { reset(); }

void ZKinkModifier::reset() {
    prevNum = 0;
    prevNumCVs = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZKinkModifier::evaluate(const ZFollicles& follicles, const ZCurves& curves) {
    const int total = curves.cvs.length();
    const F::Count cvCount{total, &prevNumCVs};
    if (!F::evaluate(*this, follicles, prevNum, describe(*this), kinkSeed, &cvCount)) return;

    // One direction per CV, for every strand (masked ones too); the roots' entries stay 0.
    F::zeroedInParallel(kinkCos, total);
    F::zeroedInParallel(kinkSin, total);
    const float seed = kinkSeed;
    const float maxLength = follicles.maxLn0;
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        const int f = curves.start[i];
        const float b = ZRandomUnit(static_cast<uint32_t>(follicles.uid[i])) + seed;
        const float amp = (follicles.ln0[i] / (1e-30f + maxLength)) * kinkValues[i];
        const float phase = 6.2831855f * b;
        if (n <= 1) return;
        const float dt = 1.f / static_cast<float>(n - 1);
        float t = 0.f;
        for (int j = 1; j < n; ++j) {
            t += dt;
            const float nv = kinkNoise.pureValue(b + t, nullptr);
            const float angle = (nv * amp) * 100.f + phase;
            ::sincosf(angle, &kinkSin[f + j], &kinkCos[f + j]);
        }
    });
}

void ZKinkModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves&) {
    const float tipFraction = tipFade, rootFraction = rootFade;
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        if (maskFlags[i] || n <= 1) return;
        const int f = curves.start[i];
        const ZAxis& A = follicles.axs[i];
        // The tip fade counts all n CVs, the root fade the n - 1 spans between them.
        const float tipSpan = static_cast<float>(n) * tipFraction;
        const int tipCount = F::truncToInt(tipSpan);
        const float rootSpan = rootFraction * static_cast<float>(n - 1);
        const int rootCount = F::truncToInt(rootSpan);
        const float dt = 1.f / static_cast<float>(n - 1);
        const float rw = rWidthValues[i], tw = tWidthValues[i];
        float t = 0.f;
        ZVector prev = A.origin;
        for (int j = 1; j < n; ++j) {
            const ZVector p = curves.cvs[f + j];
            t += dt;
            const float width = t <= 0.f ? rw : (t >= 1.f ? tw : (1.f - t) * rw + tw * t);
            const ZVector W = (A.xAxis * kinkCos[f + j] + A.yAxis * kinkSin[f + j]) * width;
            // Tangent of the unmoved strand; for the first CV from the frame's origin.
            const ZVector T = fastNormalize(p - prev);
            const ZVector& Z = A.zAxis;
            const ZVector Rf = Z.cross(T);
            const double rx = Rf.x, ry = Rf.y, rz = Rf.z;
            const double length = std::sqrt(rx * rx + ry * ry + rz * rz + static_cast<double>(1e-30f));
            const double inv = 1.0 / length;
            const ZVector R(static_cast<float>(rx * inv), static_cast<float>(ry * inv), static_cast<float>(rz * inv));
            const float sinA = T.cross(Z).length();
            const float cosA = Z.dot(T);
            // The rotation taking Z onto T carries the root plane to the plane across the
            // strand at this CV.
            ZVector D = Rotate(W, R, std::atan2(sinA, cosA));
            if (tipSpan > 0.f && tipCount > n - j) D = D * (static_cast<float>(n - j) / tipSpan);
            if (rootSpan > 0.f && rootCount > j) D = D * (static_cast<float>(j) / rootSpan);
            curves.cvs[f + j] = p + D;
            prev = p;
        }
    });
}
