// The lattice of a feather template and its placement along strands.
#include <gtest/gtest.h>

#include <cmath>

#include "FeatherFixtures.h"
#include "feathers/ZSource.h"
#include "support/TestUtil.h"

using namespace Ulmex;

namespace {

float dist(const ZVector& a, const ZVector& b) { return (a - b).length(); }

} // namespace

TEST(FeatherLattice, SizesQuadsRowsAndDepthFromTheNearestCV) {
    ZFeather f = fixtures::diamondFeather();
    for (int res : {0, 1, 2, -4, 3}) {
        f.latticeResolution = res;
        f.genLatticeForCurves();
        EXPECT_EQ(f.lattice.numVertices(), 12) << res;
        EXPECT_EQ(f.lattice.numQuads(), 6) << res;
    }
    f.latticeResolution = 5;
    f.initialize();
    ASSERT_EQ(f.lattice.numVertices(), 18);
    ASSERT_EQ(f.lattice.numQuads(), 10);
    EXPECT_EQ(f.lattice.quads[0], (ZTuple<4, int>(0, 1, 4, 3)));
    EXPECT_EQ(f.lattice.quads[1], (ZTuple<4, int>(1, 2, 5, 4)));
    EXPECT_EQ(f.lattice.quads[9], (ZTuple<4, int>(13, 14, 17, 16)));
    // Box of mesh and curves; rows rise in Y; columns maxX, centre, minX; depth 0.1 from the
    // shaft CVs everywhere.
    EXPECT_EQ(f.boundingBox.minPoint, ZVector(-0.5f, 0, 0));
    EXPECT_EQ(f.boundingBox.maxPoint, ZVector(0.5f, 2, 0.2f));
    for (int r = 0; r <= 5; ++r) {
        const float y = 0.f + static_cast<float>(r) * (2.f / 5.f);
        EXPECT_EQ(f.lattice.points[3 * r], ZVector(0.5f, y, 0.1f));
        EXPECT_EQ(f.lattice.points[3 * r + 1], ZVector(0.f, y, 0.1f));
        EXPECT_EQ(f.lattice.points[3 * r + 2], ZVector(-0.5f, y, 0.1f));
    }
    // Two curves at different depths: each lattice point takes the nearer one's.
    const ZVector left[] = {{-0.5f, 0, -0.3f}, {-0.5f, 2, -0.3f}};
    f.curves.push(left, 2);
    f.genLatticeForCurves();
    EXPECT_EQ(f.lattice.points[2].z, -0.3f);
    EXPECT_EQ(f.lattice.points[1].z, 0.1f);
}

TEST(FeatherLattice, InitializeNeedsAUsableMeshOrCurves) {
    ZFeather f = fixtures::diamondFeather();
    const ZBoundingBox box = f.boundingBox;
    const ZQuadMesh lattice = f.lattice;
    f.mesh.v012.clear();
    f.curves.cvs.clear();
    f.initialize();  // neither counts: box and lattice stay
    EXPECT_EQ(f.boundingBox, box);
    EXPECT_EQ(f.lattice, lattice);

    ZFeather meshOnly = fixtures::diamondFeather();
    meshOnly.curves.reset();
    meshOnly.initialize();
    EXPECT_EQ(meshOnly.boundingBox.maxPoint, ZVector(0.5f, 2, 0.2f));
    EXPECT_EQ(meshOnly.lattice.numVertices(), 0);
}

