// Read-only access to an Ogawa container, the file format under every current Alembic
// archive: a tree of groups whose children are either groups or blocks of data, addressed
// by 64-bit file offsets. The file is memory-mapped; every offset and count it states is
// checked against the file's size before use, so a corrupt or hostile file yields empty
// groups and data, never a read outside the mapping.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Ulmex {
namespace ogawa {

// A whole file mapped read-only. Shared by everything read from it, so that objects stay
// usable after the archive that opened them is closed.
class File {
public:
    // Null when the file cannot be opened or mapped, or is not an Ogawa file, not marked as
    // fully written, or of another Ogawa version than 1. `isHdf5` is set for an Alembic
    // archive of the older HDF5 kind, which is not read.
    static std::shared_ptr<const File> open(const char* path, bool* isHdf5 = nullptr);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const std::uint8_t* bytes() const { return _bytes; }
    std::uint64_t size() const { return _size; }
    std::uint64_t rootGroup() const;

    // The 64-bit little-endian value at `pos`, 0 where it would lie outside the file.
    std::uint64_t u64(std::uint64_t pos) const;

private:
    File() = default;
    const std::uint8_t* _bytes = nullptr;
    std::uint64_t _size = 0;
};

// A block of bytes inside the mapping; empty when missing or out of bounds.
struct Data {
    const std::uint8_t* ptr = nullptr;
    std::uint64_t size = 0;
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

private:
    std::uint64_t child(std::uint64_t i) const;
    const File* _file = nullptr;
    std::uint64_t _pos = 0;
    std::uint64_t _count = 0;
};

} // namespace ogawa
} // namespace Ulmex
