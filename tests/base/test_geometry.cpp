// Curves, meshes, boxes, frames, noise and the file-system helpers.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "base/UlmexBase.h"
#include "support/TestUtil.h"

using namespace Ulmex;

namespace {

ZCurves twoStrands() {
    ZCurves c;
    const ZVector a[] = {{0, 0, 0}, {0, 1, 0}, {1, 2, 0}, {1, 3, 1}};
    const ZVector b[] = {{5, 5, 5}, {5, 5, 7}};
    c.push(a, 4);
    c.push(b, 2);
    return c;
}

float dist(const ZVector& a, const ZVector& b) { return (a - b).length(); }

} // namespace

TEST(ZCurves, PassesThroughEveryCVAndEndsExactly) {
    const ZCurves c = twoStrands();
    EXPECT_EQ(c.position(0, 0.f), ZVector(0, 0, 0));
    EXPECT_EQ(c.position(0, 1.f), ZVector(1, 3, 1));
    EXPECT_EQ(c.position(1, 0.f), ZVector(5, 5, 5));
    EXPECT_EQ(c.position(1, 1.f), ZVector(5, 5, 7));
    EXPECT_LT(dist(c.position(0, 1.f / 3.f), ZVector(0, 1, 0)), 1e-6f);
    EXPECT_LT(dist(c.position(0, 2.f / 3.f), ZVector(1, 2, 0)), 1e-6f);
    // A two-CV strand is the straight segment.
    EXPECT_LT(dist(c.position(1, 0.25f), ZVector(5, 5, 5.5f)), 1e-6f);
}

TEST(ZCurves, IsSmoothAcrossCVsAndTangentIsTheDerivative) {
    const ZCurves c = twoStrands();
    const float h = 1e-3f;
    for (float t : {0.1f, 1.f / 3.f, 0.5f, 2.f / 3.f, 0.9f}) {
        ZVector p, d;
        c.getPositionAndTangent(0, t, p, d);
        EXPECT_LT(dist(p, c.position(0, t)), 1e-6f);
        // d is d/ds with s = 3t: compare with a central difference.
        const ZVector fd = (c.position(0, t + h) - c.position(0, t - h)) * (1.f / (2 * h * 3));
        EXPECT_LT(dist(d, fd), 2e-2f) << t;
    }
}

TEST(ZCurves, ExtrapolatesStraightPastTheEnds) {
    const ZCurves c = twoStrands();
    // Beyond the tip the curve continues along the last segment at the same speed.
    EXPECT_LT(dist(c.position(0, 4.f / 3.f), ZVector(1, 4, 2)), 1e-5f);
    EXPECT_LT(dist(c.position(0, -1.f / 3.f), ZVector(0, -1, 0)), 1e-5f);
    EXPECT_LT(dist(c.position(1, 3.f), ZVector(5, 5, 11)), 1e-5f);
}

TEST(ZCurves, AnyFloatIsSafeAndReadsOnlyItsStrand) {
    ZCurves c = twoStrands();
    const float weird[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                           -std::numeric_limits<float>::infinity(), 1e30f, -1e30f, 3.4e38f,
                           std::numeric_limits<float>::denorm_min()};
    for (float t : weird) {
        ZVector p, d;
        c.getPositionAndTangent(0, t, p, d);
        (void)c.position(1, t);
    }
    EXPECT_EQ(c.position(0, std::nanf("")), ZVector(0, 0, 0));
    EXPECT_EQ(c.position(0, std::numeric_limits<float>::infinity()), ZVector(1, 3, 1));
    // Strands with one CV and none.
    const ZVector one[] = {{2, 2, 2}};
    c.push(one, 1);
    c.push(nullptr, 0);
    EXPECT_EQ(c.position(2, 0.7f), ZVector(2, 2, 2));
    EXPECT_EQ(c.position(3, 0.7f), ZVector(0, 0, 0));
    EXPECT_EQ(c.lineLength(3), 0.f);
}

TEST(ZCurves, LengthBoxAndBinaryRoundTrip) {
    const ZCurves c = twoStrands();
    EXPECT_FLOAT_EQ(c.lineLength(0), 1.f + std::sqrt(2.f) + std::sqrt(2.f));
    const ZBoundingBox all = c.boundingBox(false, true);
    EXPECT_EQ(all.minPoint, ZVector(0, 0, 0));
    EXPECT_EQ(all.maxPoint, ZVector(5, 5, 7));
    const ZBoundingBox roots = c.boundingBox(true, false);
    EXPECT_EQ(roots.maxPoint, ZVector(5, 5, 5));
    EXPECT_FLOAT_EQ(all.width(2), 7.f);

    testutil::TempDir dir;
    const std::string path = dir.file("c.bin");
    {
        std::ofstream out(path, std::ios::binary);
        c.write(out);
        all.write(out);
        ZCurves().write(out);
    }
    std::ifstream in(path, std::ios::binary);
    ZCurves r, e = twoStrands();
    ZBoundingBox box;
    ASSERT_TRUE(r.read(in));
    box.read(in);
    ASSERT_TRUE(e.read(in));
    EXPECT_EQ(r, c);
    EXPECT_EQ(box, all);
    EXPECT_EQ(e.numCurves(), 0);
}

