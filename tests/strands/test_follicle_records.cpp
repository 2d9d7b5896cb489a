// The follicle record on disk, and the whole-set operations from, append and assignment.
#include <gtest/gtest.h>

#include <cstring>

#include "FollicleFixtures.h"
#include "support/Damage.h"
#include "support/TestUtil.h"

using namespace Ulmex;
using fixtures::makeFollicles;
using fixtures::sameRecordData;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

std::vector<char> recordBytes(const ZFollicles& f, bool isStatic, const testutil::TempDir& dir) {
    const std::string path = dir.file("rec.bin");
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        f.write(out, isStatic);
    }
    return testutil::readBytes(path);
}

void readBytesInto(ZFollicles& f, const std::vector<char>& bytes, const testutil::TempDir& dir) {
    const std::string path = dir.file("in.bin");
    testutil::writeBytes(path, bytes);
    std::ifstream in(path, std::ios::binary);
    f.read(in);
}

} // namespace

TEST(FollicleRecord, StaticLayoutByteForByte) {
    testutil::TempDir dir;
    const ZFollicles f = makeFollicles(2);
    const std::vector<char> bytes = recordBytes(f, true, dir);

    std::vector<char> want;
    testutil::appendPod(want, int32_t(2));
    testutil::appendPod(want, int32_t(14));
    auto section = [&](const char* tag, const void* data, size_t size) {
        testutil::appendTag(want, tag);
        const char* p = static_cast<const char*>(data);
        want.insert(want.end(), p, p + size);
    };
    section("uid", f.uid.data(), 8);
    section("rtp", f.rtp.data(), 8);
    section("tgl", f.tgl.data(), 8);
    section("bcc", f.bcc.data(), 24);
    section("uvw", f.uvw.data(), 24);
    section("nmp", f.nmp.data(), 24);
    section("ln0", f.ln0.data(), 8);
    testutil::appendPod(want, f.maxLn0);
    section("rxy", f.rxy.data(), 16);
    section("twh", f.twh.data(), 8);
    section("rwh", f.rwh.data(), 8);
    section("top", f.top.data(), 8);
    section("rop", f.rop.data(), 8);
    testutil::appendTag(want, "bdi");
    testutil::appendPod(want, int32_t(2));             // sets
    testutil::appendPod(want, int32_t(0));             // counts
    testutil::appendPod(want, int32_t(1));
    testutil::appendPod(want, int32_t(1));             // values
    testutil::appendPod(want, int32_t(0));
    testutil::appendTag(want, "bdw");
    testutil::appendPod(want, int32_t(2));
    testutil::appendPod(want, int32_t(0));
    testutil::appendPod(want, int32_t(1));
    testutil::appendPod(want, int32_t(1));
    testutil::appendPod(want, 0.5f);
    EXPECT_EQ(bytes, want);
}

TEST(FollicleRecord, PerFrameLayoutAndTheEmptyRecord) {
    testutil::TempDir dir;
    const ZFollicles f = makeFollicles(3);
    const std::vector<char> bytes = recordBytes(f, false, dir);
    // count, sections, "ln1" + 12 + max, "axs" + 144
    ASSERT_EQ(bytes.size(), 4u + 4 + (4 + 3) + 12 + 4 + (4 + 3) + 144);
    int32_t sections;
    std::memcpy(&sections, bytes.data() + 4, 4);
    EXPECT_EQ(sections, 2);
    float maxLn1;
    std::memcpy(&maxLn1, bytes.data() + 8 + 7 + 12, 4);
    EXPECT_EQ(maxLn1, f.maxLn1);

    ZFollicles empty;
    empty.reset();
    const std::vector<char> four = recordBytes(empty, true, dir);
    EXPECT_EQ(four, std::vector<char>(4, 0));
    EXPECT_EQ(recordBytes(empty, false, dir), four);

    // Reading those 4 bytes clears an object, whatever it held.
    ZFollicles g = makeFollicles(5);
    readBytesInto(g, four, dir);
    EXPECT_EQ(g.numStrands(), 0);
    EXPECT_TRUE(g.axs.empty());
    EXPECT_TRUE(g.auxInt0.empty());
    EXPECT_EQ(g.maxLn0, 0.f);
}

