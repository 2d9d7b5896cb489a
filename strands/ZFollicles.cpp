#include "strands/ZFollicles.h"
#include "base/ZParallelProfile.h"

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>

using namespace Ulmex;

namespace {

// The thirteen plain attribute arrays, in the order every whole-set operation visits
// them: uid, rtp, tgl, bcc, uvw, nmp, ln0, ln1, rxy, twh, rwh, top, rop.
template <typename Set, typename F>
void forEachPlain(Set& s, F&& f) {
    f(s.uid); f(s.rtp); f(s.tgl); f(s.bcc); f(s.uvw); f(s.nmp); f(s.ln0);
    f(s.ln1); f(s.rxy); f(s.twh); f(s.rwh); f(s.top); f(s.rop);
}

template <typename F>
void forEachPlainPair(ZFollicles& d, const ZFollicles& s, F&& f) {
    f(d.uid, s.uid); f(d.rtp, s.rtp); f(d.tgl, s.tgl); f(d.bcc, s.bcc); f(d.uvw, s.uvw);
    f(d.nmp, s.nmp); f(d.ln0, s.ln0); f(d.ln1, s.ln1); f(d.rxy, s.rxy); f(d.twh, s.twh);
    f(d.rwh, s.rwh); f(d.top, s.top); f(d.rop, s.rop);
}

template <typename F>
void forEachSpare(ZFollicles& d, const ZFollicles& s, F&& f) {
    f(d.auxInt0, s.auxInt0); f(d.auxInt1, s.auxInt1);
    f(d.auxFloat0, s.auxFloat0); f(d.auxFloat1, s.auxFloat1);
    f(d.auxFloat2, s.auxFloat2); f(d.auxFloat3, s.auxFloat3);
}

void writeTag(std::ofstream& file, const char* tag) { ZString(tag).write(file, true); }

template <typename T>
void writeSection(std::ofstream& file, const char* tag, const ZArray<T>& a) {
    writeTag(file, tag);
    a.write(file, false);
}

void writeFloat(std::ofstream& file, float v) { file.write(reinterpret_cast<const char*>(&v), sizeof v); }

// The bytes a record still holds, tracked as it is read, and the zero fill it may still
// take. A section the record is too short for reads as zeros past its end, but only up to
// 16 KiB of zeros per record: everything else a record allocates is backed by bytes of its
// input, so whatever its counts say, reading never allocates far beyond the file's size
// (and two records read from one file share its bytes).
struct RecordBudget {
    int64_t left;
    int64_t zeroFill = 16 * 1024;
};

// Reads one section of n elements, replacing the member; on a refused count the member is
// left alone and the stream failed.
template <typename T>
bool readFixed(std::ifstream& file, ZArray<T>& a, int n, RecordBudget& budget) {
    if (n < 1) { a.clear(); return true; }
    const int64_t bytes = static_cast<int64_t>(n) * static_cast<int64_t>(sizeof(T));
    const int64_t backed = std::min(bytes, std::max<int64_t>(budget.left, 0));
    if (bytes - backed > budget.zeroFill) {
        markFailed(file);
        return false;
    }
    budget.zeroFill -= bytes - backed;
    budget.left -= backed;
    return a.readExactly(file, n);
}

template <typename T>
int64_t setArrayBytes(const ZSetArray<T>& a) {
    return 8 + 4 * static_cast<int64_t>(a.counts.size()) + static_cast<int64_t>(sizeof(T) * a.values.size());
}

} // namespace

void ZFollicles::reset() {
    forEachPlain(*this, [](auto& a) { a.clear(); });
    bdi.reset();
    bdw.reset();
    axs.clear();
    maxLn0 = 0.f;
    maxLn1 = 0.f;
    auxInt0.clear(); auxInt1.clear();
    auxFloat0.clear(); auxFloat1.clear(); auxFloat2.clear(); auxFloat3.clear();
}

bool ZFollicles::calcRxy(const ZCurves& curves, bool useOpenMP) {
    const int n = tgl.length();
    if (n == 0) return true;
    if (n != curves.numCVs.length()) return false;

    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) if (useOpenMP)
        for (int i = 0; i < n; ++i) {
            const ZAxis& a = axs[i];
            const ZVector& tip = curves.cvs[curves.start[i] + curves.numCVs[i] - 1];
            const ZVector d = tip - a.origin;
            const float p = -(a.yAxis.dot(d));
            const float q = a.xAxis.dot(d);
            if (std::fabs(p) < 0.001f && std::fabs(q) < 0.001f) {
                rxy[i] = std::fabs(p) > std::fabs(q) ? ZTuple<2, float>(1.f, 0.f) : ZTuple<2, float>(0.f, 1.f);
            } else {
                const ZVector w = fastNormalize(a.xAxis * p + a.yAxis * q);
                rxy[i] = ZTuple<2, float>(a.xAxis.dot(w), a.yAxis.dot(w));
            }
        }
    }
    return true;
}

