// Bend, clump, kink and frizz on small hand-checked strands.
#include <gtest/gtest.h>

#include <cmath>

#include "ModifierFixtures.h"
#include "modifiers/ZBendModifier.h"
#include "modifiers/ZClumpModifier.h"
#include "modifiers/ZKinkModifier.h"
#include "modifiers/ZFrizzModifier.h"
#include "support/TestUtil.h"

using namespace Ulmex;
using fixtures::straightGroom;

namespace {

float dist(const ZVector& a, const ZVector& b) { return (a - b).length(); }

void setBend(ZBendModifier& m, float bend, float rate, float start, float end, bool tipWeighted) {
    m.bend = bend; m.bendSeed = 1; m.bendRand = 0; m.bendFreq = 1; m.bendExpr = "bend";
    m.rate = rate; m.rateSeed = 2; m.rateRand = 0; m.rateFreq = 1; m.rateExpr = "rate";
    m.maskExpr = "";
    m.start = start; m.startExpr = "start";
    m.end = end; m.endExpr = "end";
    m.tipWeighted = tipWeighted;
}

void setClump(ZClumpModifier& m, float clump, float rate, short ramp, bool keepLength) {
    m.clump = clump; m.clumpSeed = 1; m.clumpRand = 0; m.clumpFreq = 1; m.clumpExpr = "clump";
    m.rate = rate; m.rateSeed = 2; m.rateRand = 0; m.rateFreq = 1; m.rateExpr = "rate";
    m.maskExpr = "";
    m.strayRatioExpr = "";
    m.strayAmountExpr = "";
    m.keepLength = keepLength;
    m.rampType = ramp;
}

void setKink(ZKinkModifier& m, float kink, float tWidth, float rWidth, float tipFade, float rootFade) {
    m.kink = kink; m.kinkSeed = 1; m.kinkRand = 0; m.kinkFreq = 1; m.kinkExpr = "kink";
    m.tWidth = tWidth; m.tWidthSeed = 2; m.tWidthRand = 0; m.tWidthFreq = 1; m.tWidthExpr = "tWidth";
    m.rWidth = rWidth; m.rWidthSeed = 3; m.rWidthRand = 0; m.rWidthFreq = 1; m.rWidthExpr = "rWidth";
    m.maskExpr = "";
    m.tipFade = tipFade;
    m.rootFade = rootFade;
}

void setFrizz(ZFrizzModifier& m, float frizz, float tWidth, float rWidth, float seed = 1) {
    m.frizz = frizz; m.frizzSeed = seed; m.frizzRand = 0; m.frizzFreq = 1; m.frizzExpr = "frizz";
    m.tWidth = tWidth; m.tWidthSeed = 2; m.tWidthRand = 0; m.tWidthFreq = 1; m.tWidthExpr = "tWidth";
    m.rWidth = rWidth; m.rWidthSeed = 3; m.rWidthRand = 0; m.rWidthFreq = 1; m.rWidthExpr = "rWidth";
    m.maskExpr = "";
}

// Binds every strand of g to guide `guide` (or leaves it unbound for a negative one).
void bindAll(fixtures::Groom& g, int guide) {
    g.f.bdi.reset();
    for (int i = 0; i < g.f.numStrands(); ++i) g.f.bdi.push(&guide, 1);
}

} // namespace

