// Read-only access to an Ogawa container, the file format under every current Alembic
// archive: a tree of groups whose children are either groups or blocks of data, addressed
// by 64-bit file offsets. The file is read with pread into buffers the groups and data
// own, never mapped: a file truncated or rewritten while it is open (a DCC exporting over
// it) yields short reads, which read as empty groups and data, never a signal. Every
// offset and count the file states is checked against its size before use, so a corrupt
// or hostile file yields empty groups and data, never a read outside a buffer, and no
// allocation larger than the file.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <string>
#include <vector>

namespace Ulmex {
namespace ogawa {

// A whole file open read-only. Shared by everything read from it, so that objects stay
// usable after the archive that opened them is closed.
class File {
public:
    // Null when the file cannot be opened, is no regular file, or is not an Ogawa file,
    // not marked as fully written, or of another Ogawa version than 1. `isHdf5` is set for
    // an Alembic archive of the older HDF5 kind, which is not read.
    static std::shared_ptr<const File> open(const char* path, bool* isHdf5 = nullptr);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    // The size when opened: every offset is checked against it.
    std::uint64_t size() const { return _size; }
    std::uint64_t rootGroup() const;

    // The 64-bit little-endian value at `pos`, 0 where it would lie outside the file.
    std::uint64_t u64(std::uint64_t pos) const;
    // Reads `n` bytes at `pos` into `out`; false when the file (as it is now) has fewer.
    bool read(std::uint64_t pos, std::uint64_t n, void* out) const;
    // The `n` bytes at `pos`, valid while `hold` lives: small spans come from a cache of
    // pages (the many small reads of a walk over headers), larger ones are read into a
    // buffer of their own. Null when the file (as it is now) has fewer bytes there.
    const std::uint8_t* bytes(std::uint64_t pos, std::uint64_t n, std::shared_ptr<const void>& hold) const;

private:
    File() = default;
    std::shared_ptr<const std::vector<std::uint8_t>> page(std::uint64_t index) const;
    int _fd = -1;
    std::uint64_t _size = 0;
    mutable std::mutex _pagesMutex;
    mutable std::unordered_map<std::uint64_t, std::shared_ptr<const std::vector<std::uint8_t>>> _pages;
    mutable std::uint64_t _cachedBytes = 0;
};

// A block of bytes read from the file, held by `hold` for as long as a copy of this object
// lives; empty when missing, out of bounds, or no longer in the file.
struct Data {
    const std::uint8_t* ptr = nullptr;
    std::uint64_t size = 0;
    std::shared_ptr<const void> hold;
};

class Group {
public:
    Group() = default;
    // The group at file offset `pos`; offset 0 is the empty group.
    Group(const File& file, std::uint64_t pos);

    std::uint64_t position() const { return _pos; }
    std::uint64_t numChildren() const { return _count; }
    bool isGroup(std::uint64_t i) const;
    bool isData(std::uint64_t i) const;
    Group group(std::uint64_t i) const;  // empty unless child i is a group
    Data data(std::uint64_t i) const;    // empty unless child i is data
    // Where child i's bytes lie in the file and how many there are, without reading them:
    // false (and size 0) unless child i is data within the file.
    bool dataExtent(std::uint64_t i, std::uint64_t& pos, std::uint64_t& size) const;
    const File* file() const { return _file; }

private:
    std::uint64_t child(std::uint64_t i) const;
    const File* _file = nullptr;
    std::uint64_t _pos = 0;
    std::uint64_t _count = 0;
    const std::uint8_t* _table = nullptr;  // the child offsets, read once, shared by copies
    std::shared_ptr<const void> _hold;
};

} // namespace ogawa
} // namespace Ulmex
