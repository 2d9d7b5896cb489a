// Every group of all ten modifiers: its three offset constants and the seed they are drawn
// from, and its expression variables (value, seed, rand, freq) bound to the right
// parameters. Expectations come from the published constants and ZRandomUnit alone.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "ModifierFixtures.h"
#include "modifiers/ZBendModifier.h"
#include "modifiers/ZClumpModifier.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZFrizzModifier.h"
#include "modifiers/ZKinkModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"

using namespace Ulmex;

namespace {

// What the test sets on one group of a modifier.
struct GroupInput {
    float value, seed, rand, freq;
    std::string expr;
};

// What a group is, as published: its value variable, its constants, the group whose seed
// draws its offsets, whether its result is turned from degrees to radians, and whether it
// has seed, rand and freq variables at all.
struct Group {
    const char* value;
    int k[3];
    int seedGroup;
    bool radians;
    bool seedRandFreq;
};

struct Modifier {
    const char* name;
    std::vector<Group> groups;
    // Sets every parameter, evaluates on the groom and returns each group's result for
    // strand 0.
    std::function<std::vector<float>(const std::vector<GroupInput>&, fixtures::Groom&)> run;
};

#define SET_GROUP(m, V, S, R, F, E, in) \
    m.V = (in).value; m.S = (in).seed; m.R = (in).rand; m.F = (in).freq; m.E = (in).expr

std::vector<Modifier> allModifiers() {
    const int dirK[3] = {127, 444, 195};
    auto grp = [](const char* v, const int (&k)[3], int seedGroup, bool radians = false, bool srf = true) {
        return Group{v, {k[0], k[1], k[2]}, seedGroup, radians, srf};
    };
    std::vector<Modifier> all;
    all.push_back({"width", {grp("tWidth", {681, 145, 347}, 0), grp("rWidth", {736, 761, 591}, 0)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZWidthModifier m;
                       SET_GROUP(m, tWidth, tSeed, tRand, tFreq, tExpr, p[0]);
                       SET_GROUP(m, rWidth, rSeed, rRand, rFreq, rExpr, p[1]);
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.tWidths[0], m.rWidths[0]};
                   }});
    all.push_back({"opacity", {grp("tOpacity", {540, 816, 959}, 0), grp("rOpacity", {171, 328, 913}, 0)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZOpacityModifier m;
                       SET_GROUP(m, tOpacity, tSeed, tRand, tFreq, tExpr, p[0]);
                       SET_GROUP(m, rOpacity, rSeed, rRand, rFreq, rExpr, p[1]);
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.tOpacities[0], m.rOpacities[0]};
                   }});
    all.push_back({"scale", {grp("scale", {851, 185, 382}, 0)}, [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZScaleModifier m;
                       SET_GROUP(m, scale, seed, rand, freq, expr, p[0]);
                       m.maskExpr = "";
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.scales[0]};
                   }});
    all.push_back({"cut", {grp("cut", {325, 589, 932}, 0)}, [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZCutModifier m;
                       SET_GROUP(m, cut, seed, rand, freq, expr, p[0]);
                       m.maskExpr = "";
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.cuts[0]};
                   }});
    all.push_back({"offset", {grp("offset", {546, 439, 785}, 0)}, [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZOffsetModifier m;
                       SET_GROUP(m, offset, seed, rand, freq, expr, p[0]);
                       m.maskExpr = "";
                       m.alongStrand = false;
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.offsets[0]};
                   }});
    all.push_back({"direction", {grp("pitch", dirK, 0, true), grp("yaw", dirK, 0, true)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZDirectionModifier m;
                       SET_GROUP(m, pitch, pitchSeed, pitchRand, pitchFreq, pitchExpr, p[0]);
                       SET_GROUP(m, yaw, yawSeed, yawRand, yawFreq, yawExpr, p[1]);
                       m.maskExpr = "";
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.pitchValues[0], m.yawValues[0]};
                   }});
    all.push_back({"bend",
                   {grp("bend", dirK, 0, true), grp("rate", dirK, 0), grp("start", dirK, 0, false, false),
                    grp("end", dirK, 0, false, false)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZBendModifier m;
                       SET_GROUP(m, bend, bendSeed, bendRand, bendFreq, bendExpr, p[0]);
                       SET_GROUP(m, rate, rateSeed, rateRand, rateFreq, rateExpr, p[1]);
                       m.start = p[2].value;
                       m.startExpr = p[2].expr;
                       m.end = p[3].value;
                       m.endExpr = p[3].expr;
                       m.maskExpr = "";
                       m.tipWeighted = true;
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.bendValues[0], m.rateValues[0], m.startValues[0], m.endValues[0]};
                   }});
    all.push_back({"clump", {grp("clump", {736, 668, 772}, 0), grp("rate", {960, 643, 993}, 1)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZClumpModifier m;
                       SET_GROUP(m, clump, clumpSeed, clumpRand, clumpFreq, clumpExpr, p[0]);
                       SET_GROUP(m, rate, rateSeed, rateRand, rateFreq, rateExpr, p[1]);
                       m.maskExpr = m.strayRatioExpr = m.strayAmountExpr = "";
                       m.keepLength = false;
                       m.rampType = 0;
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.clumpValues[0], m.rateValues[0]};
                   }});
    all.push_back({"kink",
                   {grp("kink", {253, 303, 885}, 0), grp("tWidth", {444, 342, 676}, 1),
                    grp("rWidth", {434, 783, 681}, 2)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZKinkModifier m;
                       SET_GROUP(m, kink, kinkSeed, kinkRand, kinkFreq, kinkExpr, p[0]);
                       SET_GROUP(m, tWidth, tWidthSeed, tWidthRand, tWidthFreq, tWidthExpr, p[1]);
                       SET_GROUP(m, rWidth, rWidthSeed, rWidthRand, rWidthFreq, rWidthExpr, p[2]);
                       m.maskExpr = "";
                       m.tipFade = m.rootFade = 0.f;
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.kinkValues[0], m.tWidthValues[0], m.rWidthValues[0]};
                   }});
    all.push_back({"frizz",
                   {grp("frizz", {489, 740, 114}, 0), grp("tWidth", {325, 512, 650}, 0),
                    grp("rWidth", {895, 323, 930}, 0)},
                   [](const std::vector<GroupInput>& p, fixtures::Groom& g) {
                       ZFrizzModifier m;
                       SET_GROUP(m, frizz, frizzSeed, frizzRand, frizzFreq, frizzExpr, p[0]);
                       SET_GROUP(m, tWidth, tWidthSeed, tWidthRand, tWidthFreq, tWidthExpr, p[1]);
                       SET_GROUP(m, rWidth, rWidthSeed, rWidthRand, rWidthFreq, rWidthExpr, p[2]);
                       m.maskExpr = "";
                       m.evaluate(g.f, g.c);
                       return std::vector<float>{m.frizzValues[0], m.tWidthValues[0], m.rWidthValues[0]};
                   }});
    return all;
}