TEST(FollicleRecord, StaticThenPerFrameRebuildsEverythingButTheSpares) {
    testutil::TempDir dir;
    const ZFollicles f = makeFollicles(37);
    const std::string path = dir.file("frame.bin");
    {
        std::ofstream out(path, std::ios::binary);
        f.write(out, true);
        f.write(out, false);
    }
    ZFollicles r;
    r.reset();
    r.auxFloat1 = {42.f};
    std::ifstream in(path, std::ios::binary);
    r.read(in);
    EXPECT_TRUE(r.axs.empty());  // static record only so far
    r.read(in);
    EXPECT_TRUE(sameRecordData(r, f));
    EXPECT_EQ(r.auxFloat1, ZFloatArray({42.f}));
    EXPECT_TRUE(r.auxInt0.empty());

    // Another frame replaces ln1, maxLn1 and axs and nothing else.
    ZFollicles next = f;
    next.ln1[3] = -1.f;
    next.maxLn1 = 99.f;
    next.axs[0].origin = ZVector(1, 2, 3);
    next.uid[0] = 12345;
    readBytesInto(r, recordBytes(next, false, dir), dir);
    EXPECT_EQ(r.ln1[3], -1.f);
    EXPECT_EQ(r.maxLn1, 99.f);
    EXPECT_EQ(r.axs[0].origin, ZVector(1, 2, 3));
    EXPECT_EQ(r.uid, f.uid);
}

TEST(FollicleRecord, SectionsInAnyOrderAndUnknownTagsSkipped) {
    testutil::TempDir dir;
    const ZFollicles f = makeFollicles(4);
    const int n = 4;
    std::vector<char> bytes;
    testutil::appendPod(bytes, int32_t(n));
    testutil::appendPod(bytes, int32_t(3));
    testutil::appendTag(bytes, "axs");
    bytes.insert(bytes.end(), reinterpret_cast<const char*>(f.axs.data()),
                 reinterpret_cast<const char*>(f.axs.data() + n));
    testutil::appendTag(bytes, "zzz");  // unknown: nothing consumed, reading goes on
    testutil::appendTag(bytes, "ln0");
    bytes.insert(bytes.end(), reinterpret_cast<const char*>(f.ln0.data()),
                 reinterpret_cast<const char*>(f.ln0.data() + n));
    testutil::appendPod(bytes, 7.f);
    testutil::appendTag(bytes, "uid");
    bytes.insert(bytes.end(), reinterpret_cast<const char*>(f.uid.data()),
                 reinterpret_cast<const char*>(f.uid.data() + n));
    ZFollicles r = makeFollicles(2, 9);
    const ZFollicles before = r;
    readBytesInto(r, bytes, dir);
    EXPECT_EQ(r.axs, f.axs);
    EXPECT_EQ(r.ln0, f.ln0);
    EXPECT_EQ(r.maxLn0, 7.f);
    EXPECT_EQ(r.uid, before.uid);  // three sections: the unknown tag used one of them
    EXPECT_EQ(r.tgl, before.tgl);  // not named: untouched, even at another count
}

TEST(FollicleRecord, OddCounts) {
    testutil::TempDir dir;
    // Zero sections with strands: reset.
    std::vector<char> zeroSections;
    testutil::appendPod(zeroSections, int32_t(3));
    testutil::appendPod(zeroSections, int32_t(0));
    ZFollicles a = makeFollicles(3);
    readBytesInto(a, zeroSections, dir);
    EXPECT_EQ(a.numStrands(), 0);

    // A negative section count reads nothing and resets nothing.
    std::vector<char> negSections;
    testutil::appendPod(negSections, int32_t(3));
    testutil::appendPod(negSections, int32_t(-2));
    ZFollicles b = makeFollicles(3);
    readBytesInto(b, negSections, dir);
    EXPECT_TRUE(sameRecordData(b, makeFollicles(3)));

    // A negative strand count empties the named arrays, still reads the maxima, goes on.
    std::vector<char> negStrands;
    testutil::appendPod(negStrands, int32_t(-5));
    testutil::appendPod(negStrands, int32_t(3));
    testutil::appendTag(negStrands, "twh");
    testutil::appendTag(negStrands, "ln1");
    testutil::appendPod(negStrands, 3.5f);
    testutil::appendTag(negStrands, "uid");
    ZFollicles c = makeFollicles(3);
    readBytesInto(c, negStrands, dir);
    EXPECT_TRUE(c.twh.empty());
    EXPECT_TRUE(c.ln1.empty());
    EXPECT_TRUE(c.uid.empty());
    EXPECT_EQ(c.maxLn1, 3.5f);
    EXPECT_EQ(c.tgl.length(), 3);
}

