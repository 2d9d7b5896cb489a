// The Alembic reader's edges and hostile files, sources loaded from Alembic, and strands
// rebound to a body. The fixtures are written by the real Alembic library before this
// suite runs (abc_scenes.py, directory in GROOMCORE_ABC_FIXTURES); the reader's values
// are compared with alembic3d's in check_alembic_reader.py.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <cstdlib>
#include <random>

#include "cache/RuvoMisc.h"
#include "feathers/ZSource.h"
#include "support/Damage.h"
#include "support/ReadWholeArchive.h"
#include "support/TestUtil.h"

using namespace Ulmex;

namespace {

std::string fixture(const char* name) {
    const char* dir = std::getenv("GROOMCORE_ABC_FIXTURES");
    return std::string(dir ? dir : ".") + "/" + name;
}

bool near(const ZVector& a, const ZVector& b, float tol = 1e-5f) { return (a - b).length() <= tol; }

} // namespace

TEST(AlembicReader, RefusesWhatItCannotReadAndAnswersOnlyForItsSchema) {
    testutil::TempDir tmp;
    ZAlembicArchive a;
    EXPECT_FALSE(a.open(tmp.file("missing.abc").c_str()));
    testutil::writeBytes(tmp.file("text.abc"), {'n', 'o', 't', ' ', 'a', 'n', ' ', 'a', 'r', 'c', 'h', 'i', 'v', 'e', '!', '!'});
    EXPECT_FALSE(a.open(tmp.file("text.abc").c_str()));
    std::vector<char> hdf5 = {'\x89', 'H', 'D', 'F', '\r', '\n', '\x1a', '\n'};
    hdf5.resize(4096, 0);
    testutil::writeBytes(tmp.file("old.abc"), hdf5);
    EXPECT_FALSE(a.open(tmp.file("old.abc").c_str()));  // the HDF5 kind of archive
    EXPECT_EQ(a.topObject().numChildren(), 0);

    ASSERT_TRUE(a.open(fixture("scene.abc").c_str()));
    ZAlembicObject root, body, shape;
    ASSERT_TRUE(a.topObject().getChild(0, root));
    ASSERT_TRUE(root.getChild(0, body));
    ASSERT_TRUE(body.getChild(0, shape));
    EXPECT_FALSE(root.getChild(99, body));
    EXPECT_FALSE(root.getChild(-1, body));
    EXPECT_EQ(shape.fullPath(), "/root/bodyXf/bodyShape");
    EXPECT_TRUE(shape.isLeaf());
    a.close();  // copies keep the file

    // A transform is no mesh and a mesh no transform: false, outputs untouched.
    ZVectorArray points{ZVector(9, 9, 9)};
    EXPECT_FALSE(body.getPolyMeshData(&points, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 0));
    EXPECT_EQ(points.size(), 1u);
    ZVector t(7, 7, 7), r(7, 7, 7), s(7, 7, 7);
    EXPECT_FALSE(shape.getTransformations(t, r, s, 0));
    EXPECT_EQ(t, ZVector(7, 7, 7));
    // Every pointer may be null.
    EXPECT_TRUE(shape.getPolyMeshData(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 2));
    // A zero scale reads back as zero; an object without ops as the identity's channels.
    ZAlembicObject zero, arm;
    ASSERT_TRUE(root.getChild(1, zero));
    ASSERT_TRUE(zero.getTransformations(t, r, s, 0));
    EXPECT_EQ(s, ZVector(0, 0, 0));
    EXPECT_EQ(t, ZVector(5, 0, 0));
    ASSERT_TRUE(root.getChild(4, arm));
    EXPECT_EQ(arm.name(), "armBody");
    ASSERT_TRUE(arm.getTransformations(t, r, s, 3));
    EXPECT_EQ(t, ZVector(0, 0, 0));
    EXPECT_EQ(s, ZVector(1, 1, 1));

    ZAlembicObjectArray leaves, all;
    ASSERT_TRUE(a.open(fixture("scene.abc").c_str()));
    GetAllDescendantObjects(a.topObject(), all, false);
    GetAllDescendantObjects(a.topObject(), leaves, true);
    EXPECT_EQ(all.length(), 12);
    EXPECT_EQ(all[0].fullPath(), "/root");  // parents before their children
    EXPECT_EQ(all[1].fullPath(), "/root/bodyXf");
    EXPECT_EQ(leaves.length(), 6);  // five shapes and the childless armBody
}

