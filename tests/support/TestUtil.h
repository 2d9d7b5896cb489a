// Small helpers shared by the tests: temporary directories, byte-level file access and
// running a callable with a given OpenMP team size.
#pragma once

#include <omp.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace testutil {

class TempDir {
public:
    TempDir() {
        std::string tmpl = (std::filesystem::temp_directory_path() / "groomcore-test-XXXXXX").string();
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        if (::mkdtemp(buf.data())) _path = buf.data();
    }
    ~TempDir() {
        std::error_code ec;
        if (!_path.empty()) std::filesystem::remove_all(_path, ec);
    }
    const std::string& path() const { return _path; }
    std::string file(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

inline std::vector<char> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::vector<char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

template <typename T>
void appendPod(std::vector<char>& bytes, const T& v) {
    const char* p = reinterpret_cast<const char*>(&v);
    bytes.insert(bytes.end(), p, p + sizeof(T));
}

inline void appendTag(std::vector<char>& bytes, const std::string& tag) {
    appendPod(bytes, static_cast<int32_t>(tag.size()));
    bytes.insert(bytes.end(), tag.begin(), tag.end());
}

// Runs f with the default OpenMP team set to `threads`, restoring it afterwards.
template <typename F>
auto withThreads(int threads, F&& f) {
    const int before = omp_get_max_threads();
    omp_set_num_threads(threads);
    struct Restore { int n; ~Restore() { omp_set_num_threads(n); } } restore{before};
    return f();
}

inline uint32_t floatBits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

} // namespace testutil
