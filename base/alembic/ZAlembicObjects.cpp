// The object and property layer of the Alembic reader: the archive, its time samplings,
// object headers and the tree of objects (instances followed), property headers and the
// samples of scalar and array properties.
#include "base/alembic/ZAlembic.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstring>
#include <unordered_set>

#include "base/alembic/ZAlembicFormat.h"

namespace Ulmex {

namespace alembic {

int podBytes(int pod) {
    static const int bytes[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    return pod >= 0 && pod < 12 ? bytes[pod] : 0;
}

// The headers of an object's children: the last child of its group, less its hash.
std::vector<ObjectHeader> objectHeaders(const Archive& a, const ogawa::Group& g) {
    std::vector<ObjectHeader> out;
    if (g.numChildren() == 0 || !g.isData(g.numChildren() - 1)) return out;
    const ogawa::Data d = g.data(g.numChildren() - 1);
    if (d.size <= kObjectHeadersHashBytes) return out;
    Cursor c{d.ptr, d.size - kObjectHeadersHashBytes};
    while (c.ok && c.pos < c.size) {
        ObjectHeader h;
        const std::uint32_t nameSize = c.u32(4);
        if (!c.ok || nameSize == 0) break;
        h.name = c.str(nameSize);
        const std::uint32_t metaIndex = c.u32(1);
        if (!c.ok) break;
        if (metaIndex == kInlineMetadata) {
            h.meta = c.str(c.u32(4));
        } else if (metaIndex < a.indexedMeta.size()) {
            h.meta = a.indexedMeta[metaIndex];
        } else {
            break;
        }
        if (!c.ok) break;
        // A child's group follows the properties group: there must be one for each header.
        if (out.size() + 2 >= g.numChildren()) break;
        out.push_back(std::move(h));
    }
    return out;
}

// The headers of a group's children, parsed once per archive.
std::shared_ptr<const std::vector<ObjectHeader>> cachedHeaders(const Archive& a, const ogawa::Group& g) {
    {
        std::lock_guard<std::mutex> lock(a.mutex);
        auto it = a.headers.find(g.position());
        if (it != a.headers.end()) return it->second;
    }
    auto parsed = std::make_shared<const std::vector<ObjectHeader>>(objectHeaders(a, g));
    std::lock_guard<std::mutex> lock(a.mutex);
    return a.headers.emplace(g.position(), std::move(parsed)).first->second;
}

// A sample's time: uniform, cyclic and acyclic samplings as Alembic defines them.
double TimeSampling::time(std::uint32_t index) const {
    if (acyclic()) return times[std::min<size_t>(index, times.size() - 1)];
    const std::uint32_t n = static_cast<std::uint32_t>(times.size());
    return times[index % n] + timePerCycle * static_cast<double>(index / n);
}

// The index of the sample nearest to time t among numSamples (ties to the earlier one), as
// the real library's time-based reads choose it: times within 1e-5 of a sample are that
// sample.
std::uint32_t TimeSampling::nearIndex(double t, std::uint32_t numSamples) const {
    if (numSamples <= 1 || !(t > time(0))) return 0;
    const std::uint32_t last = numSamples - 1;
    if (t >= time(last)) return last;
    const double eps = 1e-5;
    std::uint32_t lo = 0, hi = last;  // time(lo) <= t < time(hi), by bisection (times increase)
    while (hi - lo > 1) {
        const std::uint32_t mid = lo + (hi - lo) / 2;
        (time(mid) <= t ? lo : hi) = mid;
    }
    if (std::fabs(t - time(hi)) <= eps) return hi;
    return std::fabs(t - time(lo)) <= std::fabs(time(hi) - t) ? lo : hi;
}

std::vector<PropertyHeader> propertyHeaders(const Archive& a, const ogawa::Group& g) {
    std::vector<PropertyHeader> out;
    if (g.numChildren() == 0 || !g.isData(g.numChildren() - 1)) return out;
    const ogawa::Data d = g.data(g.numChildren() - 1);
    Cursor c{d.ptr, d.size};
    while (c.ok && c.pos < c.size) {
        PropertyHeader h;
        const std::uint32_t info = c.u32(4);
        if (!c.ok) break;
        const int hint = static_cast<int>((info & kInfoSizeHintMask) >> kInfoSizeHintShift);
        const int width = hint == 0 ? 1 : hint == 1 ? 2 : hint == 2 ? 4 : 0;
        if (width == 0) break;
        const std::uint32_t kind = info & kInfoKindMask;
        h.type = kind == kCompound ? kCompound : kind == kScalar ? kScalar : kArray;
        if (h.type != kCompound) {
            h.pod = static_cast<int>((info & kInfoPodMask) >> kInfoPodShift);
            h.extent = static_cast<int>((info & kInfoExtentMask) >> kInfoExtentShift);
            if (h.pod > kWString) break;
            h.next = c.u32(width);
            if (info & kInfoFirstLastChanged) {
                h.first = c.u32(width);
                h.last = c.u32(width);
            } else if (info & kInfoConstant) {
                h.first = h.last = 0;
            } else {
                h.first = 1;
                h.last = h.next - 1;
            }
            if (info & kInfoHasTimeSampling) h.timeSampling = c.u32(width);
        }
        const std::uint32_t nameSize = c.u32(width);
        if (!c.ok || nameSize == 0) break;
        h.name = c.str(nameSize);
        const std::uint32_t metaIndex = (info & kInfoMetadataMask) >> kInfoMetadataShift;
        if (metaIndex == kInlineMetadata) {
            c.str(c.u32(width));
        } else if (metaIndex >= a.indexedMeta.size()) {
            break;
        }
        if (!c.ok) break;
        if (out.size() + 1 >= g.numChildren()) break;  // one group per property
        out.push_back(std::move(h));
    }
    return out;
}

Property findProperty(const Archive& a, const ogawa::Group& compound, const char* name) {
    Property p;
    const std::vector<PropertyHeader> headers = propertyHeaders(a, compound);
    for (size_t i = 0; i < headers.size(); ++i)
        if (headers[i].name == name) {
            p.header = headers[i];
            p.group = compound.group(i);
            p.valid = true;
            return p;
        }
    return p;
}

ogawa::Group geometryCompound(const Archive& a, std::uint64_t group) {
    const ogawa::Group g = objectGroup(a, group);
    const ogawa::Group props = g.isGroup(0) ? g.group(0) : ogawa::Group();
    const Property geom = findProperty(a, props, ".geom");
    return geom.valid && geom.header.type == kCompound ? geom.group : ogawa::Group();
}

Property findPath(const Archive& a, const ogawa::Group& compound, std::initializer_list<const char*> path) {
    Property p;
    ogawa::Group g = compound;
    for (const char* name : path) {
        p = findProperty(a, g, name);
        if (!p.valid) return p;
        g = p.group;
    }
    return p;
}

// A property's time sampling; the identity one where its index names none.
const TimeSampling& samplingOf(const Archive& a, const PropertyHeader& h) {
    return h.timeSampling < a.timeSamplings.size() ? a.timeSamplings[h.timeSampling] : a.timeSamplings[0];
}

// The position of a sample among the values stored, from its index: a repeated or
// constant value is stored once. Past the last sample reads the last one.
bool storedIndex(const PropertyHeader& h, int sample, std::uint64_t& index) {
    if (h.next == 0) return false;
    const std::uint32_t s = sample < 0 ? 0u : std::min(static_cast<std::uint32_t>(sample), h.next - 1);
    if (s < h.first || (h.first == 0 && h.last == 0)) index = 0;
    else if (s >= h.last) index = std::uint64_t(h.last) - h.first + 1;
    else index = std::uint64_t(s) - h.first + 1;
    return true;
}

// The values of an array sample: `count` elements of `pod` x `extent`, behind the 16-byte
// key, in the block `held`, which the caller keeps while it reads them. Refused when the
// property is of another type.
// Where the values of an array sample lie in the file (`at`, 0 when it holds none) and how
// many elements there are, without reading them.
bool arrayExtent(const Property& p, int sample, int pod, int extent, std::uint64_t& at, std::uint64_t& count) {
    std::uint64_t idx;
    if (!p.valid || p.header.type != kArray || p.header.pod != pod || p.header.extent != extent ||
        !storedIndex(p.header, sample, idx))
        return false;
    std::uint64_t pos, size;
    p.group.dataExtent(2 * idx, pos, size);
    const std::uint64_t element = static_cast<std::uint64_t>(podBytes(pod)) * static_cast<std::uint64_t>(extent);
    if (element == 0) return false;
    at = count = 0;
    if (size < kSampleKeyBytes) return size == 0;
    count = (size - kSampleKeyBytes) / element;
    if (count > static_cast<std::uint64_t>(INT_MAX)) return false;
    at = pos + kSampleKeyBytes;
    return true;
}

bool arrayValues(const Property& p, int sample, int pod, int extent, const std::uint8_t*& values,
                 std::uint64_t& count, ogawa::Data& held) {
    std::uint64_t at;
    if (!arrayExtent(p, sample, pod, extent, at, count)) return false;
    values = nullptr;
    if (count == 0) return true;
    const std::uint64_t bytes = count * static_cast<std::uint64_t>(podBytes(pod)) * static_cast<std::uint64_t>(extent);
    values = p.group.file()->bytes(at, bytes, held.hold);
    held.ptr = values;
    held.size = bytes;
    return values != nullptr;
}

// `values` point into `held`, which the caller keeps while it reads them (as for arrayValues).
bool scalarValues(const Property& p, int sample, int pod, const std::uint8_t*& values, int& extent,
                  ogawa::Data& held) {
    std::uint64_t idx;
    if (!p.valid || p.header.type != kScalar || p.header.pod != pod || !storedIndex(p.header, sample, idx)) return false;
    const ogawa::Data& d = held = p.group.data(idx);
    extent = p.header.extent;
    if (d.size != kSampleKeyBytes + static_cast<std::uint64_t>(podBytes(pod)) * static_cast<std::uint64_t>(extent)) return false;
    values = d.ptr + kSampleKeyBytes;
    return true;
}

// A scalar string property's value at sample 0: the bytes behind the 16-byte key, up to
// the first NUL.
bool scalarString(const Property& p, std::string& out) {
    std::uint64_t idx;
    if (!p.valid || p.header.type != kScalar || p.header.pod != kString || !storedIndex(p.header, 0, idx)) return false;
    const ogawa::Data d = p.group.data(idx);
    if (d.size < kSampleKeyBytes) return false;
    const char* b = reinterpret_cast<const char*>(d.ptr + kSampleKeyBytes);
    out.assign(b, static_cast<size_t>(std::find(b, b + (d.size - kSampleKeyBytes), '\0') - b));
    return true;
}

// The value of `key` in metadata "key=value;key=value"; empty if absent.
std::string metaValue(const std::string& meta, const char* key) {
    const std::string prefix = std::string(key) + "=";
    size_t at = 0;
    while (at < meta.size()) {
        const size_t end = std::min(meta.find(';', at), meta.size());
        if (meta.compare(at, prefix.size(), prefix) == 0) return meta.substr(at + prefix.size(), end - at - prefix.size());
        at = end + 1;
    }
    return {};
}

std::string schemaOf(const std::string& meta) { return metaValue(meta, "schema"); }

// The schemas of geometry: an object with one is a shape, whatever hangs below it (face
// sets under a mesh).
bool isGeometrySchema(const std::string& schema) {
    static const char* const kGeometry[] = {ZAlembicObject::kPolyMeshSchema, "AbcGeom_SubD_v1",   "AbcGeom_Points_v1",
                                            ZAlembicObject::kCurvesSchema, "AbcGeom_NuPatch_v2"};
    for (const char* g : kGeometry)
        if (schema == g) return true;
    return false;
}

ogawa::Group objectGroup(const Archive& a, std::uint64_t pos) { return ogawa::Group(*a.file, pos); }

// The group and metadata of the object at a full path ("/a/b"), walking the cached child
// headers from the top; false when a name is missing.
bool resolvePath(const Archive& a, const std::string& path, std::uint64_t& group, std::string& meta) {
    std::uint64_t at = a.topGroup;
    std::string found;
    size_t pos = 0, depth = 0;
    while (pos < path.size()) {
        if (path[pos] == '/') { ++pos; continue; }
        const size_t end = std::min(path.find('/', pos), path.size());
        const std::string name = path.substr(pos, end - pos);
        pos = end;
        if (++depth > static_cast<size_t>(ZAlembicObject::kMaxDepth)) return false;
        const ogawa::Group g(*a.file, at);
        const std::shared_ptr<const std::vector<ObjectHeader>> headers = cachedHeaders(a, g);
        size_t i = 0;
        while (i < headers->size() && (*headers)[i].name != name) ++i;
        if (i == headers->size()) return false;
        at = g.group(static_cast<std::uint64_t>(i) + 1).position();
        found = (*headers)[i].meta;
    }
    if (depth == 0) return false;
    group = at;
    meta = found;
    return true;
}

} // namespace alembic

using namespace alembic;

// --------------------------------------------------------------------------- archive

bool ZAlembicArchive::open(const char* path) {
    close();
    auto file = ogawa::File::open(path);
    if (!file) return false;
    // The archive group: version, file version, the top object, archive metadata, time
    // samplings, indexed metadata.
    const ogawa::Group root(*file, file->rootGroup());
    if (root.numChildren() <= kIndexedMetadata || !root.isData(kArchiveVersion) || !root.isData(kFileVersion) ||
        !root.isGroup(kTopObject) || !root.isData(kArchiveMetadata) || !root.isData(kTimeSamplings) ||
        !root.isData(kIndexedMetadata))
        return false;
    // Alembic's own archive version: 0 (and -1, before it was written) is all the format has.
    const ogawa::Data version = root.data(kArchiveVersion);
    if (version.size != 4) return false;
    std::int32_t archiveVersion;
    std::memcpy(&archiveVersion, version.ptr, 4);
    if (archiveVersion < -1 || archiveVersion > 0) return false;
    auto a = std::make_shared<Archive>();
    a->file = file;
    a->topGroup = root.group(kTopObject).position();
    // The time samplings: max sample, time per cycle, stored times, for each.
    const ogawa::Data ts = root.data(kTimeSamplings);
    Cursor t{ts.ptr, ts.size};
    while (t.ok && t.pos < t.size && a->timeSamplings.size() < 65536) {
        TimeSampling sampling;
        t.u32(4);  // the largest sample written with it
        double tpc = 0;
        if (!t.has(8)) break;
        std::memcpy(&tpc, t.p + t.pos, 8);
        t.pos += 8;
        const std::uint32_t n = t.u32(4);
        if (!t.ok || n == 0 || !t.has(8ULL * n)) break;
        sampling.timePerCycle = tpc;
        sampling.times.resize(n);
        std::memcpy(sampling.times.data(), t.p + t.pos, 8ULL * n);
        t.pos += 8ULL * n;
        // Times must increase, and a cycle must have a time: anything else reads as the
        // identity sampling, so that no index search can go astray.
        bool valid = sampling.acyclic() || (std::isfinite(tpc) && tpc > 0);
        for (std::uint32_t i = 1; i < n && valid; ++i) valid = sampling.times[i] > sampling.times[i - 1];
        for (double v : sampling.times) valid = valid && std::isfinite(v);
        a->timeSamplings.push_back(valid ? sampling : TimeSampling());
    }
    if (a->timeSamplings.empty()) a->timeSamplings.emplace_back();
    a->indexedMeta.emplace_back();
    const ogawa::Data meta = root.data(kIndexedMetadata);
    Cursor c{meta.ptr, meta.size};
    while (c.ok && c.pos < c.size && a->indexedMeta.size() < 256) {
        std::string m = c.str(c.u32(1));
        if (c.ok) a->indexedMeta.push_back(std::move(m));
    }
    _archive = a;
    return true;
}

void ZAlembicArchive::close() { _archive.reset(); }

ZAlembicObject ZAlembicArchive::topObject() const {
    ZAlembicObject o;
    if (!_archive) return o;
    o._archive = _archive;
    o._group = _archive->topGroup;
    o._name = "ABC";
    o._path = "/";
    return o;
}

// ---------------------------------------------------------------------------- object

ZString ZAlembicObject::name() const { return _name; }
ZString ZAlembicObject::fullPath() const { return _path; }
ZString ZAlembicObject::schema() const { return schemaOf(_meta); }

int ZAlembicObject::numSamples() const {
    if (!_archive) return 0;
    const ogawa::Group g = objectGroup(*_archive, _group);
    if (!g.isGroup(0)) return 0;
    const Property points = findPath(*_archive, g.group(0), {".geom", "P"});
    if (points.valid && points.header.type != kCompound) return static_cast<int>(points.header.next);
    // A transform without values (no ops, or only constant ones) is one constant sample.
    const Property xform = findProperty(*_archive, g.group(0), ".xform");
    if (!xform.valid || xform.header.type != kCompound) return 0;
    const Property vals = findProperty(*_archive, xform.group, ".vals");
    return vals.valid && vals.header.type != kCompound ? std::max(1, static_cast<int>(vals.header.next)) : 1;
}

namespace {
// The property whose samples an object's sample indices count: a geometry's points, else a
// transform's values; invalid for an object with neither.
Property sampledProperty(const Archive& a, std::uint64_t group) {
    const ogawa::Group g = objectGroup(a, group);
    if (!g.isGroup(0)) return Property();
    const Property points = findPath(a, g.group(0), {".geom", "P"});
    if (points.valid && points.header.type != kCompound) return points;
    const Property vals = findPath(a, g.group(0), {".xform", ".vals"});
    return vals.valid && vals.header.type != kCompound ? vals : Property();
}
} // namespace

double ZAlembicObject::sampleTime(int sample) const {
    if (!_archive) return 0.0;
    const Property p = sampledProperty(*_archive, _group);
    const TimeSampling identity;
    return (p.valid ? samplingOf(*_archive, p.header) : identity).time(sample < 0 ? 0u : std::uint32_t(sample));
}

int ZAlembicObject::sampleAt(double time) const {
    if (!_archive || !std::isfinite(time)) return 0;
    const Property p = sampledProperty(*_archive, _group);
    const TimeSampling identity;
    const TimeSampling& ts = p.valid ? samplingOf(*_archive, p.header) : identity;
    if (ts.acyclic()) return static_cast<int>(ts.nearIndex(time, std::max<std::uint32_t>(1, p.header.next)));
    // Uniform and cyclic samplings go on past the last stored sample: the nearest index on
    // the whole line of their times (ties to the earlier), at least 0 and at most INT_MAX.
    const std::uint32_t n = static_cast<std::uint32_t>(ts.times.size());
    const double cycles = std::floor((time - ts.times[0]) / ts.timePerCycle);
    if (!(cycles >= 0)) return 0;
    if (cycles * n > static_cast<double>(INT_MAX) - 2 * n) return INT_MAX;
    const std::uint32_t first = static_cast<std::uint32_t>(cycles) * n;
    std::uint32_t best = first;
    // A later sample wins only when nearer by more than rounding (a frame and a half at 24
    // fps lies half-way between its two frames).
    for (std::uint32_t i = first; i <= first + n; ++i)
        if (std::fabs(ts.time(i) - time) < std::fabs(ts.time(best) - time) - 1e-9) best = i;
    return static_cast<int>(best);
}

int ZAlembicObject::sampleAtFrame(double frame, double framesPerSecond) const {
    return framesPerSecond > 0 ? sampleAt(frame / framesPerSecond) : 0;
}

std::shared_ptr<const std::vector<ZAlembicObject>> ZAlembicObject::children() const {
    std::shared_ptr<const std::vector<ZAlembicObject>> kids = std::atomic_load(&_children);
    if (!kids) {
        kids = std::make_shared<const std::vector<ZAlembicObject>>(buildChildren());
        std::atomic_store(&_children, kids);
    }
    return kids;
}

std::vector<ZAlembicObject> ZAlembicObject::buildChildren() const {
    std::vector<ZAlembicObject> out;
    if (!_archive || _ancestors.size() + 1 >= static_cast<size_t>(kMaxDepth)) return out;
    const Archive& a = *_archive;
    const ogawa::Group g = objectGroup(a, _group);
    const std::shared_ptr<const std::vector<ObjectHeader>> headers = cachedHeaders(a, g);
    out.reserve(headers->size());
    for (size_t i = 0; i < headers->size(); ++i) {
        const ObjectHeader& h = (*headers)[i];
        std::uint64_t group = g.group(static_cast<std::uint64_t>(i) + 1).position();
        std::string meta = h.meta;
        bool instance = _instance;
        // An instance stands for the object its ".instanceSource" names: that object's
        // properties and children appear here, under the instance's own name.
        if (metaValue(h.meta, "isInstance") == "1") {
            const ogawa::Group ig(*a.file, group);
            std::string source;
            std::uint64_t target = 0;
            if (ig.isGroup(0) && scalarString(findProperty(a, ig.group(0), ".instanceSource"), source) &&
                resolvePath(a, source, target, meta)) {
                group = target;
                instance = true;
            }
        }
        // A child whose group is this object's or an ancestor's would make the tree a loop:
        // it ends the list there.
        if (group == _group || std::find(_ancestors.begin(), _ancestors.end(), group) != _ancestors.end()) break;
        ZAlembicObject c;
        c._archive = _archive;
        c._group = group;
        c._name = h.name;
        c._path = (_path == "/" ? ZString("") : _path) + "/" + c._name;
        c._meta = std::move(meta);
        c._instance = instance;
        c._ancestors = _ancestors;
        c._ancestors.push_back(_group);
        out.push_back(std::move(c));
    }
    return out;
}

bool ZAlembicObject::isShape() const { return isGeometrySchema(schema()); }

bool ZAlembicObject::isPolyMesh() const { return schema() == kPolyMeshSchema; }

int ZAlembicObject::numChildren() const { return static_cast<int>(children()->size()); }

bool ZAlembicObject::getChild(int index, ZAlembicObject& child) const {
    const std::shared_ptr<const std::vector<ZAlembicObject>> all = children();
    if (index < 0 || static_cast<size_t>(index) >= all->size()) return false;
    child = (*all)[static_cast<size_t>(index)];
    return true;
}

void GetAllDescendantObjects(const ZAlembicObject& object, ZAlembicObjectArray& objects, bool leavesOnly) {
    objects.clear();
    if (!object._archive) return;
    // Depth first with an explicit stack (parents before children, children in order), so
    // that no file can exhaust the call stack. A group is entered once unless an instance
    // leads to it again: a corrupt file whose entries share groups cannot multiply the walk,
    // and instancing can repeat at most a bounded number of objects.
    const std::uint64_t limit = std::max<std::uint64_t>(4096, object._archive->file->size() / 4);
    std::vector<ZAlembicObject> stack(object.children()->rbegin(), object.children()->rend());
    std::unordered_set<std::uint64_t> seen;
    std::uint64_t walked = 0;
    while (!stack.empty() && walked < limit) {
        ZAlembicObject o = std::move(stack.back());
        stack.pop_back();
        if (!o._instance && o._group != 0 && !seen.insert(o._group).second) continue;
        ++walked;
        const std::shared_ptr<const std::vector<ZAlembicObject>> kids = o.children();
        // A shape is a leaf of the walk with leavesOnly, whatever hangs below it (face sets).
        const bool shape = o.isShape();
        o._children.reset();  // what is listed need not keep its children
        if (!leavesOnly || kids->empty() || shape) objects.push_back(o);
        if (leavesOnly && shape) continue;
        for (auto it = kids->rbegin(); it != kids->rend(); ++it) stack.push_back(*it);
    }
}

} // namespace Ulmex