TEST(Bend, RotatesBeyondThePivotsKeepingSpacingAndTheRoot) {
    auto g = straightGroom(1, 6);  // CVs at z = 0..5, lean axis x
    const ZCurves before = g.c;
    ZBendModifier b;
    setBend(b, 20.f, 0.f, 0.4f, 1.f, true);  // pivots 2..5, full angle at each (rate 0)
    b.apply(g.f, g.c, g.c);
    EXPECT_EQ(g.c.cvs[0], before.cvs[0]);
    EXPECT_EQ(g.c.cvs[1], before.cvs[1]);  // below the first pivot
    EXPECT_EQ(g.c.cvs[2], before.cvs[2]);  // the first pivot itself
    // Rigid turns about an axis of the fast normalisation's length (1 within 2e-3): the
    // spacing holds to that accuracy.
    for (int j = 1; j < 6; ++j) EXPECT_NEAR(dist(g.c.cvs[j], g.c.cvs[j - 1]), 1.f, 2e-3f) << j;
    // Three pivots turn by 20 degrees each: the last segment points 60 degrees off z, in
    // the y-z plane (rotation about x).
    const ZVector last = (g.c.cvs[5] - g.c.cvs[4]).normalized(false);
    EXPECT_NEAR(last.x, 0.f, 1e-6f);
    EXPECT_NEAR(std::acos(last.z), 60.f * 0.0174532925f, 3e-3f);

    // tipWeighted false runs the ramp the other way: with rate 1, the first pivot turns most.
    auto h = straightGroom(1, 6);
    setBend(b, 20.f, 1.f, 0.4f, 1.f, false);
    b.apply(h.f, h.c, h.c);
    auto k = straightGroom(1, 6);
    b.tipWeighted = true;  // deform only: no recomputation needed
    b.deform(k.f, k.c, k.c);
    const float turnedRootwards = std::acos((h.c.cvs[3] - h.c.cvs[2]).z);
    const float turnedTipwards = std::acos((k.c.cvs[3] - k.c.cvs[2]).z);
    EXPECT_GT(turnedRootwards, turnedTipwards);
}

TEST(Bend, StrandsThatCannotBendStayExactlyAsTheyWere) {
    ZBendModifier b;
    for (int cvs : {1, 2}) {
        auto g = straightGroom(2, cvs);
        const ZCurves before = g.c;
        setBend(b, 45.f, 1.f, 0.f, 1.f, true);
        b.apply(g.f, g.c, g.c);
        EXPECT_EQ(g.c.cvs, before.cvs) << cvs;
    }
    auto g = straightGroom(1, 8);
    const ZCurves before = g.c;
    setBend(b, 45.f, 1.f, 0.8f, 0.3f, true);  // start past end
    b.apply(g.f, g.c, g.c);
    EXPECT_EQ(g.c.cvs, before.cvs);
    setBend(b, 45.f, 1.f, 0.f, -1.f, true);  // end at or below 0: pivot 1 on both sides
    b.apply(g.f, g.c, g.c);
    EXPECT_EQ(g.c.cvs, before.cvs);
}

TEST(Clump, FullWeightPutsTheTipOnTheGuideAndUnboundStrandsStay) {
    // Strand 0 is the guide (x = 0); strands 1..3 stand at x = 1..3.
    auto g = straightGroom(4, 5);
    for (int j = 0; j < 5; ++j) g.c.cvs[j] = ZVector(0.f, 0.f, 0.5f * j);  // a shorter guide
    const ZCurves guides = g.c;
    bindAll(g, 0);
    const int unbound = -1;
    g.f.bdi.reset();
    g.f.bdi.push(&unbound, 1);  // the guide itself is unbound
    const int zero = 0;
    g.f.bdi.push(&zero, 1);
    g.f.bdi.push(nullptr, 0);  // empty set: unbound
    g.f.bdi.push(&unbound, 1);
    const ZCurves before = g.c;
    ZClumpModifier c;
    setClump(c, 1.f, 1.f, 1, true);
    c.strayRatioExpr = "2";  // every strand strays...
    c.strayAmountExpr = "0";  // ...and keeps its clumped shape
    c.apply(g.f, g.c, guides);
    EXPECT_EQ(g.c.cvs[5], before.cvs[5]);  // strand 1's root stays
    for (int s : {0, 2, 3})
        for (int j = 0; j < 5; ++j) EXPECT_EQ(g.c.cvs[s * 5 + j], before.cvs[s * 5 + j]) << s << " " << j;

    auto h = straightGroom(2, 5);
    for (int j = 0; j < 5; ++j) h.c.cvs[j] = ZVector(0.f, 0.f, 0.5f * j);
    const ZCurves hGuides = h.c;
    bindAll(h, 0);
    setClump(c, 1.f, 1.f, 1, false);
    c.apply(h.f, h.c, hGuides);
    EXPECT_LT(dist(h.c.cvs[9], ZVector(0, 0, 2)), 1e-5f);  // tip on the guide's end
    // Mid-strand (t = 0.5, smoothstep 0.5): half way between (1, 0, 2) and the guide's (0, 0, 1).
    EXPECT_LT(dist(h.c.cvs[7], ZVector(0.5f, 0, 1.5f)), 1e-5f);

    // keepLength samples the blended strand over L1 / L0 of its range: new over old, so a
    // strand that came out shorter is shortened again (by design, not restored).
    const float blendedLength = h.c.lineLength(1);
    auto kept = straightGroom(2, 5);
    for (int j = 0; j < 5; ++j) kept.c.cvs[j] = ZVector(0.f, 0.f, 0.5f * j);
    bindAll(kept, 0);
    setClump(c, 1.f, 1.f, 1, true);
    c.apply(kept.f, kept.c, hGuides);
    EXPECT_LT(kept.c.lineLength(1), blendedLength * 0.9f);
    EXPECT_EQ(kept.c.cvs[5], ZVector(1, 0, 0));
}

