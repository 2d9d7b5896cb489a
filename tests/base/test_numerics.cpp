// Bit-exact numeric helpers: the fast normalisation, Rodrigues' rotation, the hash.
#include <gtest/gtest.h>

#include <cmath>

#include "base/UlmexBase.h"
#include "support/TestUtil.h"

using namespace Ulmex;
using testutil::floatBits;

namespace {

// Reference bits computed independently in numpy float32 with the same steps
// (s = v.v + 1e-30, magic 0x5f3759df, one Newton step, v * y).
struct NormCase {
    ZVector in;
    uint32_t bits[3];
};
const NormCase kNormCases[] = {
    {{3.f, 4.f, 0.f}, {0x3f195c9b, 0x3f4c7b79, 0x0}},
    {{1.f, 1.f, 1.f}, {0x3f13ac3c, 0x3f13ac3c, 0x3f13ac3c}},
    {{0.1f, -2.5f, 7.25f}, {0x3c555d68, 0xbea6b0f9, 0x3f71b3d0}},
    {{1e-3f, 2e-3f, -5e-4f}, {0x3edf4626, 0x3f5f4626, 0xbe5f4626}},
};

} // namespace

TEST(FastNormalize, MatchesTheReferenceBitForBit) {
    for (const NormCase& c : kNormCases) {
        const ZVector r = fastNormalize(c.in);
        ZVector inPlace = c.in;
        inPlace.normalize(true);
        for (int k = 0; k < 3; ++k) {
            EXPECT_EQ(floatBits(r[k]), c.bits[k]) << "component " << k << " of " << c.in;
            EXPECT_EQ(floatBits(inPlace[k]), c.bits[k]) << "in-place component " << k;
        }
    }
}

TEST(FastNormalize, SingleNewtonStepIsNotAnExactUnitVector) {
    // One refinement step leaves a small, characteristic error: the result is close to
    // unit length but not exactly the true normalisation.
    const ZVector r = fastNormalize(ZVector(3.f, 4.f, 0.f));
    EXPECT_NE(r.x, 0.6f);
    EXPECT_NEAR(r.length(), 1.f, 2e-3f);
}

TEST(FastNormalize, ZeroStaysZeroAndAccuratePathDivides) {
    ZVector z(0.f, 0.f, 0.f);
    EXPECT_EQ(fastNormalize(z), ZVector(0.f, 0.f, 0.f));
    z.normalize(true);
    EXPECT_EQ(z, ZVector(0.f, 0.f, 0.f));
    z.normalize(false);
    EXPECT_EQ(z, ZVector(0.f, 0.f, 0.f));
    ZVector v(0.f, 3.f, 4.f);
    v.normalize(false);
    EXPECT_FLOAT_EQ(v.y, 0.6f);
    EXPECT_FLOAT_EQ(v.z, 0.8f);
}

TEST(Rotate, AgreesWithDoublePrecisionRodrigues) {
    const ZVector vs[] = {{1, 0, 0}, {0.3f, -1.2f, 2.f}, {5, 5, -5}};
    const ZVector axes[] = {{0, 0, 1}, {0.267261f, 0.534522f, 0.801784f}};
    const float angles[] = {0.f, 0.5f, -2.f, 3.14159265f};
    for (const ZVector& v : vs)
        for (const ZVector& a : axes)
            for (float ang : angles) {
                const ZVector r = Rotate(v, a, ang);
                const double c = std::cos(double(ang)), s = std::sin(double(ang));
                const double d = double(v.x) * a.x + double(v.y) * a.y + double(v.z) * a.z;
                const double cr[3] = {double(a.y) * v.z - double(a.z) * v.y, double(a.z) * v.x - double(a.x) * v.z,
                                      double(a.x) * v.y - double(a.y) * v.x};
                for (int k = 0; k < 3; ++k) {
                    const double want = v[k] * c + cr[k] * s + a[k] * (1 - c) * d;
                    EXPECT_NEAR(r[k], want, 1e-5 * (1 + std::fabs(want)));
                }
            }
}

TEST(Rotate, UsesTheAxisAsGiven) {
    // A non-unit axis is not normalised: the cross and parallel terms scale with it.
    const ZVector v(1.f, 0.f, 0.f);
    const ZVector r = Rotate(v, ZVector(0.f, 0.f, 2.f), 1.5707963f);
    EXPECT_NEAR(r.y, 2.f, 1e-6f);
    EXPECT_EQ(Rotate(v, ZVector(0, 0, 1), 0.f), v);
}

TEST(RandomHash, KnownValues) {
    EXPECT_EQ(ZRandomHash(0u), 0x09449553u);
    EXPECT_EQ(ZRandomHash(1u), 0x20b1b623u);
    EXPECT_EQ(ZRandomHash(2u), 0x71cabd6fu);
    EXPECT_EQ(ZRandomHash(12345391u), 0u);
    EXPECT_EQ(ZRandomUnit(12345391u), 0.f);
}

TEST(RandomUnit, IsTheHashScaledByTwoToTheMinus32RoundedToFloat) {
    EXPECT_NEAR(ZRandomUnit(681u), 0.774213f, 1e-6f);
    EXPECT_NEAR(ZRandomUnit(145u), 0.738520f, 1e-6f);
    EXPECT_NEAR(ZRandomUnit(347u), 0.835669f, 1e-6f);
    // Negative integer keys are taken by their unsigned bits.
    EXPECT_EQ(ZRandomUnit(static_cast<uint32_t>(-1)), ZRandomUnit(0xffffffffu));
    double sum = 0;
    for (uint32_t s = 0; s < 100000; ++s) {
        const float u = ZRandomUnit(s);
        ASSERT_GE(u, 0.f);
        ASSERT_LE(u, 1.f);
        sum += u;
    }
    EXPECT_NEAR(sum / 100000, 0.5, 0.01);
}
