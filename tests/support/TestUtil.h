// Small helpers shared by the tests: temporary directories, byte-level file access and
// running a callable with a given OpenMP team size.
#pragma once

#include <omp.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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

// Runs f on a thread of its own with a stack of `bytes`, as a host's worker thread; false
// when no such thread could be started.
inline bool onThreadWithStack(size_t bytes, const std::function<void()>& f) {
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, bytes);
    pthread_t thread;
    auto body = [](void* p) -> void* {
        (*static_cast<const std::function<void()>*>(p))();
        return nullptr;
    };
    const bool started = pthread_create(&thread, &attr, body, const_cast<std::function<void()>*>(&f)) == 0;
    pthread_attr_destroy(&attr);
    if (started) pthread_join(thread, nullptr);
    return started;
}

inline uint32_t floatBits(float f) {
    uint32_t b;
    std::memcpy(&b, &f, sizeof b);
    return b;
}

} // namespace testutil