TEST(Clump, StrayReturnRampsAndDegenerateLengths) {
    auto g = straightGroom(2, 4);
    const ZCurves guides = g.c;
    bindAll(g, 0);
    const ZCurves before = g.c;
    ZClumpModifier c;
    setClump(c, 1.f, 1.f, 2, false);
    c.strayRatioExpr = "2";
    c.strayAmountExpr = "1.5";  // clamped to 1: the exact pre-blend shape
    c.apply(g.f, g.c, guides);
    EXPECT_EQ(g.c.cvs, before.cvs);
    ASSERT_EQ(c.strayFlags, ZCharArray({1, 1}));

    // Unknown ramp types weigh 0; ramp 0 is not clamped and overshoots.
    auto h = straightGroom(2, 4);
    bindAll(h, 0);
    setClump(c, 1.f, 1.f, 7, false);
    c.apply(h.f, h.c, guides);
    EXPECT_EQ(h.c.cvs, before.cvs);
    setClump(c, 2.f, 1.f, 0, false);
    c.apply(h.f, h.c, guides);
    EXPECT_LT(dist(h.c.cvs[7], ZVector(-1, 0, 3)), 1e-5f);  // mirrored through the guide

    // L0 of 0 (a collapsed strand) gives an infinite ratio, a collapsed result a zero one:
    // neither may crash or hang.
    auto z = straightGroom(2, 4);
    for (int j = 4; j < 8; ++j) z.c.cvs[j] = ZVector(1, 0, 0);
    bindAll(z, 0);
    setClump(c, 0.5f, 1.f, 0, true);
    c.apply(z.f, z.c, guides);
    // Every CV is sampled at the infinite parameter: all land on the blended strand's tip.
    for (int j = 5; j < 8; ++j) EXPECT_EQ(z.c.cvs[j], z.c.cvs[7]);
    EXPECT_FALSE(std::isnan(z.c.cvs[7].z));
    auto onto = straightGroom(2, 4);
    for (int j = 0; j < 4; ++j) onto.c.cvs[j] = ZVector(1, 0, 0);  // guide collapsed on the root
    const ZCurves collapsedGuide = onto.c;
    bindAll(onto, 0);
    setClump(c, 1.f, 0.f, 0, true);  // rate 0: full weight everywhere, result has no length
    c.apply(onto.f, onto.c, collapsedGuide);
    for (int j = 4; j < 8; ++j) EXPECT_EQ(onto.c.cvs[j], ZVector(1, 0, 0));
}

