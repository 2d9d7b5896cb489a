#include "usd/ZCurvesToUSD.h"

#include <pxr/sdf/attributeSpec.h>
#include <pxr/sdf/primSpec.h>
#include <pxr/sdf/types.h>
#include <pxr/tf/errorMark.h>
#include <pxr/tf/fileUtils.h>
#include <pxr/tf/stringUtils.h>
#include <pxr/vt/array.h>

#include <algorithm>
#include <cfloat>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "usd/ZUsdLayer.h"

using namespace Ulmex;
using namespace pxr;

namespace {

// ------------------------------------------------------------------------------------
// What UsdStage and the UsdGeom schemas author, spelled out on an Sdf layer. Each helper
// names the USD call it stands for.

const TfToken& interpolationKey() {
    static const TfToken t("interpolation");
    return t;
}

// When a value is written: the default time, or a time sample.
struct When {
    bool isDefault;
    double time;
};

class Author {
public:
    Author(const SdfLayerRefPtr& layer, When when) : _layer(layer), _when(when) {}

    // UsdStage::DefinePrim(path, typeName): a "def" prim of that type, made if missing;
    // an existing prim keeps its properties.
    SdfPrimSpecHandle definePrim(const SdfPath& path, const std::string& typeName) {
        SdfPrimSpecHandle prim = _layer->GetPrimAtPath(path);
        if (!prim) {
            SdfPrimSpecHandle parent = path.GetParentPath() == SdfPath::AbsoluteRootPath()
                                           ? _layer->GetPseudoRoot()
                                           : definePrim(path.GetParentPath(), std::string());
            return SdfPrimSpec::New(parent, path.GetName(), SdfSpecifierDef, typeName);
        }
        if (prim->GetSpecifier() != SdfSpecifierDef) prim->SetSpecifier(SdfSpecifierDef);
        if (!typeName.empty() && prim->GetTypeName() != typeName) prim->SetTypeName(typeName);
        return prim;
    }

    // UsdStage::SetDefaultPrim on a root prim.
    void setDefaultPrim(const std::string& primName) { _layer->SetDefaultPrim(TfToken(primName)); }

    // A schema's Create...Attr(VtValue(), false), UsdGeomImageable::CreatePrimvar and
    // UsdPrim::CreateAttribute: the attribute spec if missing, untouched if present.
    SdfAttributeSpecHandle attr(const SdfPrimSpecHandle& prim, const std::string& attrName,
                                const SdfValueTypeName& type, SdfVariability variability = SdfVariabilityVarying,
                                bool custom = false) {
        SdfAttributeSpecHandle a = _layer->GetAttributeAtPath(prim->GetPath().AppendProperty(TfToken(attrName)));
        if (a) return a;
        return SdfAttributeSpec::New(prim, attrName, type, variability, custom);
    }
    SdfAttributeSpecHandle primvar(const SdfPrimSpecHandle& prim, const std::string& primvarName,
                                   const SdfValueTypeName& type) {
        return attr(prim, "primvars:" + primvarName, type);
    }

    // UsdGeomPrimvar::SetInterpolation, SetWidthsInterpolation, SetNormalsInterpolation.
    static void setInterpolation(const SdfAttributeSpecHandle& a, const char* interpolation) {
        a->SetInfo(interpolationKey(), VtValue(TfToken(interpolation)));
    }

    // UsdAttribute::Set at the writer's time.
    template <typename T>
    void set(const SdfAttributeSpecHandle& a, const T& value) {
        if (_when.isDefault)
            a->SetDefaultValue(VtValue(value));
        else
            _layer->SetTimeSample(a->GetPath(), _when.time, VtValue(value));
    }
    // UsdAttribute::Set at the default time, whatever the writer's time.
    template <typename T>
    static void setDefault(const SdfAttributeSpecHandle& a, const T& value) {
        a->SetDefaultValue(VtValue(value));
    }

