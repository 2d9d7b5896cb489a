#include "modifiers/ZModifierFrame.h"
#include "base/ZParallelProfile.h"

#include <algorithm>
#include <memory>

#include "modifiers/ZExpression.h"

using namespace Ulmex;

namespace ZModifierFrame {

namespace {

bool watchFloat(const float* value, float* prev) {
    if (!value) return false;
    // NaN on either side compares unequal, so a NaN parameter always counts as changed.
    if (*value == *prev) return false;
    *prev = *value;
    return true;
}

bool watchString(const ZString* value, ZString* prev) {
    if (value->size() == prev->size() && *value == *prev) return false;
    *prev = *value;
    return true;
}

// One item's evaluator in one chunk, with held references to the variables written per
// strand (the map variables included).
struct Bound {
    const Item* item = nullptr;
    std::unique_ptr<ZExpression> expr;
    float* id = nullptr;
    float* u = nullptr;
    float* v = nullptr;
    float* x = nullptr;
    float* y = nullptr;
    float* z = nullptr;
    float off[3] = {0.f, 0.f, 0.f};
    std::vector<float*> maps;  // parallel to the map list
};

void bind(Bound& b, const Item& item, const ZStringArray& names) {
    b.item = &item;
    b.expr.reset(new ZExpression(*item.prevExpr));
    auto& vars = b.expr->variables;
    if (item.kind == Item::Group) {
        b.id = &vars["id"].value;
        b.u = &vars["u"].value;
        b.v = &vars["v"].value;
        b.x = &vars["x"].value;
        b.y = &vars["y"].value;
        b.z = &vars["z"].value;
        vars[item.valueName].value = *item.value;
        if (item.seed) vars["seed"].value = *item.seed;
        if (item.rand) vars["rand"].value = *item.rand;
        if (item.freq) vars["freq"].value = *item.freq;
        for (int j = 0; j < 3; ++j) b.off[j] = offset(item.k[j], *item.offsetSeed);
    }
    // Map variables come last, so a map named like a built-in variable takes its entry.
    b.maps.resize(names.size());
    for (size_t m = 0; m < names.size(); ++m) {
        ZExpression::Var& var = vars[names[m]];
        var.value = 0.f;
        b.maps[m] = &var.value;
    }
}

} // namespace

void resetRemembered(const std::vector<Item>& items) {
    for (const Item& it : items) {
        for (float* p : {it.prevValue, it.prevSeed, it.prevRand, it.prevFreq})
            if (p) *p = 0.f;
        if (it.prevExpr) it.prevExpr->clear();
    }
}

float sample(const ZImageMap& map, float u, float v) {
    const int w = map.width, h = map.height;
    int xi = truncToInt(static_cast<float>(w) * u);
    if (xi < 0) xi = 0;
    else if (xi >= w) xi = w - 1;
    int yi = truncToInt((1.f - v) * static_cast<float>(h));
    if (yi < 0) yi = 0;
    else if (yi >= h) yi = h - 1;
    return map.pixels[(static_cast<size_t>(xi) + static_cast<size_t>(w) * static_cast<size_t>(yi)) *
                      static_cast<size_t>(map.numChannels)];
}

bool evaluate(const ZModifier& modifier, const ZFollicles& follicles, int& prevNum, const std::vector<Item>& items,
              const float& saltSeed, const Count* extra) {
    const int n = follicles.tgl.length();
    if (n == 0) return false;
    if (extra && extra->value == 0) return false;

    // Every comparison runs and every remembered copy is brought up to date.
    bool changed = false;
    if (prevNum != n) {
        prevNum = n;
        changed = true;
    }
    if (extra && *extra->prev != extra->value) {
        *extra->prev = extra->value;
        changed = true;
    }
    for (const Item& it : items) {
        changed |= watchFloat(it.value, it.prevValue);
        changed |= watchFloat(it.seed, it.prevSeed);
        changed |= watchFloat(it.rand, it.prevRand);
        changed |= watchFloat(it.freq, it.prevFreq);
        changed |= watchString(it.expr, it.prevExpr);
    }
    if (!changed) return false;

    // The loop below writes every strand's result of a value item and every strand's flag
    // of a mask: those arrays are only sized here, so that their memory is first written
    // by the threads that fill it. Anything else an item points to is cleared.
    for (const Item& it : items) {
        const bool mask = it.kind == Item::Mask;
        if (it.results) mask ? it.results->setLength(n, true) : it.results->setLengthForOverwrite(n);
        if (it.flags) mask ? it.flags->setLengthForOverwrite(n) : it.flags->setLength(n, true);
    }

    const int P = omp_get_num_procs();
    ZStringArray names;
    modifier.getAttributeNames(names);
    const int chunk = n / P + (n % P > 0 ? 1 : 0);
    const int base = maskBase(saltSeed);

    {
        const Ulmex::ZParallelRegion region;  // timed for the serial-fraction benchmarks
        #pragma omp parallel for schedule(static)
        for (int j = 0; j < P; ++j) {
            const int begin = j * chunk;
            const int end = std::min(n, (j + 1) * chunk);
            if (begin >= end) continue;

            std::vector<Bound> bound(items.size());
            for (size_t e = 0; e < items.size(); ++e) bind(bound[e], items[e], names);
            // The list does not change during evaluate: look every map up once per chunk.
            std::vector<const ZImageMap*> maps(names.size());
            for (size_t m = 0; m < names.size(); ++m) maps[m] = modifier.find(names[m].asChar());

            for (int i = begin; i < end; ++i) {
                const ZVector& uvw = follicles.uvw[i];
                const ZVector& nmp = follicles.nmp[i];
                for (Bound& b : bound) {
                    if (b.item->kind != Item::Group) continue;
                    *b.id = static_cast<float>(follicles.uid[i]);
                    *b.x = nmp.x + b.off[0];
                    *b.y = nmp.y + b.off[1];
                    *b.z = nmp.z + b.off[2];
                    *b.u = uvw.x;
                    *b.v = uvw.y;
                }
                for (size_t m = 0; m < maps.size(); ++m) {
                    const float value = sample(*maps[m], uvw.x, uvw.y);
                    for (Bound& b : bound) *b.maps[m] = value;
                }
                for (Bound& b : bound) {
                    const Item& it = *b.item;
                    const double value = b.expr->evaluate()[0];
                    if (it.kind == Item::Mask) {
                        const uint32_t key = static_cast<uint32_t>(base) + static_cast<uint32_t>(follicles.uid[i]) + it.drawSalt;
                        const float r = ZRandomUnit(key);
                        (*it.flags)[i] = value > static_cast<double>(r) ? 1 : 0;
                    } else {
                        (*it.results)[i] = static_cast<float>(it.degrees ? kDegToRad * value : value);
                    }
                }
            }
        }
    }
    return true;
}

} // namespace ZModifierFrame
