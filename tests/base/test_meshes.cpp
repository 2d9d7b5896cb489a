// Polygon meshes and the nearest-point search.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <random>

#include "base/UlmexBase.h"

using namespace Ulmex;

TEST(ZPointsDistTree, AgreesWithBruteForceAndBreaksTiesByIndex) {
    std::mt19937 gen(5);
    std::uniform_real_distribution<float> d(-10.f, 10.f);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (int size : {1, 7, 9, 100, 2000}) {
        for (bool withNaN : {false, true}) {
        ZVectorArray pts;
        for (int i = 0; i < size; ++i) pts.push_back(ZVector(d(gen), d(gen), d(gen) * 0.1f));
        if (size > 10) pts[size - 1] = pts[3];  // a duplicate: the lower index must win
        // Points with a NaN coordinate (one in five, on any axis) are never nearest.
        if (withNaN)
            for (int i = 0; i < size; i += 5) pts[i][i % 3] = nan;
        const ZPointsDistTree tree(pts);
        for (int q = 0; q < 300; ++q) {
            ZVector query = q == 0 && size > 10 ? pts[3] : ZVector(d(gen), d(gen), d(gen));
            if (withNaN && q % 50 == 7) query.y = nan;  // a NaN query finds nothing
            int best = -1;
            float bestD2 = std::numeric_limits<float>::max();
            for (int i = 0; i < size; ++i) {
                const ZVector v = pts[i] - query;
                const float d2 = v.x * v.x + v.y * v.y + v.z * v.z;
                if (d2 < bestD2) { bestD2 = d2; best = i; }
            }
            const float bestD = best < 0 ? std::numeric_limits<float>::max() : std::sqrt(bestD2);
            int index;
            float distance;
            tree.findClosestPoint(query, index, distance);
            ASSERT_EQ(index, best) << size << " " << q << " " << withNaN;
            EXPECT_EQ(distance, bestD);
        }
        }
    }
    int index;
    float distance;
    ZPointsDistTree().findClosestPoint(ZVector(), index, distance);
    EXPECT_EQ(index, -1);
}

TEST(ZPolyMesh, AppendTransformAndTriangulate) {
    ZPolyMesh quad;
    quad.points = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
    quad.vCounts = {4};
    quad.vConnects = {0, 1, 2, 3};
    quad.uvs = {ZTuple<2, float>(0, 0), ZTuple<2, float>(1, 0), ZTuple<2, float>(1, 1), ZTuple<2, float>(0, 1)};
    quad.uvIndices = {0, 1, 2, 3};
    quad.computeBoundingBox();

    ZTriMesh tri;
    quad.convertTo(tri);
    ASSERT_EQ(tri.numTriangles(), 2);
    EXPECT_EQ(tri.v012[1], (ZTuple<3, int>(0, 2, 3)));
    ASSERT_EQ(tri.uvs.length(), 6);
    EXPECT_EQ(tri.uvs[4], ZVector(1, 1, 0));

    ZPolyMesh both = quad;
    ZPolyMesh moved = quad;
    ZMatrix m;
    m(0, 3) = 5.f;
    moved.transform(m, true);
    EXPECT_EQ(moved.boundingBox.minPoint, ZVector(5, 0, 0));
    both.append(moved, true);
    EXPECT_EQ(both.numVertices(), 8);
    EXPECT_EQ(both.vConnects[4], 4);
    EXPECT_EQ(both.uvIndices[7], 7);
    EXPECT_EQ(both.boundingBox.maxPoint, ZVector(6, 1, 0));
    ZPolyMesh geometryOnly = quad;
    geometryOnly.append(moved, false);
    EXPECT_TRUE(geometryOnly.uvs.empty());
    geometryOnly.convertTo(tri);
    EXPECT_EQ(tri.numTriangles(), 4);
    EXPECT_TRUE(tri.uvs.empty());

    // Degenerate polygons (fewer than three vertices) give no triangle.
    ZPolyMesh line;
    line.points = {{0, 0, 0}, {1, 0, 0}};
    line.vCounts = {2};
    line.vConnects = {0, 1};
    line.convertTo(tri);
    EXPECT_EQ(tri.numTriangles(), 0);
}
