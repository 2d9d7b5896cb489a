// The exporter's file names and name handling, checked against the documented examples
// (the layer contents are compared with usd-core in check_usd_export.py).
#include <gtest/gtest.h>

#include <pxr/sdf/primSpec.h>

#include <cstdlib>
#include <filesystem>

#include "support/TestUtil.h"
#include "usd/ZCurvesToUSD.h"

using namespace Ulmex;

TEST(UsdExport, NamespacesAndReset) {
    ZCurvesToUSD x;
    for (const auto& [in, out] : std::vector<std::pair<const char*, const char*>>{
             {"hair", "hair"}, {"ns:hair", "hair"}, {"a:b:c", "b"}, {":hair", ":hair"} /* one piece after the split */, {"", ""}}) {
        ZString name(in);
        EXPECT_EQ(x.removeNamespace(name), out) << in;
        EXPECT_EQ(name, in);  // the argument is left as it was
    }
    ZFollicles f;
    ZCurves c;
    ZBoundingBox b;
    ZFeather feather;
    x.follicles = &f;
    x.curves = &c;
    x.boundingBox = &b;
    x.feathers = {&feather};
    x.perFrameFiles = x.writeNormals = true;
    x.reset();
    EXPECT_TRUE(x.follicles == nullptr && x.curves == nullptr && x.boundingBox == nullptr);
    EXPECT_EQ(x.feathers.size(), 1u);
    EXPECT_TRUE(x.perFrameFiles && x.writeNormals);
    EXPECT_EQ(x.suffix, ".usd");
    EXPECT_EQ(x.kind, "geom");
}

TEST(UsdExport, PerFrameFileNames) {
    testutil::TempDir tmp;
    ZFollicles f;
    f.reset();
    ZCurves c;
    ZBoundingBox box(ZVector(0, 0, 0), ZVector(1, 1, 1));
    ZCurvesToUSD x;
    x.name = "ns:hair";
    x.basePath = tmp.file("hair");
    x.follicles = &f;
    x.curves = &c;
    x.boundingBox = &box;
    x.perFrameFiles = true;
    x.writeAttributeToUSD(true);
    const std::tuple<float, bool, bool> calls[] = {
        {1001.f, true, false}, {12.f, false, false}, {12.5f, true, false}, {12.f, true, true},
        {12.f, false, true},   {12.5f, false, false}, {12.6f, false, false}, {-2.5f, true, false}};
    for (const auto& [t, high, sub] : calls) {
        x.writeGeometryToUSD(t, high, sub);
        // The name a caller asks for is the file the call wrote.
        ASSERT_TRUE(x.stage);
        EXPECT_EQ(x.stage->GetRealPath(), x.geometryFile(t, high, sub)) << t;
    }
    EXPECT_EQ(x.attributeFile(true), tmp.file("hair.high_geom.0000.usd"));
    EXPECT_EQ(x.name, "hair");
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(tmp.path())) names.push_back(e.path().filename());
    std::sort(names.begin(), names.end());
    // 12 low, 12.5 low and 12 low with subFrame share one name; 12.6 rounds to 13; a
    // negative fraction counts as whole, and rounds half to even (-2.5 gives -002).
    EXPECT_EQ(names, (std::vector<std::string>{"hair.high_geom.-002.usd", "hair.high_geom.0000.usd",
                                               "hair.high_geom.1001.usd", "hair.high_geom.12.00.usd",
                                               "hair.high_geom.12.50.usd", "hair.low_geom.0012.usd",
                                               "hair.low_geom.0013.usd"}));
    // The last call's layer is kept open, and holds the last time as its time codes.
    ASSERT_TRUE(x.stage);
    EXPECT_EQ(x.stage->GetStartTimeCode(), -2.5);
    EXPECT_EQ(x.stage->GetDefaultPrim(), "hair");

    // The kind and the suffix are the host's; one file gathers every time without
    // perFrameFiles.
    x.kind = "fur";
    x.suffix = ".usda";
    EXPECT_EQ(x.geometryFile(12.5f, true, false), tmp.file("hair.high_fur.12.50.usda"));
    x.perFrameFiles = false;
    x.writeAttributeToUSD(false);
    x.writeGeometryToUSD(3.f, false, false);
    EXPECT_EQ(x.attributeFile(false), tmp.file("hair.low_fur.usda"));
    EXPECT_EQ(x.stage->GetRealPath(), x.geometryFile(3.f, false, false));
    EXPECT_EQ(x.geometryFile(3.f, false, false), x.attributeFile(false));
    EXPECT_TRUE(x.failure.empty());

    // A file that cannot be made: no file, the reason in `failure`, one report line.
    testutil::writeBytes(tmp.file("blocker"), {'x'});  // a file where the folder would be
    x.basePath = tmp.file("blocker/hair");
    std::vector<std::string> lines;
    ZSetMessageSink([](const std::string& line, void* to) { static_cast<std::vector<std::string>*>(to)->push_back(line); },
                    &lines);
    x.writeGeometryToUSD(4.f, true, false);
    ZSetMessageSink(nullptr, nullptr);
    EXPECT_NE(x.failure.find("cannot create " + tmp.file("blocker/hair.high_fur.usda")), std::string::npos) << x.failure;
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].rfind("Error@ZCurvesToUSD::writeGeometryToUSD(): cannot create ", 0), 0u) << lines[0];
    EXPECT_EQ(testutil::readBytes(tmp.file("blocker")), std::vector<char>{'x'});
}

