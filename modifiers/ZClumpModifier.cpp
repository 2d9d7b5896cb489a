#include "modifiers/ZClumpModifier.h"

#include <cmath>

#include "modifiers/ZModifierFrame.h"

using namespace Ulmex;
namespace F = ZModifierFrame;

namespace {

// Each group draws its offsets from its own seed. The stray ratio is a mask-like flag with
// its own draw, ZRandomUnit(base + uid + 10001); the stray amount sees the maps only.
std::vector<F::Item> describe(ZClumpModifier& m) {
    return {F::group("clump", m.clump, m.prevClump, m.clumpSeed, m.prevClumpSeed, m.clumpRand, m.prevClumpRand,
                     m.clumpFreq, m.prevClumpFreq, m.clumpExpr, m.prevClumpExpr, m.clumpValues, m.clumpSeed, 736, 668,
                     772),
            F::group("rate", m.rate, m.prevRate, m.rateSeed, m.prevRateSeed, m.rateRand, m.prevRateRand, m.rateFreq,
                     m.prevRateFreq, m.rateExpr, m.prevRateExpr, m.rateValues, m.rateSeed, 960, 643, 993),
            F::mask(m.maskExpr, m.prevMaskExpr, m.maskFlags),
            F::mask(m.strayRatioExpr, m.prevStrayRatioExpr, m.strayFlags, 10001u),
            F::mapValue(m.strayAmountExpr, m.prevStrayAmountExpr, m.strayAmounts)};
}

inline float clamp01(float x) { return x < 0.f ? 0.f : (x > 1.f ? 1.f : x); }

// The blend weight at parameter t of a strand with clump value a and ramp exponent r.
float weight(int rampType, float a, float r, float t) {
    float p = std::pow(t, r);
    switch (rampType) {
    case 0: return a * p;
    case 1: p = clamp01(p); return a * ((-2.f * p + 3.f) * p * p);
    case 2: p = clamp01(p); return a * (p * p * p * ((6.f * p - 15.f) * p + 10.f));
    default: return 0.f;
    }
}

} // namespace

ZClumpModifier::ZClumpModifier() { reset(); }

void ZClumpModifier::reset() {
    prevNum = 0;
    F::resetRemembered(describe(*this));
    ZModifier::reset();
}

void ZClumpModifier::evaluate(const ZFollicles& follicles, const ZCurves&) {
    F::evaluate(*this, follicles, prevNum, describe(*this), clumpSeed);
}

void ZClumpModifier::deform(ZFollicles& follicles, ZCurves& curves, const ZCurves& guides) {
    const bool keep = keepLength;
    const int ramp = rampType;
    F::forEachStrand(follicles.tgl.length(), [&](int i) {
        const int n = curves.numCVs[i];
        if (maskFlags[i] || n < 1 || follicles.bdi.counts[i] == 0) return;
        const int g = follicles.bdi.values[follicles.bdi.starts[i]];
        if (g < 0) return;
        const float L0 = keep ? curves.lineLength(i) : 0.f;
        const bool stray = strayFlags[i] != 0;
        ZVector* cv = curves.cvs.data() + curves.start[i];

        // The strand's own shape, kept only when a stray strand will return towards it.
        ZVectorArray tmp;
        if (stray) {
            tmp.resize(static_cast<size_t>(n));
            for (int j = 1; j < n; ++j) tmp[j] = cv[j];
        }
        const float dt = n > 1 ? 1.f / static_cast<float>(n - 1) : 0.f;
        if (n > 1) {
            const ZVector o = follicles.axs[i].origin;
            const float a = clumpValues[i], r = rateValues[i];
            float t = 0.f;
            for (int j = 1; j < n; ++j) {
                t += dt;
                const ZVector c = cv[j] - o;
                cv[j] = c;  // stored back before the guide is read: guides may be these curves
                const ZVector q = guides.position(g, t) - o;
                const float w = weight(ramp, a, r, t);
                cv[j] = (q * w + c * (1.f - w)) + o;
            }
            if (stray) {
                const float back = clamp01(strayAmounts[i]);
                for (int j = 1; j < n; ++j) cv[j] = tmp[j] * back + cv[j] * (1.f - back);
            }
        }
        if (keep) {
            // New length over old: a shorter result is sampled over part of its range, a
            // longer one past its tip.
            const float L1 = curves.lineLength(i);
            const float ratio = L1 > 1e-30f ? L1 / L0 : 0.f;
            tmp.resize(static_cast<size_t>(n));
            float t = 0.f;
            for (int j = 1; j < n; ++j) {
                t += dt;
                tmp[j] = curves.position(i, ratio * t);
            }
            for (int j = 1; j < n; ++j) cv[j] = tmp[j];
        }
    });
}
