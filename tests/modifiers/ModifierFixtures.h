// Small grooms for the modifier tests.
#pragma once

#include <vector>

#include "strands/ZFollicles.h"

namespace fixtures {

// n straight strands of `cvs` CVs, each standing on the world frame moved to its root,
// rising along z with unit spacing; uid 1000 + i, uvw and nmp spread over [0, 1).
struct Groom {
    ZFollicles f;
    Ulmex::ZCurves c;
};

inline Groom straightGroom(int n, int cvs = 4) {
    using namespace Ulmex;
    Groom g;
    g.f.reset();
    std::vector<ZVector> p(static_cast<size_t>(cvs));
    for (int i = 0; i < n; ++i) {
        const float s = static_cast<float>(i) / static_cast<float>(n > 0 ? n : 1);
        g.f.uid.push_back(1000 + i);
        g.f.rtp.push_back(0);
        g.f.tgl.push_back(0);
        g.f.bcc.push_back(ZTuple<3, float>(1, 0, 0));
        g.f.uvw.push_back(ZVector(s, 1.f - s, 0));
        g.f.nmp.push_back(ZVector(s * 3.f, s * 5.f, -s));
        g.f.ln0.push_back(static_cast<float>(cvs - 1));
        g.f.ln1.push_back(static_cast<float>(cvs - 1));
        g.f.rxy.push_back(ZTuple<2, float>(1, 0));
        ZAxis a;
        a.origin = ZVector(static_cast<float>(i), 0, 0);
        g.f.axs.push_back(a);
        for (int j = 0; j < cvs; ++j) p[static_cast<size_t>(j)] = a.origin + ZVector(0, 0, static_cast<float>(j));
        g.c.push(p.data(), cvs);
    }
    g.f.twh.setLength(n, true);
    g.f.rwh.setLength(n, true);
    g.f.top.setLength(n, true);
    g.f.rop.setLength(n, true);
    g.f.maxLn0 = g.f.maxLn1 = static_cast<float>(cvs - 1);
    return g;
}

} // namespace fixtures
