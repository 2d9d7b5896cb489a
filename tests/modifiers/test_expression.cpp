// ZExpression: variables by name, znoise, scalar results, and failure as zero.
#include <gtest/gtest.h>

#include <omp.h>

#include <cmath>
#include <vector>

#include "base/UlmexBase.h"
#include "modifiers/ZExpression.h"
#include "support/TestUtil.h"

using namespace Ulmex;

namespace {

double eval(const std::string& text, std::initializer_list<std::pair<const char*, float>> vars) {
    ZExpression e(text);
    for (const auto& v : vars) e.variables[v.first].value = v.second;
    return e.evaluate()[0];
}

} // namespace

TEST(ZExpression, VariablesWithOrWithoutDollarAndHeldReferences) {
    EXPECT_DOUBLE_EQ(eval("$u * 2 + v", {{"u", 0.25f}, {"v", 1.f}}), 1.5);
    EXPECT_DOUBLE_EQ(eval("u * 2 + $v", {{"u", 0.25f}, {"v", 1.f}}), 1.5);
    // Values are single precision: 0.1f widened, not 0.1.
    EXPECT_EQ(eval("u", {{"u", 0.1f}}), static_cast<double>(0.1f));

    ZExpression e("id * 10 + seed");
    float& id = e.variables["id"].value;
    e.variables["seed"].value = 3.f;
    for (int i = 0; i < 5; ++i) {
        id = static_cast<float>(i);
        EXPECT_DOUBLE_EQ(e.evaluate()[0], i * 10.0 + 3.0);
    }
    // Scalar result in every component; local assignments and the language's own
    // functions work.
    const KSeExpr::Vec3d r = ZExpression("a = u * 3; clamp(a, 0, 1) + floor(2.5)").evaluate();
    ZExpression local("a = u * 3; clamp(a, 0, 1) + floor(2.5)");
    local.variables["u"].value = 0.2f;
    EXPECT_NEAR(local.evaluate()[0], 2.6, 1e-6);
    EXPECT_EQ(r[0], 0.0);  // "u" unknown there: invalid, so zero
}

TEST(ZExpression, InvalidExpressionsEvaluateToZero) {
    for (const char* text : {"", "   ", "1 +", "unknownVar * 2", "$nope", "nosuchfunc(1)", "znoise(1, 2)",
                             "znoise(1, 2, 3, 4, 5)", "(((", "u +* 3"}) {
        ZExpression e(text);
        e.variables["u"].value = 1.f;
        const KSeExpr::Vec3d r = e.evaluate();
        EXPECT_EQ(r[0], 0.0) << text;
        EXPECT_EQ(r[1], 0.0) << text;
    }
    ZExpression def;
    EXPECT_TRUE(def.ready);
    EXPECT_EQ(def.evaluate()[0], 0.0);
}

TEST(ZExpression, ResolveLooksOnlyInTheMapAndForZnoise) {
    ZExpression e("u");
    EXPECT_EQ(e.resolveVar("u"), nullptr);
    e.variables["u"].value = 2.f;
    EXPECT_EQ(e.resolveVar("u"), &e.variables["u"]);
    EXPECT_EQ(e.resolveVar("U"), nullptr);
    EXPECT_EQ(e.resolveFunc("znoise"), &e.znoiseFunc);
    EXPECT_EQ(e.resolveFunc("noise"), nullptr);
    EXPECT_EQ(e.evaluate()[0], 2.0);
}

TEST(ZExpression, ZnoiseIsTheSharedFieldWithFrequencyFirst) {
    EXPECT_EQ(ZExpression::noise.seed(), 0u);
    const ZSimplexNoise seed0(0);
    const double v = eval("znoise(freq, x, y, z)", {{"freq", 2.f}, {"x", 0.3f}, {"y", -1.1f}, {"z", 4.f}});
    const float px = static_cast<float>(2.0 * static_cast<double>(0.3f));
    const float py = static_cast<float>(2.0 * static_cast<double>(-1.1f));
    const float pz = static_cast<float>(2.0 * static_cast<double>(4.f));
    EXPECT_EQ(v, static_cast<double>(seed0.pureValue(px, py, pz, nullptr, nullptr, nullptr)));
    EXPECT_NE(v, 0.0);
    // Frequency 0 samples the origin whatever the position.
    const double atOrigin = seed0.pureValue(0.f, 0.f, 0.f, nullptr, nullptr, nullptr);
    EXPECT_EQ(eval("znoise(0, u, 7, -3)", {{"u", 123.f}}), atOrigin);
    EXPECT_EQ(ZExpression::znoiseFuncHelper(0.0, 5.0, 6.0, 7.0), atOrigin);
}

TEST(ZExpression, EvaluatorsInManyThreadsAgree) {
    const char* text = "0.5 + 0.5 * znoise(4, $u, $v, id * 0.01) * (u > 0.3 ? 1 : -1)";
    const int n = 4000;
    auto run = [&](int threads) {
        std::vector<double> out(n);
        testutil::withThreads(threads, [&] {
            #pragma omp parallel
            {
                // One evaluator per thread, built inside the region.
                ZExpression e(text);
                float& u = e.variables["u"].value;
                float& v = e.variables["v"].value;
                float& id = e.variables["id"].value;
                #pragma omp for schedule(static)
                for (int i = 0; i < n; ++i) {
                    u = static_cast<float>(i % 97) / 97.f;
                    v = static_cast<float>(i % 89) / 89.f;
                    id = static_cast<float>(i);
                    out[i] = e.evaluate()[0];
                }
            }
            return 0;
        });
        return out;
    };
    const std::vector<double> one = run(1);
    const std::vector<double> four = run(4);
    EXPECT_EQ(one, four);
    int distinct = 0;
    for (int i = 1; i < n; ++i) distinct += one[i] != one[i - 1];
    EXPECT_GT(distinct, n / 2);
}