TEST(FeatherPlacement, RootOnTheRootTopOnTheTipWidthAlongTheSide) {
    const ZFeather f = fixtures::diamondFeather();
    ZFollicles fol;
    ZCurves strands;
    fixtures::strands(fol, strands);
    ZVectorArray out(f.mesh.points.size()), lat(f.lattice.points.size()), cv(f.curves.cvs.size());
    f.deform(fol, strands, 0, 1.f, 0.f, &out, &lat, &cv, false);
    EXPECT_LT(dist(out[0], ZVector(0, 0, 0)), 1e-6f);  // template root on the strand's root
    EXPECT_LT(dist(out[2], ZVector(0, 0, 2)), 1e-6f);  // top of the box on the tip
    // Side vector -y (from rxy (0, 1)); X of 0.5 maps 0.5 along it, scaled by ln1 / H = 1
    // and the fast normalisation's length.
    EXPECT_LT(dist(out[1], ZVector(0, -0.5f, 1)), 2e-3f);
    EXPECT_LT(dist(out[3], ZVector(0, 0.5f, 1)), 2e-3f);
    // Depth goes along b = q x T: for q = -y and T = z, -x.
    EXPECT_LT(dist(out[4], ZVector(-0.2f, 0, 1)), 2e-3f);
    EXPECT_LT(dist(cv[1], ZVector(-0.1f, 0, 1)), 2e-3f);
    EXPECT_LT(dist(lat[0], ZVector(-0.1f, -0.5f, 0)), 2e-3f);

    // scale widens and deepens, not lengthens; ln1 does all three.
    ZVectorArray wide(out.size());
    f.deform(fol, strands, 0, 2.f, 0.f, &wide, nullptr, nullptr, false);
    EXPECT_LT(dist(wide[1], ZVector(0, -1, 1)), 4e-3f);
    EXPECT_LT(dist(wide[2], ZVector(0, 0, 2)), 1e-6f);

    // Along the bent strand the template follows the curve: the top sits on its tip.
    f.deform(fol, strands, 1, 1.f, 0.f, &out, nullptr, nullptr, true);
    EXPECT_LT(dist(out[2], strands.cvs[strands.start[1] + 8]), 1e-5f);
    EXPECT_LT(dist(out[0], ZVector(0, 0, 0)), 1e-6f);
}

TEST(FeatherPlacement, FoldTurnsTheHalvesInOppositeSenses) {
    const ZFeather f = fixtures::diamondFeather();
    ZFollicles fol;
    ZCurves strands;
    fixtures::strands(fol, strands);
    ZVectorArray flat(5), folded(5);
    f.deform(fol, strands, 0, 1.f, 0.f, &flat, nullptr, nullptr, false);
    const float angle = 0.6f;
    f.deform(fol, strands, 0, 1.f, angle, &folded, nullptr, nullptr, false);
    // About the chord (z), the +X side turns by -angle and the -X side by +angle: both
    // edges leave the flat plane (x = 0) towards the same side, like a V.
    const ZVector mid(0, 0, 1), d(0, 0, 1);
    EXPECT_LT(dist(folded[1] - mid, Rotate(flat[1] - mid, d, -angle)), 2e-3f);
    EXPECT_LT(dist(folded[3] - mid, Rotate(flat[3] - mid, d, angle)), 2e-3f);
    EXPECT_NEAR(folded[1].x, folded[3].x, 1e-5f);
    EXPECT_LT(folded[1].x, -0.2f);
    // The centre line (X = 0) does not turn; root and tip stay.
    EXPECT_LT(dist(folded[0], flat[0]), 1e-6f);
    EXPECT_LT(dist(folded[2], flat[2]), 1e-6f);
}

TEST(FeatherPlacement, RotateLiesStraightAlongTheChord) {
    const ZFeather f = fixtures::diamondFeather();
    ZFollicles fol;
    ZCurves strands;
    fixtures::strands(fol, strands);
    ZVectorArray out(5);
    f.rotate(fol, strands, 1, 1.f, 0.f, &out, nullptr, nullptr);
    const ZVector root = strands.cvs[strands.start[1]], tip = strands.cvs[strands.start[1] + 8];
    const ZVector d = (tip - root).normalized(false);
    // The shaft points lie on the chord whatever the strand's bend.
    EXPECT_LT(dist(out[0], root), 1e-6f);
    EXPECT_LT(dist(out[2], root + d * (tip - root).length()), 5e-3f);
    const ZVector mid = out[4] - (out[4] - root).dot(d) * d - root;
    EXPECT_NEAR(mid.length(), 0.2f, 2e-3f);  // only the depth leaves the chord
}

