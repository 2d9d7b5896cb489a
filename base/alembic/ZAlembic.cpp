#include "base/alembic/ZAlembic.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "base/alembic/ZOgawa.h"

namespace Ulmex {

namespace alembic {

struct ObjectHeader {
    std::string name, meta;
};

// A time sampling of the archive: uniform (one stored time), cyclic (several, with a time
// per cycle) or acyclic (every time stored).
struct TimeSampling {
    double timePerCycle = 1.0;
    std::vector<double> times{0.0};
    bool acyclic() const { return timePerCycle == std::numeric_limits<double>::max() / 32.0; }
    double time(std::uint32_t index) const;
    std::uint32_t nearIndex(double t, std::uint32_t numSamples) const;
};

// What an open archive shares with every object read from it.
struct Archive {
    std::shared_ptr<const ogawa::File> file;
    std::vector<std::string> indexedMeta;  // entry 0 is the empty metadata
    std::uint64_t topGroup = 0;
    std::vector<TimeSampling> timeSamplings;  // entry 0 is the identity sampling
    // The child headers of every group read so far, each parsed once: walks stay linear in
    // the objects however wide the scene. Bounded by the headers in the file.
    mutable std::mutex mutex;
    mutable std::unordered_map<std::uint64_t, std::shared_ptr<const std::vector<ObjectHeader>>> headers;
};

// Alembic's plain-old-data types, as the file numbers them.
enum Pod { kBool, kU8, kI8, kU16, kI16, kU32, kI32, kU64, kI64, kF16, kF32, kF64, kString, kWString };

int podBytes(int pod) {
    static const int bytes[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 2, 4, 8};
    return pod >= 0 && pod < 12 ? bytes[pod] : 0;
}

// A little-endian reader over one block of bytes that never reads past its end.
struct Cursor {
    const std::uint8_t* p;
    std::uint64_t size, pos = 0;
    bool ok = true;
    bool has(std::uint64_t n) const { return ok && pos <= size && size - pos >= n; }
    std::uint32_t u32(int bytes) {
        if (!has(static_cast<std::uint64_t>(bytes))) { ok = false; return 0; }
        std::uint32_t v = 0;
        std::memcpy(&v, p + pos, static_cast<size_t>(bytes));  // little-endian host
        pos += static_cast<std::uint64_t>(bytes);
        return v;
    }
    std::string str(std::uint64_t n) {
        if (!has(n)) { ok = false; return {}; }
        std::string s(reinterpret_cast<const char*>(p + pos), static_cast<size_t>(n));
        pos += n;
        return s;
    }
};

// The headers of an object's children: the last child of its group, less a 32-byte hash.
std::vector<ObjectHeader> objectHeaders(const Archive& a, const ogawa::Group& g) {
    std::vector<ObjectHeader> out;
    if (g.numChildren() == 0 || !g.isData(g.numChildren() - 1)) return out;
    const ogawa::Data d = g.data(g.numChildren() - 1);
    if (d.size <= 32) return out;
    Cursor c{d.ptr, d.size - 32};
    while (c.ok && c.pos < c.size) {
        ObjectHeader h;
        const std::uint32_t nameSize = c.u32(4);
        if (!c.ok || nameSize == 0) break;
        h.name = c.str(nameSize);
        const std::uint32_t metaIndex = c.u32(1);
        if (!c.ok) break;
        if (metaIndex == 0xff) {
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

struct PropertyHeader {
    int type = -1;  // 0 compound, 1 scalar, 2 array
    int pod = -1, extent = 0;
    std::uint32_t next = 0, first = 0, last = 0;
    std::uint32_t timeSampling = 0;
    std::string name;
};

std::vector<PropertyHeader> propertyHeaders(const Archive& a, const ogawa::Group& g) {
    std::vector<PropertyHeader> out;
    if (g.numChildren() == 0 || !g.isData(g.numChildren() - 1)) return out;
    const ogawa::Data d = g.data(g.numChildren() - 1);
    Cursor c{d.ptr, d.size};
    while (c.ok && c.pos < c.size) {
        PropertyHeader h;
        const std::uint32_t info = c.u32(4);
        if (!c.ok) break;
        const int hint = static_cast<int>((info & 0xc) >> 2);
        const int width = hint == 0 ? 1 : hint == 1 ? 2 : hint == 2 ? 4 : 0;
        if (width == 0) break;
        const std::uint32_t ptype = info & 0x3;
        h.type = ptype == 0 ? 0 : ptype == 1 ? 1 : 2;
        if (h.type != 0) {
            h.pod = static_cast<int>((info & 0xf0) >> 4);
            h.extent = static_cast<int>((info & 0xff000) >> 12);
            if (h.pod > kWString) break;
            h.next = c.u32(width);
            if (info & 0x200) {
                h.first = c.u32(width);
                h.last = c.u32(width);
            } else if (info & 0x800) {
                h.first = h.last = 0;
            } else {
                h.first = 1;
                h.last = h.next - 1;
            }
            if (info & 0x100) h.timeSampling = c.u32(width);
        }
        const std::uint32_t nameSize = c.u32(width);
        if (!c.ok || nameSize == 0) break;
        h.name = c.str(nameSize);
        const std::uint32_t metaIndex = (info & 0xff00000) >> 20;
        if (metaIndex == 0xff) {
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

struct Property {
    ogawa::Group group;
    PropertyHeader header;
    bool valid = false;
};

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
    if (!p.valid || p.header.type != 2 || p.header.pod != pod || p.header.extent != extent ||
        !storedIndex(p.header, sample, idx))
        return false;
    std::uint64_t pos, size;
    p.group.dataExtent(2 * idx, pos, size);
    const std::uint64_t element = static_cast<std::uint64_t>(podBytes(pod)) * static_cast<std::uint64_t>(extent);
    if (element == 0) return false;
    at = count = 0;
    if (size < 16) return size == 0;
    count = (size - 16) / element;
    if (count > static_cast<std::uint64_t>(INT_MAX)) return false;
    at = pos + 16;
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
    if (!p.valid || p.header.type != 1 || p.header.pod != pod || !storedIndex(p.header, sample, idx)) return false;
    const ogawa::Data& d = held = p.group.data(idx);
    extent = p.header.extent;
    if (d.size != 16 + static_cast<std::uint64_t>(podBytes(pod)) * static_cast<std::uint64_t>(extent)) return false;
    values = d.ptr + 16;
    return true;
}

// A scalar string property's value at sample 0: the bytes behind the 16-byte key, up to
// the first NUL.
bool scalarString(const Property& p, std::string& out) {
    std::uint64_t idx;
    if (!p.valid || p.header.type != 1 || p.header.pod != kString || !storedIndex(p.header, 0, idx)) return false;
    const ogawa::Data d = p.group.data(idx);
    if (d.size < 16) return false;
    const char* b = reinterpret_cast<const char*>(d.ptr + 16);
    out.assign(b, static_cast<size_t>(std::find(b, b + (d.size - 16), '\0') - b));
    return true;
}

template <typename T>
bool readArray(const Property& p, int sample, int pod, int extent, ZArray<T>& out) {
    static_assert(std::is_trivially_copyable<T>::value, "raw element type needed");
    std::uint64_t at = 0, count = 0;
    if (!arrayExtent(p, sample, pod, extent, at, count)) return false;
    const std::uint64_t bytes = count * static_cast<std::uint64_t>(podBytes(pod) * extent);
    // Straight from the file into the caller's array, which keeps its memory from one read
    // to the next.
    out.resize(static_cast<size_t>(bytes / sizeof(T)));
    return out.empty() || p.group.file()->read(at, out.size() * sizeof(T), out.data());
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
                                            "AbcGeom_Curve_v2",    "AbcGeom_NuPatch_v2"};
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

// ------------------------------------------------------------------------------- Xform

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
    if (!xf.valid || xf.header.type != 0) return false;
    const Property opsProp = findProperty(a, xf.group, ".ops");
    const std::uint8_t* codes = nullptr;
    int numOps = 0;
    ops.clear();
    ogawa::Data held;
    if (opsProp.valid && scalarValues(opsProp, 0, kU8, codes, numOps, held)) {
        for (int i = 0; i < numOps; ++i) {
            const int type = codes[i] >> 4;
            static const int channels[] = {3, 3, 4, 16, 1, 1, 1};
            if (type > 6) break;
            Op op{type, {0}, channels[type]};
            if (type == 0) op.ch[0] = op.ch[1] = op.ch[2] = 1.0;
            if (type == 3)
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
    } else if (vals.valid && vals.header.type == 2 &&
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
        case 0: o[0] = op.ch[0], o[5] = op.ch[1], o[10] = op.ch[2]; break;
        case 1: o[3] = op.ch[0], o[7] = op.ch[1], o[11] = op.ch[2]; break;
        case 2: o = rotation(op.ch[0], op.ch[1], op.ch[2], op.ch[3]); break;
        case 3:  // stored for row vectors: transpose
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j) o[4 * j + i] = op.ch[4 * i + j];
            break;
        case 4: o = rotation(1, 0, 0, op.ch[0]); break;
        case 5: o = rotation(0, 1, 0, op.ch[0]); break;
        case 6: o = rotation(0, 0, 1, op.ch[0]); break;
        }
        m = mul(m, o);
    }
    return m;
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
    if (root.numChildren() < 6 || !root.isData(0) || !root.isData(1) || !root.isGroup(2) || !root.isData(3) ||
        !root.isData(4) || !root.isData(5))
        return false;
    // Alembic's own archive version: 0 (and -1, before it was written) is all the format has.
    const ogawa::Data version = root.data(0);
    if (version.size != 4) return false;
    std::int32_t archiveVersion;
    std::memcpy(&archiveVersion, version.ptr, 4);
    if (archiveVersion < -1 || archiveVersion > 0) return false;
    auto a = std::make_shared<Archive>();
    a->file = file;
    a->topGroup = root.group(2).position();
    // The time samplings: max sample, time per cycle, stored times, for each.
    const ogawa::Data ts = root.data(4);
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
    const ogawa::Data meta = root.data(5);
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
    if (points.valid && points.header.type != 0) return static_cast<int>(points.header.next);
    // A transform without values (no ops, or only constant ones) is one constant sample.
    const Property xform = findProperty(*_archive, g.group(0), ".xform");
    if (!xform.valid || xform.header.type != 0) return 0;
    const Property vals = findProperty(*_archive, xform.group, ".vals");
    return vals.valid && vals.header.type != 0 ? std::max(1, static_cast<int>(vals.header.next)) : 1;
}

namespace {
// The property whose samples an object's sample indices count: a geometry's points, else a
// transform's values; invalid for an object with neither.
Property sampledProperty(const Archive& a, std::uint64_t group) {
    const ogawa::Group g = objectGroup(a, group);
    if (!g.isGroup(0)) return Property();
    const Property points = findPath(a, g.group(0), {".geom", "P"});
    if (points.valid && points.header.type != 0) return points;
    const Property vals = findPath(a, g.group(0), {".xform", ".vals"});
    return vals.valid && vals.header.type != 0 ? vals : Property();
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

namespace {

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
    static const int kOrder[] = {1, 6, 5, 4, 0};
    size_t at = 0;
    for (const Op& op : ops) {
        while (at < 5 && kOrder[at] != op.type) ++at;
        if (at == 5) return false;
        ++at;
    }
    return true;
}

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
            if (vals.valid && vals.header.type != 0)
                xs = static_cast<int>(samplingOf(a, vals.header).nearIndex(time, std::max<std::uint32_t>(1, vals.header.next)));
        }
        if (!xformOps(a, xg, xs, ops, inherits)) continue;
        w = inherits ? mul(w, localMatrix(ops)) : localMatrix(ops);
    }
    ZMatrix out;
    for (int i = 0; i < 16; ++i) out.data[i] = static_cast<float>(w[static_cast<size_t>(i)]);
    return out;
}

// The geometry compound (.geom) of a PolyMesh object.
ogawa::Group meshGeometry(const Archive& a, std::uint64_t group) {
    const ogawa::Group g = objectGroup(a, group);
    const ogawa::Group props = g.isGroup(0) ? g.group(0) : ogawa::Group();
    const Property geom = findProperty(a, props, ".geom");
    return geom.valid && geom.header.type == 0 ? geom.group : ogawa::Group();
}

} // namespace

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
        if (op.type == 1) t = ZVector(float(op.ch[0]), float(op.ch[1]), float(op.ch[2]));
        if (op.type == 0) s = ZVector(float(op.ch[0]), float(op.ch[1]), float(op.ch[2]));
        if (op.type >= 4) (op.type == 4 ? r.x : op.type == 5 ? r.y : r.z) = float(op.ch[0]);
    }
    translate = t;
    rotateDegrees = r;
    scale = s;
    return true;
}

bool ZAlembicObject::getPolyMeshData(ZVectorArray* points, ZVectorArray* velocities, ZIntArray* counts,
                                     ZIntArray* connections, ZBoundingBox* box, ZMatrix* worldMatrix, ZFloatArray* uvs,
                                     ZIntArray* uvIndices, int sample) const {
    if (!_archive || !isPolyMesh()) return false;
    const Archive& a = *_archive;
    const ogawa::Group gg = meshGeometry(a, _group);
    const Property P = findProperty(a, gg, "P");
    if (points && !readArray(P, sample, kF32, 3, *points)) points->clear();
    if (velocities && !readArray(findProperty(a, gg, ".velocities"), sample, kF32, 3, *velocities)) velocities->clear();
    if (counts && !readArray(findProperty(a, gg, ".faceCounts"), sample, kI32, 1, *counts)) counts->clear();
    if (connections && !readArray(findProperty(a, gg, ".faceIndices"), sample, kI32, 1, *connections))
        connections->clear();
    if (box) {
        const std::uint8_t* raw = nullptr;
        int extent = 0;
        double b[6];
        ogawa::Data held;
        if (scalarValues(findProperty(a, gg, ".selfBnds"), sample, kF64, raw, extent, held) && extent == 6) {
            std::memcpy(b, raw, sizeof b);
            box->minPoint = ZVector(float(b[0]), float(b[1]), float(b[2]));
            box->maxPoint = ZVector(float(b[3]), float(b[4]), float(b[5]));
        } else {
            box->reset();
        }
    }
    if (uvs || uvIndices) {
        // Straight into the caller's arrays, reusing their memory from one sample to the next.
        ZFloatArray scratchValues;
        ZIntArray scratchIndices;
        ZFloatArray& values = uvs ? *uvs : scratchValues;
        ZIntArray& indices = uvIndices ? *uvIndices : scratchIndices;
        bool ok = false;
        const Property uv = findProperty(a, gg, "uv");
        if (uv.valid && uv.header.type == 2) {
            ok = readArray(uv, sample, kF32, 2, values);
            if (ok) {
                indices.resize(values.size() / 2);
                for (size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<int>(i);
            }
        } else if (uv.valid && uv.header.type == 0) {
            // The unsigned indices are copied as they are; the rare one past INT_MAX is clamped.
            ok = readArray(findProperty(a, uv.group, ".vals"), sample, kF32, 2, values) &&
                 readArray(findProperty(a, uv.group, ".indices"), sample, kU32, 1, indices);
            if (ok)
                for (int& i : indices)
                    if (i < 0) i = INT_MAX;
        }
        if (!ok) {
            values.clear();
            indices.clear();
        }
    }
    if (worldMatrix) *worldMatrix = meshWorldMatrix(a, _ancestors, P, sample);
    return true;
}

bool ZAlembicObject::getPolyMeshViews(ZAlembicArrayView* points, ZAlembicArrayView* counts,
                                      ZAlembicArrayView* connections, ZMatrix* worldMatrix, int sample) const {
    if (!_archive || !isPolyMesh()) return false;
    const Archive& a = *_archive;
    const ogawa::Group gg = meshGeometry(a, _group);
    const Property P = findProperty(a, gg, "P");
    auto view = [&](ZAlembicArrayView* out, const Property& p, int pod, int extent) {
        if (!out) return;
        const std::uint8_t* v = nullptr;
        std::uint64_t count = 0;
        ogawa::Data held;
        *out = arrayValues(p, sample, pod, extent, v, count, held)
                   ? ZAlembicArrayView{v, static_cast<size_t>(count), held.hold}
                   : ZAlembicArrayView{};
    };
    view(points, P, kF32, 3);
    view(counts, findProperty(a, gg, ".faceCounts"), kI32, 1);
    view(connections, findProperty(a, gg, ".faceIndices"), kI32, 1);
    if (worldMatrix) *worldMatrix = meshWorldMatrix(a, _ancestors, P, sample);
    return true;
}

// --------------------------------------------------------------------- free functions

void ReverseConnections(const ZIntArray& counts, ZIntArray& connections) {
    size_t at = 0;
    for (int m : counts) {
        if (m < 0 || static_cast<size_t>(m) > connections.size() - at) return;
        if (m > 2) std::reverse(connections.begin() + static_cast<std::ptrdiff_t>(at + 1),
                                connections.begin() + static_cast<std::ptrdiff_t>(at + static_cast<size_t>(m)));
        at += static_cast<size_t>(m);
    }
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
