// The computing operations of the follicle set: rxy, root frames and the random setters.
#include <gtest/gtest.h>

#include <cmath>

#include "FollicleFixtures.h"
#include "support/TestUtil.h"

using namespace Ulmex;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// One strand per tip offset d (expressed in a world-aligned root frame at the origin).
ZFollicles strandsLeaning(const std::vector<ZVector>& tips, ZCurves& curves) {
    ZFollicles f;
    f.reset();
    curves.reset();
    for (const ZVector& d : tips) {
        f.tgl.push_back(0);
        f.axs.push_back(ZAxis());
        const ZVector cvs[] = {ZVector(0, 0, 0), d * 0.5f, d};
        curves.push(cvs, 3);
    }
    f.rxy.setLength(f.tgl.length(), true);
    return f;
}

} // namespace

TEST(CalcRxy, GeneralCaseGoesThroughTheFrameWithTheFastNormalisation) {
    ZCurves c;
    ZFollicles f = strandsLeaning({ZVector(3, 4, 10), ZVector(0, 0.001f, 1), ZVector(-2, 0, 1)}, c);
    ASSERT_TRUE(f.calcRxy(c, false));
    // p = -(y.d), q = x.d; rxy = fastNormalize(p x + q y) projected back.
    const ZVector w0 = fastNormalize(ZVector(-4, 3, 0));
    EXPECT_EQ(f.rxy[0][0], w0.x);
    EXPECT_EQ(f.rxy[0][1], w0.y);
    // |p| just at 0.001 is not degenerate.
    EXPECT_EQ(f.rxy[1][0], fastNormalize(ZVector(-0.001f, 0, 0)).x);
    EXPECT_EQ(f.rxy[1][1], 0.f);
    EXPECT_NEAR(f.rxy[2][1], -1.f, 2e-3f);

    // A frame that is not orthonormal keeps the route through 3D: not a unit 2D vector.
    ZFollicles g = f;
    g.axs[0].xAxis = ZVector(2, 0, 0);
    ASSERT_TRUE(g.calcRxy(c, false));
    EXPECT_GT(std::hypot(g.rxy[0][0], g.rxy[0][1]), 1.1f);
}

TEST(CalcRxy, DegenerateLeansPickAnAxisAndDropTheSign) {
    ZCurves c;
    ZFollicles f = strandsLeaning({ZVector(0, 0, 1),               // tip on the normal: |p| == |q|
                                   ZVector(0.0001f, 0.0005f, 1),    // p = -0.0005, q = 0.0001
                                   ZVector(-0.0009f, 0.0002f, 1)},  // |q| > |p|
                                  c);
    ASSERT_TRUE(f.calcRxy(c, true));
    EXPECT_EQ(f.rxy[0], (ZTuple<2, float>(0.f, 1.f)));
    EXPECT_EQ(f.rxy[1], (ZTuple<2, float>(1.f, 0.f)));
    EXPECT_EQ(f.rxy[2], (ZTuple<2, float>(0.f, 1.f)));
}

TEST(CalcRxy, EmptySetAndCountMismatch) {
    ZFollicles empty;
    empty.reset();
    EXPECT_TRUE(empty.calcRxy(ZCurves(), true));
    ZCurves c;
    ZFollicles f = strandsLeaning({ZVector(1, 0, 1), ZVector(0, 1, 1)}, c);
    const ZFloat2Array before = f.rxy;
    c.numCVs.pop_back();
    c.start.pop_back();
    CaptureStdout();
    EXPECT_FALSE(f.calcRxy(c, true));
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(f.rxy, before);
}

namespace {

// A flat quad of two triangles with distinct frames at its four corners.
void quad(ZTriMesh& mesh, ZAxisArray& frames) {
    mesh.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    mesh.v012 = {ZTuple<3, int>(0, 1, 2), ZTuple<3, int>(0, 2, 3)};
    mesh.uvs = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    frames.assign(4, ZAxis());
    for (int i = 0; i < 4; ++i) {
        frames[i].origin = mesh.points[i];
        frames[i].zAxis = ZVector(0.1f * i, 0, 1).normalized(false);
        frames[i].xAxis = ZVector(1, 0, -0.1f * i).normalized(false);
        frames[i].yAxis = frames[i].zAxis.cross(frames[i].xAxis);
    }
}

} // namespace

