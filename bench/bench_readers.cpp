// Readers on hostile input against reading the same bytes: the cost of rejecting a corrupt
// file must be the cost of reading it. 8 MiB inputs, all in one run:
//   - floors: the file's bytes read with one plain stream call, and 4 bytes at a time;
//   - follicles: a record of 2^31 - 1 empty tags (01000000 ffffff7f, then zeros), read by
//     ZFollicles::read, which takes one 4-byte tag after another to the end;
//   - strings: ZString::read looping over 8 MiB of empty strings;
//   - curves: ZCurves::read on random bytes.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

using namespace Ulmex;
namespace fs = std::filesystem;

namespace {

const size_t kBytes = 8u << 20;

std::string file(const char* name, const std::vector<char>& bytes) {
    const std::string path = (fs::temp_directory_path() / name).string();
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return path;
}

const std::string& emptyTags() {
    static const std::string p = [] {
        std::vector<char> b(kBytes, 0);
        const int32_t head[2] = {1, 0x7fffffff};
        std::memcpy(b.data(), head, sizeof head);
        return file("groomcore-bench-tags.bin", b);
    }();
    return p;
}

const std::string& noise() {
    static const std::string p = [] {
        std::vector<char> b(kBytes);
        std::mt19937 g(1);
        for (char& c : b) c = static_cast<char>(g());
        return file("groomcore-bench-noise.bin", b);
    }();
    return p;
}

void setBytes(benchmark::State& s) { s.SetBytesProcessed(static_cast<int64_t>(s.iterations()) * kBytes); }

void BM_Floor_PlainRead(benchmark::State& state) {
    std::vector<char> buf(kBytes);
    for (auto _ : state) {
        std::ifstream in(emptyTags(), std::ios::binary);
        in.read(buf.data(), static_cast<std::streamsize>(buf.size()));
        benchmark::DoNotOptimize(buf.data());
    }
    setBytes(state);
}

// The natural floor of these formats: the same bytes taken 4 at a time with plain calls.
void BM_Floor_FourByteReads(benchmark::State& state) {
    for (auto _ : state) {
        std::ifstream in(emptyTags(), std::ios::binary);
        int32_t v = 0;
        size_t sum = 0;
        while (in.read(reinterpret_cast<char*>(&v), 4)) sum += static_cast<size_t>(v);
        benchmark::DoNotOptimize(sum);
    }
    setBytes(state);
}

void BM_Follicles_EmptyTags(benchmark::State& state) {
    for (auto _ : state) {
        std::ifstream in(emptyTags(), std::ios::binary);
        ZFollicles f;
        f.reset();
        f.read(in);
        benchmark::DoNotOptimize(f.tgl.data());
    }
    setBytes(state);
}

void BM_Strings_EmptyStrings(benchmark::State& state) {
    for (auto _ : state) {
        std::ifstream in(emptyTags(), std::ios::binary);
        in.seekg(8);
        ZString s;
        size_t n = 0;
        while (s.read(in, true)) ++n;
        benchmark::DoNotOptimize(n);
    }
    setBytes(state);
}

void BM_Curves_Noise(benchmark::State& state) {
    for (auto _ : state) {
        std::ifstream in(noise(), std::ios::binary);
        ZCurves c;
        while (in.good()) c.read(in);
        benchmark::DoNotOptimize(c.cvs.data());
    }
    setBytes(state);
}

} // namespace

BENCHMARK(BM_Floor_PlainRead)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Floor_FourByteReads)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Follicles_EmptyTags)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Strings_EmptyStrings)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Curves_Noise)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