// Meshes and transforms (scene.abc), and curves with plain and indexed geometry parameters
// (curves.abc), damaged every way below.
class AlembicDamage : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(AlembicReader, AlembicDamage, testing::Values("scene.abc", "curves.abc"),
                         [](const testing::TestParamInfo<const char*>& p) { return std::string(p.param).substr(0, 5); });

TEST_P(AlembicDamage, DamagedFilesAreSurvivedWithinTheirSize) {
    testutil::TempDir tmp;
    const std::vector<char> good = testutil::readBytes(fixture(GetParam()));
    ASSERT_GT(good.size(), 1000u);
    const size_t intact = testutil::readWholeArchive(fixture(GetParam()));
    ASSERT_GT(intact, 100u);
    const std::string path = tmp.file("bad.abc");
    size_t worst = 0;
    int runs = 0;
    auto check = [&](const std::vector<char>& bytes, const std::string& what) {
        testutil::writeBytes(path, bytes);
        // One thread: thousands of small reads, where a team's start-up would be all the cost.
        const size_t peak = testutil::withThreads(1, [&] {
            return testutil::expectBoundedPeak(bytes.size(), what, [&] { testutil::readWholeArchive(path); });
        });
        worst = std::max(worst, peak);
        ++runs;
    };
    // Cut short at every 8-byte boundary (every offset and count) and between; bytes
    // changed past the magic; noise behind it.
    testutil::forEachDamaged(good, {5, 400, 50, 20000, 16, "Ogawa"}, check);
    // 64-bit words made to point outside the file, at the header, or back at a group
    // itself or one above it: offsets that loop.
    for (size_t at = 8; at + 8 <= good.size(); at += 8) {
        for (std::uint64_t v : {std::uint64_t(good.size() + 100), std::uint64_t(8), std::uint64_t(16),
                                std::uint64_t(at - 8), std::uint64_t(~0ull), std::uint64_t(0x8000000000000010ull)}) {
            std::vector<char> bad = good;
            std::memcpy(bad.data() + at, &v, 8);
            check(bad, "offset");
        }
    }
    std::cout << runs << " damaged archives read; worst peak " << worst << " bytes\n";
}

// The fan walk is laid out in blocks, one per thread; where it stops (a negative count, a
// polygon running past the connections) must not depend on which block that falls in.
TEST(AlembicHelpers, FanWalkStopsAtTheSamePolygonAtAnyThreadCount) {
    std::mt19937 rng(7);
    for (int run = 0; run < 200; ++run) {
        ZIntArray counts(rng() % 40), conn(rng() % 120);
        for (int& m : counts) m = static_cast<int>(rng() % 7) - (rng() % 25 == 0 ? 7 : 0);
        for (size_t i = 0; i < conn.size(); ++i) conn[i] = static_cast<int>(i);
        ZInt3Array expected;  // the plain serial walk
        size_t at = 0;
        for (int m : counts) {
            if (m < 0 || static_cast<size_t>(m) > conn.size() - at) break;
            for (int j = 0; j + 2 < m; ++j) expected.push_back(ZTuple<3, int>(conn[at], conn[at + 1 + j], conn[at + 2 + j]));
            at += static_cast<size_t>(m);
        }
        for (int threads : {1, 2, 3, 5, 16})
            ASSERT_EQ(testutil::withThreads(threads, [&] { return getv012(counts, conn); }), expected)
                << "run " << run << ", " << threads << " threads";
    }
}

