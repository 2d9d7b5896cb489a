// Reading caches back: the info token loop, the frame names on both sides, bit-exact
// frames in any order, and whole cache directories that were cut short or scrambled.
#include <gtest/gtest.h>

#include <filesystem>

#include "cache/CacheFixtures.h"
#include "cache/RuvoMisc.h"
#include "cache/ZCacheCommon.h"
#include "cache/ZCacheData.h"
#include "cache/ZCacheData2.h"
#include "feathers/FeatherFixtures.h"
#include "support/Damage.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

RuvoCacheInfo sentinel() {
    RuvoCacheInfo r;
    r.cacheType = "ct";
    r.nodeName = "nn";
    r.nodeType = "nt";
    r.meshNodeName = "mn";
    r.bindingScheme = 11;
    r.textureType = 12;
    r.cacheFormatVersion = 13.f;
    return r;
}

template <typename Cache>
void pointAt(Cache& c, fixtures::CacheGroom& g) {
    c.follicles = &g.follicles;
    c.curves = &g.curves;
    c.boundingBox = &g.box;
}

RuvoCacheInfo readInfo(const std::string& text) {
    testutil::TempDir tmp;
    std::ofstream(tmp.file("info"), std::ios::binary) << text;
    RuvoCacheInfo r = sentinel();
    EXPECT_TRUE(readInfoData(tmp.path(), &r));
    return r;
}

// Every byte the follicles and curves of a frame would write again.
std::vector<char> frameBytes(const ZCurves& c, const ZFollicles& f) {
    return fixtures::bytesOf([&](std::ofstream& o) {
        c.write(o);
        f.write(o, true);
        f.write(o, false);
    });
}

} // namespace

TEST(CacheReaders, InfoTokenLoop) {
    // Values end at a blank, a colon or a double-quote mark; an empty value reads as the
    // comma behind it; tokens without a colon and unknown or differently cased keys are
    // skipped; a later key wins; counts are not read. Lines play no part.
    const RuvoCacheInfo r = readInfo(
        "{\n\t\"NodeName\":\"my node\",\n"
        "\t\"NodeType\":\"ns:hair\",\n"
        "\t\"MeshNodeName\":\"\",\n"
        "\t\"cachetype\":\"lower\", \"CacheType\":\"Strands\", \"CacheType\":\"FeatherSet\",\n"
        "\tBindingScheme:\"5\", \"BindingScheme\":\"-7\",\"StrandsCount\":\"99\",\n"
        "\t\"TextureType\":\"3x\",\n"
        "\t\"CacheFormatVersion\":\"1.5\",\"SourceCount\":\"4\",\n}\n");
    EXPECT_EQ(r.nodeName, "my");
    EXPECT_EQ(r.nodeType, "ns");
    EXPECT_EQ(r.meshNodeName, ",");
    EXPECT_EQ(r.cacheType, "FeatherSet");
    EXPECT_EQ(r.bindingScheme, -7);
    EXPECT_EQ(r.textureType, 3);
    EXPECT_EQ(r.cacheFormatVersion, 1.5f);

    // Keys a record lacks keep their values; so does an empty or foreign file.
    RuvoCacheInfo partial = readInfo("\"NodeName\":\"x\"");  // no newline at the end
    EXPECT_EQ(partial.nodeName, "x");
    EXPECT_EQ(partial.cacheType, "ct");
    EXPECT_EQ(partial.bindingScheme, 11);
    for (const char* text : {"", "{}", "not an info file at all: really", "\"NodeName\":\"", "\"NodeName\"::::"}) {
        const RuvoCacheInfo same = readInfo(text);
        EXPECT_EQ(same.cacheType, "ct") << text;
        EXPECT_EQ(same.bindingScheme, 11) << text;
        // A key whose value holds nothing but quote marks reads as the empty text.
        EXPECT_TRUE(same.nodeName == "nn" || same.nodeName.empty()) << text;
    }
    EXPECT_TRUE(readInfo("\"NodeName\":\"").nodeName.empty());

    // A missing file: false and nothing touched.
    testutil::TempDir tmp;
    RuvoCacheInfo r2 = sentinel();
    EXPECT_FALSE(readInfoData(tmp.path(), &r2));
    EXPECT_EQ(r2.nodeName, "nn");
    EXPECT_EQ(r2.cacheFormatVersion, 13.f);

    // Devices named as an info file: an endless token or endless noise is read to a bound,
    // with an allocation to match, and returns.
    for (const char* device : {"/dev/zero", "/dev/urandom"}) {
        ZCacheData2 c;
        testutil::AllocationMeter meter;
        EXPECT_TRUE(c.getInfo(device)) << device;
        EXPECT_LE(meter.peakAbove(), 8 * ZCacheCommon::kMaxInfoBytes) << device;  // a few copies of the bound
    }
}

