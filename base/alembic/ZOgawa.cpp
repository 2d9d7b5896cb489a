#include "base/alembic/ZOgawa.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/ZParallelProfile.h"

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

namespace {
constexpr std::uint64_t kPageBytes = 64 * 1024;
constexpr std::uint64_t kMaxCachedBytes = 32 * 1024 * 1024;
// Spans of at least two of these blocks are read by the threads in parallel.
constexpr std::uint64_t kParallelReadBlock = 4 * 1024 * 1024;
} // namespace

std::shared_ptr<const std::vector<std::uint8_t>> File::page(std::uint64_t index) const {
    std::lock_guard<std::mutex> lock(_pagesMutex);
    auto it = _pages.find(index);
    if (it != _pages.end()) return it->second;
    const std::uint64_t at = index * kPageBytes, n = std::min(kPageBytes, _size - at);
    auto bytes = std::make_shared<std::vector<std::uint8_t>>(static_cast<size_t>(n));
    if (!read(at, n, bytes->data())) return nullptr;
    // A bounded cache: past the bound it starts again (pages in use stay alive with their
    // holders).
    if (_cachedBytes + n > kMaxCachedBytes) {
        _pages.clear();
        _cachedBytes = 0;
    }
    _cachedBytes += n;
    return _pages.emplace(index, std::move(bytes)).first->second;
}

const std::uint8_t* File::bytes(std::uint64_t pos, std::uint64_t n, std::shared_ptr<const void>& hold) const {
    if (pos > _size || _size - pos < n) return nullptr;
    if (n <= kPageBytes / 4 && pos / kPageBytes == (pos + n - (n > 0)) / kPageBytes) {
        std::shared_ptr<const std::vector<std::uint8_t>> p = page(pos / kPageBytes);
        if (!p || pos % kPageBytes + n > p->size()) return nullptr;
        hold = p;
        return p->data() + pos % kPageBytes;
    }
    // A span of its own, not cleared first (the file fills it). A large one is read in
    // parallel blocks, so that copying it and first touching its pages is not a serial pass.
    std::shared_ptr<std::uint8_t> own(new std::uint8_t[n > 0 ? n : 1], std::default_delete<std::uint8_t[]>());
    if (n >= 2 * kParallelReadBlock) {
        const std::int64_t blocks = static_cast<std::int64_t>((n + kParallelReadBlock - 1) / kParallelReadBlock);
        int failed = 0;
        const ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static) reduction(| : failed)
        for (std::int64_t b = 0; b < blocks; ++b) {
            const std::uint64_t at = static_cast<std::uint64_t>(b) * kParallelReadBlock;
            failed |= !read(pos + at, std::min(kParallelReadBlock, n - at), own.get() + at);
        }
        if (failed) return nullptr;
    } else if (n > 0 && !read(pos, n, own.get())) {
        return nullptr;
    }
    hold = own;
    return own.get();
}

std::uint64_t File::u64(std::uint64_t pos) const {
    std::shared_ptr<const void> hold;
    const std::uint8_t* p = bytes(pos, 8, hold);
    std::uint64_t v = 0;
    if (p) std::memcpy(&v, p, 8);
    return v;
}

std::uint64_t File::rootGroup() const { return u64(8); }

Group::Group(const File& file, std::uint64_t pos) : _file(&file), _pos(pos) {
    if (pos < kHeaderSize || pos >= file.size()) return;  // the empty group, or nowhere
    const std::uint64_t count = file.u64(pos);
    // A group cannot list more children than the bytes behind its count can hold.
    if (count == 0 || count > (file.size() - pos - 8) / 8) return;
    _table = file.bytes(pos + 8, 8 * count, _hold);
    if (_table) _count = count;
}

std::uint64_t Group::child(std::uint64_t i) const {
    if (i >= _count) return 0;
    std::uint64_t v;
    std::memcpy(&v, _table + 8 * i, 8);
    return v;
}

bool Group::isGroup(std::uint64_t i) const { return i < _count && (child(i) & kDataBit) == 0; }
bool Group::isData(std::uint64_t i) const { return i < _count && (child(i) & kDataBit) != 0; }

Group Group::group(std::uint64_t i) const {
    if (!isGroup(i)) return Group();
    const std::uint64_t pos = child(i);
    // A group that names itself as its child would be read for ever.
    if (pos == _pos) return Group();
    return Group(*_file, pos);
}

bool Group::dataExtent(std::uint64_t i, std::uint64_t& at, std::uint64_t& size) const {
    at = size = 0;
    if (!isData(i)) return false;
    const std::uint64_t pos = child(i) & ~kDataBit;
    if (pos == 0 || pos >= _file->size()) return false;  // empty data
    const std::uint64_t n = _file->u64(pos);
    if (_file->size() - pos < 8 || n > _file->size() - pos - 8) return false;
    at = pos + 8;
    size = n;
    return true;
}

Data Group::data(std::uint64_t i) const {
    Data d;
    std::uint64_t pos, size;
    if (!dataExtent(i, pos, size)) return d;
    const std::uint8_t* p = _file->bytes(pos, size, d.hold);
    if (!p) return d;
    d.ptr = p;
    d.size = size;
    return d;
}

} // namespace ogawa
} // namespace Ulmex