TEST(UpdateAxes, BlendsTheCornerFramesOfEachRootTriangle) {
    ZTriMesh mesh;
    ZAxisArray frames;
    quad(mesh, frames);
    ZFollicles f;
    f.reset();
    f.tgl = {0, 1, 1};
    f.bcc = {ZTuple<3, float>(1, 0, 0), ZTuple<3, float>(0.25f, 0.25f, 0.5f), ZTuple<3, float>(0, 0, 1)};
    f.axs.setLength(3, true);
    ASSERT_TRUE(f.updateAxes(mesh, frames, true));
    EXPECT_EQ(f.axs[0].origin, ZVector(0, 0, 0));
    EXPECT_LT((f.axs[0].zAxis - frames[0].zAxis).length(), 1e-6f);
    EXPECT_LT((f.axs[1].origin - ZVector(0.25f, 0.75f, 0)).length(), 1e-6f);
    EXPECT_LT((f.axs[2].zAxis - frames[3].zAxis).length(), 1e-6f);
    EXPECT_LT((f.axs[2].origin - ZVector(0, 1, 0)).length(), 1e-6f);
}

TEST(UpdateAxes, RejectsEachKindOfBadInputWithTheMessage) {
    ZTriMesh mesh;
    ZAxisArray frames;
    quad(mesh, frames);
    ZFollicles f;
    f.reset();
    f.tgl = {0};
    f.bcc = {ZTuple<3, float>(1, 0, 0)};
    f.axs.setLength(1, true);
    f.axs[0].origin = ZVector(9, 9, 9);

    auto expectRejected = [&](const ZTriMesh& m, const ZAxisArray& fr) {
        CaptureStdout();
        EXPECT_FALSE(f.updateAxes(m, fr, true));
        EXPECT_EQ(GetCapturedStdout(), "Error@ZFollicles::setLocalAxes(): Invalid input data.\n");
        EXPECT_EQ(f.axs[0].origin, ZVector(9, 9, 9));
    };
    ZAxisArray shortFrames(frames.begin(), frames.end() - 1);
    expectRejected(mesh, shortFrames);
    ZAxisArray longFrames = frames;  // one frame too many is as wrong as one too few
    longFrames.push_back(ZAxis());
    expectRejected(mesh, longFrames);
    ZTriMesh noUvs = mesh;
    noUvs.uvs.clear();
    expectRejected(noUvs, frames);
    ZTriMesh noTriangles = mesh;
    noTriangles.v012.clear();
    expectRejected(noTriangles, frames);
    expectRejected(ZTriMesh(), ZAxisArray());

    // An empty set accepts anything.
    ZFollicles empty;
    empty.reset();
    CaptureStdout();
    EXPECT_TRUE(empty.updateAxes(ZTriMesh(), ZAxisArray(), true));
    EXPECT_EQ(GetCapturedStdout(), "");
}

TEST(RandomSetters, OneDrawPerUidSharedByAllFourAttributes) {
    ZFollicles f = fixtures::makeFollicles(500);
    f.setTipWidth(0.1f, 0.3f, true);
    const ZFloatArray first = f.twh;
    f.setTipWidth(0.1f, 0.3f, false);
    EXPECT_EQ(f.twh, first);
    f.setRootWidth(0.1f, 0.3f, true);
    f.setTipOpacity(0.1f, 0.3f, true);
    f.setRootOpacity(0.1f, 0.3f, true);
    EXPECT_EQ(f.rwh, first);
    EXPECT_EQ(f.top, first);
    EXPECT_EQ(f.rop, first);
    for (int i = 0; i < f.numStrands(); ++i) {
        const float r = ZRandomUnit(static_cast<uint32_t>(f.uid[i]));
        EXPECT_EQ(f.twh[i], (0.3f - 0.1f) * r + 0.1f);
    }

    // The value follows the uid, not the position of the strand.
    ZFollicles g = f;
    std::swap(g.uid[0], g.uid[7]);
    g.setTipWidth(0.1f, 0.3f, true);
    EXPECT_EQ(g.twh[0], f.twh[7]);

    f.setTipWidth(0.4f, 0.4f, true);
    for (float v : f.twh) EXPECT_EQ(v, 0.4f);
    f.setTipWidth(1.f, -1.f, true);  // max below min is legal
    for (float v : f.twh) {
        EXPECT_LE(v, 1.f);
        EXPECT_GE(v, -1.f);
    }
}

TEST(RootGetters, SizeZeroAndCopyWithoutStaleEntries) {
    ZFollicles f = fixtures::makeFollicles(3);
    f.axs[1].zAxis = ZVector(0, 1, 0);
    ZVectorArray out(10, ZVector(7, 7, 7));
    f.getRootPositions(out);
    ASSERT_EQ(out.length(), 3);
    EXPECT_EQ(out[2], f.axs[2].origin);
    f.getRootNormals(out);
    ASSERT_EQ(out.length(), 3);
    EXPECT_EQ(out[1], ZVector(0, 1, 0));
    ZFollicles empty;
    empty.reset();
    empty.getRootPositions(out);
    EXPECT_TRUE(out.empty());
}
