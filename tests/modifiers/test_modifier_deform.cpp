// The geometry and attribute writes of each modifier's deform, on hand-checked strands.
#include <gtest/gtest.h>

#include <cmath>

#include "ModifierFixtures.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"

using namespace Ulmex;
using fixtures::straightGroom;

namespace {

float dist(const ZVector& a, const ZVector& b) { return (a - b).length(); }

template <typename M>
void setMasked(M& m, float value, const char* expr, const char* mask = "") {
    m.seed = 0.f;
    m.rand = 0.f;
    m.freq = 1.f;
    m.expr = expr;
    m.maskExpr = mask;
    (void)value;
}

// A groom with one strand of each interesting CV count: 0, 1 and 4.
fixtures::Groom oddCounts() {
    auto g = straightGroom(3, 4);
    ZCurves c;
    const ZVector one[] = {ZVector(1, 0, 0)};
    c.push(nullptr, 0);
    c.push(one, 1);
    c.push(g.c.cvs.data() + g.c.start[2], 4);
    g.c = c;
    return g;
}

} // namespace

TEST(WidthOpacityDeform, CopiesResultsAsTheyComeAndKeepsThemAcrossReset) {
    auto g = straightGroom(5);
    ZWidthModifier w;
    w.tWidth = 0.5f;
    w.rWidth = 7.f;
    w.tSeed = w.tRand = w.rSeed = w.rRand = 0.f;
    w.tFreq = w.rFreq = 1.f;
    w.tExpr = "tWidth";
    w.rExpr = "";  // empty: 0, whatever rWidth says
    w.apply(g.f, g.c, g.c);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(g.f.twh[i], 0.5f);
        EXPECT_EQ(g.f.rwh[i], 0.f);
    }
    ZOpacityModifier o;
    o.tOpacity = 0.25f;
    o.rOpacity = 0.75f;
    o.tSeed = o.tRand = o.rSeed = o.rRand = 0.f;
    o.tFreq = o.rFreq = 1.f;
    o.tExpr = "tOpacity * 4 - 2";  // not clamped
    o.rExpr = "rOpacity * v";
    o.apply(g.f, g.c, g.c);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(g.f.top[i], -1.f);
        EXPECT_EQ(g.f.rop[i], static_cast<float>(0.75 * double(g.f.uvw[i].y)));
    }
    g.f.top.assign(5, 9.f);
    o.reset();
    o.deform(g.f, g.c, g.c);  // reset keeps the results
    EXPECT_EQ(g.f.top[0], -1.f);
    o.deform(g.f, g.c, g.c);
    EXPECT_EQ(g.f.top[0], -1.f);
    EXPECT_EQ(g.f.twh[0], 0.5f);  // opacity never touches widths
}

TEST(ScaleDeform, AboutTheFrameOriginWithCVZeroFixed) {
    auto g = oddCounts();
    g.f.axs[2].origin = ZVector(2, 0, -1);  // not the strand's first CV
    const ZCurves before = g.c;
    ZScaleModifier s;
    s.scale = 2.f;
    setMasked(s, 2.f, "scale");
    s.apply(g.f, g.c, g.c);
    const ZVector* cv = g.c.cvs.data() + g.c.start[2];
    const ZVector o = g.f.axs[2].origin;
    EXPECT_EQ(cv[0], before.cvs[before.start[2]]);
    for (int j = 1; j < 4; ++j) EXPECT_EQ(cv[j], (before.cvs[before.start[2] + j] - o) * 2.f + o);
    EXPECT_EQ(g.c.cvs[g.c.start[1]], before.cvs[before.start[1]]);  // one CV: unchanged

    // A masked strand stays exactly as it was.
    auto h = straightGroom(2);
    const ZCurves hb = h.c;
    setMasked(s, 2.f, "scale", "1.5");
    s.apply(h.f, h.c, h.c);
    EXPECT_EQ(h.c.cvs, hb.cvs);
}

TEST(CutDeform, ResamplesCollapsesAndExtends) {
    auto g = straightGroom(1, 5);  // CVs at z = 0..4
    ZCutModifier c;
    c.cut = 0.5f;
    setMasked(c, 0.f, "cut");
    c.apply(g.f, g.c, g.c);
    for (int k = 0; k < 5; ++k) EXPECT_NEAR(g.c.cvs[k].z, 0.5f * k, 1e-5f) << k;
    EXPECT_EQ(g.c.numCVs[0], 5);

    auto collapse = straightGroom(1, 5);
    c.cut = 0.f;
    c.apply(collapse.f, collapse.c, collapse.c);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(collapse.c.cvs[k], ZVector(0, 0, 0));

    // A cut above 1 lengthens along the tip segment; a cut of 1 keeps an even strand.
    auto longer = straightGroom(1, 5);
    c.cut = 1.5f;
    c.apply(longer.f, longer.c, longer.c);
    EXPECT_NEAR(longer.c.cvs[4].z, 6.f, 1e-4f);
    auto same = straightGroom(1, 5);
    c.cut = 1.f;
    c.apply(same.f, same.c, same.c);
    for (int k = 0; k < 5; ++k) EXPECT_NEAR(same.c.cvs[k].z, float(k), 1e-5f);

    // Strands of 0 and 1 CVs are left alone.
    auto odd = oddCounts();
    const ZCurves before = odd.c;
    c.cut = 0.3f;
    c.evaluate(odd.f, odd.c);
    c.deform(odd.f, odd.c, odd.c);
    EXPECT_EQ(odd.c.cvs[0], before.cvs[0]);
}