TEST(AlembicHelpers, FansReversalAndDeterminant) {
    // counts 3, 4, 2, 5: a triangle, a quad, a two-vertex polygon, a pentagon.
    const ZIntArray counts{3, 4, 2, 5};
    ZIntArray conn{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13};
    const ZInt3Array tris = getv012(counts, conn);
    ASSERT_EQ(tris.size(), 1u + 2u + 3u);
    EXPECT_EQ(tris[1], (ZTuple<3, int>(3, 4, 5)));  // quad (p, q, r, s): (p, q, r), (p, r, s)
    EXPECT_EQ(tris[2], (ZTuple<3, int>(3, 5, 6)));
    EXPECT_EQ(tris[3], (ZTuple<3, int>(9, 10, 11)));  // the two-vertex polygon advanced by 2
    const ZFloatArray uv{0, 0, 1, 0, 1, 1, 0, 1};
    const ZVectorArray uvs = getuvs(ZIntArray{4}, uv, ZIntArray{0, 1, 2, 3});
    ASSERT_EQ(uvs.size(), 6u);
    EXPECT_EQ(uvs[4], ZVector(1, 1, 0));
    EXPECT_EQ(uvs[5], ZVector(0, 1, 0));
    EXPECT_TRUE(getv012(ZIntArray(), conn).empty());

    ReverseConnections(counts, conn);
    EXPECT_EQ(conn, (ZIntArray{0, 2, 1, 3, 6, 5, 4, 7, 8, 9, 13, 12, 11, 10}));
    // The fan of a reversed quad: the same triangles, opposite winding.
    const ZInt3Array back = getv012(ZIntArray{4}, ZIntArray{3, 6, 5, 4});
    EXPECT_EQ(back[0], (ZTuple<3, int>(3, 6, 5)));
    EXPECT_EQ(back[1], (ZTuple<3, int>(3, 5, 4)));

    ZMatrix m;
    EXPECT_EQ(m.det(), 1.0);
    m(0, 0) = 2, m(1, 1) = 3, m(2, 2) = 4, m(0, 3) = 9;  // translation does not count
    EXPECT_EQ(m.det(), 24.0);
    m(0, 0) = 0;  // a zero scale on one axis: singular
    EXPECT_EQ(m.det(), 0.0);
    ZMatrix mirror;
    mirror(1, 1) = -1;
    EXPECT_EQ(mirror.det(), -1.0);
    ZMatrix rot;
    rot(0, 0) = 0.6f, rot(0, 1) = -0.8f, rot(1, 0) = 0.8f, rot(1, 1) = 0.6f;
    EXPECT_NEAR(rot.det(), 1.0, 1e-6);
}

TEST(AlembicSource, LeavesBakedByTheirTransformsWithTheFirstObjectsTwice) {
    ZSource s;
    const ZVector sentinel(5, 6, 7);
    s.mesh.points = {sentinel};
    s.setAlembic(fixture("missing.abc"));
    EXPECT_EQ(s.mesh.points, ZVectorArray{sentinel});
    s.setAlembic(fixture("lonely.abc"));  // the first top-level object has no children
    EXPECT_EQ(s.mesh.points, ZVectorArray{sentinel});

    s.setAlembic(fixture("leaf.abc"));
    // leafGroup moves by (1, 0, 0), applied twice. bladeA: translate (0, 2, 0), 90 degrees
    // about z, scale 2. bladeB: translate (0, 0, 3), scale 0 taken as 1. The ignored
    // second top-level object is not read.
    ASSERT_EQ(s.mesh.points.size(), 7u);
    ASSERT_EQ(s.mesh.v012.size(), 3u);
    auto bladeA = [](float x, float y) { return ZVector(2.f - 2.f * y, 2.f + 2.f * x, 0.f) + ZVector(0, 0, 0); };
    EXPECT_TRUE(near(s.mesh.points[0], bladeA(0, 0))) << s.mesh.points[0];
    EXPECT_TRUE(near(s.mesh.points[1], bladeA(1, 0))) << s.mesh.points[1];
    EXPECT_TRUE(near(s.mesh.points[2], bladeA(0, 1))) << s.mesh.points[2];
    EXPECT_TRUE(near(s.mesh.points[3], ZVector(2, 0, 3))) << s.mesh.points[3];
    EXPECT_TRUE(near(s.mesh.points[5], ZVector(3, 1, 3))) << s.mesh.points[5];
    EXPECT_EQ(s.mesh.v012[1], (ZTuple<3, int>(3, 4, 5)));  // the quad behind the triangle

    ZMatrix m;
    ZAlembicArchive a;
    ASSERT_TRUE(a.open(fixture("scene.abc").c_str()));
    ZAlembicObject root, singular;
    ASSERT_TRUE(a.topObject().getChild(0, root));
    ASSERT_TRUE(root.getChild(2, singular));
    s.getAlembicXformMatrix(singular, m);
    EXPECT_EQ(m.det(), 0.0);  // scale (0, 1, 1): singular, and skipped by the walk
    s.getAlembicXformMatrix(root, m);  // translate (1.5, 2, 3) at sample 1, scale (2, 3, 4)
    EXPECT_EQ(m(0, 3), 1.5f);
    EXPECT_NEAR(m.det(), 24.0, 1e-4);
}