TEST(Kink, OffsetsLieAcrossTheStrandGrowTowardsTheTipAndFade) {
    auto g = straightGroom(1, 5);  // tangent along the normal: D = W, in the root's xy plane
    const ZCurves before = g.c;
    ZKinkModifier k;
    setKink(k, 0.f, 0.4f, 0.f, 0.f, 0.f);
    k.apply(g.f, g.c, g.c);
    for (int j = 1; j < 5; ++j) {
        const ZVector d = g.c.cvs[j] - before.cvs[j];
        EXPECT_NEAR(d.z, 0.f, 1e-6f) << j;
        EXPECT_NEAR(std::hypot(d.x, d.y), 0.4f * j / 4.f, 1e-5f) << j;  // width from 0 at the root to 0.4
    }
    EXPECT_EQ(g.c.cvs[0], before.cvs[0]);
    // Kink 0: every CV shares the strand's phase, one direction in the plane.
    const ZVector d1 = g.c.cvs[1] - before.cvs[1], d4 = g.c.cvs[4] - before.cvs[4];
    EXPECT_NEAR(d1.x * d4.y - d1.y * d4.x, 0.f, 1e-6f);

    // Tip fade 1: the CV at j takes (n - j) / n; root fade 1: j / (n - 1).
    auto f = straightGroom(1, 5);
    setKink(k, 0.f, 0.4f, 0.4f, 1.f, 0.f);
    k.apply(f.f, f.c, f.c);
    EXPECT_NEAR((f.c.cvs[4] - before.cvs[4]).length(), 0.4f * 1.f / 5.f, 1e-5f);
    auto r = straightGroom(1, 5);
    setKink(k, 0.f, 0.4f, 0.4f, 0.f, 1.f);
    k.apply(r.f, r.c, r.c);
    EXPECT_NEAR((r.c.cvs[1] - before.cvs[1]).length(), 0.4f * 1.f / 4.f, 1e-5f);
    EXPECT_NEAR((r.c.cvs[4] - before.cvs[4]).length(), 0.4f, 1e-5f);
}

TEST(Kink, DegenerateTangentsAndTheWatchedCVCount) {
    // A strand growing against the normal turns the offset by pi; two CVs in one place
    // give a zero tangent and keep the root-plane offset.
    auto g = straightGroom(2, 3);
    g.c.cvs[1] = ZVector(0, 0, -1);
    g.c.cvs[2] = ZVector(0, 0, -2);
    g.c.cvs[4] = g.c.cvs[3];  // strand 1: CV 1 on CV 0 (its root is the frame origin)
    const ZCurves before = g.c;
    ZKinkModifier k;
    setKink(k, 0.f, 0.3f, 0.3f, 0.f, 0.f);
    k.apply(g.f, g.c, g.c);
    const ZVector W0 = (g.f.axs[0].xAxis * k.kinkCos[1] + g.f.axs[0].yAxis * k.kinkSin[1]) * 0.3f;
    EXPECT_LT(dist(g.c.cvs[1] - before.cvs[1], -W0), 1e-6f);
    const ZVector W1 = (g.f.axs[1].xAxis * k.kinkCos[4] + g.f.axs[1].yAxis * k.kinkSin[4]) * 0.3f;
    EXPECT_LT(dist(g.c.cvs[4] - before.cvs[4], W1), 1e-6f);
    EXPECT_EQ(k.kinkCos[0], 0.f);  // root entries stay 0

    // The total CV count is watched; one-CV strands keep zero directions.
    auto h = straightGroom(3, 1);
    k.apply(h.f, h.c, h.c);
    EXPECT_EQ(k.prevNumCVs, 3);
    EXPECT_EQ(k.kinkCos, ZFloatArray(3, 0.f));
    auto more = straightGroom(3, 2);
    k.evaluate(more.f, more.c);
    EXPECT_EQ(k.prevNumCVs, 6);
    EXPECT_EQ(k.kinkCos.length(), 6);
    ZCurves none;
    none.numCVs = {0, 0, 0};
    none.start = {0, 0, 0};
    k.evaluate(more.f, none);  // no CVs: nothing happens
    EXPECT_EQ(k.prevNumCVs, 6);
}

