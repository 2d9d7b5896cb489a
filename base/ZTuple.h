// N values of T in a row, no padding.
#pragma once

#include <cstddef>

namespace Ulmex {

template <int N, typename T>
class ZTuple {
public:
    T data[N] = {};

    ZTuple() = default;
    ZTuple(T a, T b) : data{a, b} { static_assert(N == 2, "two values"); }
    ZTuple(T a, T b, T c) : data{a, b, c} { static_assert(N == 3, "three values"); }
    ZTuple(T a, T b, T c, T d) : data{a, b, c, d} { static_assert(N == 4, "four values"); }

    T& operator[](int i) { return data[i]; }
    const T& operator[](int i) const { return data[i]; }

    bool operator==(const ZTuple& o) const {
        for (int i = 0; i < N; ++i)
            if (!(data[i] == o.data[i])) return false;
        return true;
    }
    bool operator!=(const ZTuple& o) const { return !(*this == o); }
};

static_assert(sizeof(ZTuple<3, float>) == 12 && sizeof(ZTuple<2, float>) == 8,
              "ZTuple must be packed");

} // namespace Ulmex