TEST(BodyRebinding, FindsTheOneShapeByPartOfItsName) {
    ZAlembicObject body;
    EXPECT_FALSE(findBodyMeshShapeNode(fixture("missing.abc"), "Body", &body));
    EXPECT_TRUE(findBodyMeshShapeNode(fixture("body.abc"), "Body", &body));
    EXPECT_EQ(body.fullPath(), "/character/characterBodyShape");
    ZAlembicObject other = body;
    // An empty name matches every polygon mesh: the body's alone (the childless group "prop"
    // is no body).
    EXPECT_TRUE(findBodyMeshShapeNode(fixture("body.abc"), "", &other));
    EXPECT_EQ(other.fullPath(), body.fullPath());
    other = ZAlembicObject();
    EXPECT_FALSE(findBodyMeshShapeNode(fixture("body.abc"), "prop", &other));
    EXPECT_TRUE(other.fullPath().empty());
    EXPECT_FALSE(findBodyMeshShapeNode(fixture("body.abc"), "nothing", &other));
    EXPECT_TRUE(findBodyMeshShapeNode(fixture("body.abc"), "racterB", &other));  // any position
}

TEST(BodyRebinding, ReferenceCornerInverseFrameAndRootRelativeStrands) {
    ZAlembicObject body;
    ASSERT_TRUE(findBodyMeshShapeNode(fixture("body.abc"), "Body", &body));
    // Sample k of the body: grid point (i, j) at z = 0.1 i j + 0.5 k, under a transform
    // moving it up by k. The file's clockwise quad (a, a+4, a+5, a+1) reversed is
    // (a, a+1, a+5, a+4); its fan gives the triangles (a, a+1, a+5) and (a, a+5, a+4).
    auto P = [](int idx, int k) {
        const int i = idx % 4, j = idx / 4;
        return ZVector(float(i), float(j), 0.1f * float(i * j) + 1.5f * float(k));
    };
    ZFollicles f;
    f.reset();
    ZCurves curves;
    const int tris[] = {0, 1, 5};
    for (int n = 0; n < 3; ++n) {
        f.tgl.push_back(tris[n]);
        ZAxis a;
        a.origin = n == 0 ? P(0, 1) : n == 1 ? (P(0, 1) + P(5, 1) + P(4, 1)) * (1.f / 3.f) : P(6, 1) + ZVector(0.1f, 0.1f, 0);
        f.axs.push_back(a);
        const ZVector cv[] = {a.origin + ZVector(0.01f, 0, 0), a.origin + ZVector(0, 0, 1), a.origin + ZVector(0, 1, 2)};
        curves.push(cv, n == 2 ? 1 : 3);
    }
    const ZCurves before = curves;
    ZIntArray ref;
    ZMatrixArray inv;
    setRefIdxAndInvRotAndCurves(1.4, body, f, &curves, &ref, &inv);  // 1.4 reads sample 1
    ASSERT_EQ(ref.size(), 3u);
    // Strand 0 sits on corner 0 of (0, 1, 5): the diagonal corner 5 lies farthest.
    EXPECT_EQ(ref[0], 5);
    // Strand 1 at the centre of (0, 5, 4): the farthest corner by distance, ties to the
    // earlier corner.
    const ZVector o1 = f.axs[1].origin;
    const int corners[3] = {0, 5, 4};
    int far1 = 0;
    for (int k = 1; k < 3; ++k)
        if ((P(corners[k], 1) - o1).squaredLength() > (P(corners[far1], 1) - o1).squaredLength()) far1 = k;
    EXPECT_EQ(ref[1], corners[far1]);
    // The inverse frame of strand 0 at body sample k: rows tangent (towards corner 5, less
    // its normal part), binormal, normal, computed here in double.
    auto expectFrame = [&](const ZMatrix& got, int k) {
        const ZVector A = P(0, k), B = P(1, k), C = P(5, k), o = f.axs[0].origin;
        double e[3] = {C.x - o.x, C.y - o.y, C.z - o.z}, e1[3] = {B.x - A.x, B.y - A.y, B.z - A.z},
               e2[3] = {C.x - A.x, C.y - A.y, C.z - A.z};
        double n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
        const double nl = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (double& v : n) v /= nl;
        const double en = e[0] * n[0] + e[1] * n[1] + e[2] * n[2];
        double t[3] = {e[0] - en * n[0], e[1] - en * n[1], e[2] - en * n[2]};
        const double tl = std::sqrt(t[0] * t[0] + t[1] * t[1] + t[2] * t[2]);
        for (double& v : t) v /= tl;
        const double g[3] = {n[1] * t[2] - n[2] * t[1], n[2] * t[0] - n[0] * t[2], n[0] * t[1] - n[1] * t[0]};
        const double* rows[3] = {t, g, n};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(got(r, c), rows[r][c], 2e-6) << "sample " << k << " " << r << c;
        EXPECT_GT(n[2], 0.9);  // the reversed winding turns the normal up, out of the grid
        EXPECT_NEAR(got(3, 3), 1.f, 1e-6f);  // scaled by 1 / det, which is 1 to rounding
        EXPECT_EQ(got(0, 3), 0.f);
    };
    expectFrame(inv[0], 1);
    // CVs relative to the root, the root exactly zero even where it differed from it.
    EXPECT_EQ(curves.cvs[0], ZVector(0, 0, 0));
    EXPECT_EQ(curves.cvs[1], before.cvs[1] - f.axs[0].origin);
    EXPECT_EQ(curves.cvs[curves.start[2]], ZVector(0, 0, 0));  // a strand of one CV

    // Frame 1.5 reads sample 2: the body 1.5 higher, the tangent tilted towards it.
    ZCurves again = before;
    ZIntArray ref2;
    ZMatrixArray inv2;
    setRefIdxAndInvRotAndCurves(1.5, body, f, &again, &ref2, &inv2);
    expectFrame(inv2[0], 2);

    // No strands: both outputs emptied.
    ZCurves none;
    setRefIdxAndInvRotAndCurves(1.0, body, f, &none, &ref, &inv);
    EXPECT_TRUE(ref.empty() && inv.empty());
}

