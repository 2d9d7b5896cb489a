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
    EXPECT_EQ(def.message(), "");
    EXPECT_EQ(ZExpression("1 + 2").message(), "");
    EXPECT_EQ(ZExpression("$nope * 2").message(), "No variable named 'nope' (at character 0)");
    EXPECT_EQ(ZExpression("nosuchfunc(1)").message().rfind("No function named 'nosuchfunc'", 0), 0u);
    EXPECT_EQ(ZExpression("u +* 3").message().rfind("Syntax error", 0), 0u);
}

// KSeExpr prepares and frees an expression by recursion over its tree, so a text that nests
// deeply would overflow the stack of the thread preparing it. Texts past the limits are
// invalid, with their message, on the main thread and on a thread with a 256 KiB stack; a
// text at the limit still works there.
TEST(ZExpression, TooLongOrTooDeepIsInvalidOnAnyThread) {
    auto chain = [](const char* op, int terms) {
        std::string s = "1";
        for (int i = 1; i < terms; ++i) s += op + std::string("1");
        return s;
    };
    auto calls = [](int n) { return [n] {
        std::string s;
        for (int i = 0; i < n; ++i) s += "abs(";
        return s + "1" + std::string(static_cast<size_t>(n), ')');
    }(); };
    const std::string flatSum = chain("+", 60000), longSum = chain("+", ZExpression::kMaxDepth + 2);
    const std::string deepCalls = calls(ZExpression::kMaxDepth / 3 + 1);
    std::string longText(ZExpression::kMaxLength + 1, ' ');
    longText[0] = '1';
    struct Case {
        std::string text;
        double value;
        const char* message;
    };
    const std::vector<Case> cases = {
        {flatSum, 0.0, "Too long"}, {longSum, 0.0, "Too deep"}, {deepCalls, 0.0, "Too deep"},
        {longText, 0.0, "Too long"},
        // At the limits: many statements and arguments, each shallow, are fine.
        {chain("+", ZExpression::kMaxDepth + 1), ZExpression::kMaxDepth + 1.0, ""},
        {calls(ZExpression::kMaxDepth / 3), 1.0, ""},
        {"a = " + chain("+", 200) + "; b = " + chain("+", 200) + "; a + b", 400.0, ""},
        {"# " + std::string(5000, '(') + "\n2", 2.0, ""}};
    auto check = [&] {
        for (const Case& c : cases) {
            ZExpression e(c.text);
            EXPECT_EQ(e.evaluate()[0], c.value) << c.text.substr(0, 40);
            EXPECT_EQ(e.message().rfind(c.message, 0), 0u) << e.message();
            ZExpression later;
            later.setExpr(c.text);
            EXPECT_EQ(later.message(), e.message());
        }
    };
    check();
#if !defined(__has_feature)
#define __has_feature(x) 0
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || __has_feature(address_sanitizer) || \
    __has_feature(thread_sanitizer)
    const size_t stack = 4096 * 1024;  // instrumented frames are several times larger
#else
    const size_t stack = 256 * 1024;
#endif
    EXPECT_TRUE(testutil::onThreadWithStack(stack, check));
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
