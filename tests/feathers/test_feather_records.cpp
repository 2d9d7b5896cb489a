// The feather's geometry record and attribute block.
#include <gtest/gtest.h>

#include "support/Damage.h"

#include "FeatherFixtures.h"
#include "support/TestUtil.h"

using namespace Ulmex;

TEST(FeatherRecord, RoundTripRestoresTheSevenItemsOnly) {
    testutil::TempDir dir;
    ZFeather src = fixtures::diamondFeather();
    src.color[0] = 0.25f;
    src.storedInt = -7;
    src.storedText = "host data";
    src.transientText = "not saved";
    src.latticeResolution = 6;
    const std::string path = dir.file("feathers");
    {
        std::ofstream out(path, std::ios::binary);
        src.write(out);
        src.write(out);
    }
    ZFeather dst, second;
    dst.transientText = "mine";
    std::ifstream in(path, std::ios::binary);
    dst.read(in);
    second.read(in);
    for (const ZFeather* r : {&dst, &second}) {
        EXPECT_EQ(r->name, "ns:diamond");
        EXPECT_EQ(r->color[0], 0.25f);
        EXPECT_EQ(r->color[3], 1.f);
        EXPECT_EQ(r->mesh, src.mesh);
        EXPECT_EQ(r->curves, src.curves);
        EXPECT_EQ(r->boundingBox, src.boundingBox);
        EXPECT_EQ(r->storedInt, -7);
        EXPECT_EQ(r->storedText, "host data");
    }
    EXPECT_EQ(dst.transientText, "mine");
    EXPECT_EQ(dst.latticeResolution, 0);
    EXPECT_EQ(dst.lattice.numVertices(), 0);  // not rebuilt by read
    dst.initialize();
    EXPECT_EQ(dst.lattice.numVertices(), 12);  // three rows: the reader's resolution
}

TEST(FeatherAttributes, CountOfTwoRestoresTwoEntriesAndBlocksInARow) {
    testutil::TempDir dir;
    ZFeather src;
    src.txBasePath = "/textures/owl";
    src.txLayerName = "barbs";
    src.txmultiUV = 3;
    src.MaterialSet = "featherMtl";
    const std::string path = dir.file("rmanAttrs");
    {
        std::ofstream out(path, std::ios::binary);
        src.writeRManAttrs(out);
        src.writeRManAttrs(out);
    }
    std::ifstream in(path, std::ios::binary);
    ZFeather a, b;
    a.readRManAttrs(in);
    EXPECT_EQ(a.txBasePath, "/textures/owl");
    EXPECT_EQ(a.txLayerName, "barbs");
    EXPECT_EQ(a.txmultiUV, 0);
    EXPECT_EQ(a.MaterialSet, "");
    // The stream stands at the third key: the next block takes its bytes for a count and
    // reads nothing it could use, without running past the file.
    b.readRManAttrs(in);
    EXPECT_EQ(b.txBasePath, "");
    EXPECT_EQ(b.txLayerName, "");

    for (int32_t count : {0, -3}) {
        std::vector<char> bytes;
        testutil::appendPod(bytes, count);
        testutil::appendTag(bytes, "txBasePath");
        testutil::appendTag(bytes, "x");
        testutil::writeBytes(path, bytes);
        std::ifstream zero(path, std::ios::binary);
        ZFeather z;
        z.readRManAttrs(zero);
        EXPECT_EQ(z.txBasePath, "") << count;
    }
}

TEST(FeatherRecord, TruncatedAndCorruptRecordsAreSafe) {
    testutil::TempDir dir;
    const ZFeather src = fixtures::diamondFeather();
    const std::string path = dir.file("f");
    {
        std::ofstream out(path, std::ios::binary);
        src.write(out);
        src.writeRManAttrs(out);
    }
    const std::vector<char> good = testutil::readBytes(path);
    testutil::forEachDamaged(good, {3, 200, 50, 2000}, [&](const std::vector<char>& bytes, const std::string& what) {
        testutil::writeBytes(path, bytes);
        ZFeather f;
        testutil::expectBoundedPeak(bytes.size(), what, [&] {
            std::ifstream in(path, std::ios::binary);
            f.read(in);
            f.readRManAttrs(in);
        });
        // Whatever came back is consistent enough to measure and place.
        f.initialize();
        EXPECT_LE(f.mesh.points.size() * sizeof(ZVector), bytes.size()) << what;
    });
}
