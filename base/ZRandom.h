// The one integer hash of the system and the unit float drawn from it. A draw is a pure
// function of its key: there is no generator state anywhere.
#pragma once

#include <cstdint>

namespace Ulmex {

inline uint32_t ZRandomHash(uint32_t s) {
    uint32_t h = (s ^ 12345391u) * 0x9e3779b9u;
    h = h ^ ((h << 6) | (h >> 26));
    h = h * 0x9e3779b9u;
    h = h + ((h >> 12) ^ (h << 5));
    return h;
}

// ZRandomHash(s) * 2^-32, computed in double and rounded to float: in [0, 1], and the
// rounding can give exactly 1.
inline float ZRandomUnit(uint32_t s) {
    return static_cast<float>(static_cast<double>(ZRandomHash(s)) * 2.3283064365386963e-10);
}

} // namespace Ulmex
