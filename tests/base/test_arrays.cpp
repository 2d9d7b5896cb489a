// ZArray and the set arrays: sizing, merging, memory figures and the binary forms.
#include <gtest/gtest.h>

#include <cstring>
#include <mutex>
#include <random>

#include "base/UlmexBase.h"
#include "support/TestUtil.h"

using namespace Ulmex;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

TEST(ZArray, SetLengthClearsOldValuesOnShrinkAndSameSize) {
    ZFloatArray a{1.f, 2.f, 3.f};
    a.setLength(3, true);
    EXPECT_EQ(a, ZFloatArray({0.f, 0.f, 0.f}));
    a = {4.f, 5.f, 6.f};
    a.setLength(2, true);
    EXPECT_EQ(a, ZFloatArray({0.f, 0.f}));
    a = {4.f, 5.f};
    a.setLength(3, false);
    EXPECT_EQ(a.length(), 3);
    EXPECT_EQ(a[0], 4.f);
    a.setLength(0, true);
    EXPECT_TRUE(a.empty());
    a.setLength(-7, true);
    EXPECT_TRUE(a.empty());
}

// Growing for overwrite keeps the elements kept and constructs none; every other way of
// growing an array, on this thread and later, still value-initialises (a matrix is the
// identity, so a construction skipped by mistake shows even on fresh zero pages).
TEST(ZArray, GrowingForOverwriteLeavesOtherGrowthInitialised) {
    ZFloatArray a{1.f, 2.f};
    a.setLengthForOverwrite(5);
    EXPECT_EQ(a.length(), 5);
    EXPECT_EQ(a[0], 1.f);
    EXPECT_EQ(a[1], 2.f);
    a.setLengthForOverwrite(1);
    EXPECT_EQ(a, ZFloatArray({1.f}));
    a.setLengthForOverwrite(0);
    EXPECT_TRUE(a.empty());

    ZMatrixArray m;
    m.setLengthForOverwrite(1000);
    m.resize(1003);
    m.push_back(ZMatrix());
    const ZMatrix identity;
    for (int i = 1000; i < 1004; ++i)
        EXPECT_EQ(std::memcmp(m[i].data, identity.data, sizeof identity.data), 0) << i;
    ZVectorArray v(4);
    for (const ZVector& p : v) EXPECT_EQ(p, ZVector(0, 0, 0));
}

TEST(ZArray, FromKeepsNonzeroBytesAndReportsAWrongKeep) {
    const ZIntArray src{10, 11, 12, 13};
    ZIntArray dst{99};
    dst.from(src, ZCharArray{1, 0, 2, 0});
    EXPECT_EQ(dst, ZIntArray({10, 12}));

    CaptureStdout();
    dst.from(src, ZCharArray{1, 1});
    EXPECT_EQ(GetCapturedStdout(), "Error@ZArray::from(): Invalid input data.\n");
    EXPECT_TRUE(dst.empty());

    // An empty source empties the array silently, whatever the keep.
    dst = {1};
    CaptureStdout();
    dst.from(ZIntArray(), ZCharArray{1, 1, 1});
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_TRUE(dst.empty());
}

TEST(ZArray, AppendAndMemoryFigure) {
    ZVectorArray a(2);
    a[1] = ZVector(1, 2, 3);
    a.append(ZVectorArray{ZVector(4, 5, 6)});
    ASSERT_EQ(a.length(), 3);
    EXPECT_EQ(a[2], ZVector(4, 5, 6));
    EXPECT_EQ(a[1], ZVector(1, 2, 3));

    ZIntArray ids(1024);
    EXPECT_EQ(ids.usedMemorySize(ZDataUnit::zBytes), 4096.0);
    EXPECT_EQ(ids.usedMemorySize(ZDataUnit::zKilobytes), 4.0);
    EXPECT_EQ(ids.usedMemorySize(ZDataUnit::zMegabytes), 4.0 / 1024);
    EXPECT_EQ(ids.usedMemorySize(ZDataUnit::zGigabytes), 4.0 / (1024 * 1024));
    CaptureStdout();
    EXPECT_EQ(ids.usedMemorySize(static_cast<ZDataUnit::DataUnit>(5)), 0.0);
    EXPECT_EQ(GetCapturedStdout(), "Error@ZArray::usedMemorySize(): Invalid data unit.\n");
}

TEST(ZArrayBinary, EmptyWritesNothingAndCountsAreBounded) {
    testutil::TempDir dir;
    const std::string path = dir.file("a.bin");
    {
        std::ofstream out(path, std::ios::binary);
        ZFloatArray().write(out, false);
    }
    EXPECT_TRUE(testutil::readBytes(path).empty());

    {
        std::ofstream out(path, std::ios::binary);
        ZFloat3Array v(2);
        v[1] = ZTuple<3, float>(1.f, 2.f, 3.f);
        v.write(out, true);
        ZIntArray().write(out, true);
    }
    EXPECT_EQ(testutil::readBytes(path).size(), 4u + 24u + 4u);
    {
        std::ifstream in(path, std::ios::binary);
        ZFloat3Array v;
        ZIntArray e{5};
        ASSERT_TRUE(v.read(in, true));
        ASSERT_TRUE(e.read(in, true));
        EXPECT_EQ(v.length(), 2);
        EXPECT_EQ(v[1][2], 3.f);
        EXPECT_TRUE(e.empty());
    }
    // A count far beyond the stream is refused before anything is allocated.
    std::vector<char> bytes;
    testutil::appendPod(bytes, int32_t(0x40000000));
    testutil::appendPod(bytes, 1.f);
    testutil::writeBytes(path, bytes);
    std::ifstream in(path, std::ios::binary);
    ZVectorArray v{ZVector(1, 1, 1)};
    EXPECT_FALSE(v.read(in, true));
    EXPECT_TRUE(v.empty());
}

