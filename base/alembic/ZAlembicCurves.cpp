// The curves layer of the Alembic reader: a Curves object's points, counts, widths, UVs,
// ids, type, wrap and basis at a sample, with the world matrix above it.
#include "base/alembic/ZAlembicCurves.h"

#include <cstring>

#include "base/alembic/ZAlembic.h"
#include "base/alembic/ZAlembicFormat.h"

namespace Ulmex {

using namespace alembic;

void ZAlembicCurves::clear() { *this = ZAlembicCurves(); }

namespace {

// A geometry parameter at `sample`: a plain array, or a compound of values (.vals) and
// unsigned indices (.indices), expanded through them. False, leaving `out` empty, for one
// that is absent, of another type, or whose indices name a missing value.
template <typename T>
bool readGeomParam(const Archive& a, const Property& p, int sample, int pod, int extent, ZArray<T>& out) {
    out.clear();
    if (!p.valid) return false;
    if (p.header.type == kArray) {
        if (readArray(p, sample, pod, extent, out)) return true;
        out.clear();
        return false;
    }
    if (p.header.type != kCompound) return false;
    ZArray<T> values;
    ZArray<std::uint32_t> indices;
    if (!readArray(findProperty(a, p.group, ".vals"), sample, pod, extent, values) ||
        !readArray(findProperty(a, p.group, ".indices"), sample, kU32, 1, indices))
        return false;
    const size_t per = static_cast<size_t>(extent) * static_cast<size_t>(podBytes(pod)) / sizeof(T);
    const size_t have = values.size() / (per ? per : 1);
    for (std::uint32_t i : indices)
        if (i >= have) return false;
    out.setLengthForOverwrite(static_cast<int>(indices.size() * per));
    for (size_t k = 0; k < indices.size(); ++k)
        std::memcpy(&out[k * per], &values[indices[k] * per], per * sizeof(T));
    return true;
}

} // namespace

bool ZAlembicObject::isCurves() const { return schema() == kCurvesSchema; }

bool ZAlembicObject::getCurvesData(ZAlembicCurves& curves, int sample) const {
    if (!_archive || !isCurves()) return false;
    const Archive& a = *_archive;
    curves.clear();
    const ogawa::Group gg = geometryCompound(a, _group);
    const Property P = findProperty(a, gg, "P");
    // Points and counts that do not describe each other describe no curves.
    if (!readArray(P, sample, kF32, 3, curves.points) ||
        !readArray(findProperty(a, gg, "nVertices"), sample, kI32, 1, curves.counts)) {
        curves.points.clear();
        curves.counts.clear();
    }
    long long total = 0;
    for (int c : curves.counts) total += c < 0 ? -(1LL << 40) : c;
    if (total != static_cast<long long>(curves.points.size())) {
        curves.points.clear();
        curves.counts.clear();
    }
    const std::uint8_t* raw = nullptr;
    int extent = 0;
    ogawa::Data held;
    if (scalarValues(findProperty(a, gg, "curveBasisAndType"), sample, kU8, raw, extent, held) && extent == 4) {
        curves.type = raw[0];
        curves.wrap = raw[1];
        curves.basis = raw[2];
    }
    // Per-curve and per-point values are told apart by their count.
    const size_t nCurves = curves.counts.size(), nPoints = curves.points.size();
    if (readGeomParam(a, findProperty(a, gg, "width"), sample, kF32, 1, curves.widths)) {
        const size_t n = curves.widths.size();
        if (n != 1 && n != nCurves && n != nPoints) curves.widths.clear();
    }
    if (readGeomParam(a, findProperty(a, gg, "uv"), sample, kF32, 2, curves.uvs)) {
        const size_t n = curves.uvs.size() / 2;
        if (n != nCurves && n != nPoints) curves.uvs.clear();
    }
    const Property arb = findProperty(a, gg, ".arbGeomParams");
    if (arb.valid && arb.header.type == kCompound)
        for (const char* name : {"id", "ids"}) {
            if (!readGeomParam(a, findProperty(a, arb.group, name), sample, kI32, 1, curves.ids)) continue;
            if (curves.ids.size() == nCurves) break;
            curves.ids.clear();
        }
    curves.worldMatrix = meshWorldMatrix(a, _ancestors, P, sample);
    return true;
}

} // namespace Ulmex