TEST(FollicleRecord, ShortArraysDesynchroniseAndTruncationZeroFills) {
    testutil::TempDir dir;
    // A record cut inside the "axs" payload: what came is read, the rest stays zero.
    ZFollicles f = makeFollicles(6);
    std::vector<char> bytes = recordBytes(f, false, dir);
    bytes.resize(bytes.size() - 48 * 2 - 10);
    ZFollicles r = makeFollicles(6);
    readBytesInto(r, bytes, dir);
    ASSERT_EQ(r.axs.length(), 6);
    EXPECT_EQ(r.axs[2], f.axs[2]);
    EXPECT_EQ(r.axs[5].origin, ZVector(0, 0, 0));
    EXPECT_EQ(r.axs[5].zAxis, ZVector(0, 0, 0));
}

TEST(FollicleRecord, CorruptAndRandomInputNeverCrashesOrOverAllocates) {
    testutil::TempDir dir;
    const ZFollicles f = makeFollicles(50);
    std::vector<char> good = recordBytes(f, true, dir);
    const std::vector<char> frame = recordBytes(f, false, dir);
    good.insert(good.end(), frame.begin(), frame.end());

    // Huge strand and section counts on a tiny stream: bounded by the stream, not the claim.
    std::vector<char> huge;
    testutil::appendPod(huge, int32_t(0x7ffffff0));
    testutil::appendPod(huge, int32_t(0x7fffffff));
    testutil::appendTag(huge, "axs");
    testutil::appendPod(huge, 1.f);
    ZFollicles h = makeFollicles(2);
    readBytesInto(h, huge, dir);
    EXPECT_EQ(h.axs.length(), 2);  // the impossible section was not taken

    // Whatever the bytes, reading a record allocates at most four times its size plus
    // 64 KiB. The first case: 262,146 strands, one section, the tag "uid", and the end of
    // the file (15 bytes) may read as zeros only within that budget.
    auto readMeasured = [&](const std::vector<char>& bytes, const std::string& what) {
        testutil::writeBytes(dir.file("measured"), bytes);
        ZFollicles r;
        r.reset();
        testutil::expectBoundedPeak(bytes.size(), what, [&] {
            std::ifstream in(dir.file("measured"), std::ios::binary);
            r.read(in);
        });
        for (int i = 0; i < r.bdi.numSets(); ++i) EXPECT_LE(r.bdi.starts[i] + r.bdi.counts[i], r.bdi.values.length());
        return r;
    };
    const unsigned char tiny[] = {0x02, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x00, 0x03, 0x00, 0x00, 0x00, 'u', 'i', 'd'};
    const ZFollicles t = readMeasured(std::vector<char>(tiny, tiny + sizeof tiny), "the 15-byte record");
    EXPECT_TRUE(t.uid.empty());
    // A short record inside the budget still reads as zeros past its end.
    std::vector<char> shortRecord;
    testutil::appendPod(shortRecord, int32_t(100));
    testutil::appendPod(shortRecord, int32_t(1));
    testutil::appendTag(shortRecord, "twh");
    testutil::appendPod(shortRecord, 0.5f);
    const ZFollicles z = readMeasured(shortRecord, "a short record");
    ASSERT_EQ(z.twh.length(), 100);
    EXPECT_EQ(z.twh[0], 0.5f);
    EXPECT_EQ(z.twh[99], 0.f);

    // Every truncation of a valid static + per-frame pair, bytes changed at random, noise.
    testutil::forEachDamaged(good, {7, 300, 200, 511}, readMeasured);
}

