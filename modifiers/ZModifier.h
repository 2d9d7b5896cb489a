// Base of every strand modifier: the list of texture maps the host registered, by name.
// Not polymorphic: the host calls each concrete modifier directly.
//
// Every concrete modifier follows one protocol:
//   - its constructor builds the members and calls reset(); no public parameter gets a
//     value, the host sets each one before the first evaluate;
//   - reset() zeroes the remembered count and parameters, empties the remembered
//     expressions and drops the map list, so the next evaluate recomputes; results stay;
//   - evaluate(follicles, curves) recomputes the per-strand results only when the strand
//     count or one of the modifier's own parameters changed (the frame in
//     ZModifierFrame.h);
//   - deform(follicles, curves, curves0) applies the stored results, evaluating nothing;
//   - apply(...) is evaluate, then deform.
#pragma once

#include <utility>
#include <vector>

#include "base/UlmexBase.h"

class ZModifier {
public:
    // Registered maps in order of registration. The images stay the host's: it keeps each
    // alive, with its pixels loaded, while it is registered.
    std::vector<std::pair<Ulmex::ZString, Ulmex::ZImageMap*>> attributeMaps;

    ZModifier() = default;
    ~ZModifier() { reset(); }

    // Drops every registration; the images are not touched.
    void reset() { attributeMaps.clear(); }

    // The first map registered under `name`, or null.
    Ulmex::ZImageMap* find(const char* name) const;

    // Replaces `names` with the registered names, in order.
    void getAttributeNames(Ulmex::ZStringArray& names) const;

    // Registers `map` under `name`. A name already registered keeps its first map,
    // silently. A map with an empty file path prints "Error@ZModifier::append(): No file.";
    // one whose file does not exist prints "Error@ZModifier::append(): Failed to find: "
    // and the path. Neither is registered.
    void append(const char* name, Ulmex::ZImageMap& map);
};