    // What UsdAttribute::Get of a float array resolves to at the time the writer computes
    // extents at: the sample at that time, else the default value (this layer holds no
    // other opinion). An attribute without a value reads as empty.
    VtFloatArray floatArrayAt(const SdfPrimSpecHandle& prim, const char* attrName) const {
        SdfAttributeSpecHandle a = _layer->GetAttributeAtPath(prim->GetPath().AppendProperty(TfToken(attrName)));
        if (!a) return {};
        VtValue v;
        if (!_when.isDefault && _layer->QueryTimeSample(a->GetPath(), _when.time, &v) && v.IsHolding<VtFloatArray>())
            return v.UncheckedGet<VtFloatArray>();
        v = a->GetDefaultValue();
        return v.IsHolding<VtFloatArray>() ? v.UncheckedGet<VtFloatArray>() : VtFloatArray();
    }

private:
    SdfLayerRefPtr _layer;
    When _when;
};

// UsdGeomPointBased::ComputeExtent: the bounds of the points, accumulated in double and
// narrowed to float; no points give the empty range, +FLT_MAX to -FLT_MAX.
VtVec3fArray pointExtent(const VtVec3fArray& points) {
    double lo[3] = {FLT_MAX, FLT_MAX, FLT_MAX}, hi[3] = {-FLT_MAX, -FLT_MAX, -FLT_MAX};
    for (const GfVec3f& p : points)
        for (int k = 0; k < 3; ++k) {
            lo[k] = std::min(lo[k], double(p[k]));
            hi[k] = std::max(hi[k], double(p[k]));
        }
    return VtVec3fArray{GfVec3f(float(lo[0]), float(lo[1]), float(lo[2])),
                        GfVec3f(float(hi[0]), float(hi[1]), float(hi[2]))};
}

// UsdGeomCurves::ComputeExtent: the point bounds grown by half the largest width.
VtVec3fArray curvesExtent(const VtVec3fArray& points, const VtFloatArray& widths) {
    const float maxWidth = widths.empty() ? 0.f : *std::max_element(widths.begin(), widths.end());
    VtVec3fArray e = pointExtent(points);
    const GfVec3f pad(float(maxWidth * 0.5));
    e[0] -= pad;
    e[1] += pad;
    return e;
}

GfVec3f gf(const ZVector& v) { return GfVec3f(v.x, v.y, v.z); }

// The strand step: a truncated float division. Outside the documented range of
// exportRatio the quotient is clamped to 1 .. INT_MAX, so that no ratio can divide by
// zero or overflow.
int sampleStep(float dividend, float exportRatio) {
    const float q = dividend / exportRatio;
    if (!(q >= 1.f)) return 1;
    if (q >= 2147483520.f) return INT_MAX;
    return static_cast<int>(q);
}

int curveStep(bool high, int strands, float ratio) {
    if (high) return sampleStep(1.f, ratio);
    return sampleStep(strands < 1000 ? 100.f : 1000.f, ratio);
}
int featherMeshStep(bool high, int strands, float ratio) {
    if (high) return sampleStep(1.f, ratio);
    return sampleStep(strands < 100 ? 10.f : 100.f, ratio);
}
int featherCurveStep(bool high, int strands, float ratio) {
    if (high) return 1;
    return sampleStep(strands < 100 ? 10.f : 100.f, ratio);
}

// How many of the strands a walk with step s takes for feather kind f.
size_t copiesOf(const ZFollicles& f, int kind, int s) {
    size_t copies = 0;
    for (int i = 0; i < f.numStrands(); i += s) copies += f.rtp[i] == kind;
    return copies;
}

// The feather kind a strand carries; a strand whose rtp names no feather carries none.
const ZFeather* featherOf(const std::vector<ZFeather*>& feathers, int rtp) {
    return rtp >= 0 && static_cast<size_t>(rtp) < feathers.size() ? feathers[static_cast<size_t>(rtp)] : nullptr;
}

bool hasMesh(const ZFeather& f) { return !f.mesh.points.empty() && !f.mesh.v012.empty(); }
bool hasCurves(const ZFeather& f) { return !f.curves.numCVs.empty() && !f.curves.cvs.empty(); }

// Rigid placement of a feather point: scaled per component, turned about x, then y, then
// z (column vector), moved to the root.
struct RigidPlacement {
    float r[3][3];
    ZVector scale, root;

