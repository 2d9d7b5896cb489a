// What every modifier shares: map registration, change detection, randomness, masks and
// image lookup.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "ModifierFixtures.h"
#include "modifiers/ZModifierFrame.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"
#include "support/TestUtil.h"

using namespace Ulmex;
using fixtures::straightGroom;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// A texture whose file exists, so that it can be registered.
struct Map {
    testutil::TempDir dir;
    std::vector<float> pixels;
    ZImageMap image;
    Map(int w, int h, int channels, std::function<float(int x, int y)> value) {
        const std::string path = dir.file("map.tex");
        testutil::writeBytes(path, {'t'});
        pixels.resize(static_cast<size_t>(w * h * channels), -1.f);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) pixels[static_cast<size_t>((x + w * y) * channels)] = value(x, y);
        image.width = w;
        image.height = h;
        image.numChannels = channels;
        image.pixels = pixels.data();
        image.filePath = path;
    }
};

void setScale(ZScaleModifier& m, const char* expr, const char* mask = "") {
    m.scale = 2.f; m.seed = 0.f; m.rand = 0.f; m.freq = 1.f; m.expr = expr;
    m.maskExpr = mask;
}

void setWidth(ZWidthModifier& m, const char* tip, const char* root) {
    m.tWidth = 1.f; m.tSeed = 1.f; m.tRand = 0.f; m.tFreq = 1.f; m.tExpr = tip;
    m.rWidth = 2.f; m.rSeed = 0.f; m.rRand = 0.f; m.rFreq = 1.f; m.rExpr = root;
}

} // namespace

TEST(ZModifier, RegistrationKeepsTheFirstMapAndReportsBadFiles) {
    Map a(2, 2, 1, [](int, int) { return 1.f; });
    Map b(2, 2, 1, [](int, int) { return 2.f; });
    ZModifier m;
    CaptureStdout();
    m.append("density", a.image);
    m.append("density", b.image);  // silently ignored
    m.append("other", b.image);
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(m.find("density"), &a.image);
    EXPECT_EQ(m.find("nothing"), nullptr);
    ZStringArray names{"stale"};
    m.getAttributeNames(names);
    EXPECT_EQ(names, ZStringArray({"density", "other"}));

    ZImageMap noFile;
    ZImageMap missing;
    missing.filePath = "/no/such/texture.exr";
    CaptureStdout();
    m.append("x", noFile);
    m.append("y", missing);
    EXPECT_EQ(GetCapturedStdout(),
              "Error@ZModifier::append(): No file.\n"
              "Error@ZModifier::append(): Failed to find: /no/such/texture.exr\n");
    EXPECT_EQ(m.attributeMaps.size(), 2u);
    m.reset();
    EXPECT_TRUE(m.attributeMaps.empty());
}

