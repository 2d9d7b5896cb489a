// The transform layer of the Alembic reader: an Xform's op stack and values, its local
// matrix, the decomposition into channels, and the world matrix above a mesh at a time.
#include "base/alembic/ZAlembic.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "base/alembic/ZAlembicFormat.h"

namespace Ulmex {

namespace alembic {

namespace {

struct Op {
    int type;
    double ch[16];
    int n;
};

// The op stack of an object's ".xform" at `sample`; false when it has none.
bool xformOps(const Archive& a, const ogawa::Group& objGroup, int sample, std::vector<Op>& ops, bool& inherits) {
    inherits = true;
    if (!objGroup.isGroup(0)) return false;
    const Property xf = findProperty(a, objGroup.group(0), ".xform");
    if (!xf.valid || xf.header.type != kCompound) return false;
    const Property opsProp = findProperty(a, xf.group, ".ops");
    const std::uint8_t* codes = nullptr;
    int numOps = 0;
    ops.clear();
    ogawa::Data held;
    if (opsProp.valid && scalarValues(opsProp, 0, kU8, codes, numOps, held)) {
        for (int i = 0; i < numOps; ++i) {
            const int type = codes[i] >> 4;
            // Channels per op: scale, translate, rotate (axis and angle), matrix, rotate x, y, z.
            static const int channels[] = {3, 3, 4, 16, 1, 1, 1};
            if (type > kRotateZOp) break;
            Op op{type, {0}, channels[type]};
            if (type == kScaleOp) op.ch[0] = op.ch[1] = op.ch[2] = 1.0;
            if (type == kMatrixOp)
                for (int k = 0; k < 4; ++k) op.ch[5 * k] = 1.0;
            ops.push_back(op);
        }
    }
    // The channel values of every op, in order, as one double array.
    const Property vals = findProperty(a, xf.group, ".vals");
    std::vector<double> v;
    const std::uint8_t* raw = nullptr;
    int extent = 0;
    std::uint64_t count = 0;
    if (scalarValues(vals, sample, kF64, raw, extent, held)) {
        v.resize(static_cast<size_t>(extent));
    } else if (vals.valid && vals.header.type == kArray &&
               arrayValues(vals, sample, kF64, vals.header.extent, raw, count, held)) {
        v.resize(static_cast<size_t>(count) * static_cast<size_t>(vals.header.extent));
    }
    if (!v.empty()) std::memcpy(v.data(), raw, v.size() * sizeof(double));
    size_t at = 0;
    for (Op& op : ops)
        for (int k = 0; k < op.n && at < v.size(); ++k) op.ch[k] = v[at++];
    const Property inh = findProperty(a, xf.group, ".inherits");
    const std::uint8_t* flag = nullptr;
    int one = 0;
    if (scalarValues(inh, sample, kBool, flag, one, held) && one == 1) inherits = flag[0] != 0;
    return true;
}

using M4 = std::array<double, 16>;  // rows, column vectors

M4 identity4() { return {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}; }

M4 mul(const M4& a, const M4& b) {
    M4 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k) s += a[4 * i + k] * b[4 * k + j];
            r[4 * i + j] = s;
        }
    return r;
}

M4 rotation(double x, double y, double z, double degrees) {
    const double len = std::sqrt(x * x + y * y + z * z);
    M4 r = identity4();
    if (!(len > 0)) return r;
    x /= len, y /= len, z /= len;
    const double t = degrees * 0.017453292519943295, c = std::cos(t), s = std::sin(t), k = 1 - c;
    r = {k * x * x + c,     k * x * y - s * z, k * x * z + s * y, 0, k * x * y + s * z, k * y * y + c,
         k * y * z - s * x, 0,                 k * x * z - s * y, k * y * z + s * x, k * z * z + c, 0,
         0,                 0,                 0,                 1};
    return r;
}

// Alembic composes the ops of a stack as ret = op * ret on row vectors: for column vectors
// the first op stands leftmost, so a stack translate, rotateZ, rotateY, rotateX, scale is
// T Rz Ry Rx S.
M4 localMatrix(const std::vector<Op>& ops) {
    M4 m = identity4();
    for (const Op& op : ops) {
        M4 o = identity4();
        switch (op.type) {
        case kScaleOp: o[0] = op.ch[0], o[5] = op.ch[1], o[10] = op.ch[2]; break;
        case kTranslateOp: o[3] = op.ch[0], o[7] = op.ch[1], o[11] = op.ch[2]; break;
        case kRotateOp: o = rotation(op.ch[0], op.ch[1], op.ch[2], op.ch[3]); break;
        case kMatrixOp:  // stored for row vectors: transpose
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j) o[4 * j + i] = op.ch[4 * i + j];
            break;
        case kRotateXOp: o = rotation(1, 0, 0, op.ch[0]); break;
        case kRotateYOp: o = rotation(0, 1, 0, op.ch[0]); break;
        case kRotateZOp: o = rotation(0, 0, 1, op.ch[0]); break;
        }
        m = mul(m, o);
    }
    return m;
}