    RigidPlacement(const ZVector& s, const ZVector& degrees, const ZVector& origin) : scale(s), root(origin) {
        const float k = 0.017453292f;
        const float cx = std::cos(degrees.x * k), sx = std::sin(degrees.x * k);
        const float cy = std::cos(degrees.y * k), sy = std::sin(degrees.y * k);
        const float cz = std::cos(degrees.z * k), sz = std::sin(degrees.z * k);
        const float m[3][3] = {{cy * cz, sx * sy * cz - cx * sz, cx * sy * cz + sx * sz},
                               {cy * sz, sx * sy * sz + cx * cz, cx * sy * sz - sx * cz},
                               {-sy, sx * cy, cx * cy}};
        std::copy(&m[0][0], &m[0][0] + 9, &r[0][0]);
    }
    GfVec3f operator()(const ZVector& p) const {
        const float x = p.x * scale.x, y = p.y * scale.y, z = p.z * scale.z;
        return GfVec3f(r[0][0] * x + r[0][1] * y + r[0][2] * z + root.x, r[1][0] * x + r[1][1] * y + r[1][2] * z + root.y,
                       r[2][0] * x + r[2][1] * y + r[2][2] * z + root.z);
    }
};

// How many points writeDoubledEnds gives for a feather's curves.
size_t doubledEndsCount(const ZCurves& shape) {
    size_t count = 0;
    for (int c = 0; c < shape.numCurves(); ++c)
        if (shape.numCVs[c] >= 1) count += static_cast<size_t>(shape.numCVs[c]) + 2;
    return count;
}

// Writes a feather's curve CVs the way curves are exported, the first and the last CV of
// each curve twice; returns the point behind the last one written.
GfVec3f* writeDoubledEnds(const ZCurves& shape, const ZVector* cvs, GfVec3f* out) {
    for (int c = 0; c < shape.numCurves(); ++c) {
        const int n = shape.numCVs[c], f = shape.start[c];
        if (n < 1) continue;
        *out++ = gf(cvs[f]);
        for (int j = 0; j < n; ++j) *out++ = gf(cvs[f + j]);
        *out++ = gf(cvs[f + n - 1]);
    }
    return out;
}

} // namespace

// --------------------------------------------------------------------------------- frame

// The arrays a frame's geometry is gathered in, kept from call to call: the strands'
// points and normals, each feather kind's mesh points, the feathers' combined curves and
// the points of one placed feather.
struct ZCurvesToUSD::Scratch {
    VtVec3fArray points, normals;
    std::vector<VtVec3fArray> featherMeshes;
    VtVec3fArray featherCurves;
    ZVectorArray placed;
};
ZCurvesToUSD::ScratchHolder::ScratchHolder() : p(new Scratch) {}
ZCurvesToUSD::ScratchHolder::ScratchHolder(const ScratchHolder&) : p(new Scratch) {}
ZCurvesToUSD::ScratchHolder& ZCurvesToUSD::ScratchHolder::operator=(const ScratchHolder&) { return *this; }
ZCurvesToUSD::ScratchHolder::~ScratchHolder() = default;

ZCurvesToUSD::ZCurvesToUSD()
    : suffix(".usd"), kind("geom"), follicles(nullptr), curves(nullptr), boundingBox(nullptr), bindingScheme(0),
      scales(nullptr), rotations(nullptr), folds(nullptr), writeNormals(false), perFrameFiles(false),
      featherMode(false), time(0.f), high(false), hasFrameRange(false), startTime(0.f), endTime(0.f),
      exportRatio(1.f) {}

void ZCurvesToUSD::reset() {
    follicles = nullptr;
    curves = nullptr;
    boundingBox = nullptr;
}

ZString ZCurvesToUSD::removeNamespace(ZString& n) {
    std::vector<ZString> pieces;
    n.split(":", pieces);
    if (pieces.size() == 1) return n;
    // No piece at all (an empty name or only colons): nothing to strip.
    return pieces.size() > 1 ? pieces[1] : n;
}

ZString ZCurvesToUSD::primName(const ZString& n) { return ZString(TfMakeValidIdentifier(n)); }

