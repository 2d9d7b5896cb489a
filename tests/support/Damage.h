// Damaged forms of a valid file, and the memory bound every reader keeps on them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/AllocationMeter.h"

namespace testutil {

// What to make of a valid file: cut short every `cutStep` bytes, `flips` copies with 1 to 8
// bytes changed at random (none of the first `keep`), and `noise` runs of random bytes up to
// `noiseMax` long, each starting with `magic`.
struct Damage {
    size_t cutStep;
    int flips, noise;
    size_t noiseMax, keep = 0;
    std::string magic = {};
};

// check(bytes, what) for each damaged form of `good`; the same forms on every run.
template <typename F>
void forEachDamaged(const std::vector<char>& good, const Damage& d, F&& check) {
    for (size_t cut = 0; cut < good.size(); cut += d.cutStep) check(std::vector<char>(good.begin(), good.begin() + cut), "cut");
    std::mt19937 rng(static_cast<std::uint32_t>(good.size()));
    for (int k = 0; k < d.flips && good.size() > d.keep; ++k) {
        std::vector<char> bad = good;
        for (int f = 0; f < 1 + k % 8; ++f) bad[d.keep + rng() % (bad.size() - d.keep)] = static_cast<char>(rng());
        check(bad, "flipped");
    }
    for (int k = 0; k < d.noise; ++k) {
        std::vector<char> bad(rng() % (d.noiseMax + 1));
        for (char& c : bad) c = static_cast<char>(rng());
        for (size_t i = 0; i < d.magic.size() && i < bad.size(); ++i) bad[i] = d.magic[i];
        check(bad, "noise");
    }
}

// Runs read() and requires it to have allocated at most four times the input's bytes plus
// 64 KiB; returns the peak.
template <typename F>
size_t expectBoundedPeak(size_t inputBytes, const std::string& what, F&& read) {
    AllocationMeter meter;
    read();
    const size_t peak = meter.peakAbove();
    EXPECT_LE(peak, 4 * inputBytes + 64 * 1024) << what << " of " << inputBytes << " bytes";
    return peak;
}

} // namespace testutil