TEST(FeatherPlacement, RotateAlwaysBlendsTheFoldBitForBit) {
    // rotate places each point at root + u d + (x k) q + (z k) b, with q always the
    // normalised blend of the side vector s and its folded turn, at angle 0 as well. The
    // expectation follows that recipe step by step on the bent strand, for a flat and a
    // folded placement; at angle 0 it must differ from taking q = s unblended, or the
    // test could not tell the two apart.
    const ZFeather f = fixtures::diamondFeather();
    ZFollicles fol;
    ZCurves strands;
    fixtures::strands(fol, strands);
    fol.rxy[1] = ZTuple<2, float>(0.6f, 0.8f);
    fol.ln1[1] = 2.5f;
    const int i = 1, first = strands.start[1], n = strands.numCVs[1];
    const ZVector root = strands.cvs[first], tip = strands.cvs[first + n - 1];
    const ZVector d = fastNormalize(tip - root);
    const ZBoundingBox& box = f.boundingBox;
    const float H = box.maxPoint.y - box.minPoint.y, invH = 1.f / H, L = (tip - root).length();
    const ZVector s = -fastNormalize(fol.axs[i].xAxis * fol.rxy[i][0] + fol.axs[i].yAxis * fol.rxy[i][1]);
    const float scale = 1.25f, k = invH * fol.ln1[i] * scale;
    auto place = [&](const ZVector& p, float angle, bool blend) {
        ZVector q = s;
        if (blend) {
            const bool plus = p.x > 0.f;
            const float w = plus ? p.x / (box.maxPoint.x + 1e-30f) : p.x / (box.minPoint.x - 1e-30f);
            q = fastNormalize(s * (1.f - w) + Rotate(s, d, plus ? -angle : angle) * w);
        }
        const ZVector P = root + d * ((p.y - box.minPoint.y) * invH * L);
        const ZVector b = fastNormalize(q.cross(d));
        return P + q * (p.x * k) + b * (p.z * k);
    };
    int blendShows = 0;
    for (float angle : {0.f, 0.6f}) {
        ZVectorArray out(f.mesh.points.size());
        f.rotate(fol, strands, i, scale, angle, &out, nullptr, nullptr);
        for (size_t j = 0; j < out.size(); ++j) {
            const ZVector want = place(f.mesh.points[j], angle, true);
            EXPECT_EQ(testutil::floatBits(out[j].x), testutil::floatBits(want.x)) << angle << " " << j;
            EXPECT_EQ(testutil::floatBits(out[j].y), testutil::floatBits(want.y)) << angle << " " << j;
            EXPECT_EQ(testutil::floatBits(out[j].z), testutil::floatBits(want.z)) << angle << " " << j;
            if (angle == 0.f && !(place(f.mesh.points[j], 0.f, false) == want)) ++blendShows;
        }
    }
    ASSERT_GT(blendShows, 0);
}

TEST(FeatherPlacement, DegenerateTemplatesAndStrands) {
    ZFollicles fol;
    ZCurves strands;
    fixtures::strands(fol, strands);

    // No height: the unmapped points, and every CV of the strand set for the curves.
    ZFeather flat = fixtures::diamondFeather();
    flat.boundingBox.maxPoint.y = flat.boundingBox.minPoint.y;
    ZVectorArray out(5), cv(1);
    flat.deform(fol, strands, 0, 1.f, 0.3f, &out, nullptr, &cv, true);
    EXPECT_EQ(out, flat.mesh.points);
    EXPECT_EQ(cv, strands.cvs);  // grown to the whole array

    // Strand bend on a two-CV strand: no side vector, everything collapses onto the strand.
    const ZFeather f = fixtures::diamondFeather();
    f.deform(fol, strands, 2, 1.f, 0.f, &out, nullptr, nullptr, true);
    for (const ZVector& p : out) {
        EXPECT_NEAR(p.x, 0.f, 1e-6f);
        EXPECT_NEAR(p.y, 0.f, 1e-6f);
    }
}

TEST(SourcePlacement, AlwaysBlendsTheFoldUnlikeTheFeather) {
    const ZFeather f = fixtures::diamondFeather();
    ZSource s;
    s.mesh = f.mesh;
    s.curves = f.curves;
    s.initialize();
    EXPECT_EQ(s.boundingBox, f.boundingBox);
    EXPECT_EQ(s.lattice, f.lattice);
    ZFollicles fol;
    ZCurves strands;
    fixtures::strands(fol, strands);
    ZVectorArray a(5), b(5);
    f.deform(fol, strands, 0, 1.f, 0.f, &a, nullptr, nullptr, false);
    s.deform(fol, strands, 0, 1.f, 0.f, &b, nullptr, nullptr, false);
    // At angle 0 the source re-normalises the side vector (one more fast step): the sides
    // land slightly differently, the shaft exactly the same.
    EXPECT_NE(a[1], b[1]);
    EXPECT_LT(dist(a[1], b[1]), 2e-3f);
    EXPECT_EQ(a[0], b[0]);
    EXPECT_EQ(a[2], b[2]);
}
