// The host toolkit: body frames against a sphere's analytic frames, projection against a
// search of every triangle, grooms from curves, and the same bits at any thread count.
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>

#include "common/BuiltinGroom.h"
#include "toolkit/ZBodyFrames.h"
#include "toolkit/ZGroomFromCurves.h"
#include "toolkit/ZGuideBinder.h"
#include "toolkit/ZRootGrower.h"
#include "toolkit/ZRootProjector.h"

using namespace Ulmex;

namespace {

template <typename T>
bool sameBits(const ZArray<T>& a, const ZArray<T>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

template <typename F>
auto atThreads(int n, F&& f) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(n);
    auto out = f();
    omp_set_num_threads(before);
    return out;
}

// Points spread over space around the unit sphere, from the system hash.
ZVectorArray scattered(int n, float spread) {
    ZVectorArray p(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) {
        const uint32_t k = 3u * static_cast<uint32_t>(i);
        p[i] = ZVector(ZRandomUnit(k) - 0.5f, ZRandomUnit(k + 1u) - 0.5f, ZRandomUnit(k + 2u) - 0.5f) * spread;
    }
    return p;
}

} // namespace

TEST(BodyFrames, FollowTheSphereAndItsLongitudeAtAnyThreadCount) {
    ZTriMesh body;
    examples::buildSphere(1.f, 24, 48, body);
    const ZAxisArray analytic = examples::sphereFrames(1.f, 24, 48);
    ZBodyFrames frames;
    ASSERT_TRUE(frames.build(body));
    const ZAxisArray one = atThreads(1, [&] { ZAxisArray a; EXPECT_TRUE(frames.compute(body, a)); return a; });
    ASSERT_EQ(one.length(), body.numVertices());
    int checked = 0;
    for (int v = 48; v < body.numVertices() - 48; ++v) {  // the poles' rings have no one longitude
        if (v % 48 == 0) continue;  // the seam: u jumps from 1 back to 0 across it
        EXPECT_GT(one[v].zAxis.dot(analytic[v].zAxis), 0.999f) << v;
        EXPECT_GT(one[v].xAxis.dot(analytic[v].xAxis), 0.99f) << v;
        EXPECT_NEAR(one[v].xAxis.dot(one[v].zAxis), 0.f, 1e-5f);
        EXPECT_EQ(one[v].origin, body.points[v]);
        ++checked;
    }
    EXPECT_GT(checked, 1000);
    for (int t : {2, 64}) {
        const ZAxisArray other = atThreads(t, [&] { ZAxisArray a; frames.compute(body, a); return a; });
        EXPECT_TRUE(sameBits(one, other)) << t << " threads";
    }
    // Without UVs the x axis still lies in the surface; another topology is refused.
    ZTriMesh bare = body;
    bare.uvs.clear();
    ZAxisArray plain;
    ASSERT_TRUE(frames.compute(bare, plain));
    EXPECT_NEAR(plain[100].xAxis.dot(plain[100].zAxis), 0.f, 1e-5f);
    bare.v012.pop_back();
    EXPECT_FALSE(frames.compute(bare, plain));
    ZTriMesh broken = body;
    broken.v012[0][1] = body.numVertices();
    EXPECT_FALSE(ZBodyFrames().build(broken));
}