TEST(FollicleMerge, FromSelectsAndKeepsMaximaAndOwnBindingsWhenSourceHasNone) {
    const ZFollicles src = makeFollicles(6);
    ZFollicles dst = makeFollicles(2, 5);
    dst.from(src, ZCharArray{1, 0, 0, 1, 0, 1});
    EXPECT_EQ(dst.uid, ZIntArray({100, 103, 105}));
    EXPECT_EQ(dst.axs.length(), 3);
    EXPECT_EQ(dst.auxFloat3, ZFloatArray({0.f, 3.f, 5.f}));
    EXPECT_EQ(dst.bdi.counts, ZIntArray({0, 0, 2}));
    EXPECT_EQ(dst.maxLn0, src.maxLn0);
    EXPECT_EQ(dst.maxLn1, src.maxLn1);

    ZFollicles none = makeFollicles(2, 5);
    none.from(src, ZCharArray(6, 0));
    EXPECT_EQ(none.numStrands(), 0);
    EXPECT_TRUE(none.uid.empty());
    EXPECT_EQ(none.maxLn0, src.maxLn0);

    ZFollicles noBindings = src;
    noBindings.bdi.reset();
    noBindings.bdw.reset();
    ZFollicles keepsOwn = makeFollicles(3, 5);
    const ZIntSetArray ownBdi = keepsOwn.bdi;
    keepsOwn.from(noBindings, ZCharArray(6, 1));
    EXPECT_EQ(keepsOwn.bdi, ownBdi);
    EXPECT_EQ(keepsOwn.uid, src.uid);
}

TEST(FollicleMerge, WrongKeepPrintsOncePerNonEmptyPlainArray) {
    ZFollicles src = makeFollicles(4);
    src.twh.clear();  // 12 non-empty plain arrays remain
    ZFollicles dst;
    dst.reset();
    CaptureStdout();
    dst.from(src, ZCharArray{1, 1});
    const std::string out = GetCapturedStdout();
    size_t lines = 0;
    for (size_t at = out.find("Error@ZArray::from(): Invalid input data.\n"); at != std::string::npos;
         at = out.find("Error@ZArray::from(): Invalid input data.\n", at + 1))
        ++lines;
    // 12 plain arrays, axs and the two non-empty spare arrays each report once.
    EXPECT_EQ(lines, 12u + 1u + 2u);
    EXPECT_EQ(dst.numStrands(), 0);
}

TEST(FollicleMerge, AppendConcatenatesAndRaisesMaxima) {
    ZFollicles a = makeFollicles(3);
    ZFollicles b = makeFollicles(2, 1);
    // Each maximum rises from its own counterpart: the two are distinct on both sides, and
    // the larger comes from the other set for one and from this set for the other.
    a.maxLn0 = 2.f;
    a.maxLn1 = 3.f;
    b.maxLn0 = 5.f;
    b.maxLn1 = 9.f;
    a.append(b, true);
    EXPECT_EQ(a.numStrands(), 5);
    EXPECT_EQ(a.uid[3], 1100);  // uids are not renumbered
    EXPECT_EQ(a.bdi.numSets(), 5);
    EXPECT_EQ(a.bdi.starts[4], 3 + 0);  // shifted behind a's three values
    EXPECT_EQ(a.maxLn0, 5.f);
    EXPECT_EQ(a.maxLn1, 9.f);
    ZFollicles e = makeFollicles(1);
    e.maxLn0 = 7.f;
    e.maxLn1 = 1.f;
    e.append(b, true);
    EXPECT_EQ(e.maxLn0, 7.f);
    EXPECT_EQ(e.maxLn1, 9.f);
    EXPECT_EQ(a.auxInt0.length(), 5);
    EXPECT_EQ(a.axs.length(), 5);

    ZFollicles c = makeFollicles(3);
    c.append(makeFollicles(2), false);
    EXPECT_EQ(c.bdi.numSets(), 0);
    EXPECT_EQ(c.bdw.numSets(), 0);
    EXPECT_EQ(c.numStrands(), 5);

    ZFollicles d = makeFollicles(3);
    ZFollicles empty;
    empty.reset();
    d.append(empty, true);
    EXPECT_TRUE(sameRecordData(d, makeFollicles(3)));
    empty.maxLn0 = 1e6f;
    d.append(empty, true);
    EXPECT_EQ(d.maxLn0, 1e6f);
}

