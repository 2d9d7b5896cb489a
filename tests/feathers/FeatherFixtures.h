// A small feather template and strands to place it on.
#pragma once

#include "feathers/ZFeather.h"

namespace fixtures {

// A diamond feather 2 tall and 1 wide in local space (Y up the strand, X across): mesh
// points at the root (0, 0), the tip (0, 2), the sides (+-0.5, 1), a raised centre
// (0, 1, 0.2), and one curve up the shaft with CVs at depth 0.1.
inline ZFeather diamondFeather() {
    using namespace Ulmex;
    ZFeather f;
    f.name = "ns:diamond";
    f.mesh.points = {{0, 0, 0}, {0.5f, 1, 0}, {0, 2, 0}, {-0.5f, 1, 0}, {0, 1, 0.2f}};
    f.mesh.v012 = {ZTuple<3, int>(0, 1, 4), ZTuple<3, int>(1, 2, 4), ZTuple<3, int>(2, 3, 4),
                   ZTuple<3, int>(3, 0, 4)};
    f.mesh.uvs.assign(12, ZVector());
    const ZVector shaft[] = {{0, 0, 0.1f}, {0, 1, 0.1f}, {0, 2, 0.1f}};
    f.curves.push(shaft, 3);
    f.initialize();
    return f;
}

// Strands standing on the world frame at the origin: one straight along z (length 2), one
// bent (a quarter circle of radius 2 towards +x), one of two CVs.
inline void strands(ZFollicles& f, Ulmex::ZCurves& c) {
    using namespace Ulmex;
    f.reset();
    c.reset();
    const ZVector straight[] = {{0, 0, 0}, {0, 0, 0.5f}, {0, 0, 1}, {0, 0, 1.5f}, {0, 0, 2}};
    ZVector bent[9];
    for (int j = 0; j < 9; ++j) {
        const float a = 1.5707963f * static_cast<float>(j) / 8.f;
        bent[j] = ZVector(2.f - 2.f * std::cos(a), 0.f, 2.f * std::sin(a));
    }
    const ZVector two[] = {{0, 0, 0}, {0, 0, 2}};
    c.push(straight, 5);
    c.push(bent, 9);
    c.push(two, 2);
    for (int i = 0; i < 3; ++i) {
        f.tgl.push_back(0);
        f.ln1.push_back(2.f);
        f.rxy.push_back(ZTuple<2, float>(0, 1));  // lean axis y: side vector -y
        f.axs.push_back(ZAxis());
    }
}

} // namespace fixtures