namespace {

ZIntSetArray makeSets(std::initializer_list<std::vector<int>> sets) {
    ZIntSetArray s;
    for (const auto& set : sets) s.push(set.data(), static_cast<int>(set.size()));
    return s;
}

} // namespace

TEST(SetArray, AppendShiftsStartsAndFromSelects) {
    ZIntSetArray a = makeSets({{1, 2}, {}});
    const ZIntSetArray b = makeSets({{7}, {8, 9, 10}});
    a.append(b);
    ASSERT_EQ(a.numSets(), 4);
    EXPECT_EQ(a.starts, ZIntArray({0, 2, 2, 3}));
    EXPECT_EQ(a(3, 2), 10);
    EXPECT_EQ(a(2, 0), 7);

    ZIntSetArray kept;
    kept.from(a, ZCharArray{0, 1, 0, 1});
    ASSERT_EQ(kept.numSets(), 2);
    EXPECT_EQ(kept.counts, ZIntArray({0, 3}));
    EXPECT_EQ(kept(1, 0), 8);
    EXPECT_EQ(kept.values, ZIntArray({8, 9, 10}));

    EXPECT_EQ(a.usedMemorySize(ZDataUnit::zBytes), (4 + 4 + 6) * 4.0);
}

TEST(SetArrayBinary, RoundTripIsSelfDelimiting) {
    testutil::TempDir dir;
    const std::string path = dir.file("s.bin");
    const ZIntSetArray ints = makeSets({{3, 1}, {}, {4, 1, 5}});
    ZFloatSetArray floats;
    const float w[] = {0.25f, 0.75f};
    floats.push(w, 2);
    {
        std::ofstream out(path, std::ios::binary);
        ints.write(out);
        floats.write(out);
        ZIntSetArray().write(out);
        ZString("after").write(out, true);
    }
    std::ifstream in(path, std::ios::binary);
    ZIntSetArray ri, re = makeSets({{1}});
    ZFloatSetArray rf;
    ZString tail;
    ASSERT_TRUE(ri.read(in));
    ASSERT_TRUE(rf.read(in));
    ASSERT_TRUE(re.read(in));
    ASSERT_TRUE(tail.read(in, true));
    EXPECT_EQ(ri, ints);
    EXPECT_EQ(rf, floats);
    EXPECT_EQ(re.numSets(), 0);
    EXPECT_EQ(tail, "after");
}

TEST(SetArrayBinary, InconsistentCountsAreRejected) {
    testutil::TempDir dir;
    const std::string path = dir.file("bad.bin");
    auto attempt = [&](std::vector<int32_t> counts, std::vector<int32_t> values) {
        std::vector<char> bytes;
        testutil::appendPod(bytes, int32_t(counts.size()));
        for (int32_t c : counts) testutil::appendPod(bytes, c);
        testutil::appendPod(bytes, int32_t(values.size()));
        for (int32_t v : values) testutil::appendPod(bytes, v);
        testutil::writeBytes(path, bytes);
        std::ifstream in(path, std::ios::binary);
        ZIntSetArray s = makeSets({{1, 2}});
        const bool ok = s.read(in);
        if (!ok) {
            EXPECT_EQ(s.numSets(), 0);
        }
        return ok;
    };
    EXPECT_TRUE(attempt({2, 1}, {5, 6, 7}));
    EXPECT_FALSE(attempt({2, 2}, {5, 6, 7}));   // sets run past the values
    EXPECT_FALSE(attempt({-1, 4}, {5, 6, 7}));  // negative count
    EXPECT_FALSE(attempt({0x7fffffff, 0x7fffffff}, {1}));
}

// Report lines go to standard output unless a host routes them to its own sink, from
// whichever thread reports.
TEST(Messages, StandardOutputByDefaultOrTheHostsSink) {
    ZArray<int> a{1, 2, 3};
    const ZArray<char> wrongKeep{1};
    testing::internal::CaptureStdout();
    ZArray<int>().from(a, wrongKeep);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error@ZArray::from(): Invalid input data.\n");

    std::vector<std::string> lines;
    std::mutex guard;
    std::pair<std::vector<std::string>*, std::mutex*> context(&lines, &guard);
    ZSetMessageSink(
        [](const std::string& line, void* context) {
            auto* sink = static_cast<std::pair<std::vector<std::string>*, std::mutex*>*>(context);
            std::lock_guard<std::mutex> lock(*sink->second);
            sink->first->push_back(line);
        },
        &context);
    testing::internal::CaptureStdout();
    #pragma omp parallel num_threads(4)
    ZArray<int>().from(a, wrongKeep);
    ZSetMessageSink(nullptr, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(lines, std::vector<std::string>(4, "Error@ZArray::from(): Invalid input data."));
}