// What DCCs write (dcc.abc, wide.abc; the values are checked against alembic3d by
// check_alembic_reader.py): bodies that are no polygon mesh, face sets, instances, files
// not fully written, and a walk by index over 10,000 siblings.
TEST(AlembicFromDccs, ShapesFaceSetsInstancesAndHeaders) {
    ZAlembicArchive a;
    ASSERT_TRUE(a.open(fixture("dcc.abc").c_str()));
    ZAlembicObjectArray shapes;
    GetAllDescendantObjects(a.topObject(), shapes, true);
    std::vector<std::string> paths;
    for (int i = 0; i < shapes.length(); ++i) paths.push_back(shapes[i].fullPath());
    // The mesh with face sets is a shape and its face sets are not; instanced meshes appear
    // under every instance's path.
    EXPECT_NE(std::find(paths.begin(), paths.end(), "/characterXf/bodyShape"), paths.end());
    EXPECT_EQ(std::find(paths.begin(), paths.end(), "/characterXf/bodyShape/skin"), paths.end());
    EXPECT_NE(std::find(paths.begin(), paths.end(), "/outer/groupInstance/instB/srcShape"), paths.end());
    EXPECT_NE(std::find(paths.begin(), paths.end(), "/instA/srcShape"), paths.end());

    // The lookup: a subdivision surface named like the body is never a body; a mesh with
    // face sets is.
    ZAlembicObject body;
    EXPECT_FALSE(findBodyMeshShapeNode(fixture("dcc.abc"), "BodySubD", &body));
    EXPECT_TRUE(findBodyMeshShapeNode(fixture("dcc.abc"), "bodyShape", &body));
    EXPECT_EQ(body.fullPath(), "/characterXf/bodyShape");
    // Its candidates are the meshes holding the name; several are no answer.
    ZAlembicObjectArray candidates;
    ASSERT_TRUE(findBodyMeshCandidates(fixture("dcc.abc"), "Shape", &candidates));
    EXPECT_GT(candidates.length(), 1);
    for (int i = 0; i < candidates.length(); ++i) EXPECT_TRUE(candidates[i].isPolyMesh()) << candidates[i].fullPath();
    EXPECT_FALSE(findBodyMeshShapeNode(fixture("dcc.abc"), "Shape", &body));
    EXPECT_FALSE(findBodyMeshCandidates(fixture("missing.abc"), "Shape", &candidates));
    EXPECT_GT(candidates.length(), 1);  // untouched

    // Rebinding to an object that is no polygon mesh leaves its outputs empty (this read an
    // empty body inside the parallel loop before); so do strands on a missing triangle.
    auto topLevel = [&](const char* name) {
        ZAlembicObject found, o;
        for (int i = 0; a.topObject().getChild(i, o); ++i)
            if (o.name() == name) found = o;
        return found;
    };
    const ZAlembicObject subd = topLevel("BodySubD");
    ASSERT_EQ(subd.schema(), "AbcGeom_SubD_v1");
    ZFollicles f;
    f.tgl = {0, 5};
    f.axs.setLength(2, true);
    ZCurves curves;
    const ZVector strand[2] = {ZVector(0, 0, 0), ZVector(0, 1, 0)};
    curves.push(strand, 2);
    curves.push(strand, 2);
    const ZCurves before = curves;
    ZIntArray refIdx{7};
    ZMatrixArray invRot(3);
    setRefIdxAndInvRotAndCurves(0.0, subd, f, &curves, &refIdx, &invRot);
    EXPECT_TRUE(refIdx.empty() && invRot.empty());
    EXPECT_EQ(curves, before);
    setRefIdxAndInvRotAndCurves(0.0, body, f, &curves, &refIdx, &invRot);  // two quads, four triangles
    EXPECT_TRUE(refIdx.empty() && invRot.empty());
    refIdx = {7};
    f.tgl = {0, 4};  // one past the last triangle
    setRefIdxAndInvRotAndCurves(0.0, body, f, &curves, &refIdx, &invRot);
    EXPECT_TRUE(refIdx.empty() && invRot.empty());
    EXPECT_EQ(curves, before);
    f.tgl = {0, 3};  // the last triangle
    setRefIdxAndInvRotAndCurves(0.0, body, f, &curves, &refIdx, &invRot);
    EXPECT_EQ(refIdx.length(), 2);

    // A source walk reads a mesh with face sets whole.
    ZSource source;
    std::vector<ZPolyMesh> meshes;
    source.DFS(topLevel("characterXf"), {}, ZMatrix::identity(), meshes);
    ASSERT_EQ(meshes.size(), 1u);
    EXPECT_EQ(meshes[0].numVertices(), 6);

    // Files the real library refuses: an archive version it never wrote, not marked as fully
    // written, another Ogawa version.
    EXPECT_FALSE(a.open(fixture("archive_version_1.abc").c_str()));
    testutil::TempDir tmp;
    const std::vector<char> bytes = testutil::readBytes(fixture("body.abc"));
    ASSERT_GT(bytes.size(), 16u);
    for (auto [at, value] : {std::pair<int, char>{5, 0}, {6, 1}, {7, 2}}) {
        std::vector<char> damaged = bytes;
        damaged[static_cast<size_t>(at)] = value;
        testutil::writeBytes(tmp.file("refused.abc"), damaged);
        EXPECT_FALSE(a.open(tmp.file("refused.abc").c_str())) << "byte " << at;
    }
    testutil::writeBytes(tmp.file("accepted.abc"), bytes);
    EXPECT_TRUE(a.open(tmp.file("accepted.abc").c_str()));
}

