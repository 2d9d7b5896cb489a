// Follicle sets with every member filled, for the strand tests.
#pragma once

#include "strands/ZFollicles.h"

namespace fixtures {

// n strands; every attribute a distinct function of the strand index and `salt`, with
// bindings of varying length (strand i bound to i % 3 others).
inline ZFollicles makeFollicles(int n, int salt = 0) {
    using namespace Ulmex;
    ZFollicles f;
    f.reset();
    for (int i = 0; i < n; ++i) {
        const float s = static_cast<float>(i + salt * 1000);
        f.uid.push_back(100 + i + salt * 1000);
        f.rtp.push_back(i % 2);
        f.tgl.push_back(i * 3);
        f.bcc.push_back(ZTuple<3, float>(0.2f, 0.3f, 0.5f));
        f.uvw.push_back(ZVector(s * 0.01f, 1.f - s * 0.01f, 0.f));
        f.nmp.push_back(ZVector(s, -s, s * 0.5f));
        f.ln0.push_back(1.f + s);
        f.ln1.push_back(2.f + s);
        f.rxy.push_back(ZTuple<2, float>(0.6f, 0.8f));
        f.twh.push_back(0.01f * s);
        f.rwh.push_back(0.02f * s);
        f.top.push_back(0.5f);
        f.rop.push_back(1.f);
        ZAxis a;
        a.origin = ZVector(s, s + 1, s + 2);
        f.axs.push_back(a);
        std::vector<int> ids;
        std::vector<float> ws;
        for (int k = 0; k < i % 3; ++k) {
            ids.push_back(k);
            ws.push_back(0.5f * static_cast<float>(k + 1));
        }
        f.bdi.push(ids.data(), static_cast<int>(ids.size()));
        f.bdw.push(ws.data(), static_cast<int>(ws.size()));
        f.auxInt0.push_back(i);
        f.auxFloat3.push_back(s);
    }
    f.maxLn0 = n > 0 ? f.ln0.back() : 0.f;
    f.maxLn1 = n > 0 ? f.ln1.back() : 0.f;
    return f;
}

// Every member but the spare arrays is equal.
inline bool sameRecordData(const ZFollicles& a, const ZFollicles& b) {
    return a.uid == b.uid && a.rtp == b.rtp && a.tgl == b.tgl && a.bcc == b.bcc && a.uvw == b.uvw &&
           a.nmp == b.nmp && a.ln0 == b.ln0 && a.ln1 == b.ln1 && a.rxy == b.rxy && a.twh == b.twh &&
           a.rwh == b.rwh && a.top == b.top && a.rop == b.rop && a.bdi == b.bdi && a.bdw == b.bdw &&
           a.axs == b.axs && a.maxLn0 == b.maxLn0 && a.maxLn1 == b.maxLn1;
}

} // namespace fixtures