TEST(CacheReaders, InfoRecordIsTheTokenLoopsAnswer) {
    // Every key, known or not, by the rule readInfoData reads the known ones with: the two
    // can never disagree about a value.
    testutil::TempDir tmp;
    std::ofstream(tmp.file("info"), std::ios::binary)
        << "{\n\t\"NodeName\":\"ns:hair\",\n\t\"StrandsCount\":\"12\",\n\tBare:\"x\", \"a\"b\":\"y\",\n"
           "\t\"MeshNodeName\":\"\",\n\t\"StrandsCount\":\"13\",\n}\n";
    std::vector<std::pair<ZString, ZString>> record;
    ASSERT_TRUE(readInfoRecord(tmp.path(), &record));
    const std::vector<std::pair<ZString, ZString>> expected = {
        {"NodeName", "ns"}, {"StrandsCount", "13"}, {"MeshNodeName", ","}};
    EXPECT_EQ(record, expected);
    RuvoCacheInfo info = sentinel();
    ASSERT_TRUE(readInfoData(tmp.path(), &info));
    EXPECT_EQ(info.nodeName, record[0].second);
    EXPECT_EQ(info.meshNodeName, record[2].second);
    EXPECT_FALSE(readInfoRecord(tmp.file("absent"), &record));
    EXPECT_EQ(record.size(), 3u);
}

