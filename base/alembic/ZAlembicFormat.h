// The Alembic format as the reader's three layers share it: the object and property layer
// over the Ogawa container (ZAlembicObjects.cpp), transforms (ZAlembicXform.cpp) and
// polygon meshes (ZAlembicPolyMesh.cpp). The records, kinds, masks and op codes carry the
// names the format gives them; nothing here is part of the library's interface.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "base/ZArray.h"
#include "base/ZMatrix.h"
#include "base/alembic/ZOgawa.h"

namespace Ulmex {
namespace alembic {

// ------------------------------------------------------------------- objects and archive

// An object as its parent's header list names it.
struct ObjectHeader {
    std::string name, meta;
};

// Headers of an object's children: the last child of its group, less a trailing hash.
constexpr std::uint64_t kObjectHeadersHashBytes = 32;
// A metadata index that says the metadata follows inline instead of naming an entry of the
// archive's indexed metadata.
constexpr std::uint32_t kInlineMetadata = 0xff;
// The archive group's children, in order.
enum ArchiveChild { kArchiveVersion, kFileVersion, kTopObject, kArchiveMetadata, kTimeSamplings, kIndexedMetadata };

// A time sampling of the archive: uniform (one stored time), cyclic (several, with a time
// per cycle) or acyclic (every time stored).
struct TimeSampling {
    // The time per cycle that marks an acyclic sampling.
    static constexpr double kAcyclic = std::numeric_limits<double>::max() / 32.0;
    double timePerCycle = 1.0;
    std::vector<double> times{0.0};
    bool acyclic() const { return timePerCycle == kAcyclic; }
    // A sample's time: uniform, cyclic and acyclic samplings as Alembic defines them.
    double time(std::uint32_t index) const;
    // The index of the sample nearest to time t among numSamples (ties to the earlier one).
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

// A little-endian reader over one block of bytes that never reads past its end.
struct Cursor {
    const std::uint8_t* p;
    std::uint64_t size, pos = 0;
    bool ok = true;
    bool has(std::uint64_t n) const { return ok && pos <= size && size - pos >= n; }
    std::uint32_t u32(int bytes) {
        if (!has(static_cast<std::uint64_t>(bytes))) {
            ok = false;
            return 0;
        }
        std::uint32_t v = 0;
        std::memcpy(&v, p + pos, static_cast<size_t>(bytes));  // little-endian host
        pos += static_cast<std::uint64_t>(bytes);
        return v;
    }
    std::string str(std::uint64_t n) {
        if (!has(n)) {
            ok = false;
            return {};
        }
        std::string s(reinterpret_cast<const char*>(p + pos), static_cast<size_t>(n));
        pos += n;
        return s;
    }
};

// The headers of a group's children, parsed once per archive.
std::shared_ptr<const std::vector<ObjectHeader>> cachedHeaders(const Archive& a, const ogawa::Group& g);
ogawa::Group objectGroup(const Archive& a, std::uint64_t pos);
// The group and metadata of the object at a full path ("/a/b"); false when a name is missing.
bool resolvePath(const Archive& a, const std::string& path, std::uint64_t& group, std::string& meta);
// The value of `key` in metadata "key=value;key=value"; empty if absent.
std::string metaValue(const std::string& meta, const char* key);
std::string schemaOf(const std::string& meta);
// The schemas of geometry: an object with one is a shape, whatever hangs below it.
bool isGeometrySchema(const std::string& schema);

// ------------------------------------------------------------------------- properties

// Alembic's plain-old-data types, as the file numbers them.
enum Pod { kBool, kU8, kI8, kU16, kI16, kU32, kI32, kU64, kI64, kF16, kF32, kF64, kString, kWString };
int podBytes(int pod);

// The kinds of property, as a property header's info word numbers them.
enum PropertyKind { kCompound = 0, kScalar = 1, kArray = 2 };

// The fields of a property header's 32-bit info word.
constexpr std::uint32_t kInfoKindMask = 0x3;           // PropertyKind (3 reads as an array)
constexpr std::uint32_t kInfoSizeHintMask = 0xc;       // width of the numbers behind: 1, 2 or 4 bytes
constexpr int kInfoSizeHintShift = 2;
constexpr std::uint32_t kInfoPodMask = 0xf0;           // Pod
constexpr int kInfoPodShift = 4;
constexpr std::uint32_t kInfoHasTimeSampling = 0x100;  // a time sampling index follows
constexpr std::uint32_t kInfoFirstLastChanged = 0x200; // the first and last changed samples follow
constexpr std::uint32_t kInfoConstant = 0x800;         // every sample is the first
constexpr std::uint32_t kInfoExtentMask = 0xff000;     // values per element
constexpr int kInfoExtentShift = 12;
constexpr std::uint32_t kInfoMetadataMask = 0xff00000; // index into the indexed metadata
constexpr int kInfoMetadataShift = 20;

// Every array sample and scalar sample starts with a key (a digest of its values).
constexpr std::uint64_t kSampleKeyBytes = 16;

struct PropertyHeader {
    int type = -1;  // PropertyKind
    int pod = -1, extent = 0;
    std::uint32_t next = 0, first = 0, last = 0;
    std::uint32_t timeSampling = 0;
    std::string name;
};

struct Property {
    ogawa::Group group;
    PropertyHeader header;
    bool valid = false;
};

Property findProperty(const Archive& a, const ogawa::Group& compound, const char* name);
Property findPath(const Archive& a, const ogawa::Group& compound, std::initializer_list<const char*> path);
// The geometry compound (.geom) of the object at group position `group`: where a mesh's or
// curves' properties lie; the empty group for an object without one.
ogawa::Group geometryCompound(const Archive& a, std::uint64_t group);
// A property's time sampling; the identity one where its index names none.
const TimeSampling& samplingOf(const Archive& a, const PropertyHeader& h);
// Where the values of an array sample lie in the file (`at`, 0 when it holds none) and how
// many elements there are, without reading them; refused for a property of another type.
bool arrayExtent(const Property& p, int sample, int pod, int extent, std::uint64_t& at, std::uint64_t& count);
// The values of an array sample: `count` elements of `pod` x `extent` in the block `held`,
// which the caller keeps while it reads them.
bool arrayValues(const Property& p, int sample, int pod, int extent, const std::uint8_t*& values,
                 std::uint64_t& count, ogawa::Data& held);
// The values of a scalar sample, in `held` as for arrayValues.
bool scalarValues(const Property& p, int sample, int pod, const std::uint8_t*& values, int& extent,
                  ogawa::Data& held);
// A scalar string property's value at sample 0, up to the first NUL.
bool scalarString(const Property& p, std::string& out);

// An array sample straight from the file into the caller's array, which keeps its memory
// from one read to the next.
template <typename T>
bool readArray(const Property& p, int sample, int pod, int extent, ZArray<T>& out) {
    static_assert(std::is_trivially_copyable<T>::value, "raw element type needed");
    std::uint64_t at = 0, count = 0;
    if (!arrayExtent(p, sample, pod, extent, at, count)) return false;
    const std::uint64_t bytes = count * static_cast<std::uint64_t>(podBytes(pod) * extent);
    out.resize(static_cast<size_t>(bytes / sizeof(T)));
    return out.empty() || p.group.file()->read(at, out.size() * sizeof(T), out.data());
}

// ------------------------------------------------------------------------- transforms

// The ops of a transform stack, as the high four bits of their codes number them.
enum XformOp { kScaleOp, kTranslateOp, kRotateOp, kMatrixOp, kRotateXOp, kRotateYOp, kRotateZOp };

// The world matrix of a mesh: the product of the transforms above it (`ancestors`, from the
// top down), each taken at the time of sample `sample` of `P`.
ZMatrix meshWorldMatrix(const Archive& a, const std::vector<std::uint64_t>& ancestors, const Property& P, int sample);

} // namespace alembic
} // namespace Ulmex
