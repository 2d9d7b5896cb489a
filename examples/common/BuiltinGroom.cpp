#include "BuiltinGroom.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "toolkit/ZGuideBinder.h"
#include "toolkit/ZRootGrower.h"

using namespace Ulmex;

namespace examples {

namespace {
const float kPi = 3.14159265f;
}

void buildSphere(float radius, int rings, int segments, ZTriMesh& mesh) {
    mesh.reset();
    for (int r = 0; r <= rings; ++r) {
        const float theta = kPi * static_cast<float>(r) / static_cast<float>(rings);
        for (int s = 0; s < segments; ++s) {
            const float phi = 2.f * kPi * static_cast<float>(s) / static_cast<float>(segments);
            const ZVector n(std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi));
            mesh.points.push_back(n * radius);
        }
    }
    auto index = [segments](int r, int s) { return r * segments + (s % segments); };
    auto uv = [rings, segments](int r, int s) {
        return ZVector(static_cast<float>(s) / static_cast<float>(segments),
                       1.f - static_cast<float>(r) / static_cast<float>(rings), 0.f);
    };
    for (int r = 0; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const int a = index(r, s), b = index(r + 1, s), c = index(r + 1, s + 1), d = index(r, s + 1);
            // Counter-clockwise seen from outside, so face normals point out.
            if (r > 0) {  // the top ring's upper triangle collapses onto the pole
                mesh.v012.push_back(ZTuple<3, int>(a, d, b));
                mesh.uvs.push_back(uv(r, s));
                mesh.uvs.push_back(uv(r, s + 1));
                mesh.uvs.push_back(uv(r + 1, s));
            }
            if (r < rings - 1) {
                mesh.v012.push_back(ZTuple<3, int>(d, c, b));
                mesh.uvs.push_back(uv(r, s + 1));
                mesh.uvs.push_back(uv(r + 1, s + 1));
                mesh.uvs.push_back(uv(r + 1, s));
            }
        }
}

ZAxisArray sphereFrames(float radius, int rings, int segments) {
    ZAxisArray frames;
    for (int r = 0; r <= rings; ++r) {
        const float theta = kPi * static_cast<float>(r) / static_cast<float>(rings);
        for (int s = 0; s < segments; ++s) {
            const float phi = 2.f * kPi * static_cast<float>(s) / static_cast<float>(segments);
            const ZVector n(std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi));
            ZAxis a;
            a.origin = n * radius;
            a.zAxis = n;
            const ZVector x(-std::sin(phi), 0.f, std::cos(phi));  // along increasing longitude
            a.xAxis = (x - n * x.dot(n)).normalized(false);
            a.yAxis = a.zAxis.cross(a.xAxis);
            frames.push_back(a);
        }
    }
    return frames;
}

void growStrands(const ZTriMesh& mesh, const ZAxisArray& frames, int count, int cvCount, float length, ZFollicles& f,
                 ZCurves& curves) {
    ZRootGrower grower;
    grower.seed = 1;
    if (!grower.growStrands(mesh, frames, count, cvCount, length, 0.6f, f, curves)) {
        std::cerr << "growStrands: " << grower.message << "\n";
        std::exit(1);
    }
    ZIntArray guides;
    for (int i = 0; i < f.numStrands(); i += 50) guides.push_back(i);
    ZGuideBinder binder;
    if (!guides.empty() && !binder.bind(f, guides)) {
        std::cerr << "growStrands: " << binder.message << "\n";
        std::exit(1);
    }
}

void buildFeatherTemplate(int rows, int columns, ZFeather& feather) {
    feather.reset();
    feather.name = "builtin:contour";
    feather.color[0] = 0.55f;
    feather.color[1] = 0.42f;
    feather.color[2] = 0.3f;
    std::vector<ZVector> shaft;
    for (int r = 0; r < rows; ++r) {
        const float y = static_cast<float>(r) / static_cast<float>(rows - 1);
        // Widest a third of the way up, closing at the tip; the vane cups a little.
        const float profile = std::max(0.f, std::sin(kPi * std::min(1.f, y * 0.85f + 0.15f)));
        const float halfWidth = 0.18f * std::pow(profile, 0.7f);
        for (int c = 0; c < columns; ++c) {
            const float u = -1.f + 2.f * static_cast<float>(c) / static_cast<float>(columns - 1);
            const float x = u * halfWidth;
            feather.mesh.points.push_back(ZVector(x, y, 0.04f * u * u + 0.01f));
        }
        shaft.push_back(ZVector(0.f, y, 0.01f));
    }
    for (int r = 0; r + 1 < rows; ++r)
        for (int c = 0; c + 1 < columns; ++c) {
            const int a = r * columns + c, b = a + 1, d = a + columns, e = d + 1;
            feather.mesh.v012.push_back(ZTuple<3, int>(a, b, e));
            feather.mesh.v012.push_back(ZTuple<3, int>(a, e, d));
            for (int k = 0; k < 6; ++k) feather.mesh.uvs.push_back(ZVector());
        }
    feather.curves.push(shaft.data(), rows);
    feather.latticeResolution = 6;
    feather.initialize();
}

} // namespace examples