TEST(AlembicFromDccs, AWalkByIndexOverTenThousandSiblings) {
    ZAlembicArchive a;
    ASSERT_TRUE(a.open(fixture("wide.abc").c_str()));
    ZAlembicObject wide;
    ASSERT_TRUE(a.topObject().getChild(0, wide));
    ASSERT_EQ(wide.numChildren(), 10000);
    int meshes = 0;
    for (int i = 0; i < wide.numChildren(); ++i) {
        ZAlembicObject sibling, shape;
        ASSERT_TRUE(wide.getChild(i, sibling));
        meshes += sibling.getChild(0, shape) && shape.schema() == "AbcGeom_PolyMesh_v1";
    }
    EXPECT_EQ(meshes, 1);
    // The source walk over the same siblings finds the one mesh.
    ZSource source;
    source.setAlembic(fixture("wide.abc"));
    EXPECT_EQ(source.mesh.numVertices(), 3);
    EXPECT_EQ(source.mesh.numTriangles(), 1);
}

// A DCC exporting over a body that a host has open: the file is cut short or rewritten in
// place. Reads after that give an error or what was read before, never a signal; views
// taken before keep their values.
TEST(AlembicReader, AFileChangedUnderAnOpenArchiveGivesAnErrorNotASignal) {
    testutil::TempDir tmp;
    const std::string path = tmp.file("body.abc");
    const std::vector<char> bytes = testutil::readBytes(fixture("body.abc"));
    testutil::writeBytes(path, bytes);
    ZAlembicObject body;
    ASSERT_TRUE(findBodyMeshShapeNode(path, "Body", &body));
    ZVectorArray before, after;
    ASSERT_TRUE(body.getPolyMeshData(&before, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 1));
    ZAlembicArrayView view;
    ASSERT_TRUE(body.getPolyMeshViews(&view, nullptr, nullptr, nullptr, 1));
    ASSERT_EQ(view.count, before.size());

    for (size_t keep : {bytes.size() / 2, size_t(64), size_t(0)}) {
        std::filesystem::resize_file(path, keep);  // truncated in place: the open file shrinks
        for (int sample = 0; sample < 3; ++sample) {
            after.clear();
            const bool ok =
                body.getPolyMeshData(&after, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, sample);
            EXPECT_TRUE(!ok || after.size() <= before.size()) << keep;
        }
        ZAlembicObjectArray all;
        GetAllDescendantObjects(body, all, false);
    }
    // Rewritten with other bytes of the same length: no signal either.
    std::vector<char> noise(bytes.size());
    for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>(i * 131 + 7);
    testutil::writeBytes(path, noise);
    body.getPolyMeshData(&after, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, 2);
    // The view read before holds its own block.
    std::vector<ZVector> viewed(view.count);
    std::memcpy(viewed.data(), view.data, view.count * sizeof(ZVector));
    EXPECT_TRUE(std::equal(viewed.begin(), viewed.end(), before.begin()));
}