namespace {

// The prim a node or feather name gives, as a path token.
TfToken primToken(const ZString& n) { return TfToken(ZCurvesToUSD::primName(n)); }

// basePath.detail_kind[time]suffix, formatted into a string sized to the text, so that no
// path length can overrun anything. The time, where the format has one, stands between
// kind and suffix.
template <typename... Time>
std::string fileName(const ZCurvesToUSD& x, bool high, const char* format, Time... t) {
    const char* detail = high ? "high" : "low";
    const int n = std::snprintf(nullptr, 0, format, x.basePath.c_str(), detail, x.kind.c_str(), t..., x.suffix.c_str());
    if (n <= 0) return std::string();
    std::string out(static_cast<size_t>(n) + 1, '\0');
    std::snprintf(&out[0], out.size(), format, x.basePath.c_str(), detail, x.kind.c_str(), t..., x.suffix.c_str());
    out.resize(static_cast<size_t>(n));
    return out;
}


// The layer of `path`, found, opened or made; null, with why in `failure`, when none can be.
// OpenUSD's own diagnostics are caught, not printed: the caller reports one line.
SdfLayerRefPtr findOrCreate(const std::string& path, ZString& failure) {
    ZUsdLayer::declareUsdGeomFields();
    TfErrorMark mark;
    SdfLayerRefPtr layer = SdfLayer::FindOrOpen(path);
    if (!layer) layer = SdfLayer::CreateNew(path);
    if (!layer) failure = "cannot create " + path + (mark.IsClean() ? std::string() : " (" + mark.begin()->GetCommentary() + ")");
    mark.Clear();
    return layer;
}

// Bytes the values of one field take, as arrays of their element type (a value of another
// type counts 16 bytes per element, or 16 in all).
template <typename... T>
size_t valueBytes(const VtValue& v) {
    size_t bytes = 0;
    const bool known = ((v.IsHolding<VtArray<T>>() ? (bytes = v.UncheckedGet<VtArray<T>>().size() * sizeof(T), true)
                                                   : false) ||
                        ...);
    return known ? bytes : v.IsArrayValued() ? 16 * v.GetArraySize() : 16;
}

// What saving the layer adds to its disk, about: the bytes of every value it holds (only
// those at `time` when `onlyAt` is set, for a file that already holds the other times).
size_t bytesToWrite(const SdfLayerRefPtr& layer, bool onlyAt, double time) {
    size_t bytes = 0;
    auto add = [&](const VtValue& v) { bytes += valueBytes<GfVec3f, GfVec2f, float, int, TfToken, double>(v); };
    layer->Traverse(SdfPath::AbsoluteRootPath(), [&](const SdfPath& path) {
        if (!path.IsPropertyPath()) return;
        VtValue v;
        if (!onlyAt && layer->HasField(path, SdfFieldKeys->Default, &v)) add(v);
        for (double t : layer->ListTimeSamplesForPath(path))
            if ((!onlyAt || t == time) && layer->QueryTimeSample(path, t, &v)) add(v);
    });
    return bytes;
}

// Saves the layer; a file the disk could not take whole is removed, with why in `failure`.
// A layer the disk has no room for is not saved at all (ZRoomToWrite): OpenUSD's writer
// does not stop at a failed write and then reads back the file it cut short, which can end
// the process. Its file is then removed too, unless it is one that holds other times
// (`onlyAt`).
void saveWhole(const SdfLayerRefPtr& layer, ZString& failure, bool onlyAt = false, double time = 0.0) {
    const std::string target = layer->GetRealPath();
    const bool grows = onlyAt && TfIsFile(target);
    ZString full;
    if (!ZRoomToWrite(target.c_str(), bytesToWrite(layer, grows, time), &full)) {
        if (!grows) std::remove(target.c_str());
        failure = "cannot write " + target + " (" + std::string(full.c_str()) + ")";
        return;
    }
    TfErrorMark mark;
    const bool saved = layer->Save();
    if (saved && mark.IsClean()) return;
    // The first error says what went wrong (no space left on the device); later ones are
    // what it led to.
    const std::string why = mark.IsClean() ? std::string() : mark.begin()->GetCommentary();
    mark.Clear();
    const std::string path = layer->GetRealPath();
    std::remove(path.c_str());
    failure = "cannot write " + path + (why.empty() ? "" : " (" + why + ")");
}

void reportFailure(const char* call, const ZString& failure) {
    if (!failure.empty()) ZReport(std::string("Error@ZCurvesToUSD::") + call + "(): " + static_cast<const std::string&>(failure));
}

} // namespace

std::string ZCurvesToUSD::geometryFile(float t, bool h, bool subFrame) const {
    if (!perFrameFiles) return fileName(*this, h, "%s.%s_%s%s");
    // Only "high" names carry sub-frame digits; "low" rounds to a whole frame. A negative
    // fraction counts as whole unless subFrame says otherwise.
    const bool fractional = t - std::trunc(t) > 0.f;
    return (fractional || subFrame) && h ? fileName(*this, h, "%s.%s_%s.%04.2f%s", double(t))
                                         : fileName(*this, h, "%s.%s_%s.%04.f%s", double(t));
}

std::string ZCurvesToUSD::attributeFile(bool h) const {
    return perFrameFiles ? fileName(*this, h, "%s.%s_%s.0000%s") : fileName(*this, h, "%s.%s_%s%s");
}

void ZCurvesToUSD::writeGeometryToUSD(float t, bool h, bool subFrame) {
    high = h;
    failure.clear();
    SdfLayerRefPtr layer = findOrCreate(geometryFile(t, h, subFrame), failure);
    time = t;
    stage = layer;
    // A file that can be neither found nor made: nothing is written (the calls of USD's
    // stage would end the process on the null layer).
    if (!layer) return reportFailure("writeGeometryToUSD", failure);
    if (perFrameFiles) {
        layer->Clear();
        layer->SetStartTimeCode(double(time));
        layer->SetEndTimeCode(double(time));
    } else if (hasFrameRange) {
        layer->SetStartTimeCode(double(startTime));
        layer->SetEndTimeCode(double(endTime));
    }
    if (featherMode)
        writeGeometryToFeather();
    else
        writeGeometryToCurve();
    // A file of the whole range grows by this frame's samples.
    saveWhole(layer, failure, !perFrameFiles, double(time));
    reportFailure("writeGeometryToUSD", failure);
}

