#include "base/alembic/ZOgawa.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Ulmex {
namespace ogawa {

namespace {
// The top bit of a child offset marks data; without it the child is a group.
constexpr std::uint64_t kDataBit = 0x8000000000000000ULL;
// "Ogawa", a frozen flag, a two-byte version, then the root group's offset.
constexpr std::uint64_t kHeaderSize = 16;
} // namespace

std::shared_ptr<const File> File::open(const char* path, bool* isHdf5) {
    if (isHdf5) *isHdf5 = false;
    if (!path) return nullptr;
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    std::shared_ptr<File> f(new File());
    f->_fd = fd;  // closed by the destructor from here on
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < static_cast<off_t>(kHeaderSize)) return nullptr;
    f->_size = static_cast<std::uint64_t>(st.st_size);
    unsigned char head[kHeaderSize];
    if (!f->read(0, kHeaderSize, head)) return nullptr;
    static const unsigned char hdf5[8] = {0x89, 'H', 'D', 'F', '\r', '\n', 0x1a, '\n'};
    if (std::memcmp(head, hdf5, 8) == 0) {
        if (isHdf5) *isHdf5 = true;
        return nullptr;
    }
    if (std::memcmp(head, "Ogawa", 5) != 0) return nullptr;
    // As the real library: only a file marked fully written (frozen, 0xff) of Ogawa version
    // 1 (stored as the bytes 0, 1). A writer that died leaves the flag at 0.
    if (head[5] != 0xff || head[6] != 0 || head[7] != 1) return nullptr;
    return f;
}

File::~File() {
    if (_fd >= 0) ::close(_fd);
}

bool File::read(std::uint64_t pos, std::uint64_t n, void* out) const {
    if (pos > _size || _size - pos < n) return false;
    auto* to = static_cast<unsigned char*>(out);
    while (n > 0) {
        const size_t chunk = static_cast<size_t>(std::min<std::uint64_t>(n, 1u << 30));
        const ssize_t got = ::pread(_fd, to, chunk, static_cast<off_t>(pos));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;  // the file has shrunk since it was opened, or cannot be read
        to += got;
        pos += static_cast<std::uint64_t>(got);
        n -= static_cast<std::uint64_t>(got);
    }
    return true;
}

std::uint64_t File::u64(std::uint64_t pos) const {
    std::uint64_t v = 0;
    return read(pos, 8, &v) ? v : 0;
}

std::uint64_t File::rootGroup() const { return u64(8); }

Group::Group(const File& file, std::uint64_t pos) : _file(&file), _pos(pos) {
    if (pos < kHeaderSize || pos >= file.size()) return;  // the empty group, or nowhere
    const std::uint64_t count = file.u64(pos);
    // A group cannot list more children than the bytes behind its count can hold.
    if (count == 0 || count > (file.size() - pos - 8) / 8) return;
    auto children = std::make_shared<std::vector<std::uint64_t>>(static_cast<size_t>(count));
    if (!file.read(pos + 8, 8 * count, children->data())) return;
    _children = std::move(children);
    _count = count;
}

std::uint64_t Group::child(std::uint64_t i) const { return i < _count ? (*_children)[static_cast<size_t>(i)] : 0; }

bool Group::isGroup(std::uint64_t i) const { return i < _count && (child(i) & kDataBit) == 0; }
bool Group::isData(std::uint64_t i) const { return i < _count && (child(i) & kDataBit) != 0; }

Group Group::group(std::uint64_t i) const {
    if (!isGroup(i)) return Group();
    const std::uint64_t pos = child(i);
    // A group that names itself as its child would be read for ever.
    if (pos == _pos) return Group();
    return Group(*_file, pos);
}

Data Group::data(std::uint64_t i) const {
    Data d;
    if (!isData(i)) return d;
    const std::uint64_t pos = child(i) & ~kDataBit;
    if (pos == 0 || pos >= _file->size()) return d;  // empty data
    const std::uint64_t size = _file->u64(pos);
    if (_file->size() - pos < 8 || size > _file->size() - pos - 8) return d;
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(static_cast<size_t>(size));
    if (size > 0 && !_file->read(pos + 8, size, bytes->data())) return d;
    d.ptr = bytes->data();
    d.size = size;
    d.bytes = std::move(bytes);
    return d;
}

} // namespace ogawa
} // namespace Ulmex