TEST(CacheReaders, HostFilesReadBackWhole) {
    // A cache with feathers, sources, transforms and folds at whole, negative and sub-frames,
    // read back with the library's readers alone and baked again: every file the same bytes.
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(6);
    ZFeather a = fixtures::diamondFeather(), b = fixtures::diamondFeather();
    b.name = "second";
    b.txBasePath = "/tex";
    b.txLayerName = "layer";
    b.MaterialSet = "mat";
    b.txmultiUV = 3;
    b.storedText = "kept";
    ZSource s1, s2;
    s1.name = "leaf";
    s1.color[2] = 0.5f;
    s1.mesh = a.mesh;
    s1.auxMeshB = b.mesh;
    s1.auxTextA = "A";
    s1.curves = a.curves;
    s1.boundingBox = ZBoundingBox(ZVector(-1, -2, -3), ZVector(1, 2, 3.25f));
    s1.storedInt = 77;
    s1.txAssetName = "asset";
    s2.name = "twig";
    s2.txLayerName = "layer";
    ZVectorArray scales(6), rotations(6);
    ZFloatArray folds(6);
    for (int i = 0; i < 6; ++i) {
        scales[i] = ZVector(1.f + i, 0.5f, 1.f / 3.f);
        rotations[i] = ZVector(10.f * i, -5.f, 0.1f);
        folds[i] = 0.3f + 0.01f * i;
    }
    auto bake = [&](ZCacheData2& c, const std::string& root, const std::vector<float>& frames) {
        c.nodeName = "plumes";
        c.nodeType = "t";
        c.meshNodeName = "body";
        c.bindingScheme = 4;
        c.textureType = 1;
        fs::create_directories(root);
        ASSERT_TRUE(c.bakeStaticData(root));
        for (float f : frames) {
            groom.setFrame(f);
            folds[0] = f;
            ASSERT_TRUE(c.bakePerFrameData(root, f));
        }
    };
    const std::vector<float> frames = {-3.f, 1.f, 2.5f, 1001.125f};
    ZCacheData2 original;
    pointAt(original, groom);
    original.feathers = {&a, &b};
    original.sources = {&s1, &s2};
    original.scales = &scales;
    original.rotations = &rotations;
    original.folds = &folds;
    bake(original, tmp.file("a"), frames);
    const std::string dir = tmp.file("a/plumes");
    // Names no bake writes are not frames.
    for (const char* stray : {"curves_p01", "curves_p1.50", "curves_z0", "curves_m5", "curves_p-1", "curves_px"})
        testutil::writeBytes(dir + "/" + stray, {});

    std::vector<float> found;
    ASSERT_TRUE(readCacheFrames(dir, &found));
    EXPECT_EQ(found, frames);
    std::vector<ZFeather> feathers;
    std::vector<ZSource> sources;
    ASSERT_TRUE(readFeathersData(dir, &feathers));
    ASSERT_TRUE(readSourcesData(dir, &sources));
    ASSERT_EQ(feathers.size(), 2u);
    ASSERT_EQ(sources.size(), 2u);
    EXPECT_EQ(feathers[1].MaterialSet, "mat");
    EXPECT_EQ(sources[0].txAssetName, "asset");
    ZFollicles statics;
    {
        std::ifstream in(dir + "/follicles", std::ios::binary);
        statics.read(in);
    }
    ZCacheData2 copy;
    std::vector<ZFeather*> fp = {&feathers[0], &feathers[1]};
    std::vector<ZSource*> sp = {&sources[0], &sources[1]};
    copy.feathers = fp;
    copy.sources = sp;
    copy.nodeName = "plumes";
    copy.follicles = &statics;
    ZCurves curves;
    ZFollicles follicles;
    ZBoundingBox box;
    ZVectorArray readScales, readRotations;
    ZFloatArray readFolds;
    copy.curves = &curves;
    fs::create_directories(tmp.file("b"));
    ASSERT_TRUE(copy.bakeStaticData(tmp.file("b")));
    for (float f : frames) {
        ASSERT_TRUE(readStrandsData(dir, static_cast<int>(f), &curves, &follicles) || f != std::floor(f));
        if (f != std::floor(f)) {  // readStrandsData takes whole frames: read the record itself
            std::ifstream in(ZCacheCommon::frameFile(dir, ZCacheCommon::kCurves, f).c_str(), std::ios::binary);
            follicles = statics;
            ASSERT_TRUE(curves.read(in));
            follicles.read(in);
        }
        ASSERT_TRUE(readBoundingBoxData(dir, f, &box)) << f;
        ASSERT_TRUE(readFeatherTransformsData(dir, f, &readScales, &readRotations)) << f;
        ASSERT_TRUE(readFoldsData(dir, f, &readFolds)) << f;
        EXPECT_EQ(readFolds[0], f);
        copy.follicles = &follicles;
        copy.boundingBox = &box;
        copy.scales = &readScales;
        copy.rotations = &readRotations;
        copy.folds = &readFolds;
        ASSERT_TRUE(copy.bakePerFrameData(tmp.file("b"), f)) << f;
    }
    for (const auto& e : fs::directory_iterator(dir)) {
        const std::string name = e.path().filename().string();
        if (name == "info" || fs::file_size(e.path()) == 0) continue;  // a time stamp; the strays
        EXPECT_EQ(testutil::readBytes(e.path().string()), testutil::readBytes(tmp.file("b/plumes/" + name))) << name;
    }

    // Missing, cut short or damaged: false and the outputs as they were; what is read stays
    // within a few times the file's bytes.
    const char* files[] = {"feathers", "rmanAttrs", "sources", "xforms_p1", "folds_p1", "bbox_p1"};
    for (const char* name : files) {
        const std::vector<char> good = testutil::readBytes(dir + "/" + name);
        testutil::forEachDamaged(good, {std::max<size_t>(1, good.size() / 61), 30, 10, 2 * good.size()},
                                 [&](const std::vector<char>& bytes, const std::string& what) {
                                     testutil::writeBytes(dir + "/" + name, bytes);
                                     testutil::expectBoundedPeak(bytes.size(), name + (" " + what), [&] {
                                         std::vector<ZFeather> f;
                                         std::vector<ZSource> s;
                                         ZBoundingBox bx;
                                         ZVectorArray sc, ro;
                                         ZFloatArray fo;
                                         if (readFeathersData(dir, &f))
                                             for (ZFeather& t : f) t.initialize();
                                         if (readSourcesData(dir, &s))
                                             for (ZSource& t : s) t.initialize();
                                         readBoundingBoxData(dir, 1.f, &bx);
                                         if (readFeatherTransformsData(dir, 1.f, &sc, &ro)) {
                                             EXPECT_EQ(sc.size(), ro.size());
                                         }
                                         readFoldsData(dir, 1.f, &fo);
                                     });
                                 });
        if (good.size() > 8) {  // cut short by a byte: refused
            testutil::writeBytes(dir + "/" + name, std::vector<char>(good.begin(), good.end() - 1));
            std::vector<ZFeather> f = {ZFeather()};
            std::vector<ZSource> s = {ZSource()};
            ZBoundingBox bx;
            ZVectorArray sc, ro;
            ZFloatArray fo = {9.f};
            const bool all = readFeathersData(dir, &f) && readSourcesData(dir, &s) && readBoundingBoxData(dir, 1.f, &bx) &&
                             readFeatherTransformsData(dir, 1.f, &sc, &ro) && readFoldsData(dir, 1.f, &fo);
            EXPECT_FALSE(all) << name;
            EXPECT_TRUE(f.size() == 1 || s.size() == 1 || fo.size() == 1 || bx.isEmpty() || sc.empty()) << name;
        }
        testutil::writeBytes(dir + "/" + name, good);
    }
    fs::remove(dir + "/rmanAttrs");
    EXPECT_FALSE(readFeathersData(dir, &feathers));
}

