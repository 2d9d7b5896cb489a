// Baking: the files of a cache directory byte for byte, which files exist when, what a
// second bake leaves behind, and every failure with its message.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "cache/CacheFixtures.h"
#include "cache/ZCacheData.h"
#include "cache/ZCacheData2.h"
#include "feathers/FeatherFixtures.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

std::vector<std::string> filesIn(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string systemText() {
    ZString s;
    ZGetSystemInfo(s);
    return s;
}

// The info file must be `head`, then the machine text as ZGetSystemInfo gives it, then
// "}\n". The machine text carries a time stamp, so it is taken just before and just after
// the bake and one of the two must match.
template <typename Bake>
void expectInfo(const std::string& infoPath, const std::string& head, Bake&& bake) {
    const std::string before = systemText();
    ASSERT_TRUE(bake());
    const std::string after = systemText();
    const std::string info = fixtures::readText(infoPath);
    EXPECT_TRUE(info == head + before + "}\n" || info == head + after + "}\n") << info;
}

template <typename Cache>
void pointAt(Cache& c, fixtures::CacheGroom& g) {
    c.follicles = &g.follicles;
    c.curves = &g.curves;
    c.boundingBox = &g.box;
}

} // namespace

TEST(CacheBake, StrandCacheInfoAndFollicles) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(5);
    ZCacheData c;
    pointAt(c, groom);
    c.nodeName = "hair";
    c.nodeType = "say \"what\"";   // written as it stands, unescaped
    c.meshNodeName = "bodyShape";
    c.cacheFormatVersion = 2.f;     // never written: every cache says version 1
    const std::string head =
        "{\n"
        "\t\"CacheType\":\"Strands\",\n"
        "\t\"NodeName\":\"hair\",\n"
        "\t\"NodeType\":\"say \"what\"\",\n"
        "\t\"MeshNodeName\":\"bodyShape\",\n"
        "\t\"BindingScheme\":\"-1\",\n"
        "\t\"TextureType\":\"-1\",\n"
        "\t\"CacheFormatVersion\":\"1\",\n"
        "\t\"StrandsCount\":\"5\",\n"
        "\t\"FeatherCount\":\"0\",\n";
    expectInfo(tmp.file("hair/info"), head, [&] { return c.bakeStaticData(tmp.path()); });
    EXPECT_EQ(filesIn(tmp.file("hair")), (std::vector<std::string>{"follicles", "info"}));
    EXPECT_EQ(testutil::readBytes(tmp.file("hair/follicles")),
              fixtures::bytesOf([&](std::ofstream& o) { groom.follicles.write(o, true); }));
    struct stat st;
    ASSERT_EQ(::stat(tmp.file("hair").c_str(), &st), 0);
    const mode_t mask = ::umask(0);
    ::umask(mask);
    EXPECT_EQ(st.st_mode & 0777, 0755u & ~mask);

    // The second generation with neither feathers nor sources adds only its count line.
    ZCacheData2 c2;
    pointAt(c2, groom);
    c2.nodeName = "hair2";
    c2.nodeType = c.nodeType;
    c2.meshNodeName = "bodyShape";
    c2.bindingScheme = 4;
    c2.textureType = 0;
    std::string head2 = head;
    head2.replace(head2.find("\"hair\""), 6, "\"hair2\"");
    head2.replace(head2.find("\"-1\""), 4, "\"4\"");
    head2.replace(head2.find("\"-1\""), 4, "\"0\"");
    head2 += "\t\"SourceCount\":\"0\",\n";
    expectInfo(tmp.file("hair2/info"), head2, [&] { return c2.bakeStaticData(tmp.path()); });
    EXPECT_EQ(filesIn(tmp.file("hair2")), (std::vector<std::string>{"follicles", "info"}));
}

