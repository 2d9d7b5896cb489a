#include "BuiltinGroom.h"

#include <algorithm>
#include <cmath>
#include <vector>

using namespace Ulmex;

namespace examples {

namespace {
const float kPi = 3.14159265f;
}

void buildSphere(float radius, int rings, int segments, ZTriMesh& mesh, ZAxisArray& frames) {
    mesh.reset();
    frames.clear();
    for (int r = 0; r <= rings; ++r) {
        const float theta = kPi * static_cast<float>(r) / static_cast<float>(rings);
        for (int s = 0; s < segments; ++s) {
            const float phi = 2.f * kPi * static_cast<float>(s) / static_cast<float>(segments);
            const ZVector n(std::sin(theta) * std::cos(phi), std::cos(theta), std::sin(theta) * std::sin(phi));
            mesh.points.push_back(n * radius);
            ZAxis a;
            a.origin = n * radius;
            a.zAxis = n;
            const ZVector x(-std::sin(phi), 0.f, std::cos(phi));  // along increasing longitude
            a.xAxis = (x - n * x.dot(n)).normalized(false);
            a.yAxis = a.zAxis.cross(a.xAxis);
            frames.push_back(a);
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

void growStrands(const ZTriMesh& mesh, const ZAxisArray& frames, int count, int cvCount, float length, ZFollicles& f,
                 ZCurves& curves) {
    f.reset();
    curves.reset();
    const int triangles = mesh.numTriangles();
    std::vector<ZVector> cvs(static_cast<size_t>(cvCount));
    for (int i = 0; i < count; ++i) {
        const uint32_t uid = 1000u + static_cast<uint32_t>(i);
        const int t = static_cast<int>(ZRandomHash(uid * 3u) % static_cast<uint32_t>(triangles));
        // Uniform point in a triangle from two unit draws.
        const float r1 = std::sqrt(ZRandomUnit(uid * 3u + 1u));
        const float r2 = ZRandomUnit(uid * 3u + 2u);
        const ZTuple<3, float> w(1.f - r1, r1 * (1.f - r2), r1 * r2);
        const ZTuple<3, int>& v = mesh.v012[t];
        const ZVector p = mesh.points[v[0]] * w[0] + mesh.points[v[1]] * w[1] + mesh.points[v[2]] * w[2];
        const ZVector uvw = mesh.uvs[3 * t] * w[0] + mesh.uvs[3 * t + 1] * w[1] + mesh.uvs[3 * t + 2] * w[2];
        const ZVector n = p.normalized(false);
        const float len = length * (0.7f + 0.6f * ZRandomUnit(uid ^ 0x5bd1e995u));

        f.uid.push_back(static_cast<int>(uid));
        f.rtp.push_back(0);
        f.tgl.push_back(t);
        f.bcc.push_back(w);
        f.uvw.push_back(uvw);
        f.nmp.push_back(p);
        f.ln0.push_back(len);
        f.ln1.push_back(len);
        // Each strand is bound to the first strand of its run of 50, its guide.
        const int guide = (i / 50) * 50;
        const float weight = 1.f;
        f.bdi.push(&guide, 1);
        f.bdw.push(&weight, 1);

        for (int j = 0; j < cvCount; ++j)
            cvs[static_cast<size_t>(j)] = p + n * (len * static_cast<float>(j) / static_cast<float>(cvCount - 1));
        curves.push(cvs.data(), cvCount);
    }
    f.maxLn0 = 0.f;
    for (float l : f.ln0) f.maxLn0 = std::max(f.maxLn0, l);
    f.maxLn1 = f.maxLn0;
    const int n = f.numStrands();
    f.axs.setLength(n, true);
    f.rxy.setLength(n, true);
    f.twh.setLength(n, true);
    f.rwh.setLength(n, true);
    f.top.setLength(n, true);
    f.rop.setLength(n, true);
    f.updateAxes(mesh, frames, true);
    f.calcRxy(curves, true);
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
