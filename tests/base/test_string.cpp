// ZString: float text for cache names, split for the info reader, and the binary form.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "base/UlmexBase.h"
#include "support/TestUtil.h"

using namespace Ulmex;

TEST(ZStringFloat, WholeNumbersHaveNoFractionAndNoExponent) {
    EXPECT_EQ(ZString(1001.f), "1001");
    EXPECT_EQ(ZString(-5.f), "-5");
    EXPECT_EQ(ZString(0.f), "0");
    EXPECT_EQ(ZString(-0.f), "0");
    EXPECT_EQ(ZString(1e10f), "10000000000");
    EXPECT_EQ(ZString(16777216.f), "16777216");
}

TEST(ZStringFloat, FractionsAreShortestRoundTrip) {
    EXPECT_EQ(ZString(1001.5f), "1001.5");
    EXPECT_EQ(ZString(0.1f), "0.1");
    EXPECT_EQ(ZString(-2.25f), "-2.25");
    std::mt19937 gen(7);
    std::uniform_real_distribution<float> d(-1e6f, 1e6f);
    for (int i = 0; i < 2000; ++i) {
        const float f = d(gen);
        EXPECT_EQ(ZString(f).asFloat(), f) << ZString(f);
    }
    EXPECT_EQ(ZString(std::numeric_limits<float>::infinity()), "inf");
    EXPECT_EQ(ZString(-std::numeric_limits<float>::infinity()), "-inf");
    EXPECT_EQ(ZString(std::nanf("")), "nan");
}

TEST(ZStringSplit, NoEmptyPiecesAndOutputReplaced) {
    std::vector<ZString> pieces{"stale", "entries"};
    ZString("a::b:c:").split(":", pieces);
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[0], "a");
    EXPECT_EQ(pieces[1], "b");
    EXPECT_EQ(pieces[2], "c");

    // The info reader's use: the value is the first piece after a quote split.
    ZString("\"NodeName\":\"groom1\",").split(":", pieces);
    ASSERT_EQ(pieces.size(), 2u);
    std::vector<ZString> value;
    pieces[1].split("\"", value);
    ASSERT_FALSE(value.empty());
    EXPECT_EQ(value[0], "groom1");

    ZString("").split(":", pieces);
    EXPECT_TRUE(pieces.empty());
    ZString(":::").split(":", pieces);
    EXPECT_TRUE(pieces.empty());
    ZString("a--b----c").split("--", pieces);
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[2], "c");
    ZString("abc").split("", pieces);
    ASSERT_EQ(pieces.size(), 1u);
}

TEST(ZStringBasics, ComparisonConcatenationAndNumbers) {
    ZString s("abc");
    EXPECT_TRUE(s == "abc");
    EXPECT_TRUE(s != "abd");
    EXPECT_FALSE(s == "ab");
    ZString t = s + "def" + ZString('!');
    EXPECT_EQ(t, "abcdef!");
    t += ZString("x");
    t += "y";
    EXPECT_STREQ(t.asChar(), "abcdef!xy");
    EXPECT_EQ(ZString("  42abc").asInt(), 42);
    EXPECT_EQ(ZString("junk").asInt(), 0);
    EXPECT_EQ(ZString("99999999999").asInt(), 2147483647);
    EXPECT_FLOAT_EQ(ZString("1.5").asFloat(), 1.5f);
    EXPECT_EQ(ZString("").asFloat(), 0.f);
    std::string asStd = t;  // usable as a std::string
    EXPECT_EQ(asStd.size(), 9u);
}

TEST(ZStringBinary, RoundTripsBothFormsBackToBack) {
    testutil::TempDir dir;
    const std::string path = dir.file("s.bin");
    const ZString texts[] = {"", "uid", std::string("with\0nul", 8), "last"};
    {
        std::ofstream out(path, std::ios::binary);
        for (const ZString& s : texts) s.write(out, true);
        ZString("plain").write(out, false);
    }
    const std::vector<char> bytes = testutil::readBytes(path);
    // int32 count and the bytes, no terminator; the plain form ends with a NUL.
    EXPECT_EQ(bytes.size(), 4u + 0 + 4 + 3 + 4 + 8 + 4 + 4 + 6);
    std::ifstream in(path, std::ios::binary);
    for (const ZString& s : texts) {
        ZString r("old");
        ASSERT_TRUE(r.read(in, true));
        EXPECT_EQ(r, s);
    }
    ZString plain;
    ASSERT_TRUE(plain.read(in, false));
    EXPECT_EQ(plain, "plain");
    ZString none("x");
    EXPECT_FALSE(none.read(in, true));
    EXPECT_TRUE(none.empty());
}

TEST(ZStringBinary, CorruptLengthsNeitherAllocateNorReadPastTheEnd) {
    testutil::TempDir dir;
    const std::string path = dir.file("bad.bin");
    const int32_t lengths[] = {-1, 0x7fffffff, 9};  // 9 > the 4 bytes that follow
    for (int32_t n : lengths) {
        std::vector<char> bytes;
        testutil::appendPod(bytes, n);
        bytes.insert(bytes.end(), {'a', 'b', 'c', 'd'});
        testutil::writeBytes(path, bytes);
        std::ifstream in(path, std::ios::binary);
        ZString s("old");
        EXPECT_FALSE(s.read(in, true)) << n;
        EXPECT_TRUE(s.empty());
        EXPECT_TRUE(in.fail());
    }
    // A plain-form text whose NUL never comes is rejected.
    testutil::writeBytes(path, {'a', 'b'});
    std::ifstream in(path, std::ios::binary);
    ZString s;
    EXPECT_FALSE(s.read(in, false));
}