TEST(ZCurves, ReadRejectsStrandsOutsideTheirCVs) {
    testutil::TempDir dir;
    const std::string path = dir.file("bad.bin");
    ZCurves c = twoStrands();
    c.start[1] = 5;  // 5 + 2 > 6 CVs
    {
        std::ofstream out(path, std::ios::binary);
        c.write(out);
    }
    std::ifstream in(path, std::ios::binary);
    ZCurves r = twoStrands();
    EXPECT_FALSE(r.read(in));
    EXPECT_EQ(r.numCurves(), 0);
    EXPECT_TRUE(r.cvs.empty());

    // A strand without CVs would send every operation that reads a strand's root and tip
    // (lean axes, feather placement) outside the array: the record is refused.
    ZCurves empty;
    empty.numCVs = {0, 2};
    empty.start = {0, 0};
    empty.cvs = {ZVector(0, 0, 0), ZVector(0, 0, 1)};
    {
        std::ofstream out(path, std::ios::binary);
        empty.write(out);
    }
    std::ifstream in2(path, std::ios::binary);
    EXPECT_FALSE(r.read(in2));
    EXPECT_EQ(r.numCurves(), 0);
}

TEST(ZTriMesh, TransformBoxAndRoundTripWithIndexCheck) {
    ZTriMesh m;
    m.points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    m.v012 = {ZTuple<3, int>(0, 1, 2)};
    m.uvs = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    ZMatrix t;
    t(0, 3) = 10.f;  // translation in the last column
    t(1, 1) = 2.f;
    m.transform(t, false);
    EXPECT_EQ(m.points[2], ZVector(10, 2, 0));
    const ZBoundingBox b = m.boundingBox(true);
    EXPECT_EQ(b.minPoint, ZVector(10, 0, 0));
    EXPECT_EQ(b.maxPoint, ZVector(11, 2, 0));

    testutil::TempDir dir;
    const std::string path = dir.file("m.bin");
    {
        std::ofstream out(path, std::ios::binary);
        m.write(out);
        ZTriMesh bad = m;
        bad.v012[0][2] = 3;
        bad.write(out);
    }
    std::ifstream in(path, std::ios::binary);
    ZTriMesh r, r2;
    ASSERT_TRUE(r.read(in));
    EXPECT_EQ(r, m);
    EXPECT_FALSE(r2.read(in));
    EXPECT_EQ(r2.numTriangles(), 0);
}

TEST(ZAxis, BlendIsOrthonormalRightHandedAndInterpolatesOrigins) {
    std::mt19937 gen(3);
    std::uniform_real_distribution<float> d(-1.f, 1.f);
    auto randomFrame = [&]() {
        ZAxis a;
        a.origin = ZVector(d(gen), d(gen), d(gen)) * 10.f;
        a.zAxis = ZVector(d(gen), d(gen), d(gen)).normalized(false);
        a.xAxis = a.zAxis.cross(ZVector(d(gen), d(gen), d(gen))).normalized(false);
        a.yAxis = a.zAxis.cross(a.xAxis);
        return a;
    };
    for (int k = 0; k < 200; ++k) {
        const ZAxis a = randomFrame(), b = randomFrame(), c = randomFrame();
        float w0 = std::fabs(d(gen)), w1 = std::fabs(d(gen)), w2 = std::fabs(d(gen));
        const float s = w0 + w1 + w2;
        w0 /= s; w1 /= s; w2 /= s;
        ZAxis r;
        r.set(a, b, c, w0, w1, w2, true);
        EXPECT_NEAR(r.xAxis.length(), 1.f, 1e-5f);
        EXPECT_NEAR(r.yAxis.length(), 1.f, 1e-5f);
        EXPECT_NEAR(r.zAxis.length(), 1.f, 1e-5f);
        EXPECT_NEAR(r.xAxis.dot(r.yAxis), 0.f, 1e-5f);
        EXPECT_NEAR(r.xAxis.dot(r.zAxis), 0.f, 1e-5f);
        EXPECT_LT(dist(r.xAxis.cross(r.yAxis), r.zAxis), 1e-5f);
        EXPECT_LT(dist(r.origin, a.origin * w0 + b.origin * w1 + c.origin * w2), 1e-4f);
    }
    // Full weight on one corner reproduces that frame; opposing normals still give a frame.
    const ZAxis a = randomFrame(), b = randomFrame();
    ZAxis r;
    r.set(a, b, b, 1.f, 0.f, 0.f, true);
    EXPECT_LT(dist(r.zAxis, a.zAxis), 1e-6f);
    EXPECT_LT(dist(r.xAxis, a.xAxis), 1e-6f);
    ZAxis flipped = a;
    flipped.zAxis = -a.zAxis;
    r.set(a, flipped, a, 0.5f, 0.5f, 0.f, true);
    EXPECT_NEAR(r.zAxis.length(), 1.f, 1e-5f);
    EXPECT_NEAR(r.xAxis.dot(r.zAxis), 0.f, 1e-5f);
}