TEST(CacheReaders, ValidPathAndName) {
    testutil::TempDir tmp;
    fs::create_directories(tmp.file("empty"));
    EXPECT_TRUE(isValidCachePathAndCacheName(tmp.path(), "empty"));  // nothing looks inside
    EXPECT_TRUE(isValidCachePathAndCacheName(tmp.path(), ""));       // path + "/" exists
    EXPECT_FALSE(isValidCachePathAndCacheName(tmp.path(), "absent"));
    EXPECT_FALSE(isValidCachePathAndCacheName(tmp.file("absent"), ""));
}

TEST(CacheReaders, FramesReadBackBitForBitInAnyOrder) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(9);
    groom.follicles.ln1[3] = -0.f;  // a negative zero must survive as such
    ZCacheData2 c;
    c.follicles = &groom.follicles;
    c.curves = &groom.curves;
    c.boundingBox = &groom.box;
    c.nodeName = "hair";
    c.nodeType = "t";
    c.meshNodeName = "body";
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));

    const int frames[] = {-3, 1, 2, 7, 1001};
    std::map<int, std::vector<char>> expected;
    std::map<int, ZCurves> curvesAt;
    for (int f : frames) {
        groom.setFrame(static_cast<float>(f));
        ASSERT_TRUE(c.bakePerFrameData(tmp.path(), static_cast<float>(f)));
        expected[f] = frameBytes(groom.curves, groom.follicles);
        curvesAt[f] = groom.curves;
    }
    const std::string dir = tmp.file("hair");
    ASSERT_TRUE(isValidCachePathAndCacheName(tmp.path(), "hair"));
    RuvoCacheInfo info = sentinel();
    ASSERT_TRUE(readInfoData(dir, &info));
    EXPECT_EQ(info.cacheType, "Strands");
    EXPECT_EQ(info.meshNodeName, "body");
    EXPECT_EQ(info.cacheFormatVersion, 1.f);
    EXPECT_EQ(info.bindingScheme, -1);

    // Backwards into fresh objects, then forwards into the same reused objects.
    for (auto it = expected.rbegin(); it != expected.rend(); ++it) {
        ZCurves curves;
        ZFollicles follicles;
        ASSERT_TRUE(readStrandsData(dir, it->first, &curves, &follicles)) << it->first;
        EXPECT_EQ(frameBytes(curves, follicles), it->second) << it->first;
    }
    ZCurves curves;
    ZFollicles follicles;
    for (const auto& [f, bytes] : expected) {
        ASSERT_TRUE(readStrandsData(dir, f, &curves, &follicles));
        EXPECT_EQ(frameBytes(curves, follicles), bytes) << f;
    }

    // Whole frames are told from frames cut short (which the reader pads with zeros) or
    // with bytes behind their records.
    for (int f : frames) EXPECT_TRUE(isStrandsFrameWhole(dir, static_cast<float>(f))) << f;
    {
        const std::string path = dir + "/curves_p2";
        const std::vector<char> good = testutil::readBytes(path);
        testutil::writeBytes(path, std::vector<char>(good.begin(), good.end() - 1));
        EXPECT_FALSE(isStrandsFrameWhole(dir, 2.f));
        std::vector<char> longer = good;
        longer.push_back('\0');
        testutil::writeBytes(path, longer);
        EXPECT_FALSE(isStrandsFrameWhole(dir, 2.f));
        testutil::writeBytes(path, good);
        EXPECT_FALSE(isStrandsFrameWhole(dir, 3.f));  // no such frame
    }

    // Frame 0: written as p0, looked for as z0.
    groom.setFrame(0.f);
    ASSERT_TRUE(c.bakePerFrameData(tmp.path(), 0.f));
    const ZCurves before = curves;
    EXPECT_FALSE(readStrandsData(dir, 0, &curves, &follicles));
    EXPECT_EQ(curves, before);
    fs::rename(dir + "/curves_p0", dir + "/curves_z0");
    ASSERT_TRUE(readStrandsData(dir, 0, &curves, &follicles));
    EXPECT_EQ(frameBytes(curves, follicles), frameBytes(groom.curves, groom.follicles));

    // No follicles: false, with the curves of the frame already read.
    fs::remove(dir + "/follicles");
    ZCurves c7;
    ZFollicles f7;
    EXPECT_FALSE(readStrandsData(dir, 7, &c7, &f7));
    EXPECT_EQ(c7, curvesAt[7]);
    EXPECT_EQ(f7.numStrands(), 0);
    EXPECT_FALSE(readStrandsData(dir, 8, &c7, &f7));  // no such frame
}