bool ZFollicles::updateAxes(const ZTriMesh& mesh, const ZAxisArray& vertexAxes, bool useOpenMP) {
    const int n = tgl.length();
    if (n == 0) return true;
    const bool valid = mesh.points.length() > 0 && mesh.v012.length() > 0 && mesh.uvs.length() > 0 &&
                       vertexAxes.length() == mesh.points.length();
    if (!valid) {
        Ulmex::ZReport("Error@ZFollicles::setLocalAxes(): Invalid input data.");
        return false;
    }
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) if (useOpenMP)
        for (int i = 0; i < n; ++i) {
            const ZTuple<3, int>& t = mesh.v012[tgl[i]];
            axs[i].set(vertexAxes[t[0]], vertexAxes[t[1]], vertexAxes[t[2]], bcc[i][0], bcc[i][1], bcc[i][2], true);
        }
    }
    return true;
}

void ZFollicles::setRandom(ZFloatArray& target, float min, float max, bool useOpenMP) const {
    const int n = tgl.length();
    if (n == 0) return;
    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) if (useOpenMP)
        for (int i = 0; i < n; ++i) {
            const float r = ZRandomUnit(static_cast<uint32_t>(uid[i]));
            const float range = max - min;
            const float scaled = range * r;
            target[i] = scaled + min;
        }
    }
}

void ZFollicles::setTipWidth(float min, float max, bool useOpenMP) { setRandom(twh, min, max, useOpenMP); }
void ZFollicles::setRootWidth(float min, float max, bool useOpenMP) { setRandom(rwh, min, max, useOpenMP); }
void ZFollicles::setTipOpacity(float min, float max, bool useOpenMP) { setRandom(top, min, max, useOpenMP); }
void ZFollicles::setRootOpacity(float min, float max, bool useOpenMP) { setRandom(rop, min, max, useOpenMP); }

void ZFollicles::getRootPositions(ZVectorArray& out) const {
    const int n = tgl.length();
    if (n < 1) { out.clear(); return; }
    out.setLength(n, true);
    for (int i = 0; i < n; ++i) out[i] = axs[i].origin;
}

void ZFollicles::getRootNormals(ZVectorArray& out) const {
    const int n = tgl.length();
    if (n < 1) { out.clear(); return; }
    out.setLength(n, true);
    for (int i = 0; i < n; ++i) out[i] = axs[i].zAxis;
}

void ZFollicles::write(std::ofstream& file, bool isStatic) const {
    const int32_t n = tgl.length();
    file.write(reinterpret_cast<const char*>(&n), sizeof n);
    if (n == 0) return;
    const int32_t sections = isStatic ? 14 : 2;
    file.write(reinterpret_cast<const char*>(&sections), sizeof sections);
    if (isStatic) {
        writeSection(file, "uid", uid);
        writeSection(file, "rtp", rtp);
        writeSection(file, "tgl", tgl);
        writeSection(file, "bcc", bcc);
        writeSection(file, "uvw", uvw);
        writeSection(file, "nmp", nmp);
        writeSection(file, "ln0", ln0);
        writeFloat(file, maxLn0);
        writeSection(file, "rxy", rxy);
        writeSection(file, "twh", twh);
        writeSection(file, "rwh", rwh);
        writeSection(file, "top", top);
        writeSection(file, "rop", rop);
        writeTag(file, "bdi");
        bdi.write(file);
        writeTag(file, "bdw");
        bdw.write(file);
    } else {
        writeSection(file, "ln1", ln1);
        writeFloat(file, maxLn1);
        writeSection(file, "axs", axs);
    }
}