// Names a DCC gives that are no USD identifiers (a duplicate's "fur.001", spaces, a leading
// digit, an empty namespace piece) are written under the identifier USD's own exporters
// make of them, in curve and feather mode alike.
TEST(UsdExport, NamesThatAreNoUsdIdentifiersAreMapped) {
    for (const auto& [in, out] : std::vector<std::pair<const char*, const char*>>{
             {"hair", "hair"}, {"fur.001", "fur_001"}, {"my fur", "my_fur"}, {"1fur", "_fur"}, {"ns:", "ns_"},
             {"", "_"}, {"fur-\xc3\xa4", "fur___"}})
        EXPECT_EQ(ZCurvesToUSD::primName(in), out) << in;

    testutil::TempDir tmp;
    ZFollicles f;
    f.reset();
    ZCurves c;
    ZBoundingBox box(ZVector(0, 0, 0), ZVector(1, 1, 1));
    ZFeather leaf;
    leaf.name = "leaf.001";
    leaf.mesh.points = {ZVector(0, 0, 0), ZVector(1, 0, 0), ZVector(0, 1, 0)};
    leaf.mesh.v012 = {ZTuple<3, int>(0, 1, 2)};
    int k = 0;
    for (bool feathers : {false, true})
        for (const char* name : {"fur.001", "my fur", "1fur", "ns:", "", "ns:fur.001"}) {
            ZCurvesToUSD x;
            x.name = name;
            x.basePath = tmp.file("out" + std::to_string(k++));
            x.follicles = &f;
            x.curves = &c;
            x.boundingBox = &box;
            x.perFrameFiles = true;
            x.featherMode = feathers;
            x.feathers = {&leaf};
            x.writeAttributeToUSD(true);
            x.writeGeometryToUSD(1.f, true, false);
            ZString stripped(name);
            const std::string prim = "/" + ZCurvesToUSD::primName(x.removeNamespace(stripped));
            ASSERT_TRUE(x.stage) << name;
            EXPECT_EQ("/" + x.stage->GetDefaultPrim().GetString(), prim) << name;
            EXPECT_TRUE(x.stage->GetPrimAtPath(pxr::SdfPath(prim))) << name;
            if (feathers) {
                EXPECT_TRUE(x.stage->GetPrimAtPath(pxr::SdfPath(prim + "/leaf_001"))) << name;
            }
        }
}

// A disk without room for a frame: the call fails with the reason and leaves no file, and
// every frame written before is whole (the same bytes as on a disk with room). OpenUSD's
// writer, left to run into the full disk, could end the process reading back what it cut
// short. The test mounts a small tmpfs (the suite runs as root; elsewhere it is skipped).
TEST(UsdExport, ADiskWithoutRoomGetsNoFileAndEndsNothing) {
    testutil::TempDir tmp;
    const std::string disk = tmp.file("disk");
    std::filesystem::create_directories(disk);
    const std::string mount = "mount -t tmpfs -o size=192k tmpfs " + disk + " 2>/dev/null";
    if (std::system(mount.c_str()) != 0) GTEST_SKIP() << "cannot mount a tmpfs here";
    struct Unmount {
        std::string dir;
        ~Unmount() { (void)std::system(("umount -l " + dir).c_str()); }
    } unmount{disk};

    // 200 strands of 16 CVs: about 43 KB a frame.
    ZFollicles f;
    f.reset();
    ZCurves c;
    std::vector<ZVector> p(16);
    for (int i = 0; i < 200; ++i) {
        for (int j = 0; j < 16; ++j) p[j] = ZVector(float(i), float(j), 0.5f * float(i % 7));
        c.push(p.data(), 16);
    }
    ZBoundingBox box(ZVector(0, 0, 0), ZVector(200, 16, 4));
    ZCurvesToUSD x;
    x.name = "hair";
    x.follicles = &f;
    x.curves = &c;
    x.boundingBox = &box;
    x.perFrameFiles = true;
    ZSetMessageSink([](const std::string&, void*) {}, nullptr);
    int written = 0, refused = 0;
    for (int frame = 1; frame <= 8; ++frame) {
        x.basePath = tmp.file("hair");
        x.writeGeometryToUSD(float(frame), true, false);
        ASSERT_TRUE(x.failure.empty()) << x.failure;
        const std::vector<char> whole = testutil::readBytes(x.geometryFile(float(frame), true, false));
        x.basePath = disk + "/hair";
        x.writeGeometryToUSD(float(frame), true, false);
        const std::string file = x.geometryFile(float(frame), true, false);
        if (x.failure.empty()) {
            EXPECT_EQ(refused, 0) << "frame " << frame << " written after one was refused";
            EXPECT_EQ(testutil::readBytes(file), whole) << frame;
            ++written;
        } else {
            EXPECT_NE(x.failure.find("No space left on device"), std::string::npos) << x.failure;
            EXPECT_FALSE(std::filesystem::exists(file)) << file;
            ++refused;
        }
    }
    ZSetMessageSink(nullptr, nullptr);
    EXPECT_GE(written, 1);
    EXPECT_GE(refused, 1);
}