TEST(CacheBake, FeatherAndSourceFiles) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(3);
    ZFeather a = fixtures::diamondFeather(), b = fixtures::diamondFeather();
    b.name = "second";
    b.txBasePath = "/tex";
    b.txmultiUV = 3;
    ZSource s1, s2;
    s1.name = "leaf";
    s1.color[0] = 0.25f;
    s1.mesh = a.mesh;
    s1.auxMeshA = b.mesh;
    s1.auxTextA = "A";
    s1.curves = a.curves;
    s1.auxTextB = "B";
    s1.boundingBox = ZBoundingBox(ZVector(-1, -2, -3), ZVector(1, 2, 3));
    s1.storedInt = 77;
    s1.txAssetName = "asset";
    s2.name = "twig";
    s2.txLayerName = "layer";
    s2.storedInt = -4;

    // Feathers, first generation: three feather files, the last two alike.
    ZCacheData c;
    pointAt(c, groom);
    c.nodeName = "plumes";
    c.feathers = {&a, &b};
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));
    const std::string dir = tmp.file("plumes");
    EXPECT_EQ(filesIn(dir), (std::vector<std::string>{"featherRManAttrs", "feathers", "follicles", "info",
                                                       "rmanAttrs"}));
    const std::string info = fixtures::readText(dir + "/info");
    EXPECT_EQ(info.rfind("{\n\t\"CacheType\":\"FeatherSet\",\n", 0), 0u);
    EXPECT_NE(info.find("\t\"StrandsCount\":\"3\",\n\t\"FeatherCount\":\"2\",\n\t\"System"), std::string::npos);
    EXPECT_EQ(info.find("SourceCount"), std::string::npos);
    const auto count2 = fixtures::bytesOf([](std::ofstream& o) { const int32_t n = 2; o.write((const char*)&n, 4); });
    EXPECT_EQ(testutil::readBytes(dir + "/feathers"),
              fixtures::concat({count2, fixtures::bytesOf([&](std::ofstream& o) { a.write(o); }),
                                fixtures::bytesOf([&](std::ofstream& o) { b.write(o); })}));
    const auto attrs = fixtures::concat({count2, fixtures::bytesOf([&](std::ofstream& o) { a.writeRManAttrs(o); }),
                                         fixtures::bytesOf([&](std::ofstream& o) { b.writeRManAttrs(o); })});
    EXPECT_EQ(testutil::readBytes(dir + "/rmanAttrs"), attrs);
    EXPECT_EQ(testutil::readBytes(dir + "/featherRManAttrs"), attrs);

    // Sources without feathers: a "FeatherSet" with a sources file and no feather files.
    ZCacheData2 c2;
    pointAt(c2, groom);
    c2.nodeName = "leaves";
    c2.sources = {&s1, &s2};
    ASSERT_TRUE(c2.bakeStaticData(tmp.path()));
    const std::string dir2 = tmp.file("leaves");
    EXPECT_EQ(filesIn(dir2), (std::vector<std::string>{"follicles", "info", "sources"}));
    const std::string info2 = fixtures::readText(dir2 + "/info");
    EXPECT_EQ(info2.rfind("{\n\t\"CacheType\":\"FeatherSet\",\n", 0), 0u);
    EXPECT_NE(info2.find("\t\"FeatherCount\":\"0\",\n\t\"SourceCount\":\"2\",\n\t\"System"), std::string::npos);

    // The sources file runs column by column through both sources.
    using testutil::appendPod;
    auto str = [](const ZString& s) { return fixtures::bytesOf([&](std::ofstream& o) { s.write(o, true); }); };
    auto mesh = [](const ZTriMesh& m) { return fixtures::bytesOf([&](std::ofstream& o) { m.write(o); }); };
    std::vector<char> head, colors, ints, entries;
    appendPod(head, int32_t(2));
    appendPod(head, int32_t(12));
    for (const ZSource* s : {&s1, &s2}) {
        for (float v : s->color) appendPod(colors, v);
        appendPod(ints, s->storedInt);
        appendPod(entries, int32_t(2));
        entries = fixtures::concat({entries, str("txAssetName"), str(s->txAssetName), str("txLayerName"),
                                    str(s->txLayerName)});
    }
    const auto expected = fixtures::concat(
        {head, str("leaf"), str("twig"), colors, mesh(s1.mesh), mesh(s2.mesh), mesh(s1.auxMeshA), mesh(s2.auxMeshA),
         mesh(s1.auxMeshB), mesh(s2.auxMeshB), str("A"), str(""),
         fixtures::bytesOf([&](std::ofstream& o) { s1.curves.write(o); s2.curves.write(o); }), str("B"), str(""),
         fixtures::bytesOf([&](std::ofstream& o) { s1.boundingBox.write(o); s2.boundingBox.write(o); }), ints,
         entries});
    EXPECT_EQ(testutil::readBytes(dir2 + "/sources"), expected);

    // Both kinds: every file, sources last; changing a carried mesh changes only sources.
    c2.nodeName = "both";
    c2.feathers = {&a};
    ASSERT_TRUE(c2.bakeStaticData(tmp.path()));
    EXPECT_EQ(filesIn(tmp.file("both")), (std::vector<std::string>{"featherRManAttrs", "feathers", "follicles",
                                                                    "info", "rmanAttrs", "sources"}));
    const auto feathersBefore = testutil::readBytes(tmp.file("both/feathers"));
    const auto sourcesBefore = testutil::readBytes(tmp.file("both/sources"));
    s2.auxMeshA = a.mesh;
    ASSERT_TRUE(c2.bakeStaticData(tmp.path()));
    EXPECT_EQ(testutil::readBytes(tmp.file("both/feathers")), feathersBefore);
    EXPECT_NE(testutil::readBytes(tmp.file("both/sources")), sourcesBefore);
}