TEST(FollicleMerge, AssignmentCopiesEveryMemberAndMemoryFigure) {
    const ZFollicles src = makeFollicles(8);
    ZFollicles dst = makeFollicles(1, 3);
    dst = src;
    EXPECT_TRUE(sameRecordData(dst, src));
    EXPECT_EQ(dst.auxInt0, src.auxInt0);
    EXPECT_EQ(dst.auxFloat3, src.auxFloat3);

    ZFollicles big;
    big.reset();
    big.uid.setLength(1024, true);
    EXPECT_EQ(big.usedMemorySize(ZDataUnit::zKilobytes), 4.0);
    big.axs.setLength(1024, true);    // left out of the figure
    big.auxInt0.setLength(1024, true);
    EXPECT_EQ(big.usedMemorySize(ZDataUnit::zKilobytes), 4.0);

    // 13 plain arrays + the set arrays' own figures.
    const double bytes = src.usedMemorySize(ZDataUnit::zBytes);
    const double want = 8 * (4 + 4 + 4 + 12 + 12 + 12 + 4 + 4 + 8 + 4 + 4 + 4 + 4) +
                        src.bdi.usedMemorySize(ZDataUnit::zBytes) + src.bdw.usedMemorySize(ZDataUnit::zBytes);
    EXPECT_EQ(bytes, want);
    CaptureStdout();
    EXPECT_EQ(src.usedMemorySize(static_cast<ZDataUnit::DataUnit>(0)), 0.0);
    const std::string out = GetCapturedStdout();
    EXPECT_NE(out.find("Error@ZArray::usedMemorySize(): Invalid data unit.\n"), std::string::npos);
}

// Appending or filtering an object into itself gives what a copy of it gives (each array
// used to read its own storage while it was being moved or cleared).
TEST(FollicleMerge, AppendingOrFilteringIntoItselfWorksAsOnACopy) {
    auto same = [](const ZFollicles& a, const ZFollicles& b) {
        bool axs = a.axs.size() == b.axs.size();
        for (size_t i = 0; axs && i < a.axs.size(); ++i) axs = a.axs[i].origin == b.axs[i].origin;
        return axs && a.uid == b.uid && a.tgl == b.tgl && a.uvw == b.uvw && a.ln1 == b.ln1 && a.rwh == b.rwh &&
               a.bdi == b.bdi && a.bdw == b.bdw && a.auxInt0 == b.auxInt0;
    };
    const ZFollicles original = makeFollicles(600);
    for (bool withBindings : {true, false}) {
        ZFollicles self = original, copy = original;
        copy.append(ZFollicles(original), withBindings);
        self.append(self, withBindings);
        EXPECT_TRUE(same(self, copy)) << withBindings;
        EXPECT_EQ(self.numStrands(), 1200);
    }
    ZCharArray keep(600);
    for (int i = 0; i < 600; ++i) keep[i] = static_cast<char>(i % 3 == 0);
    ZFollicles self = original, copy;
    copy.from(original, keep);
    self.from(self, keep);
    EXPECT_TRUE(same(self, copy));
    EXPECT_EQ(self.numStrands(), 200);

    ZPolyMesh mesh;
    mesh.points = {ZVector(0, 0, 0), ZVector(1, 0, 0), ZVector(0, 1, 0), ZVector(1, 1, 0)};
    mesh.vCounts = {3, 3};
    mesh.vConnects = {0, 1, 2, 1, 3, 2};
    mesh.uvs = {ZTuple<2, float>(0, 0), ZTuple<2, float>(1, 1)};
    mesh.uvIndices = {0, 1, 1, 0, 1, 0};
    for (bool withAttributes : {true, false}) {
        ZPolyMesh twice = mesh, expected = mesh;
        expected.append(ZPolyMesh(mesh), withAttributes);
        twice.append(twice, withAttributes);
        EXPECT_EQ(twice.vConnects, expected.vConnects);
        EXPECT_EQ(twice.points, expected.points);
        EXPECT_EQ(twice.uvIndices, expected.uvIndices);
        EXPECT_EQ(twice.vConnects[11], 2 + 4);
    }
}