TEST(RootProjector, FindsTheNearestTriangleExactlyAndPointsOnTheBodyStay) {
    ZTriMesh body;
    examples::buildSphere(1.f, 16, 32, body);
    ZRootProjector projector;
    ASSERT_TRUE(projector.build(body));
    // Points in space: the tree's answer is the one a search of every triangle gives.
    const ZVectorArray points = scattered(3000, 3.f);
    ZFollicles f;
    ZFloatArray distances;
    ASSERT_TRUE(projector.project(points, f, &distances));
    for (int i = 0; i < points.length(); ++i) {
        int best = -1;
        float bestD = 0.f;
        for (int t = 0; t < body.numTriangles(); ++t) {
            // A one-triangle body of triangle t gives the distance to it alone.
            ZTriMesh one;
            one.points = {body.points[body.v012[t][0]], body.points[body.v012[t][1]], body.points[body.v012[t][2]]};
            one.v012 = {ZTuple<3, int>(0, 1, 2)};
            ZRootProjector single;
            single.build(one);
            ZTuple<3, float> w;
            float d = 0.f;
            single.nearest(points[i], w, d);
            if (best < 0 || d < bestD) best = t, bestD = d;
        }
        // The same distance; another triangle only where two lie at it (a shared corner).
        ASSERT_EQ(distances[i], bestD) << i;
        if (i >= 200) break;  // the full search is slow: 200 points are compared with it
    }
    // Points on the body come back onto themselves, on their own triangle.
    ZVectorArray on;
    ZIntArray where;
    for (int i = 0; i < 500; ++i) {
        const int t = static_cast<int>(ZRandomHash(7u * static_cast<uint32_t>(i)) % static_cast<uint32_t>(body.numTriangles()));
        const float a = 0.1f + 0.3f * ZRandomUnit(7u * i + 1u), b = 0.1f + 0.3f * ZRandomUnit(7u * i + 2u);
        const ZTuple<3, int>& v = body.v012[t];
        on.push_back(body.points[v[0]] * (1.f - a - b) + body.points[v[1]] * a + body.points[v[2]] * b);
        where.push_back(t);
    }
    ZFollicles g;
    ASSERT_TRUE(projector.project(on, g, &distances));
    for (int i = 0; i < on.length(); ++i) {
        EXPECT_EQ(g.tgl[i], where[i]) << i;
        EXPECT_LT(distances[i], 1e-6f);
        EXPECT_LT((g.nmp[i] - on[i]).length(), 1e-6f);
        const ZVector uv = body.uvs[3 * where[i]] * g.bcc[i][0] + body.uvs[3 * where[i] + 1] * g.bcc[i][1] +
                           body.uvs[3 * where[i] + 2] * g.bcc[i][2];
        EXPECT_EQ(g.uvw[i].x, uv.x);
    }
    // The same bits at any thread count; points that are not numbers are refused.
    for (int t : {1, 2, 64}) {
        ZFollicles h;
        atThreads(t, [&] { return projector.project(points, h, nullptr); });
        EXPECT_TRUE(sameBits(h.tgl, f.tgl) && sameBits(h.bcc, f.bcc) && sameBits(h.nmp, f.nmp)) << t;
    }
    ZVectorArray bad = on;
    bad[3].y = std::nanf("");
    EXPECT_FALSE(projector.project(bad, g, nullptr));
    EXPECT_EQ(g.tgl.length(), on.length());  // unchanged
    EXPECT_FALSE(ZRootProjector().build(ZTriMesh()));
}