TEST(ZSimplexNoise, DeterministicSeededBoundedAndSmooth) {
    const ZSimplexNoise n0(0), n0b(0), n1(1);
    std::mt19937 gen(11);
    std::uniform_real_distribution<float> d(-100.f, 100.f);
    int differ = 0;
    float maxAbs = 0.f;
    for (int i = 0; i < 20000; ++i) {
        const float x = d(gen), y = d(gen), z = d(gen);
        const float v = n0.pureValue(x, y, z, nullptr, nullptr, nullptr);
        EXPECT_EQ(v, n0b.pureValue(x, y, z, nullptr, nullptr, nullptr));
        differ += v != n1.pureValue(x, y, z, nullptr, nullptr, nullptr);
        maxAbs = std::max(maxAbs, std::fabs(v));
        maxAbs = std::max(maxAbs, std::fabs(n0.pureValue(x, nullptr)));
    }
    EXPECT_LE(maxAbs, 1.f);
    EXPECT_GT(maxAbs, 0.5f);  // it uses its range
    EXPECT_GT(differ, 19000);
    // Lattice points of the 1D noise are zeros; zero is a lattice point in 3D too.
    EXPECT_EQ(n0.pureValue(3.f, nullptr), 0.f);
    EXPECT_EQ(n0.pureValue(0.f, 0.f, 0.f, nullptr, nullptr, nullptr), 0.f);
}

TEST(ZSimplexNoise, DerivativesMatchFiniteDifferences) {
    const ZSimplexNoise n(5);
    const float h = 1e-3f;
    std::mt19937 gen(2);
    std::uniform_real_distribution<float> d(-5.f, 5.f);
    for (int i = 0; i < 200; ++i) {
        const float x = d(gen), y = d(gen), z = d(gen);
        float dx, dy, dz, d1;
        n.pureValue(x, y, z, &dx, &dy, &dz);
        const auto f = [&](float a, float b, float c) { return n.pureValue(a, b, c, nullptr, nullptr, nullptr); };
        EXPECT_NEAR(dx, (f(x + h, y, z) - f(x - h, y, z)) / (2 * h), 0.05f);
        EXPECT_NEAR(dy, (f(x, y + h, z) - f(x, y - h, z)) / (2 * h), 0.05f);
        EXPECT_NEAR(dz, (f(x, y, z + h) - f(x, y, z - h)) / (2 * h), 0.05f);
        n.pureValue(x, &d1);
        EXPECT_NEAR(d1, (n.pureValue(x + h, nullptr) - n.pureValue(x - h, nullptr)) / (2 * h), 0.05f);
    }
}

TEST(ZSimplexNoise, HugeAndNonFiniteCoordinatesGiveZero) {
    const ZSimplexNoise n(0);
    float dx = 1, dy = 1, dz = 1;
    for (float v : {std::nanf(""), std::numeric_limits<float>::infinity(), 1e20f, -3e38f}) {
        EXPECT_EQ(n.pureValue(v, 0.f, 0.f, &dx, &dy, &dz), 0.f);
        EXPECT_EQ(dx, 0.f);
        EXPECT_EQ(n.pureValue(v, &dx), 0.f);
    }
    // Large but meaningful coordinates still work.
    (void)n.pureValue(1e7f, -1e7f, 3e6f, nullptr, nullptr, nullptr);
}

TEST(FileSystem, ExistCreateAndSystemInfo) {
    testutil::TempDir dir;
    const std::string sub = dir.file("cache");
    EXPECT_FALSE(ZFileExist(sub.c_str()));
    EXPECT_TRUE(ZCreateDirectory(sub.c_str(), 0755));
    EXPECT_TRUE(ZFileExist(sub.c_str()));
    EXPECT_TRUE(ZCreateDirectory(sub.c_str(), 0755));  // existing directory counts
    testutil::writeBytes(dir.file("f"), {'x'});
    EXPECT_FALSE(ZCreateDirectory(dir.file("f").c_str(), 0755));  // a file is in the way
    EXPECT_FALSE(ZCreateDirectory(dir.file("no/such/parent").c_str(), 0755));

    ZString info("stale");
    ZGetSystemInfo(info);
    ASSERT_FALSE(info.empty());
    EXPECT_EQ(info.back(), '\n');
    // Every white-space separated token is one "System..." key line the info reader skips.
    std::istringstream tokens(info);
    std::string tok;
    int lines = 0;
    while (tokens >> tok) {
        ++lines;
        std::vector<ZString> pieces;
        ZString(tok).split(":", pieces);
        ASSERT_EQ(pieces.size(), 2u) << tok;
        EXPECT_EQ(pieces[0].rfind("\"System", 0), 0u) << tok;
    }
    EXPECT_GE(lines, 3);
}