void ZCurvesToUSD::writeAttributeToUSD(bool h) {
    high = h;
    failure.clear();
    SdfLayerRefPtr layer = findOrCreate(attributeFile(h), failure);
    stage = layer;
    if (!layer) return reportFailure("writeAttributeToUSD", failure);
    layer->Clear();
    if (featherMode)
        writeAttributeToFeather();
    else
        writeAttributeToCurve();
    saveWhole(layer, failure);
    reportFailure("writeAttributeToUSD", failure);
}

// --------------------------------------------------------------------------------- curves

void ZCurvesToUSD::writeGeometryToCurve() {
    Author a(stage, When{!(perFrameFiles || hasFrameRange), double(time)});
    name = removeNamespace(name);
    SdfPrimSpecHandle prim = a.definePrim(SdfPath::AbsoluteRootPath().AppendChild(primToken(name)), "BasisCurves");
    a.setDefaultPrim(primName(name));

    const ZCurves& c = *curves;
    const int n = c.numCurves(), s = curveStep(high, n, exportRatio), m = n / s;
    // In the arrays of the last call: filled in place once its layer let go of them (a
    // layer still holding them, one gathering every time, keeps its values: resizing then
    // gives these arrays storage of their own).
    VtVec3fArray& points = _scratch.p->points;
    VtVec3fArray& normals = _scratch.p->normals;
    curveArrays(high, &points, nullptr, nullptr, nullptr, nullptr);
    normals.resize(writeNormals ? static_cast<size_t>(m) : 0);
    for (int i = 0, j = 0; writeNormals && j < m && i < n; i += s, ++j)
        normals[static_cast<size_t>(j)] = gf(follicles->axs[i].zAxis);
    a.set(a.attr(prim, "extent", SdfValueTypeNames->Float3Array),
          VtVec3fArray{gf(boundingBox->minPoint), gf(boundingBox->maxPoint)});
    a.set(a.attr(prim, "points", SdfValueTypeNames->Point3fArray), points);
    if (writeNormals) {
        SdfAttributeSpecHandle nrm = a.attr(prim, "normals", SdfValueTypeNames->Normal3fArray);
        Author::setInterpolation(nrm, "uniform");
        a.set(nrm, normals);
    }
}

void ZCurvesToUSD::curveArrays(bool h, VtVec3fArray* points, VtIntArray* counts, VtFloatArray* widths,
                               VtIntArray* strands, VtVec2fArray* st) const {
    const ZCurves& c = *curves;
    const int n = c.numCurves(), s = curveStep(h, n, exportRatio), m = n / s;
    if (points) {
        // Sized once and filled in place: a frame of a million strands is hundreds of MB,
        // and growing it element by element would copy it several times over.
        size_t total = 0;
        for (int i = 0, j = 0; j < m && i < n; i += s, ++j) total += c.numCVs[i] > 0 ? size_t(c.numCVs[i]) + 2 : 0;
        points->resize(total);
        GfVec3f* out = points->data();
        for (int i = 0, j = 0; j < m && i < n; i += s, ++j) {
            const int k = c.numCVs[i];
            if (k <= 0) continue;
            const ZVector* p = c.cvs.data() + c.start[i];
            *out++ = gf(p[0]);
            for (int q = 0; q < k; ++q) *out++ = gf(p[q]);
            *out++ = gf(p[k - 1]);
        }
    }
    if (!counts && !widths && !strands && !st) return;
    size_t total = 0;
    for (int i = 0, j = 0; j < m && i < n; i += s, ++j) total += size_t(std::max(c.numCVs[i], 0)) + 2;
    for (VtIntArray* a : {counts, strands})
        if (a) {
            a->clear();
            a->reserve(static_cast<size_t>(m));
        }
    if (st) {
        st->clear();
        st->reserve(static_cast<size_t>(m));
    }
    if (widths) {
        widths->clear();
        widths->reserve(total);
    }
    for (int i = 0, j = 0; j < m && i < n; i += s, ++j) {
        const int k = c.numCVs[i];
        if (counts) counts->push_back(k + 2);
        if (strands) strands->push_back(i);
        if (st) st->push_back(GfVec2f(follicles->uvw[i].x, follicles->uvw[i].y));
        if (!widths) continue;
        const float r = follicles->rwh[i], t = follicles->twh[i];
        widths->push_back(r);
        // A straight run from the root width to the tip width (one CV gives 0 / 0).
        for (int q = 0; q < k; ++q)
            widths->push_back(t + (r - t) * (1.f - static_cast<float>(q) / static_cast<float>(k - 1)));
        widths->push_back(t);
    }
}