TEST(GroomFromCurves, PinnedGuidesBecomeAGroomOnTheBody) {
    ZTriMesh body;
    examples::buildSphere(1.f, 16, 32, body);
    ZBodyFrames bf;
    ZAxisArray frames;
    ASSERT_TRUE(bf.build(body) && bf.compute(body, frames));
    // Guides as Blender writes them: pinned catmull-rom, a width per point, in an object
    // space 3 units off along x (the world matrix brings them back onto the body).
    ZAlembicCurves in;
    in.type = ZAlembicCurves::kCubic;
    in.basis = ZAlembicCurves::kCatmullRom;
    const ZVector roots[3] = {ZVector(0, 1, 0), ZVector(1, 0, 0).normalized(false), ZVector(0, 0.6f, 0.8f)};
    for (int i = 0; i < 3; ++i) {
        const int n = 3 + i;
        for (int j = -1; j <= n; ++j) {
            const int k = std::min(std::max(j, 0), n - 1);
            in.points.push_back(roots[i] * (1.f + 0.1f * static_cast<float>(k)) - ZVector(3, 0, 0));
            in.widths.push_back(0.02f - 0.001f * static_cast<float>(k));
        }
        in.counts.push_back(n + 2);
        in.ids.push_back(40 + i);
    }
    in.worldMatrix(0, 3) = 3.f;
    ZGroomFromCurves g;
    ZFollicles f;
    ZCurves strands;
    ASSERT_TRUE(g.build(in, body, frames, f, strands)) << g.message;
    ASSERT_EQ(f.numStrands(), 3);
    for (int i = 0; i < 3; ++i) {
        const int n = 3 + i;
        EXPECT_EQ(strands.numCVs[i], n);  // the doubled ends are gone
        EXPECT_EQ(strands.cvs[strands.start[i]], roots[i] * 1.f - ZVector(3, 0, 0) + ZVector(3, 0, 0));
        EXPECT_EQ(f.uid[i], 40 + i);
        EXPECT_EQ(f.rwh[i], 0.02f);
        EXPECT_FLOAT_EQ(f.twh[i], 0.02f - 0.001f * static_cast<float>(n - 1));
        EXPECT_NEAR(f.ln0[i], 0.1f * static_cast<float>(n - 1), 1e-5f);
        EXPECT_LT((f.nmp[i] - roots[i]).length(), 1e-2f);  // on the faceted sphere, near the root
        EXPECT_GT(f.axs[i].zAxis.dot(roots[i]), 0.99f);
    }
    ASSERT_EQ(f.bdi.numSets(), 3);
    EXPECT_EQ(f.bdi(2, 0), 2);  // its own guide
    EXPECT_EQ(f.maxLn0, f.ln0[2]);
    // Roots off the body: how many and how far; nothing else is left behind.
    in.worldMatrix(0, 3) = 0.f;
    EXPECT_FALSE(g.build(in, body, frames, f, strands));
    EXPECT_NE(g.message.find("3 of 3 curve roots lie farther than"), std::string::npos) << g.message;
    EXPECT_EQ(f.numStrands(), 0);
    EXPECT_EQ(strands.numCurves(), 0);
    EXPECT_FALSE(g.build(in, ZTriMesh(), ZAxisArray(), f, strands));
    EXPECT_NE(g.message.find("no triangles"), std::string::npos) << g.message;
}

namespace {

// A flat body of size x size unit cells (two triangles each) in the xz plane, UVs from the
// position over the size.
ZTriMesh grid(int size) {
    ZTriMesh body;
    for (int r = 0; r <= size; ++r)
        for (int c = 0; c <= size; ++c) body.points.push_back(ZVector(float(c), 0.f, float(r)));
    auto at = [size](int r, int c) { return r * (size + 1) + c; };
    auto uv = [&](int p) { return ZVector(body.points[p].x / float(size), body.points[p].z / float(size), 0.f); };
    for (int r = 0; r < size; ++r)
        for (int c = 0; c < size; ++c)
            for (const ZTuple<3, int>& t : {ZTuple<3, int>(at(r, c), at(r + 1, c), at(r, c + 1)),
                                            ZTuple<3, int>(at(r, c + 1), at(r + 1, c), at(r + 1, c + 1))}) {
                body.v012.push_back(t);
                for (int k = 0; k < 3; ++k) body.uvs.push_back(uv(t[k]));
            }
    return body;
}

// Pearson's statistic of counts against expected shares.
double chiSquare(const std::vector<int>& counts, const std::vector<double>& shares, int total) {
    double sum = 0.0;
    for (size_t i = 0; i < counts.size(); ++i) {
        const double e = shares[i] * total;
        sum += (counts[i] - e) * (counts[i] - e) / e;
    }
    return sum;
}

} // namespace