TEST(OffsetDeform, AlongTheNormalOrTheStrandMovingEveryCV) {
    auto g = straightGroom(2, 3);
    g.f.axs[0].zAxis = ZVector(0, 1, 0);
    const ZCurves before = g.c;
    ZOffsetModifier o;
    o.offset = 0.5f;
    setMasked(o, 0.f, "offset");
    o.alongStrand = false;
    o.apply(g.f, g.c, g.c);
    for (int j = 0; j < 3; ++j) EXPECT_EQ(g.c.cvs[j], before.cvs[j] + ZVector(0, 0.5f, 0));

    // Along the strand: from the last CV towards the second, fast-normalised; the flag
    // takes effect at the next deform without evaluate.
    auto h = straightGroom(1, 3);
    o.alongStrand = true;
    o.deform(h.f, h.c, h.c);
    const ZVector d = fastNormalize(ZVector(0, 0, 1) - ZVector(0, 0, 2));
    EXPECT_EQ(h.c.cvs[0], d * 0.5f + ZVector(0, 0, 0));
    EXPECT_EQ(h.c.cvs[2], d * 0.5f + ZVector(0, 0, 2));

    // A closed loop (last CV on the second) has no direction: no shift.
    auto loop = straightGroom(1, 3);
    loop.c.cvs[2] = loop.c.cvs[1];
    const ZCurves lb = loop.c;
    o.deform(loop.f, loop.c, loop.c);
    EXPECT_EQ(loop.c.cvs, lb.cvs);

    // An offset of 0 changes nothing.
    auto still = straightGroom(2, 3);
    const ZCurves sb = still.c;
    ZOffsetModifier zero;
    zero.offset = 0.f;
    setMasked(zero, 0.f, "offset");
    zero.alongStrand = false;
    zero.apply(still.f, still.c, still.c);
    EXPECT_EQ(still.c.cvs, sb.cvs);
}

namespace {

void setDirection(ZDirectionModifier& d, float pitch, float yaw) {
    d.pitch = pitch;
    d.yaw = yaw;
    d.pitchSeed = d.pitchRand = d.yawSeed = d.yawRand = 0.f;
    d.pitchFreq = d.yawFreq = 1.f;
    d.pitchExpr = "pitch";
    d.yawExpr = "yaw";
    d.maskExpr = "";
}

} // namespace

TEST(DirectionDeform, PitchAboutTheLeanAxisThenYawAboutTheNormal) {
    // Strand along z from the origin; lean axis x (rxy = (1, 0)).
    auto g = straightGroom(1, 3);
    ZDirectionModifier d;
    setDirection(d, 90.f, 0.f);
    d.apply(g.f, g.c, g.c);
    EXPECT_FLOAT_EQ(d.pitchValues[0], static_cast<float>(90.0 * 0.01745329238474369));
    // Rotating z by +90 degrees about x gives -y.
    EXPECT_LT(dist(g.c.cvs[2], ZVector(0, -2, 0)), 1e-5f);
    EXPECT_EQ(g.c.cvs[0], ZVector(0, 0, 0));

    // Pitch first, then yaw: 90 about x then 90 about z carries z to +x.
    auto h = straightGroom(1, 3);
    setDirection(d, 90.f, 90.f);
    d.apply(h.f, h.c, h.c);
    EXPECT_LT(dist(h.c.cvs[2], ZVector(2, 0, 0)), 1e-5f);
    EXPECT_NEAR(dist(h.c.cvs[1], h.c.cvs[2]), 1.f, 1e-5f);  // rigid

    // Angles within 0.01 radian (0.57 degrees) are skipped; just above is not.
    auto small = straightGroom(1, 3);
    const ZCurves sb = small.c;
    setDirection(d, 0.57f, -0.57f);
    d.apply(small.f, small.c, small.c);
    EXPECT_EQ(small.c.cvs, sb.cvs);
    setDirection(d, 0.58f, 0.f);
    d.apply(small.f, small.c, small.c);
    EXPECT_NE(small.c.cvs[2], sb.cvs[2]);

    // One CV and no CVs: untouched.
    auto odd = oddCounts();
    const ZCurves ob = odd.c;
    setDirection(d, 45.f, 45.f);
    d.evaluate(odd.f, odd.c);
    d.deform(odd.f, odd.c, odd.c);
    EXPECT_EQ(odd.c.cvs[0], ob.cvs[0]);
}