TEST(CacheBake, PerFrameFilesAndTags) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(4);
    ZCacheData c;
    pointAt(c, groom);
    c.nodeName = "n";
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));
    const std::string dir = tmp.file("n");

    // The sign stays in the text; whole frames have no fraction.
    const std::pair<float, const char*> tags[] = {
        {1001.f, "p1001"}, {0.f, "p0"}, {-0.f, "p0"}, {-5.f, "m-5"}, {1.5f, "p1.5"}, {-0.25f, "m-0.25"}};
    for (const auto& [frame, tag] : tags) {
        groom.setFrame(frame);
        ASSERT_TRUE(c.bakePerFrameData(tmp.path(), frame)) << tag;
        EXPECT_EQ(testutil::readBytes(dir + "/curves_" + tag), fixtures::bytesOf([&](std::ofstream& o) {
                      groom.curves.write(o);
                      groom.follicles.write(o, false);
                  })) << tag;
    }
    EXPECT_EQ(filesIn(dir), (std::vector<std::string>{"bbox_m-0.25", "bbox_m-5", "bbox_p0", "bbox_p1.5", "bbox_p1001",
                                                       "curves_m-0.25", "curves_m-5", "curves_p0", "curves_p1.5",
                                                       "curves_p1001", "follicles", "info"}));

    // The box line: min x, max x, min y, max y, min z, max z at six significant digits.
    groom.box = ZBoundingBox(ZVector(0.1f, -2.f, 1234567.f), ZVector(3.f, 1e-7f, 1234568.f));
    // scales without rotations writes no xforms_; folds alone writes folds_.
    ZVectorArray scales{ZVector(1, 2, 3), ZVector(4, 5, 6), ZVector(7, 8, 9), ZVector(1, 0, 0)},
        rotations{ZVector(90, 0, -45), ZVector(0, 0, 0), ZVector(1, 2, 3), ZVector(-1, -2, -3)};
    ZFloatArray folds{0.5f, -0.25f, 2.f, 0.f};
    c.scales = &scales;
    c.folds = &folds;
    ASSERT_TRUE(c.bakePerFrameData(tmp.path(), 2.f));
    EXPECT_EQ(fixtures::readText(dir + "/bbox_p2"), "0.1 3 -2 1e-07 1.23457e+06 1.23457e+06\n");
    EXPECT_FALSE(fs::exists(dir + "/xforms_p2"));
    std::vector<char> foldBytes;
    testutil::appendPod(foldBytes, int32_t(4));
    for (float f : folds) testutil::appendPod(foldBytes, f);
    EXPECT_EQ(testutil::readBytes(dir + "/folds_p2"), foldBytes);

    c.rotations = &rotations;
    c.folds = nullptr;
    ASSERT_TRUE(c.bakePerFrameData(tmp.path(), 3.f));
    std::vector<char> xf;
    testutil::appendPod(xf, int32_t(4));
    for (const ZVector& v : scales) testutil::appendPod(xf, v);
    testutil::appendPod(xf, int32_t(4));
    for (const ZVector& v : rotations) testutil::appendPod(xf, v);
    EXPECT_EQ(testutil::readBytes(dir + "/xforms_p3"), xf);
    EXPECT_FALSE(fs::exists(dir + "/folds_p3"));
}