TEST(Frizz, StaysInItsCubeAndDependsOnTheCVIndexOnly) {
    auto g = straightGroom(3, 4);
    for (float& l : g.f.ln0) l = 2.f;
    const ZCurves before = g.c;
    ZFrizzModifier fz, other;
    setFrizz(fz, 0.5f, 0.2f, 0.2f, 1.f);
    setFrizz(other, 0.5f, 0.2f, 0.2f, 77.f);
    fz.apply(g.f, g.c, g.c);
    other.evaluate(g.f, g.c);
    EXPECT_EQ(fz.frizzJitter, other.frizzJitter);  // seeds do not reach the jitter
    for (int c = 0; c < 12; ++c)
        EXPECT_EQ(fz.frizzJitter[c].y, ZRandomUnit(3u * static_cast<uint32_t>(c) + 1u));
    const float w = 0.2f * 0.5f * 2.f;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(g.c.cvs[i * 4], before.cvs[i * 4]);
        for (int j = 1; j < 4; ++j)
            for (int a = 0; a < 3; ++a) EXPECT_LE(std::fabs(g.c.cvs[i * 4 + j][a] - before.cvs[i * 4 + j][a]), w);
    }
    // The CV count is not watched: a longer groom at the same strand count keeps the jitter.
    auto longer = straightGroom(3, 6);
    fz.evaluate(longer.f, longer.c);
    EXPECT_EQ(fz.frizzJitter.length(), 12);
    // Width 0 rewrites every CV with itself.
    auto still = straightGroom(2, 3);
    const ZCurves sb = still.c;
    setFrizz(fz, 0.5f, 0.f, 0.f);
    fz.apply(still.f, still.c, still.c);
    EXPECT_EQ(still.c.cvs, sb.cvs);
}

TEST(Bend, TipLandsWhereThePivotAnglesDtTwoDtAndOnPutIt) {
    // Six CVs up z with unit spacing, lean axis x: pivots 1 to 5 get t = dt, 2 dt, ...
    // (dt = 0.2) and, with rate 1, the angles bend * t (bend * (1 - t) when not tip
    // weighted). The expectation replays the pivots in double precision: each turns the
    // CVs beyond it about the axis through it. The axis is x as the fast normalisation
    // leaves it (length lambda, a little off 1), which the turn formula scales by.
    const double lambda = fastNormalize(ZVector(1, 0, 0)).x;
    const double bend = 30.0 * 0.01745329238474369;
    for (bool tipWeighted : {true, false}) {
        auto g = straightGroom(1, 6);
        ZBendModifier b;
        setBend(b, 30.f, 1.f, 0.f, 1.f, tipWeighted);
        b.apply(g.f, g.c, g.c);
        double y[6] = {0, 0, 0, 0, 0, 0}, z[6] = {0, 1, 2, 3, 4, 5};
        for (int p = 1; p <= 5; ++p) {
            const double t = 0.2 * p, a = bend * (tipWeighted ? t : 1.0 - t);
            for (int q = p + 1; q < 6; ++q) {
                const double vy = y[q] - y[p], vz = z[q] - z[p];
                y[q] = vy * std::cos(a) - lambda * vz * std::sin(a) + y[p];
                z[q] = vz * std::cos(a) + lambda * vy * std::sin(a) + z[p];
            }
        }
        for (int q = 0; q < 6; ++q) {
            EXPECT_EQ(g.c.cvs[q].x, 0.f);
            EXPECT_NEAR(g.c.cvs[q].y, y[q], 2e-5) << tipWeighted << " " << q;
            EXPECT_NEAR(g.c.cvs[q].z, z[q], 2e-5) << tipWeighted << " " << q;
        }
    }
}

