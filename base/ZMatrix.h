// 4x4 single-precision matrix, stored by rows, applied to column vectors: the
// translation stands in the last column.
#pragma once

#include "base/ZVector.h"

namespace Ulmex {

class ZMatrix {
public:
    float data[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

    ZMatrix() = default;

    float& operator()(int row, int col) { return data[row * 4 + col]; }
    float operator()(int row, int col) const { return data[row * 4 + col]; }

    static ZMatrix identity() { return ZMatrix(); }

    ZMatrix operator*(const ZMatrix& o) const {
        ZMatrix r;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                float s = 0.f;
                for (int k = 0; k < 4; ++k) s += (*this)(i, k) * o(k, j);
                r(i, j) = s;
            }
        return r;
    }

    // The determinant by cofactor expansion along the first row, every product and sum in
    // single precision; returned as double (callers narrow it to float).
    double det() const {
        auto minor3 = [this](int c0, int c1, int c2) {
            const float* m = data;
            return m[4 + c0] * (m[8 + c1] * m[12 + c2] - m[8 + c2] * m[12 + c1]) -
                   m[4 + c1] * (m[8 + c0] * m[12 + c2] - m[8 + c2] * m[12 + c0]) +
                   m[4 + c2] * (m[8 + c0] * m[12 + c1] - m[8 + c1] * m[12 + c0]);
        };
        const float d = data[0] * minor3(1, 2, 3) - data[1] * minor3(0, 2, 3) + data[2] * minor3(0, 1, 3) -
                        data[3] * minor3(0, 1, 2);
        return static_cast<double>(d);
    }

    // M * (p, 1): a point, translation included.
    ZVector transformPoint(const ZVector& p) const {
        return ZVector(data[0] * p.x + data[1] * p.y + data[2] * p.z + data[3],
                       data[4] * p.x + data[5] * p.y + data[6] * p.z + data[7],
                       data[8] * p.x + data[9] * p.y + data[10] * p.z + data[11]);
    }
    // M * (v, 0): a direction, translation left out.
    ZVector transformVector(const ZVector& v) const {
        return ZVector(data[0] * v.x + data[1] * v.y + data[2] * v.z,
                       data[4] * v.x + data[5] * v.y + data[6] * v.z,
                       data[8] * v.x + data[9] * v.y + data[10] * v.z);
    }
};

static_assert(sizeof(ZMatrix) == 64, "ZMatrix must be 16 packed floats");

} // namespace Ulmex