void ZCurvesToUSD::writeAttributeToCurve() {
    Author a(stage, When{true, 0.0});
    name = removeNamespace(name);
    SdfPrimSpecHandle prim = a.definePrim(SdfPath::AbsoluteRootPath().AppendChild(primToken(name)), "BasisCurves");
    a.setDefaultPrim(primName(name));

    VtIntArray counts, strands;
    VtFloatArray widths, uids;
    VtVec2fArray st;
    curveArrays(high, nullptr, &counts, &widths, &strands, &st);
    uids.reserve(strands.size());
    for (int i : strands) uids.push_back(static_cast<float>(i));
    Author::setDefault(a.attr(prim, "basis", SdfValueTypeNames->Token, SdfVariabilityUniform), TfToken("catmullRom"));
    SdfAttributeSpecHandle countsAttr = a.attr(prim, "curveVertexCounts", SdfValueTypeNames->IntArray);
    SdfAttributeSpecHandle widthsAttr = a.attr(prim, "widths", SdfValueTypeNames->FloatArray);
    Author::setInterpolation(widthsAttr, "vertex");
    if (writeNormals) Author::setInterpolation(a.attr(prim, "normals", SdfValueTypeNames->Normal3fArray), "uniform");
    SdfAttributeSpecHandle uidsAttr = a.primvar(prim, "uids", SdfValueTypeNames->FloatArray);
    SdfAttributeSpecHandle stAttr = a.primvar(prim, "st", SdfValueTypeNames->Float2Array);
    a.set(uidsAttr, uids);
    Author::setInterpolation(uidsAttr, "uniform");
    a.set(stAttr, st);
    Author::setInterpolation(stAttr, "uniform");
    a.set(countsAttr, counts);
    a.set(widthsAttr, widths);
}

// ------------------------------------------------------------------------------- feathers

void ZCurvesToUSD::writeGeometryToFeather() {
    Author a(stage, When{!(perFrameFiles || hasFrameRange), double(time)});
    name = removeNamespace(name);
    const SdfPath top = SdfPath::AbsoluteRootPath().AppendChild(primToken(name));
    a.definePrim(top, "Xform");
    a.setDefaultPrim(primName(name));
    if (feathers.empty()) return;

    const int n = follicles->numStrands();
    const bool followStrand = bindingScheme == 4 || bindingScheme == 6;
    bool anyMesh = false, anyCurves = false;
    // Gathered in the arrays of the last call, as the strands' points are.
    Scratch& scratch = *_scratch.p;
    ZVectorArray& placed = scratch.placed;
    if (scratch.featherMeshes.size() < feathers.size()) scratch.featherMeshes.resize(feathers.size());
    for (size_t fi = 0; fi < feathers.size(); ++fi) {
        ZFeather& feather = *feathers[fi];
        const bool meshHere = hasMesh(feather);
        anyMesh = anyMesh || meshHere;
        anyCurves = anyCurves || hasCurves(feather);
        if (!anyMesh) continue;
        // Every feather from the first with a mesh on gets its Mesh, empty if it has none.
        feather.name = removeNamespace(feather.name);
        SdfPrimSpecHandle prim = a.definePrim(top.AppendChild(primToken(feather.name)), "Mesh");
        SdfAttributeSpecHandle extentAttr = a.attr(prim, "extent", SdfValueTypeNames->Float3Array);
        SdfAttributeSpecHandle pointsAttr = a.attr(prim, "points", SdfValueTypeNames->Point3fArray);
        const int s = featherMeshStep(high, n, exportRatio);
        VtVec3fArray& points = scratch.featherMeshes[fi];
        points.resize(meshHere ? copiesOf(*follicles, static_cast<int>(fi), s) * feather.mesh.points.size() : 0);
        GfVec3f* out = points.data();
        for (int i = 0; meshHere && i < n; i += s) {
            if (follicles->rtp[i] != static_cast<int>(fi)) continue;
            if (followStrand) {
                placed.resize(feather.mesh.points.size());
                feather.deform(*follicles, *curves, i, (*scales)[i].x, (*folds)[i], &placed, nullptr, nullptr,
                               bindingScheme == 6);
                for (const ZVector& p : placed) *out++ = gf(p);
            } else {
                const RigidPlacement place((*scales)[i], (*rotations)[i], follicles->axs[i].origin);
                for (const ZVector& p : feather.mesh.points) *out++ = place(p);
            }
        }
        a.set(pointsAttr, points);
        a.set(extentAttr, pointExtent(points));
    }
    if (!anyCurves) return;

    SdfPrimSpecHandle prim = a.definePrim(top.AppendChild(TfToken(primName(name) + "_combine_curves")), "BasisCurves");
    SdfAttributeSpecHandle pointsAttr = a.attr(prim, "points", SdfValueTypeNames->Point3fArray);
    SdfAttributeSpecHandle extentAttr = a.attr(prim, "extent", SdfValueTypeNames->Float3Array);
    const int s = featherCurveStep(high, n, exportRatio);
    std::vector<size_t> perKind(feathers.size());
    for (size_t fi = 0; fi < feathers.size(); ++fi)
        perKind[fi] = hasCurves(*feathers[fi]) ? doubledEndsCount(feathers[fi]->curves) : 0;
    size_t total = 0;
    for (int i = 0; i < n; i += s)
        if (featherOf(feathers, follicles->rtp[i])) total += perKind[static_cast<size_t>(follicles->rtp[i])];
    VtVec3fArray& points = scratch.featherCurves;
    points.resize(total);
    GfVec3f* out = points.data();
    for (int i = 0; i < n; i += s) {
        const ZFeather* carried = featherOf(feathers, follicles->rtp[i]);
        if (!carried || !hasCurves(*carried)) continue;
        const ZFeather& feather = *carried;
        if (followStrand) {
            placed.resize(feather.curves.cvs.size());
            feather.deform(*follicles, *curves, i, (*scales)[i].x, (*folds)[i], nullptr, nullptr, &placed,
                           bindingScheme == 6);
            out = writeDoubledEnds(feather.curves, placed.data(), out);
        } else {
            // Left in the feather's own space: rigid placement is for meshes only.
            out = writeDoubledEnds(feather.curves, feather.curves.cvs.data(), out);
        }
    }
    a.set(pointsAttr, points);
    a.set(extentAttr, curvesExtent(points, a.floatArrayAt(prim, "widths")));
}