TEST(Clump, StraysAreDrawnWithTheirOwnSaltBesideTheMask) {
    // A stray ratio of 0.5 picks about half the strands; which ones is fixed by the draw
    // ZRandomUnit(base + uid + 10001), base coming from the clump seed as for the mask.
    const int n = 2000;
    auto g = straightGroom(n, 3);
    bindAll(g, 0);
    ZClumpModifier c;
    setClump(c, 1.f, 0.f, 0, false);
    c.clumpSeed = 2.5f;
    c.strayRatioExpr = "0.5";
    c.strayAmountExpr = "0.25";
    c.evaluate(g.f, g.c);
    const int base = static_cast<int>(ZRandomUnit(static_cast<uint32_t>(static_cast<int>(2.5f * 100.f))) * 10000.f);
    int strays = 0;
    for (int i = 0; i < n; ++i) {
        const float r = ZRandomUnit(static_cast<uint32_t>(base + g.f.uid[i] + 10001));
        ASSERT_EQ(c.strayFlags[i], 0.5 > static_cast<double>(r) ? 1 : 0) << i;
        strays += c.strayFlags[i];
        EXPECT_EQ(c.strayAmounts[i], 0.25f);
    }
    EXPECT_GT(strays, n / 3);
    EXPECT_LT(strays, 2 * n / 3);
}

TEST(Kink, BasePhaseIsTheUidsUnitDrawPlusTheSeed) {
    // With kink 0 the noise term vanishes and every CV past the root takes the strand's
    // base phase 2 pi (ZRandomUnit(uid) + kinkSeed); the root entries stay 0.
    auto g = straightGroom(5, 4);
    for (int i = 0; i < 5; ++i) g.f.uid[i] = 7919 * (i + 3);
    ZKinkModifier k;
    setKink(k, 0.f, 0.1f, 0.1f, 0.f, 0.f);
    k.kinkSeed = 0.37f;
    k.evaluate(g.f, g.c);
    for (int i = 0; i < 5; ++i) {
        const float phase = 6.2831855f * (ZRandomUnit(static_cast<uint32_t>(g.f.uid[i])) + 0.37f);
        float s, c;
        sincosf(phase, &s, &c);
        const int f = g.c.start[i];
        EXPECT_EQ(k.kinkCos[f], 0.f);
        EXPECT_EQ(k.kinkSin[f], 0.f);
        for (int j = 1; j < 4; ++j) {
            EXPECT_EQ(k.kinkCos[f + j], c) << i << " " << j;
            EXPECT_EQ(k.kinkSin[f + j], s) << i << " " << j;
        }
    }
}

TEST(Frizz, WidthRampsFromRootToTip) {
    // One strand of 5 CVs, ln0 4, frizz 0.5: CV j moves by (2 r - 1) w per component, with
    // w = ((1 - t) root + t tip) * frizz * ln0 and t = j / 4. Root and tip widths differ
    // tenfold, so a ramp run the wrong way shows at every CV but the middle one.
    auto g = straightGroom(1, 5);
    const ZCurves before = g.c;
    ZFrizzModifier fz;
    setFrizz(fz, 0.5f, 0.2f, 0.02f);
    fz.apply(g.f, g.c, g.c);
    EXPECT_EQ(g.c.cvs[0], before.cvs[0]);
    for (int j = 1; j < 5; ++j) {
        const double t = j / 4.0;
        const double w = ((1 - t) * 0.02 + t * 0.2) * 0.5 * 4.0;
        const ZVector r(ZRandomUnit(3u * j), ZRandomUnit(3u * j + 1u), ZRandomUnit(3u * j + 2u));  // CV j's jitter
        const ZVector moved = g.c.cvs[j] - before.cvs[j];
        EXPECT_NEAR(moved.x, (2.0 * r.x - 1.0) * w, 1e-6) << j;
        EXPECT_NEAR(moved.y, (2.0 * r.y - 1.0) * w, 1e-6) << j;
        EXPECT_NEAR(moved.z, (2.0 * r.z - 1.0) * w, 1e-6) << j;
    }
}