TEST(CacheBake, SecondBakeTruncatesWhatItWritesAndLeavesTheRest) {
    testutil::TempDir tmp;
    fixtures::CacheGroom big(40), small(2);
    ZFeather feather = fixtures::diamondFeather();
    ZCacheData c;
    pointAt(c, big);
    c.nodeName = "n";
    c.feathers = {&feather};
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));
    ASSERT_TRUE(c.bakePerFrameData(tmp.path(), 1.f));
    ASSERT_TRUE(c.bakePerFrameData(tmp.path(), 2.f));
    const auto feathers = testutil::readBytes(tmp.file("n/feathers"));
    const auto frame2 = testutil::readBytes(tmp.file("n/curves_p2"));

    pointAt(c, small);
    c.feathers.clear();
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));   // the directory exists already: fine
    ASSERT_TRUE(c.bakePerFrameData(tmp.path(), 1.f));
    EXPECT_EQ(testutil::readBytes(tmp.file("n/follicles")),
              fixtures::bytesOf([&](std::ofstream& o) { small.follicles.write(o, true); }));
    EXPECT_EQ(testutil::readBytes(tmp.file("n/curves_p1")), fixtures::bytesOf([&](std::ofstream& o) {
                  small.curves.write(o);
                  small.follicles.write(o, false);
              }));
    EXPECT_NE(fixtures::readText(tmp.file("n/info")).find("\"Strands\""), std::string::npos);
    // Not rewritten, so left as they were: the other frame, and the feather files.
    EXPECT_EQ(testutil::readBytes(tmp.file("n/curves_p2")), frame2);
    EXPECT_EQ(testutil::readBytes(tmp.file("n/feathers")), feathers);
    EXPECT_TRUE(fs::exists(tmp.file("n/rmanAttrs")));
}

TEST(CacheBake, FailuresPrintTheirMessageAndStop) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(3);
    auto run = [](auto&& f) {
        testing::internal::CaptureStdout();
        const bool ok = f();
        return std::make_pair(ok, testing::internal::GetCapturedStdout());
    };
    const std::string failWrite = "Error@ZCacheData::bakeStaticData(): Failed to write file: ";

    // No data: nothing on disk. Both generations name ZCacheData.
    ZCacheData c;
    c.nodeName = "n";
    c.curves = &groom.curves;
    EXPECT_EQ(run([&] { return c.bakeStaticData(tmp.path()); }),
              std::make_pair(false, std::string("Error@ZCacheData::bakeStaticData(): No data.\n")));
    ZCacheData2 c2;
    c2.nodeName = "n";
    c2.follicles = &groom.follicles;
    EXPECT_EQ(run([&] { return c2.bakeStaticData(tmp.path()); }),
              std::make_pair(false, std::string("Error@ZCacheData::bakeStaticData(): No data.\n")));
    EXPECT_FALSE(fs::exists(tmp.file("n")));

    // A directory that cannot be created: its parent is missing.
    pointAt(c, groom);
    const std::string missing = tmp.file("no/such");
    EXPECT_EQ(run([&] { return c.bakeStaticData(missing); }),
              std::make_pair(false, "Error@ZCacheData::bakeStaticData(): Failed to create directory: " + missing + "/n\n"));

    // A file that cannot be opened (a directory stands in its place): files before it stay.
    fs::create_directories(tmp.file("n/follicles"));
    EXPECT_EQ(run([&] { return c.bakeStaticData(tmp.path()); }),
              std::make_pair(false, failWrite + tmp.file("n/follicles") + "\n"));
    EXPECT_TRUE(fs::exists(tmp.file("n/info")));
    fs::remove(tmp.file("n/follicles"));

    // Per-frame: the bake does not create the directory, and reports under bakeStaticData.
    c.nodeName = "absent";
    EXPECT_EQ(run([&] { return c.bakePerFrameData(tmp.path(), -3.f); }),
              std::make_pair(false, failWrite + tmp.file("absent/curves_m-3") + "\n"));
    c.nodeName = "n";
    fs::create_directories(tmp.file("n/bbox_p4"));
    EXPECT_EQ(run([&] { return c.bakePerFrameData(tmp.path(), 4.f); }),
              std::make_pair(false, failWrite + tmp.file("n/bbox_p4") + "\n"));
    EXPECT_TRUE(fs::exists(tmp.file("n/curves_p4")));

    // Second generation: a failing feather file stops the bake before sources.
    ZFeather f = fixtures::diamondFeather();
    ZSource s;
    pointAt(c2, groom);
    c2.nodeName = "m";
    c2.feathers = {&f};
    c2.sources = {&s};
    fs::create_directories(tmp.file("m/rmanAttrs"));
    EXPECT_EQ(run([&] { return c2.bakeStaticData(tmp.path()); }),
              std::make_pair(false, failWrite + tmp.file("m/rmanAttrs") + "\n"));
    EXPECT_TRUE(fs::exists(tmp.file("m/feathers")));
    EXPECT_FALSE(fs::exists(tmp.file("m/featherRManAttrs")));
    EXPECT_FALSE(fs::exists(tmp.file("m/sources")));
}

