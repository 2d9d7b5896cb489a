// Seeded simplex noise in one and three dimensions, with optional analytic derivatives.
#pragma once

#include <cstdint>

namespace Ulmex {

// A smooth deterministic scalar field. The seed shuffles the lattice gradient table, so
// two seeds give unrelated fields of the same character. Values lie in [-1, 1]; the
// feature size is one unit. Construction fills a table; after that every call is const
// and reads only that table, so any number of threads may sample one object at once.
//
// Coordinates whose magnitude reaches 1e15, infinities and NaN give 0 with zero
// derivatives (a float that large has no fractional part left to interpolate).
class ZSimplexNoise {
public:
    explicit ZSimplexNoise(unsigned int seed = 0);

    unsigned int seed() const { return _seed; }

    // Noise at (x, y, z). Any of the derivative pointers may be null.
    float pureValue(float x, float y, float z, float* dx, float* dy, float* dz) const;
    // Noise at x along a line; dx may be null.
    float pureValue(float x, float* dx) const;

private:
    unsigned int _seed;
    uint8_t _perm[512];
};

} // namespace Ulmex