TEST(ChangeDetection, EachParameterAloneFiresAndNothingElseDoes) {
    auto g = straightGroom(10);
    ZScaleModifier m;
    setScale(m, "scale + id * 0.001", "0");
    m.evaluate(g.f, g.c);
    ASSERT_FLOAT_EQ(m.scales[3], 2.f + 1003 * 0.001f);

    // A recomputation is seen by a result overwritten behind the modifier's back.
    auto recomputes = [&](const std::function<void()>& change) {
        m.scales[0] = -99.f;
        change();
        m.evaluate(g.f, g.c);
        return m.scales[0] != -99.f;
    };
    EXPECT_FALSE(recomputes([] {}));
    EXPECT_TRUE(recomputes([&] { m.scale = 3.f; }));
    EXPECT_TRUE(recomputes([&] { m.seed = 7.f; }));
    EXPECT_TRUE(recomputes([&] { m.rand = 0.5f; }));
    EXPECT_TRUE(recomputes([&] { m.freq = 2.f; }));
    EXPECT_TRUE(recomputes([&] { m.expr = "scale + id * 0.002"; }));
    EXPECT_TRUE(recomputes([&] { m.maskExpr = "0.0"; }));
    EXPECT_FALSE(recomputes([] {}));
    // Follicle contents at the same count, new curves and new maps do not fire it.
    EXPECT_FALSE(recomputes([&] { g.f.uid[0] = 5; }));
    EXPECT_FALSE(recomputes([&] { g.c.cvs[1] = ZVector(9, 9, 9); }));
    Map map(2, 2, 1, [](int, int) { return 0.5f; });
    EXPECT_FALSE(recomputes([&] { m.append("density", map.image); }));
    // reset forces one (and drops the map).
    EXPECT_TRUE(recomputes([&] { m.reset(); }));
    EXPECT_TRUE(m.attributeMaps.empty());
    // A NaN parameter never equals its remembered copy.
    m.rand = std::nanf("");
    EXPECT_TRUE(recomputes([] {}));
    EXPECT_TRUE(recomputes([] {}));
    m.rand = 0.f;
    EXPECT_TRUE(recomputes([] {}));
    EXPECT_FALSE(recomputes([] {}));
    // A new strand count fires; an empty set changes nothing at all.
    auto bigger = straightGroom(11);
    m.scales[0] = -99.f;
    m.evaluate(bigger.f, bigger.c);
    EXPECT_EQ(m.prevNum, 11);
    EXPECT_EQ(m.scales.length(), 11);
    auto empty = straightGroom(0);
    m.evaluate(empty.f, empty.c);
    EXPECT_EQ(m.prevNum, 11);
    EXPECT_EQ(m.scales.length(), 11);
}

TEST(ChangeDetection, SecondGroupAndDeformOnlyFlags) {
    auto g = straightGroom(4);
    ZWidthModifier w;
    setWidth(w, "tWidth", "rWidth");
    w.evaluate(g.f, g.c);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(w.tWidths[i], 1.f);
        EXPECT_EQ(w.rWidths[i], 2.f);
    }
    w.rWidths[0] = -1.f;
    w.rSeed = 4.f;  // the second group's seed alone still fires
    w.evaluate(g.f, g.c);
    EXPECT_EQ(w.rWidths[0], 2.f);

    // The offset modifier's flag is read by deform only: flipping it recomputes nothing.
    ZOffsetModifier o;
    o.offset = 1.f;
    o.seed = o.rand = 0.f;
    o.freq = 1.f;
    o.expr = "offset";
    o.maskExpr = "";
    o.alongStrand = false;
    o.evaluate(g.f, g.c);
    o.offsets[0] = 5.f;
    o.alongStrand = true;
    o.evaluate(g.f, g.c);
    EXPECT_EQ(o.offsets[0], 5.f);
}

TEST(Randomness, OffsetsTruncateTheSeedProductAndSeedZeroIsFlat) {
    // (Every group's constants and seed source are pinned in test_modifier_constants.)
    auto g = straightGroom(3);
    for (ZVector& p : g.f.nmp) p = ZVector(0, 0, 0);
    ZWidthModifier w;
    setWidth(w, "x", "x");
    w.evaluate(g.f, g.c);
    EXPECT_FLOAT_EQ(w.tWidths[0], 0.774213f);  // seed 1: ZRandomUnit(681), as published

    // The root seed reaches the root expression as `seed` only.
    w.rExpr = "z + seed";
    w.rSeed = 3.f;
    w.evaluate(g.f, g.c);
    EXPECT_EQ(w.rWidths[0], static_cast<float>(double(ZRandomUnit(591)) + 3.0));
    // The tip seed moves both groups' offsets; only the truncated product counts.
    w.tSeed = 2.4f;
    w.evaluate(g.f, g.c);
    EXPECT_EQ(w.rWidths[0],
              static_cast<float>(double(ZRandomUnit(static_cast<uint32_t>(static_cast<int>(591 * 2.4f)))) + 3.0));
    w.tSeed = 0.f;
    w.tExpr = "x - y";
    w.evaluate(g.f, g.c);
    EXPECT_EQ(w.tWidths[0], 0.f);  // seed 0: the same offset on every axis
}