void ZCurvesToUSD::writeAttributeToFeather() {
    Author a(stage, When{true, 0.0});
    name = removeNamespace(name);
    const SdfPath top = SdfPath::AbsoluteRootPath().AppendChild(primToken(name));
    a.definePrim(top, "Xform");
    a.setDefaultPrim(primName(name));
    if (feathers.empty()) return;

    const int n = follicles->numStrands();
    bool curvesDone = false;
    for (size_t fi = 0; fi < feathers.size(); ++fi) {
        ZFeather& feather = *feathers[fi];
        if (hasMesh(feather)) {
            feather.name = removeNamespace(feather.name);
            SdfPrimSpecHandle prim = a.definePrim(top.AppendChild(primToken(feather.name)), "Mesh");
            SdfAttributeSpecHandle stAttr = a.primvar(prim, "st", SdfValueTypeNames->Float2Array);
            Author::setInterpolation(stAttr, "faceVarying");
            SdfAttributeSpecHandle bodyST = a.primvar(prim, "bodyST", SdfValueTypeNames->Float2Array);
            Author::setInterpolation(bodyST, "vertex");
            const int s = featherMeshStep(high, n, exportRatio);
            a.attr(prim, "points", SdfValueTypeNames->Point3fArray);  // created, never given a value here
            SdfAttributeSpecHandle counts = a.attr(prim, "faceVertexCounts", SdfValueTypeNames->IntArray);
            SdfAttributeSpecHandle indices = a.attr(prim, "faceVertexIndices", SdfValueTypeNames->IntArray);
            SdfAttributeSpecHandle uids = a.primvar(prim, "uids", SdfValueTypeNames->FloatArray);
            SdfAttributeSpecHandle sids = a.primvar(prim, "sids", SdfValueTypeNames->FloatArray);
            Author::setInterpolation(uids, "vertex");
            Author::setInterpolation(sids, "vertex");

            VtVec2fArray stValues;
            for (const ZVector& uv : feather.mesh.uvs) stValues.push_back(GfVec2f(uv.x, uv.y));
            a.set(stAttr, stValues);

            // Every copy points at the one set of UVs; only the vertex indices grow. (The
            // placement itself plays no part here: only the point count of a copy does.)
            VtIntArray countValues, indexValues, stIndices;
            VtFloatArray uidValues, sidValues;
            VtVec2fArray bodyValues;
            const int pointsPerCopy = feather.mesh.points.length(), triangles = feather.mesh.v012.length();
            int P = 0;
            for (int i = 0; i < n; i += s) {
                if (follicles->rtp[i] != static_cast<int>(fi)) continue;
                for (int t = 0; t < triangles; ++t) {
                    for (int k = 0; k < 3; ++k) indexValues.push_back(feather.mesh.v012[t][k] + P);
                    countValues.push_back(3);
                    for (int k = 0; k < 3; ++k) stIndices.push_back(3 * t + k);
                }
                const GfVec2f body(follicles->uvw[i].x, follicles->uvw[i].y);
                for (int p = 0; p < pointsPerCopy; ++p, ++P) {
                    uidValues.push_back(static_cast<float>(i));
                    sidValues.push_back(static_cast<float>(follicles->rtp[i]));
                    bodyValues.push_back(body);
                }
            }
            a.set(counts, countValues);
            a.set(indices, indexValues);
            a.set(uids, uidValues);
            a.set(a.attr(prim, "primvars:st:indices", SdfValueTypeNames->IntArray), stIndices);
            a.set(bodyST, bodyValues);
            a.set(sids, sidValues);
            if (!feather.txLayerName.empty())
                a.set(a.primvar(prim, "txLayerName", SdfValueTypeNames->String), std::string(feather.txLayerName));
            if (!feather.txBasePath.empty())
                a.set(a.primvar(prim, "txBasePath", SdfValueTypeNames->String), std::string(feather.txBasePath));
            if (!feather.MaterialSet.empty())
                a.set(a.attr(prim, "userProperties:MaterialSet", SdfValueTypeNames->String, SdfVariabilityVarying,
                             /*custom=*/true),
                      std::string(feather.MaterialSet));
            if (feather.txmultiUV != 0) a.set(a.primvar(prim, "txmultiUV", SdfValueTypeNames->Int), int(feather.txmultiUV));
        }
        // The combined curves hold every feather's curves; writing them again for each
        // feather that has curves would author the same values once more.
        if (!hasCurves(feather) || curvesDone) continue;
        curvesDone = true;
        SdfPrimSpecHandle prim = a.definePrim(top.AppendChild(TfToken(primName(name) + "_combine_curves")), "BasisCurves");
        Author::setDefault(a.attr(prim, "basis", SdfValueTypeNames->Token, SdfVariabilityUniform), TfToken("catmullRom"));
        SdfAttributeSpecHandle counts = a.attr(prim, "curveVertexCounts", SdfValueTypeNames->IntArray);
        SdfAttributeSpecHandle widths = a.attr(prim, "widths", SdfValueTypeNames->FloatArray);
        Author::setInterpolation(widths, "vertex");
        SdfAttributeSpecHandle bodyST = a.primvar(prim, "bodyST", SdfValueTypeNames->Float2Array);
        SdfAttributeSpecHandle uids = a.primvar(prim, "uids", SdfValueTypeNames->FloatArray);
        SdfAttributeSpecHandle sids = a.primvar(prim, "sids", SdfValueTypeNames->FloatArray);
        Author::setInterpolation(bodyST, "vertex");
        Author::setInterpolation(uids, "vertex");
        Author::setInterpolation(sids, "vertex");

        VtIntArray countValues;
        VtFloatArray widthValues, uidValues, sidValues;
        VtVec2fArray bodyValues;
        const int s = featherCurveStep(high, n, exportRatio);
        for (int i = 0; i < n; i += s) {
            const ZFeather* kindOf = featherOf(feathers, follicles->rtp[i]);
            if (!kindOf || !hasCurves(*kindOf)) continue;
            const ZFeather& carried = *kindOf;
            const float r = follicles->rwh[i], t = follicles->twh[i];
            const GfVec2f body(follicles->uvw[i].x, follicles->uvw[i].y);
            for (int c = 0; c < carried.curves.numCurves(); ++c) {
                const int cvs = carried.curves.numCVs[c];
                countValues.push_back(cvs + 2);
                widthValues.push_back(r);
                // The root width to the last CV but one, the tip width from there: the
                // integer quotient k / (1 - c) is 0 for every k but the last, -1 for it.
                // (The last CV is taken as the last also for a curve of one CV, which the
                // integer division would divide by zero.)
                for (int k = 0; k < cvs; ++k) {
                    const int w = (k == cvs - 1 ? -1 : k / (1 - cvs)) + 1;
                    widthValues.push_back(t + (r - t) * static_cast<float>(w));
                }
                widthValues.push_back(t);
                for (int e = 0; e < cvs + 2; ++e) {
                    bodyValues.push_back(body);
                    uidValues.push_back(static_cast<float>(i));
                    sidValues.push_back(static_cast<float>(follicles->rtp[i]));
                }
            }
        }
        a.set(uids, uidValues);
        a.set(bodyST, bodyValues);
        a.set(counts, countValues);
        a.set(widths, widthValues);
        a.set(sids, sidValues);
    }
}
