// The machinery every modifier shares, written once: change detection over the strand
// count and the parameters, the chunked parallel evaluation with one set of evaluators per
// chunk, the expression variables, the seed-derived offsets and mask salt, the image map
// lookup, the mask and stray draws, and the parallel strand loop of deform.
//
// A modifier describes itself as an ordered list of items that point at its own members:
// expression groups (a value parameter with its companions seed, rand and freq, an
// expression and a result array) and map-only expressions (the mask, and the clump's
// stray ratio and amount). The frame keeps no state of its own.
#pragma once

#include <omp.h>

#include <cstdint>
#include <vector>

#include "base/UlmexBase.h"
#include "base/ZParallelProfile.h"
#include "modifiers/ZModifier.h"
#include "strands/ZFollicles.h"

namespace ZModifierFrame {

// Degrees in expressions, radians in results: the product is taken in double.
constexpr double kDegToRad = 0.01745329238474369;

struct Item {
    enum Kind {
        Group,     // value expression with the full variable set; float results
        Mask,      // map variables only; flag = value > draw (1 excludes the strand)
        MapValue,  // map variables only; float results
    };
    Kind kind = Group;

    // Watched parameters (any of the float pointers may be null for a group without them).
    const char* valueName = nullptr;
    const float* value = nullptr;
    float* prevValue = nullptr;
    const float* seed = nullptr;
    float* prevSeed = nullptr;
    const float* rand = nullptr;
    float* prevRand = nullptr;
    const float* freq = nullptr;
    float* prevFreq = nullptr;
    const Ulmex::ZString* expr = nullptr;
    Ulmex::ZString* prevExpr = nullptr;

    // Results.
    Ulmex::ZFloatArray* results = nullptr;
    Ulmex::ZCharArray* flags = nullptr;
    bool degrees = false;        // results scaled from degrees to radians
    uint32_t drawSalt = 0;       // Mask: r = ZRandomUnit(base + uid + drawSalt)

    // Offsets of x, y, z: ZRandomUnit(trunc(k[j] * *offsetSeed)).
    const float* offsetSeed = nullptr;
    int k[3] = {0, 0, 0};
};

// A full expression group: value, seed, rand, freq and expression, with their remembered
// copies, the result array, and the offset constants drawn from `offsetSeed`.
inline Item valueGroup(const char* name, const float& value, float& prevValue, const Ulmex::ZString& expr,
                       Ulmex::ZString& prevExpr, Ulmex::ZFloatArray& results, const float& offsetSeed, int k0,
                       int k1, int k2);

inline Item group(const char* name, const float& value, float& prevValue, const float& seed, float& prevSeed,
                  const float& rand, float& prevRand, const float& freq, float& prevFreq,
                  const Ulmex::ZString& expr, Ulmex::ZString& prevExpr, Ulmex::ZFloatArray& results,
                  const float& offsetSeed, int k0, int k1, int k2, bool degrees = false) {
    Item it = valueGroup(name, value, prevValue, expr, prevExpr, results, offsetSeed, k0, k1, k2);
    it.seed = &seed;
    it.prevSeed = &prevSeed;
    it.rand = &rand;
    it.prevRand = &prevRand;
    it.freq = &freq;
    it.prevFreq = &prevFreq;
    it.degrees = degrees;
    return it;
}

// A group with a value and an expression only (no seed, rand or freq variables).
inline Item valueGroup(const char* name, const float& value, float& prevValue, const Ulmex::ZString& expr,
                       Ulmex::ZString& prevExpr, Ulmex::ZFloatArray& results, const float& offsetSeed, int k0,
                       int k1, int k2) {
    Item it;
    it.kind = Item::Group;
    it.valueName = name;
    it.value = &value;
    it.prevValue = &prevValue;
    it.expr = &expr;
    it.prevExpr = &prevExpr;
    it.results = &results;
    it.offsetSeed = &offsetSeed;
    it.k[0] = k0;
    it.k[1] = k1;
    it.k[2] = k2;
    return it;
}

// A mask-like expression: map variables only, a flag per strand against the strand's draw.
inline Item mask(const Ulmex::ZString& expr, Ulmex::ZString& prevExpr, Ulmex::ZCharArray& flags,
                 uint32_t drawSalt = 0) {
    Item it;
    it.kind = Item::Mask;
    it.expr = &expr;
    it.prevExpr = &prevExpr;
    it.flags = &flags;
    it.drawSalt = drawSalt;
    return it;
}

// A map-only expression whose value is kept per strand.
inline Item mapValue(const Ulmex::ZString& expr, Ulmex::ZString& prevExpr, Ulmex::ZFloatArray& results) {
    Item it;
    it.kind = Item::MapValue;
    it.expr = &expr;
    it.prevExpr = &prevExpr;
    it.results = &results;
    return it;
}

// A count that is watched besides the strand count (the kink's total CV count).
struct Count {
    int value;
    int* prev;
};

// Zeroes every remembered float and empties every remembered string of the items.
void resetRemembered(const std::vector<Item>& items);

// Change detection and, when something changed, the computation of every item's results.
// `saltSeed` is the seed of the mask salt. Returns true when results were recomputed.
// An empty follicle set (or a zero extra count) returns false at once and changes nothing.
bool evaluate(const ZModifier& modifier, const ZFollicles& follicles, int& prevNum,
              const std::vector<Item>& items, const float& saltSeed, const Count* extra = nullptr);

// Float to int by truncation toward zero, saturating at the int range; NaN gives 0. For
// every value in range this is exactly the C++ conversion.
inline int truncToInt(float f) {
    if (!(f == f)) return 0;
    if (f >= 2147483648.f) return 2147483647;
    if (f <= -2147483648.f) return -2147483647 - 1;
    return static_cast<int>(f);
}

// ZRandomUnit of the bits of trunc(k * seed): the spatial offset of one axis.
inline float offset(int k, float seed) {
    return Ulmex::ZRandomUnit(static_cast<uint32_t>(truncToInt(static_cast<float>(k) * seed)));
}

// The mask salt of a seed: trunc(ZRandomUnit(trunc(seed * 100)) * 10000).
inline int maskBase(float seed) {
    const int t = truncToInt(seed * 100.f);
    return truncToInt(Ulmex::ZRandomUnit(static_cast<uint32_t>(t)) * 10000.f);
}

// Nearest-sample lookup of the first channel at (u, v), v running from the bottom row up.
float sample(const Ulmex::ZImageMap& map, float u, float v);

// A per-CV array of `n` elements, all zero: resized only when the count changes, without
// writing the new elements, then cleared in parallel with a static split, so that no
// evaluate, the first one included, makes a serial pass over it.
template <typename T>
void zeroedInParallel(Ulmex::ZArray<T>& a, int n) {
    if (n < 1) { a.clear(); return; }
    if (a.length() != n) a.setLengthForOverwrite(n);
    T* data = a.data();
    const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
    #pragma omp parallel for schedule(static)
    for (int i = 0; i < n; ++i) data[i] = T();
}

// deform's parallel loop: fn(i) for every strand i, on the default team with a static
// split; nothing at all for an empty set.
template <typename F>
void forEachStrand(int n, F&& fn) {
    if (n <= 0) return;
    const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
    #pragma omp parallel for schedule(static)
    for (int i = 0; i < n; ++i) fn(i);
}

} // namespace ZModifierFrame