TEST(Masks, StableFractionStrictEdgesAndMapOnlyVariables) {
    const int n = 20000;
    auto g = straightGroom(n, 2);
    ZScaleModifier m;
    setScale(m, "1", "0.3");
    m.evaluate(g.f, g.c);
    const ZCharArray first = m.maskFlags;
    int excluded = 0;
    for (char c : first) excluded += c;
    EXPECT_NEAR(excluded / double(n), 0.3, 0.015);
    m.reset();
    m.evaluate(g.f, g.c);
    EXPECT_EQ(m.maskFlags, first);  // the same strands, run after run

    // Strict comparison: a value equal to the draw does not exclude.
    const int base = static_cast<int>(ZRandomUnit(0u) * 10000.f);  // seed 0
    auto one = straightGroom(2, 2);
    one.f.uid[0] = static_cast<int>(26244664u - static_cast<uint32_t>(base));  // draw exactly 1.0
    one.f.uid[1] = static_cast<int>(12345391u - static_cast<uint32_t>(base));  // draw exactly 0.0
    ASSERT_EQ(ZRandomUnit(static_cast<uint32_t>(base + one.f.uid[0])), 1.f);
    ASSERT_EQ(ZRandomUnit(static_cast<uint32_t>(base + one.f.uid[1])), 0.f);
    ZScaleModifier edge;
    setScale(edge, "1", "1");
    edge.evaluate(one.f, one.c);
    EXPECT_EQ(edge.maskFlags[0], 0);
    EXPECT_EQ(edge.maskFlags[1], 1);
    edge.maskExpr = "0";
    edge.evaluate(one.f, one.c);
    EXPECT_EQ(edge.maskFlags[1], 0);
    edge.maskExpr = "";  // empty: excludes nothing
    edge.evaluate(one.f, one.c);
    EXPECT_EQ(edge.maskFlags, ZCharArray({0, 0}));
    edge.maskExpr = "1.0001";
    edge.evaluate(one.f, one.c);
    EXPECT_EQ(edge.maskFlags, ZCharArray({1, 1}));

    // The mask sees map variables only: u does not exist there.
    edge.maskExpr = "u + 5";
    edge.evaluate(one.f, one.c);
    EXPECT_EQ(edge.maskFlags, ZCharArray({0, 0}));
    Map density(1, 1, 1, [](int, int) { return 5.f; });
    edge.append("density", density.image);
    edge.maskExpr = "density";
    edge.evaluate(one.f, one.c);
    EXPECT_EQ(edge.maskFlags, ZCharArray({1, 1}));
}

TEST(ImageMaps, NearestSampleWithVFromTheBottomAndEdgesClamped) {
    // 4 x 3 map, 2 channels; the first channel holds 10 * row + column.
    Map map(4, 3, 2, [](int x, int y) { return 10.f * y + x; });
    const ZImageMap& img = map.image;
    using ZModifierFrame::sample;
    EXPECT_EQ(sample(img, 0.f, 1.f), 0.f);     // v = 1: row 0
    EXPECT_EQ(sample(img, 1.f, 1.f), 3.f);     // u = 1: last column
    EXPECT_EQ(sample(img, 0.f, 0.f), 20.f);    // v = 0: last row
    EXPECT_EQ(sample(img, 0.6f, 0.5f), 12.f);  // (2.4, 1.5) -> column 2, row 1
    EXPECT_EQ(sample(img, -0.1f, 0.5f), 10.f);  // u in (-1/w, 0) truncates to column 0
    EXPECT_EQ(sample(img, -7.f, 9.f), 0.f);
    EXPECT_EQ(sample(img, 7.f, -9.f), 23.f);
    EXPECT_EQ(sample(img, std::nanf(""), 1e30f), 0.f);

    // A map named like a built-in variable overrides it, per strand.
    auto g = straightGroom(4);
    ZScaleModifier m;
    setScale(m, "u * 100 + seed");
    m.append("u", map.image);
    m.append("seed", map.image);
    m.evaluate(g.f, g.c);
    for (int i = 0; i < 4; ++i) {
        const float s = sample(img, g.f.uvw[i].x, g.f.uvw[i].y);
        EXPECT_EQ(m.scales[i], static_cast<float>(s * 100.0 + s)) << i;
    }
}