// A rigid prop as Blender writes it: the mesh stored once, its transforms every frame. Sample
// i is frame i: strands rebound to it follow it, and hosts turn frames into samples.
TEST(AlembicTime, AMeshStoredOnceMovesWithItsTransforms) {
    ZAlembicArchive archive;
    ASSERT_TRUE(archive.open(fixture("rigid.abc").c_str()));
    ZAlembicObjectArray shapes;
    GetAllDescendantObjects(archive.topObject(), shapes, true);
    for (const char* name : {"/propXf/propShape", "/rigXf/propXf/propShape", "/rigXf/staticXf/staticShape"}) {
        ZAlembicObject body;
        for (int i = 0; i < shapes.length(); ++i)
            if (shapes[i].fullPath() == name) body = shapes[i];
        ASSERT_EQ(body.fullPath(), name);
        ASSERT_EQ(body.numSamples(), 1);
        EXPECT_DOUBLE_EQ(body.sampleTime(0), 1.0 / 24);
        EXPECT_DOUBLE_EQ(body.sampleTime(23), 24.0 / 24);
        EXPECT_EQ(body.sampleAtFrame(1, 24), 0);
        EXPECT_EQ(body.sampleAtFrame(24, 24), 23);
        EXPECT_EQ(body.sampleAtFrame(30, 24), 29);  // past the file: the transforms' last sample
        EXPECT_EQ(body.sampleAtFrame(-5, 24), 0);
        EXPECT_EQ(body.sampleAt(1.5 / 24), 0);  // half-way: the earlier
        ZFollicles f;
        f.tgl = {0};
        f.axs.setLength(1, true);
        std::vector<ZMatrix> frames;
        for (int frame = 1; frame <= 24; ++frame) {
            ZCurves curves;
            const ZVector strand[2] = {ZVector(0, 0, 0), ZVector(0, 1, 0)};
            curves.push(strand, 2);
            ZIntArray refIdx;
            ZMatrixArray invRot;
            setRefIdxAndInvRotAndCurves(body.sampleAtFrame(frame, 24), body, f, &curves, &refIdx, &invRot);
            ASSERT_EQ(invRot.length(), 1) << name;
            if (std::none_of(frames.begin(), frames.end(), [&](const ZMatrix& m) { return std::memcmp(m.data, invRot[0].data, sizeof m.data) == 0; }))
                frames.push_back(invRot[0]);
        }
        EXPECT_EQ(frames.size(), 24u) << name;  // it moves every frame (it stayed at frame 1 before)
    }
}