float asResult(double value, bool radians) {
    return static_cast<float>(radians ? 0.01745329238474369 * value : value);
}

} // namespace

TEST(ModifierConstants, EveryGroupsOffsetsComeFromItsConstantsAndTheRightSeed) {
    // Strand 0 has nmp 0, so `x`, `y` and `z` are the group's three offsets. Every group
    // gets a seed of its own, so a group that draws from the wrong seed shows.
    const float seeds[] = {1.7f, 2.3f, 3.9f, 4.1f};
    for (const Modifier& mod : allModifiers()) {
        for (int axis = 0; axis < 3; ++axis) {
            std::vector<GroupInput> in;
            for (size_t gi = 0; gi < mod.groups.size(); ++gi)
                in.push_back({0.f, seeds[gi], 0.f, 1.f, std::string(1, "xyz"[axis])});
            auto groom = fixtures::straightGroom(3);
            const std::vector<float> got = mod.run(in, groom);
            for (size_t gi = 0; gi < mod.groups.size(); ++gi) {
                const Group& g = mod.groups[gi];
                const float product = static_cast<float>(g.k[axis]) * seeds[g.seedGroup];
                const float offset = ZRandomUnit(static_cast<uint32_t>(static_cast<int>(product)));
                EXPECT_EQ(got[gi], asResult(offset, g.radians))
                    << mod.name << " " << g.value << " axis " << axis << " k " << g.k[axis];
            }
        }
    }
}

TEST(ModifierConstants, EveryGroupsVariablesAreBoundToItsOwnParameters) {
    // Distinct powers of ten per variable: any variable read from another's slot changes
    // the digits. Groups without seed, rand and freq see their value only.
    for (const Modifier& mod : allModifiers()) {
        std::vector<GroupInput> in;
        std::vector<double> want;
        for (size_t gi = 0; gi < mod.groups.size(); ++gi) {
            const Group& g = mod.groups[gi];
            const float value = 0.25f * static_cast<float>(gi + 1), seed = 2.f + static_cast<float>(gi), rand = 3.f,
                        freq = 4.f;
            std::string expr = g.value;
            double expected = value;
            if (g.seedRandFreq) {
                expr += " + 10 * seed + 100 * rand + 1000 * freq";
                expected += 10.0 * seed + 100.0 * rand + 1000.0 * freq;
            }
            in.push_back({value, seed, rand, freq, expr});
            want.push_back(expected);
        }
        auto groom = fixtures::straightGroom(2);
        const std::vector<float> got = mod.run(in, groom);
        for (size_t gi = 0; gi < mod.groups.size(); ++gi)
            EXPECT_EQ(got[gi], asResult(want[gi], mod.groups[gi].radians)) << mod.name << " " << mod.groups[gi].value;
    }
}
