// What the benchmarks that write files and run a peer script share: sizes from the
// environment, a scratch directory, timing, settling the machine between writers, and
// running a peer that reports its figures as one JSON line.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

namespace bench {

inline int envInt(const char* name, int fallback) {
    const char* v = std::getenv(name);
    return v && *v ? std::atoi(v) : fallback;
}

// GROOMCORE_BENCH_DIR, or the temp directory, with `name` below it.
inline std::filesystem::path scratch(const char* name) {
    const char* dir = std::getenv("GROOMCORE_BENCH_DIR");
    return std::filesystem::path(dir && *dir ? dir : std::filesystem::temp_directory_path().string()) / name;
}

inline std::uint64_t bytesUnder(const std::filesystem::path& dir) {
    std::uint64_t total = 0;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir))
        if (e.is_regular_file()) total += e.file_size();
    return total;
}

template <typename F>
double seconds(F&& f) {
    const auto t0 = std::chrono::steady_clock::now();
    f();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Every writer starts from the same state of the machine: nothing dirty waiting to be
// written back, and (where the process may, as root) an empty page cache, so that no
// writer pays for reclaiming the pages an earlier one left. Without it the order of the
// benchmarks decides the write times by a factor of up to 5. True if the cache was dropped.
inline bool settle() {
    ::sync();
    std::ofstream drop("/proc/sys/vm/drop_caches");
    return drop && (drop << "1").flush();
}

// Runs a shell command and returns what it printed; empty when it failed.
inline std::string run(const std::string& command) {
    FILE* p = ::popen(command.c_str(), "r");
    if (!p) return {};
    std::string out;
    char buf[512];
    while (std::fgets(buf, sizeof buf, p)) out += buf;
    return ::pclose(p) == 0 ? out : std::string();
}

// The number behind "key": in a JSON line; -1 when absent.
inline double jsonNumber(const std::string& json, const char* key) {
    const std::size_t at = json.find(std::string("\"") + key + "\": ");
    return at == std::string::npos ? -1.0 : std::atof(json.c_str() + at + std::strlen(key) + 4);
}

} // namespace bench