TEST(RootGrower, FollowsTheDensityAndGivesTheSameRootsForASeed) {
    const ZTriMesh body = grid(10);
    ZRootGrower g;
    g.seed = 7;
    // A weight rising along x: 1 at x = 0, 4 at x = 10.
    for (const ZVector& p : body.points) g.pointDensity.push_back(1.f + 0.3f * p.x);
    const int n = 20000;
    ZFollicles f;
    ASSERT_TRUE(g.grow(body, n, f)) << g.message;
    EXPECT_TRUE(g.message.empty());
    std::vector<int> columns(10, 0);
    for (int i = 0; i < n; ++i) {
        EXPECT_LT((f.nmp[i] - (body.points[body.v012[f.tgl[i]][0]] * f.bcc[i][0] +
                               body.points[body.v012[f.tgl[i]][1]] * f.bcc[i][1] +
                               body.points[body.v012[f.tgl[i]][2]] * f.bcc[i][2])).length(), 1e-5f);
        ++columns[std::min(9, static_cast<int>(f.nmp[i].x))];
    }
    // A column's share: the integral of the weight over it, 1 + 0.3 x at its middle.
    std::vector<double> shares;
    for (int c = 0; c < 10; ++c) shares.push_back((1.0 + 0.3 * (c + 0.5)) / (10.0 + 0.3 * 50.0));
    EXPECT_LT(chiSquare(columns, shares, n), 27.9);  // 9 degrees of freedom, p = 0.001

    // The same roots at any thread count, and the first of a larger growth.
    for (int t : {1, 2, 64}) {
        ZFollicles h;
        atThreads(t, [&] { return g.grow(body, n, h); });
        EXPECT_TRUE(sameBits(h.tgl, f.tgl) && sameBits(h.bcc, f.bcc) && sameBits(h.uvw, f.uvw)) << t;
    }
    ZFollicles more;
    ASSERT_TRUE(g.grow(body, n + 500, more));
    EXPECT_EQ(std::memcmp(more.bcc.data(), f.bcc.data(), sizeof(f.bcc[0]) * n), 0);
    g.seed = 8;
    ZFollicles other;
    ASSERT_TRUE(g.grow(body, n, other));
    EXPECT_FALSE(sameBits(other.bcc, f.bcc));

    // A map through the UVs: the left half four times as dense as the right.
    float pixels[2] = {1.f, 0.25f};
    ZImageMap map;
    map.width = 2;
    map.height = 1;
    map.numChannels = 1;
    map.pixels = pixels;
    g.pointDensity.clear();
    g.densityMap = &map;
    ASSERT_TRUE(g.grow(body, n, f));
    std::vector<int> halves(2, 0);
    for (int i = 0; i < n; ++i) ++halves[f.uvw[i].x < 0.5f ? 0 : 1];
    EXPECT_LT(chiSquare(halves, {0.8, 0.2}, n), 10.8);  // 1 degree of freedom, p = 0.001
    ASSERT_TRUE(g.growByDensity(body, 10.f, f));
    EXPECT_EQ(f.numStrands(), 625);  // 100 units of area: 50 at 1, 50 at 0.25

    // Refusals say why and change nothing.
    pixels[0] = pixels[1] = 0.f;
    EXPECT_FALSE(g.grow(body, 10, f));
    EXPECT_EQ(g.message, "the density is zero everywhere on the body");
    EXPECT_EQ(f.numStrands(), 625);
    g.densityMap = nullptr;
    g.pointDensity = {1.f};
    EXPECT_FALSE(g.grow(body, 10, f));
    EXPECT_NE(g.message.find("pointDensity has 1 weights for 121 points"), std::string::npos) << g.message;
    EXPECT_FALSE(ZRootGrower().grow(ZTriMesh(), 10, f));
}

TEST(GuideBinder, BindsEachStrandToTheGuideNearestItsRoot) {
    ZFollicles f;
    for (int i = 0; i < 1000; ++i) {
        f.tgl.push_back(0);
        f.nmp.push_back(ZVector(float(i), 0.f, 0.f));
    }
    ZIntArray guides;
    for (int g = 990; g >= 0; g -= 10) guides.push_back(g);  // listed from the far end
    ZGuideBinder b;
    ASSERT_TRUE(b.bind(f, guides)) << b.message;
    ASSERT_EQ(f.bdi.numSets(), 1000);
    for (int i = 0; i < 1000; ++i) {
        const int r = i % 10, below = i - r;
        // Halfway between two guides, the one listed first: the upper one here.
        const int want = r < 5 ? below : std::min(below + 10, 990);
        EXPECT_EQ(f.bdi(i, 0), want) << i;
        EXPECT_EQ(f.bdw(i, 0), 1.f);
    }
    ZFollicles again = f;
    for (int t : {1, 64}) {
        atThreads(t, [&] { return b.bind(again, guides); });
        EXPECT_TRUE(again.bdi == f.bdi) << t;
    }
    EXPECT_FALSE(b.bind(f, {1000}));
    EXPECT_EQ(b.message, "guide 1000 is outside the 1000 strands");
    EXPECT_FALSE(b.bind(f, {}));
}