TEST(CacheReaders, DamagedCacheDirectoriesAreSurvived) {
    testutil::TempDir tmp;
    fixtures::CacheGroom groom(25);
    ZCacheData c;
    c.follicles = &groom.follicles;
    c.curves = &groom.curves;
    c.boundingBox = &groom.box;
    c.nodeName = "hair";
    ASSERT_TRUE(c.bakeStaticData(tmp.path()));
    for (int f = 1; f <= 2; ++f) {
        groom.setFrame(static_cast<float>(f));
        ASSERT_TRUE(c.bakePerFrameData(tmp.path(), static_cast<float>(f)));
    }
    const std::string dir = tmp.file("hair");
    const std::vector<std::string> names = {"info", "follicles", "curves_p1", "curves_p2"};
    std::map<std::string, std::vector<char>> good;
    for (const auto& n : names) good[n] = testutil::readBytes(dir + "/" + n);

    // Reads the whole directory the way a host does, and checks the memory that took
    // against the bytes on disk.
    size_t worst = 0;
    int runs = 0;
    auto readAll = [&](const std::string& what) {
        size_t bytes = 0;
        for (const auto& n : names) bytes += fs::file_size(dir + "/" + n);
        worst = std::max(worst, testutil::expectBoundedPeak(bytes, what, [&] {
            RuvoCacheInfo info = sentinel();
            readInfoData(dir, &info);
            ZCacheData d;
            d.getInfo((dir + "/info").c_str());
            ZCurves curves;
            ZFollicles follicles;
            for (int f = 1; f <= 2; ++f) {
                readStrandsData(dir, f, &curves, &follicles);
                // Whatever was accepted must be safe to use.
                for (int i = 0; i < curves.numCurves(); ++i) curves.position(i, 0.5f);
            }
        }));
        ++runs;
    };
    auto restore = [&] {
        for (const auto& n : names) testutil::writeBytes(dir + "/" + n, good[n]);
    };

    // Each file cut short (every byte of the small ones, a spread otherwise), with bytes
    // changed at random, and replaced by noise.
    for (const auto& n : names) {
        testutil::forEachDamaged(good[n], {std::max<size_t>(1, good[n].size() / 97), 40, 40, 2 * good[n].size()},
                                 [&](const std::vector<char>& bytes, const std::string& what) {
                                     testutil::writeBytes(dir + "/" + n, bytes);
                                     readAll(n + " " + what);
                                 });
        restore();
    }
    // Files swapped between frames and kinds, and a directory of empty files.
    const std::pair<const char*, const char*> swaps[] = {
        {"curves_p1", "follicles"}, {"follicles", "curves_p2"}, {"info", "curves_p1"}, {"curves_p2", "info"}};
    for (const auto& [from, to] : swaps) {
        testutil::writeBytes(dir + "/" + to, good[from]);
        readAll(std::string(from) + " as " + to);
        restore();
    }
    for (const auto& n : names) testutil::writeBytes(dir + "/" + n, {});
    readAll("empty files");
    std::cout << runs << " damaged directories read; worst peak " << worst << " bytes\n";
}
