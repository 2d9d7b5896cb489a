// What the benchmarks share: sizes and thread counts from the environment, the serial
// fraction of a call, a scratch directory, timing, settling the machine between writers,
// and running a peer that reports its figures as one JSON line.
#pragma once

#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/ZParallelProfile.h"

namespace bench {

// Minor page faults of this process so far: pages the kernel handed out fresh.
inline long minorFaults() {
    rusage u{};
    ::getrusage(RUSAGE_SELF, &u);
    return u.ru_minflt;
}

inline int envInt(const char* name, int fallback) {
    const char* v = std::getenv(name);
    return v && *v ? std::atoi(v) : fallback;
}

// The thread counts to measure: GROOMCORE_BENCH_THREADS ("1,2,16,64"), or 1 and 2. The
// same binary measures any machine without rebuilding.
inline std::vector<int> threadCounts() {
    std::vector<int> out;
    const char* v = std::getenv("GROOMCORE_BENCH_THREADS");
    for (const char* p = v ? v : ""; *p;) {
        const int t = std::atoi(p);
        if (t > 0) out.push_back(t);
        while (*p && *p != ',') ++p;
        if (*p == ',') ++p;
    }
    if (out.empty()) out = {1, 2};
    return out;
}

// The serial fraction of the calls timed with it: the share of their wall time spent
// outside the library's parallel regions (in a `profile` build; elsewhere it reports
// nothing). Measured with one thread, Amdahl's law then predicts the speed-up on 16.
class SerialFraction {
public:
    template <typename F>
    void time(F&& call) {
        const double p0 = Ulmex::ZParallelSeconds();
        const auto t0 = std::chrono::steady_clock::now();
        call();
        _wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        _inside += Ulmex::ZParallelSeconds() - p0;
    }
    void report(benchmark::State& state) const {
        if (_inside <= 0 || _wall <= 0) return;
        const double f = 1.0 - _inside / _wall;
        state.counters["serial_pct"] = 100.0 * f;
        state.counters["amdahl16"] = 1.0 / (f + (1.0 - f) / 16.0);
    }

private:
    double _wall = 0, _inside = 0;
};

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