// T, R (degrees about x, y and z) and S such that T * Rz * Ry * Rx * S is the matrix (for a
// matrix without shear; a negative determinant negates the x scale).
void decompose(const M4& m, ZVector& t, ZVector& r, ZVector& s) {
    t = ZVector(float(m[3]), float(m[7]), float(m[11]));
    double col[3][3];
    double sc[3];
    for (int j = 0; j < 3; ++j) {
        for (int i = 0; i < 3; ++i) col[j][i] = m[4 * i + j];
        sc[j] = std::sqrt(col[j][0] * col[j][0] + col[j][1] * col[j][1] + col[j][2] * col[j][2]);
    }
    const double det = col[0][0] * (col[1][1] * col[2][2] - col[1][2] * col[2][1]) -
                       col[1][0] * (col[0][1] * col[2][2] - col[0][2] * col[2][1]) +
                       col[2][0] * (col[0][1] * col[1][2] - col[0][2] * col[1][1]);
    if (det < 0) sc[0] = -sc[0];
    double R[3][3];  // R[i][j]: row i, column j
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) R[i][j] = sc[j] != 0 ? col[j][i] / sc[j] : (i == j ? 1.0 : 0.0);
    const double kDeg = 57.29577951308232;
    const double cy = std::sqrt(R[0][0] * R[0][0] + R[1][0] * R[1][0]);
    double x, y, z;
    y = std::atan2(-R[2][0], cy);
    if (cy > 1e-9) {
        x = std::atan2(R[2][1], R[2][2]);
        z = std::atan2(R[1][0], R[0][0]);
    } else {  // gimbal lock: the x and z rotations share an axis; all of it goes to x
        x = std::atan2(-R[1][2], R[1][1]);
        z = 0;
    }
    r = ZVector(float(x * kDeg), float(y * kDeg), float(z * kDeg));
    s = ZVector(float(sc[0]), float(sc[1]), float(sc[2]));
}

// A stack the channels give directly: at most one translate, rotate about z, y and x and
// scale, in that order (T Rz Ry Rx S).
bool plainStack(const std::vector<Op>& ops) {
    static const int kOrder[] = {kTranslateOp, kRotateZOp, kRotateYOp, kRotateXOp, kScaleOp};
    size_t at = 0;
    for (const Op& op : ops) {
        while (at < 5 && kOrder[at] != op.type) ++at;
        if (at == 5) return false;
        ++at;
    }
    return true;
}

} // namespace

// The world matrix of a mesh: the product of the transforms above it (`ancestors`, from the
// top down), each taken at the time of sample `sample` of `P` (its nearest sample there), as
// time-based reads do: transforms and geometry may be sampled differently.
ZMatrix meshWorldMatrix(const Archive& a, const std::vector<std::uint64_t>& ancestors, const Property& P, int sample) {
    // The time of sample `sample` of the mesh's sampling, past its last stored sample too: a
    // rigid prop stores its points once under transforms sampled every frame, and sample i
    // must take them at frame i. (An acyclic sampling ends at its last stored time.)
    const double time = samplingOf(a, P.header).time(sample < 0 ? 0u : std::uint32_t(sample));
    M4 w = identity4();
    std::vector<Op> ops;
    bool inherits;
    for (std::uint64_t pos : ancestors) {
        const ogawa::Group xg = objectGroup(a, pos);
        int xs = sample;
        if (xg.isGroup(0)) {
            const Property vals = findPath(a, xg.group(0), {".xform", ".vals"});
            if (vals.valid && vals.header.type != kCompound)
                xs = static_cast<int>(samplingOf(a, vals.header).nearIndex(time, std::max<std::uint32_t>(1, vals.header.next)));
        }
        if (!xformOps(a, xg, xs, ops, inherits)) continue;
        w = inherits ? mul(w, localMatrix(ops)) : localMatrix(ops);
    }
    ZMatrix out;
    for (int i = 0; i < 16; ++i) out.data[i] = static_cast<float>(w[static_cast<size_t>(i)]);
    return out;
}

} // namespace alembic

using namespace alembic;

bool ZAlembicObject::getTransformations(ZVector& translate, ZVector& rotateDegrees, ZVector& scale, int sample) const {
    if (!_archive) return false;
    std::vector<Op> ops;
    bool inherits;
    if (!xformOps(*_archive, objectGroup(*_archive, _group), sample, ops, inherits)) return false;
    if (!plainStack(ops)) {
        // Matrix ops (Blender, Houdini, Gaffer, 3ds Max), pivots (Maya) and other stacks: the
        // object's whole local matrix, decomposed.
        decompose(localMatrix(ops), translate, rotateDegrees, scale);
        return true;
    }
    ZVector t(0, 0, 0), r(0, 0, 0), s(1, 1, 1);
    for (const Op& op : ops) {
        if (op.type == kTranslateOp) t = ZVector(float(op.ch[0]), float(op.ch[1]), float(op.ch[2]));
        if (op.type == kScaleOp) s = ZVector(float(op.ch[0]), float(op.ch[1]), float(op.ch[2]));
        if (op.type >= kRotateXOp) (op.type == kRotateXOp ? r.x : op.type == kRotateYOp ? r.y : r.z) = float(op.ch[0]);
    }
    translate = t;
    rotateDegrees = r;
    scale = s;
    return true;
}

} // namespace Ulmex
