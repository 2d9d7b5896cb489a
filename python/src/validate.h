// Checks at the Python boundary. The library trusts its caller on sizes and indices (a
// C++ host builds them consistently); a script can assign any array to any field, so
// every call that would index with them checks first and raises ValueError instead.
#pragma once

#include <cstdint>
#include <string>

#include "common.h"
#include "strands/ZFollicles.h"

namespace gcpy {

[[noreturn]] inline void invalid(const char* what, const std::string& why) {
    throw nb::value_error((std::string(what) + ": " + why).c_str());
}

template <typename A>
void checkLength(const A& array, size_t n, const char* what, const char* name) {
    if (array.size() != n)
        invalid(what, std::string(name) + " has " + std::to_string(array.size()) + " elements, " +
                          std::to_string(n) + " expected");
}

// Every index check speaks alike: "vConnects[2] = 3 is outside 0..2".
inline void checkIndexValue(int64_t v, size_t limit, const char* what, const std::string& element) {
    if (v < 0 || v >= static_cast<int64_t>(limit))
        invalid(what, element + " = " + std::to_string(v) + " is outside 0.." +
                          std::to_string(static_cast<int64_t>(limit) - 1));
}

template <typename A>
void checkIndices(const A& indices, size_t limit, const char* what, const char* name) {
    for (size_t i = 0; i < indices.size(); ++i)
        if (static_cast<int64_t>(indices[i]) < 0 || static_cast<int64_t>(indices[i]) >= static_cast<int64_t>(limit))
            checkIndexValue(indices[i], limit, what, std::string(name) + "[" + std::to_string(i) + "]");
}

// Every strand has at least one CV and lies inside cvs.
inline void checkCurves(const Ulmex::ZCurves& c, const char* what) {
    checkLength(c.start, c.numCVs.size(), what, "start");
    const int64_t total = static_cast<int64_t>(c.cvs.size());
    for (size_t i = 0; i < c.numCVs.size(); ++i)
        if (c.numCVs[i] < 1 || c.start[i] < 0 || int64_t(c.start[i]) + c.numCVs[i] > total)
            invalid(what, "strand " + std::to_string(i) + " (start " + std::to_string(c.start[i]) + ", numCVs " +
                              std::to_string(c.numCVs[i]) + ") lies outside the " + std::to_string(total) + " CVs");
}

template <typename S>
void checkSets(const S& s, const char* what) {
    checkLength(s.starts, s.counts.size(), what, "starts");
    const int64_t total = static_cast<int64_t>(s.values.size());
    for (size_t i = 0; i < s.counts.size(); ++i)
        if (s.counts[i] < 0 || s.starts[i] < 0 || int64_t(s.starts[i]) + s.counts[i] > total)
            invalid(what, "set " + std::to_string(i) + " lies outside the " + std::to_string(total) + " values");
}

inline void checkTriMesh(const Ulmex::ZTriMesh& t, const char* what) {
    for (size_t i = 0; i < t.v012.size(); ++i)
        for (int k = 0; k < 3; ++k)
            if (t.v012[i][k] < 0 || size_t(t.v012[i][k]) >= t.points.size())
                checkIndexValue(t.v012[i][k], t.points.size(), what,
                                "v012[" + std::to_string(i) + "][" + std::to_string(k) + "]");
}

inline void checkQuadMesh(const Ulmex::ZQuadMesh& q, const char* what) {
    for (size_t i = 0; i < q.quads.size(); ++i)
        for (int k = 0; k < 4; ++k)
            if (q.quads[i][k] < 0 || size_t(q.quads[i][k]) >= q.points.size())
                checkIndexValue(q.quads[i][k], q.points.size(), what,
                                "quads[" + std::to_string(i) + "][" + std::to_string(k) + "]");
}

inline void checkPolyMesh(const Ulmex::ZPolyMesh& p, const char* what) {
    int64_t corners = 0;
    for (int c : p.vCounts) {
        if (c < 0) invalid(what, "a negative vertex count");
        corners += c;
    }
    checkLength(p.vConnects, size_t(corners), what, "vConnects");
    checkIndices(p.vConnects, p.points.size(), what, "vConnects");
    if (!p.velocities.empty()) checkLength(p.velocities, p.points.size(), what, "velocities");
    if (!p.normals.empty()) checkLength(p.normals, size_t(corners), what, "normals");
    if (!p.uvIndices.empty()) {
        checkLength(p.uvIndices, size_t(corners), what, "uvIndices");
        checkIndices(p.uvIndices, p.uvs.size(), what, "uvIndices");
    }
}

// The follicle arrays a call reads, each with the strand count (tgl's length).
enum FollicleArray : unsigned {
    Uid = 1, Rtp = 2, Bcc = 4, Uvw = 8, Nmp = 16, Ln0 = 32, Ln1 = 64, Rxy = 128, Twh = 256, Rwh = 512,
    Top = 1024, Rop = 2048, Axs = 4096, Bdi = 8192,
};

inline void checkFollicles(const ZFollicles& f, unsigned arrays, const char* what) {
    struct Entry {
        unsigned flag;
        const char* name;
        size_t size;
    };
    const Entry entries[] = {
        {Uid, "uid", f.uid.size()}, {Rtp, "rtp", f.rtp.size()}, {Bcc, "bcc", f.bcc.size()},
        {Uvw, "uvw", f.uvw.size()}, {Nmp, "nmp", f.nmp.size()}, {Ln0, "ln0", f.ln0.size()},
        {Ln1, "ln1", f.ln1.size()}, {Rxy, "rxy", f.rxy.size()}, {Twh, "twh", f.twh.size()},
        {Rwh, "rwh", f.rwh.size()}, {Top, "top", f.top.size()}, {Rop, "rop", f.rop.size()},
        {Axs, "axs", f.axs.size()}, {Bdi, "bdi.counts", f.bdi.counts.size()}};
    const size_t n = f.tgl.size();
    for (const Entry& e : entries)
        if ((arrays & e.flag) && e.size != n)
            invalid(what, std::string(e.name) + " has " + std::to_string(e.size) + " elements, " + std::to_string(n) +
                              " expected");
    if (arrays & Bdi) checkSets(f.bdi, what);
}

// Follicles and curves describe the same strands.
inline void checkGroom(const ZFollicles& f, const Ulmex::ZCurves& c, unsigned arrays, const char* what) {
    checkFollicles(f, arrays, what);
    checkCurves(c, what);
    if (c.numCurves() != f.numStrands())
        invalid(what, std::to_string(c.numCurves()) + " curves for " + std::to_string(f.numStrands()) + " strands");
}

} // namespace gcpy
