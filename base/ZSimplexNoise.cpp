#include "base/ZSimplexNoise.h"

#include <cmath>

#include "base/ZRandom.h"

namespace Ulmex {

namespace {

// The twelve edge midpoints of a cube: gradients of equal length in every direction.
const float kGrad3[12][3] = {{1, 1, 0}, {-1, 1, 0}, {1, -1, 0}, {-1, -1, 0},
                             {1, 0, 1}, {-1, 0, 1}, {1, 0, -1}, {-1, 0, -1},
                             {0, 1, 1}, {0, -1, 1}, {0, 1, -1}, {0, -1, -1}};

// Scales that bring the sums of corner contributions to [-1, 1] (measured maxima of the
// radius-squared 0.5 kernel, with a small margin).
const float kScale3 = 76.0f;
const float kScale1 = 0.395f;

const double kLimit = 1e15;

inline int latticeIndex(double v) { return static_cast<int>(static_cast<int64_t>(std::floor(v)) & 255); }

} // namespace

ZSimplexNoise::ZSimplexNoise(unsigned int seed) : _seed(seed) {
    for (int i = 0; i < 256; ++i) _perm[i] = static_cast<uint8_t>(i);
    // Fisher-Yates driven by the system hash: a pure function of the seed.
    const uint32_t base = ZRandomHash(seed);
    for (int i = 255; i > 0; --i) {
        const uint32_t j = ZRandomHash(base ^ (static_cast<uint32_t>(i) * 0x45d9f3bu)) % static_cast<uint32_t>(i + 1);
        const uint8_t t = _perm[i];
        _perm[i] = _perm[j];
        _perm[j] = t;
    }
    for (int i = 0; i < 256; ++i) _perm[256 + i] = _perm[i];
}

float ZSimplexNoise::pureValue(float x, float y, float z, float* dx, float* dy, float* dz) const {
    float gx = 0.f, gy = 0.f, gz = 0.f, value = 0.f;
    if (std::fabs(x) < kLimit && std::fabs(y) < kLimit && std::fabs(z) < kLimit) {
        const float F3 = 1.f / 3.f, G3 = 1.f / 6.f;
        const float s = (x + y + z) * F3;
        const double fi = std::floor(static_cast<double>(x) + s);
        const double fj = std::floor(static_cast<double>(y) + s);
        const double fk = std::floor(static_cast<double>(z) + s);
        const float t = static_cast<float>((fi + fj + fk) * G3);
        const float x0 = static_cast<float>(x - (fi - t));
        const float y0 = static_cast<float>(y - (fj - t));
        const float z0 = static_cast<float>(z - (fk - t));

        // Which of the six tetrahedra of the skewed cube holds the point.
        int i1, j1, k1, i2, j2, k2;
        if (x0 >= y0) {
            if (y0 >= z0)      { i1 = 1; j1 = 0; k1 = 0; i2 = 1; j2 = 1; k2 = 0; }
            else if (x0 >= z0) { i1 = 1; j1 = 0; k1 = 0; i2 = 1; j2 = 0; k2 = 1; }
            else               { i1 = 0; j1 = 0; k1 = 1; i2 = 1; j2 = 0; k2 = 1; }
        } else {
            if (y0 < z0)       { i1 = 0; j1 = 0; k1 = 1; i2 = 0; j2 = 1; k2 = 1; }
            else if (x0 < z0)  { i1 = 0; j1 = 1; k1 = 0; i2 = 0; j2 = 1; k2 = 1; }
            else               { i1 = 0; j1 = 1; k1 = 0; i2 = 1; j2 = 1; k2 = 0; }
        }
        const float cx[4] = {x0, x0 - i1 + G3, x0 - i2 + 2.f * G3, x0 - 1.f + 3.f * G3};
        const float cy[4] = {y0, y0 - j1 + G3, y0 - j2 + 2.f * G3, y0 - 1.f + 3.f * G3};
        const float cz[4] = {z0, z0 - k1 + G3, z0 - k2 + 2.f * G3, z0 - 1.f + 3.f * G3};
        const int ii = latticeIndex(fi), jj = latticeIndex(fj), kk = latticeIndex(fk);
        const int oi[4] = {0, i1, i2, 1}, oj[4] = {0, j1, j2, 1}, ok[4] = {0, k1, k2, 1};

        for (int c = 0; c < 4; ++c) {
            const float r = 0.5f - cx[c] * cx[c] - cy[c] * cy[c] - cz[c] * cz[c];
            if (r <= 0.f) continue;
            const int h = _perm[ii + oi[c] + _perm[jj + oj[c] + _perm[kk + ok[c]]]] % 12;
            const float* g = kGrad3[h];
            const float gd = g[0] * cx[c] + g[1] * cy[c] + g[2] * cz[c];
            const float r2 = r * r;
            const float r4 = r2 * r2;
            value += r4 * gd;
            // d/dp (r^4 g.p) = r^4 g - 8 r^3 (g.p) p
            const float k8 = 8.f * r2 * r * gd;
            gx += r4 * g[0] - k8 * cx[c];
            gy += r4 * g[1] - k8 * cy[c];
            gz += r4 * g[2] - k8 * cz[c];
        }
        value *= kScale3;
        gx *= kScale3;
        gy *= kScale3;
        gz *= kScale3;
    }
    if (dx) *dx = gx;
    if (dy) *dy = gy;
    if (dz) *dz = gz;
    return value;
}

float ZSimplexNoise::pureValue(float x, float* dx) const {
    float value = 0.f, g = 0.f;
    if (std::fabs(x) < kLimit) {
        const double fi = std::floor(static_cast<double>(x));
        const int i0 = latticeIndex(fi);
        const float x0 = static_cast<float>(x - fi);
        const float xs[2] = {x0, x0 - 1.f};
        for (int c = 0; c < 2; ++c) {
            const int h = _perm[i0 + c];
            float grad = 1.f + static_cast<float>(h & 7);
            if (h & 8) grad = -grad;
            const float r = 1.f - xs[c] * xs[c];
            const float r2 = r * r;
            const float r4 = r2 * r2;
            value += r4 * grad * xs[c];
            g += grad * r2 * r * (r - 8.f * xs[c] * xs[c]);
        }
        value *= kScale1;
        g *= kScale1;
    }
    if (dx) *dx = g;
    return value;
}

} // namespace Ulmex