void ZFollicles::read(std::ifstream& file) {
    int32_t n = 0;
    readPod(file, n);
    if (n == 0) { reset(); return; }
    int32_t sections = 0;
    readPod(file, sections);
    if (sections == 0) { reset(); return; }

    // What the stream holds for this record bounds every count taken from it: asked once,
    // then counted down by what each part of the record consumes.
    RecordBudget budget{ZStreamRemaining(file)};
    auto maximum = [&](float& m) {
        budget.left -= 4;
        return readPod(file, m);
    };
    ZString tag;
    for (int32_t s = 0; s < sections; ++s) {
        // A record can name at most as many sections as it has bytes left: stop as soon as
        // the stream has nothing more to give, however large the count.
        if (!file.good() || !tag.read(file, true)) break;
        budget.left -= 4 + static_cast<int64_t>(tag.size());
        // Every known tag has three letters: anything else is skipped without comparing it
        // to each of them, which keeps a record of garbage tags at stream speed.
        if (tag.size() != 3) continue;
        bool ok = true;
        if (tag == "ln1") {
            ok = readFixed(file, ln1, n, budget) && maximum(maxLn1);
        } else if (tag == "axs") {
            ok = readFixed(file, axs, n, budget);
        } else if (tag == "uid") {
            ok = readFixed(file, uid, n, budget);
        } else if (tag == "rtp") {
            ok = readFixed(file, rtp, n, budget);
        } else if (tag == "tgl") {
            ok = readFixed(file, tgl, n, budget);
        } else if (tag == "bcc") {
            ok = readFixed(file, bcc, n, budget);
        } else if (tag == "uvw") {
            ok = readFixed(file, uvw, n, budget);
        } else if (tag == "nmp") {
            ok = readFixed(file, nmp, n, budget);
        } else if (tag == "ln0") {
            ok = readFixed(file, ln0, n, budget) && maximum(maxLn0);
        } else if (tag == "rxy") {
            ok = readFixed(file, rxy, n, budget);
        } else if (tag == "twh") {
            ok = readFixed(file, twh, n, budget);
        } else if (tag == "rwh") {
            ok = readFixed(file, rwh, n, budget);
        } else if (tag == "top") {
            ok = readFixed(file, top, n, budget);
        } else if (tag == "rop") {
            ok = readFixed(file, rop, n, budget);
        } else if (tag == "bdi") {
            ok = bdi.read(file);
            budget.left -= setArrayBytes(bdi);
        } else if (tag == "bdw") {
            ok = bdw.read(file);
            budget.left -= setArrayBytes(bdw);
        }
        // Any other tag: nothing consumed, the next tag is read from here.
        if (!ok) break;
    }
}

void ZFollicles::from(const ZFollicles& source, const ZCharArray& keep) {
    if (&source == this) {  // filtered into itself: as from a copy
        const ZFollicles copy(source);
        from(copy, keep);
        return;
    }
    forEachPlainPair(*this, source, [&keep](auto& d, const auto& s) { d.from(s, keep); });
    if (source.bdi.numSets() > 0) bdi.from(source.bdi, keep);
    if (source.bdw.numSets() > 0) bdw.from(source.bdw, keep);
    axs.from(source.axs, keep);
    maxLn0 = source.maxLn0;
    maxLn1 = source.maxLn1;
    forEachSpare(*this, source, [&keep](auto& d, const auto& s) { d.from(s, keep); });
}

void ZFollicles::append(const ZFollicles& other, bool withBindings) {
    if (&other == this) {  // appended to itself: as a copy
        const ZFollicles copy(other);
        append(copy, withBindings);
        return;
    }
    forEachPlainPair(*this, other, [](auto& d, const auto& s) { d.append(s); });
    if (withBindings) {
        bdi.append(other.bdi);
        bdw.append(other.bdw);
    } else {
        bdi.reset();
        bdw.reset();
    }
    axs.append(other.axs);
    maxLn0 = std::max(maxLn0, other.maxLn0);
    maxLn1 = std::max(maxLn1, other.maxLn1);
    forEachSpare(*this, other, [](auto& d, const auto& s) { d.append(s); });
}

ZFollicles& ZFollicles::operator=(const ZFollicles& other) {
    if (this == &other) return *this;
    forEachPlainPair(*this, other, [](auto& d, const auto& s) { d = s; });
    bdi = other.bdi;
    bdw = other.bdw;
    axs = other.axs;
    maxLn0 = other.maxLn0;
    maxLn1 = other.maxLn1;
    forEachSpare(*this, other, [](auto& d, const auto& s) { d = s; });
    return *this;
}

double ZFollicles::usedMemorySize(ZDataUnit::DataUnit unit) const {
    double total = 0.0;
    forEachPlain(*this, [&](const auto& a) { total += a.usedMemorySize(unit); });
    total += bdi.usedMemorySize(unit);
    total += bdw.usedMemorySize(unit);
    return total;
}