TEST(RootGrower, GrowsStraightStrandsOutOfTheBodyAtAnyThreadCount) {
    ZTriMesh body;
    examples::buildSphere(1.f, 16, 32, body);
    ZBodyFrames bf;
    ZAxisArray frames;
    ASSERT_TRUE(bf.build(body) && bf.compute(body, frames));
    ZRootGrower g;
    g.seed = 3;
    ZFollicles f;
    ZCurves c;
    ASSERT_TRUE(g.growStrands(body, frames, 3000, 5, 0.5f, 0.4f, f, c)) << g.message;
    ASSERT_EQ(f.numStrands(), 3000);
    ASSERT_EQ(c.numCurves(), 3000);
    float shortest = 1.f, longest = 0.f;
    for (int i = 0; i < 3000; ++i) {
        // Rooted on the body where the roots grow() places lie, straight out along the
        // surface (the sphere's normal is the root's own direction), as long as ln0 says.
        const ZVector root = c.cvs[c.start[i]], tip = c.cvs[c.start[i] + 4];
        ASSERT_EQ(root, f.nmp[i]);
        EXPECT_GT((tip - root).normalized(false).dot(root.normalized(false)), 0.99f) << i;
        EXPECT_NEAR((tip - root).length(), f.ln0[i], 1e-5f);
        EXPECT_NEAR(c.lineLength(i), f.ln0[i], 1e-5f);
        EXPECT_EQ(f.ln1[i], f.ln0[i]);
        EXPECT_EQ(f.bdi(i, 0), i);
        shortest = std::min(shortest, f.ln0[i]);
        longest = std::max(longest, f.ln0[i]);
    }
    // Lengths spread over 0.5 x (0.8 ... 1.2), the same draw as the uid's hash gives.
    EXPECT_GE(shortest, 0.4f);
    EXPECT_LE(longest, 0.6f);
    EXPECT_LT(shortest, 0.41f);
    EXPECT_GT(longest, 0.59f);
    EXPECT_EQ(f.ln0[7], 0.5f * (0.8f + 0.4f * ZRandomUnit(static_cast<uint32_t>(f.uid[7]) ^ 0x5bd1e995u)));
    EXPECT_EQ(f.maxLn0, longest);
    // The roots are grow()'s, and the same bits at any thread count.
    ZFollicles roots;
    ASSERT_TRUE(g.grow(body, 3000, roots));
    EXPECT_TRUE(sameBits(roots.nmp, f.nmp) && sameBits(roots.tgl, f.tgl));
    for (int t : {1, 2, 64}) {
        ZFollicles h;
        ZCurves d;
        atThreads(t, [&] { return g.growStrands(body, frames, 3000, 5, 0.5f, 0.4f, h, d); });
        EXPECT_TRUE(sameBits(d.cvs, c.cvs) && sameBits(h.axs, f.axs) && sameBits(h.rxy, f.rxy)) << t;
    }
    // Refused, leaving the groom as it was: frames of another body, one CV, no length.
    ZAxisArray fewer = frames;
    fewer.pop_back();
    EXPECT_FALSE(g.growStrands(body, fewer, 10, 5, 0.5f, 0.f, f, c));
    EXPECT_FALSE(g.growStrands(body, frames, 10, 1, 0.5f, 0.f, f, c));
    EXPECT_FALSE(g.growStrands(body, frames, 10, 5, std::nanf(""), 0.f, f, c));
    EXPECT_EQ(f.numStrands(), 3000);
    EXPECT_FALSE(g.message.empty());
}