// Unset pointers (after reset() too) and per-strand arrays of the wrong length: refused with
// a message before any file of the frame is written, by both generations.
template <typename Cache>
void refusesUnsetAndMismatchedInput() {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(3);
    fs::create_directories(tmp.file("n"));
    Cache c;
    c.nodeName = "n";
    auto refused = [&](const char* message) {
        testing::internal::CaptureStdout();
        const bool ok = c.bakePerFrameData(tmp.path(), 7.f);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string("Error@ZCacheData::bakeStaticData(): ") + message + "\n");
        EXPECT_FALSE(ok);
        EXPECT_TRUE(filesIn(tmp.file("n")).empty()) << message;
    };
    refused("No data.");
    pointAt(c, groom);
    c.boundingBox = nullptr;
    refused("No data.");
    pointAt(c, groom);
    c.reset();
    c.nodeName = "n";
    refused("No data.");
    pointAt(c, groom);
    ZFeather* none = nullptr;
    c.feathers = {none};
    refused("No data.");
    c.feathers.clear();

    ZVectorArray three(3), four(4);
    ZFloatArray two(2);
    c.scales = &four;
    c.rotations = &three;
    refused("Wrong data: scales has 4 elements for 3 strands.");
    c.scales = &three;
    c.folds = &two;
    refused("Wrong data: folds has 2 elements for 3 strands.");
    c.folds = nullptr;
    c.rotations = nullptr;  // scales alone write no xforms_ file: their length does not matter
    c.scales = &four;
    ZCurves curves = groom.curves;
    c.curves = &curves;
    curves.start[2] = curves.cvs.length() - curves.numCVs[2] + 1;  // one CV past the end
    refused(("Wrong data: strand 2 lies outside the curves' " + std::to_string(curves.cvs.length()) + " CVs.").c_str());
    curves.numCVs.pop_back();
    curves.start.pop_back();
    refused("Wrong data: curves has 2 elements for 3 strands.");
    c.curves = &groom.curves;
    EXPECT_TRUE(c.bakePerFrameData(tmp.path(), 7.f));
    EXPECT_EQ(filesIn(tmp.file("n")), (std::vector<std::string>{"bbox_p7", "curves_p7"}));
}

TEST(CacheBake, UnsetAndMismatchedInputAreRefusedBeforeAnyFile) {
    refusesUnsetAndMismatchedInput<ZCacheData>();
    refusesUnsetAndMismatchedInput<ZCacheData2>();
}

TEST(CacheBake, ResetGetInfoAndPrinting) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(2);
    ZFeather f;
    ZSource s;
    ZCacheData2 c;
    pointAt(c, groom);
    c.nodeName = "hair";
    c.nodeType = "groomNode";
    c.meshNodeName = "body";
    c.bindingScheme = 6;
    c.textureType = 2;
    c.feathers = {&f};
    c.sources = {&s};
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));

    c.reset();  // keeps the lists, clears the rest
    EXPECT_EQ(c.feathers.size(), 1u);
    EXPECT_EQ(c.sources.size(), 1u);
    EXPECT_TRUE(c.follicles == nullptr && c.curves == nullptr && c.boundingBox == nullptr);
    EXPECT_EQ(c.bindingScheme, -1);
    EXPECT_EQ(c.cacheFormatVersion, 1.f);

    ZCacheData d;
    d.nodeType = "stale";
    ASSERT_TRUE(d.getInfo(tmp.file("hair/info").c_str()));
    EXPECT_EQ(d.cacheType, "FeatherSet");
    EXPECT_EQ(d.nodeName, "hair");
    EXPECT_EQ(d.nodeType, "groomNode");
    EXPECT_EQ(d.meshNodeName, "body");
    EXPECT_EQ(d.bindingScheme, 6);
    EXPECT_EQ(d.textureType, 2);
    EXPECT_EQ(d.cacheFormatVersion, 1.f);
    std::ostringstream os;
    os << d;
    EXPECT_EQ(os.str(),
              "<ZCacheData>\n Cache Type          : FeatherSet\n Node Name           : hair\n"
              " Binding Scheme      : 6\n Texture Type        : 2\n Cache Format Version: 1\n");

    // A missing file clears the fields and reads version 0, not reset's 1.
    EXPECT_FALSE(c.getInfo(tmp.file("nothing").c_str()));
    EXPECT_EQ(c.cacheFormatVersion, 0.f);
    EXPECT_EQ(c.textureType, -1);
    EXPECT_TRUE(c.nodeName.empty());
    std::ostringstream os2;
    os2 << c;
    EXPECT_EQ(os2.str(),
              "<ZCacheData2>\n Cache Type          : \n Node Name           : \n"
              " Binding Scheme      : -1\n Texture Type        : -1\n Cache Format Version: 0\n");
}
