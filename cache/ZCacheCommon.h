// What the two cache generations (ZCacheData, ZCacheData2) and the cache readers share:
// the cache directory's file names and formats, the baking steps, and the token loop that
// reads an `info` record. The two classes carry the same head fields side by side without
// a common base; `of()` gathers them into the views below so that every step is written
// once.
#pragma once

#include <cstdint>
#include <istream>
#include <ostream>
#include <utility>
#include <vector>

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "feathers/ZSource.h"
#include "strands/ZFollicles.h"

class ZCacheCommon {
public:
    // Read-only view of a cache object for baking. `sources` is null for the first
    // generation, which writes neither a `sources` file nor a "SourceCount" key.
    struct BakeInput {
        const Ulmex::ZString* nodeName;
        const Ulmex::ZString* nodeType;
        const Ulmex::ZString* meshNodeName;
        int bindingScheme;
        int textureType;
        const ZFollicles* follicles;
        const Ulmex::ZCurves* curves;
        const Ulmex::ZBoundingBox* boundingBox;
        const std::vector<ZFeather*>* feathers;
        const Ulmex::ZVectorArray* scales;
        const Ulmex::ZVectorArray* rotations;
        const Ulmex::ZFloatArray* folds;
        const std::vector<ZSource*>* sources;
    };

    // The seven fields an `info` record fills, wherever they live.
    struct InfoFields {
        Ulmex::ZString* cacheType;
        Ulmex::ZString* nodeName;
        Ulmex::ZString* nodeType;
        Ulmex::ZString* meshNodeName;
        int* bindingScheme;
        int* textureType;
        float* cacheFormatVersion;
    };

    template <class Cache>
    static BakeInput bakeInput(const Cache& c, const std::vector<ZSource*>* sources) {
        return BakeInput{&c.nodeName, &c.nodeType, &c.meshNodeName, c.bindingScheme, c.textureType,
                         c.follicles, c.curves, c.boundingBox, &c.feathers, c.scales, c.rotations, c.folds,
                         sources};
    }

    // Works for both cache classes and for RuvoCacheInfo, which share these field names.
    template <class Record>
    static InfoFields infoFields(Record& r) {
        return InfoFields{&r.cacheType, &r.nodeName, &r.nodeType, &r.meshNodeName,
                          &r.bindingScheme, &r.textureType, &r.cacheFormatVersion};
    }

    // The head fields as they are after reset(): pointers null, texts empty, both ints -1,
    // version 1.0. The feather and source lists are not touched.
    template <class Cache>
    static void resetHead(Cache& c) {
        c.cacheType.clear();
        c.nodeName.clear();
        c.nodeType.clear();
        c.meshNodeName.clear();
        c.bindingScheme = -1;
        c.textureType = -1;
        c.cacheFormatVersion = 1.f;
        c.follicles = nullptr;
        c.curves = nullptr;
        c.boundingBox = nullptr;
        c.scales = nullptr;
        c.rotations = nullptr;
        c.folds = nullptr;
    }

    template <class Cache>
    static std::ostream& print(std::ostream& os, const Cache& c, const char* title) {
        return os << title << '\n'
                  << " Cache Type          : " << c.cacheType << '\n'
                  << " Node Name           : " << c.nodeName << '\n'
                  << " Binding Scheme      : " << c.bindingScheme << '\n'
                  << " Texture Type        : " << c.textureType << '\n'
                  << " Cache Format Version: " << c.cacheFormatVersion << '\n';
    }

    static bool bakeStatic(const BakeInput& in, const Ulmex::ZString& path);
    static bool bakePerFrame(const BakeInput& in, const Ulmex::ZString& path, float frame);

    // getInfo of either generation: clears the fields (version 0, not reset's 1.0), then
    // reads the record; false only when the file cannot be opened.
    static bool getInfo(const InfoFields& out, const char* file);

    // The token loop over an `info` record: white-space separated tokens, each split on
    // ':'; a token whose first piece is a quoted known key takes the text up to the next
    // double-quote mark of its second piece. Later keys overwrite earlier ones; unknown
    // keys and tokens without a colon are skipped. Reads the first kMaxInfoBytes of the
    // stream at most (a record is far smaller), so a device or a huge file costs a bounded
    // read and allocation.
    static constexpr size_t kMaxInfoBytes = 1 << 16;
    static void readInfoTokens(std::istream& in, const InfoFields& out);
    // Every key of the record by the same token rule (a quoted key, known or not, and the
    // text of its second piece up to the next double-quote mark), in the order of first
    // appearance, a later value replacing an earlier one.
    using InfoRecord = std::vector<std::pair<Ulmex::ZString, Ulmex::ZString>>;
    static InfoRecord readInfoRecord(std::istream& in);

    // The text that ends a per-frame file name on the writing side: "m" for a frame below
    // 0, otherwise "p", then ZString(frame) with its sign (frame -5: m-5, frame 0: p0).
    static Ulmex::ZString frameTag(float frame);

    // The files of a cache directory (CACHE_DIR/NODE_NAME). The static ones are written by
    // bakeStatic; a frame's are a kind followed by frameTag(frame), written by bakePerFrame.
    static constexpr const char* kInfo = "info";
    static constexpr const char* kFollicles = "follicles";
    static constexpr const char* kFeathers = "feathers";
    static constexpr const char* kRManAttrs = "rmanAttrs";
    static constexpr const char* kFeatherRManAttrs = "featherRManAttrs";  // the same bytes as rmanAttrs
    static constexpr const char* kSources = "sources";
    static constexpr const char* kCurves = "curves_";
    static constexpr const char* kBoundingBox = "bbox_";
    static constexpr const char* kTransforms = "xforms_";
    static constexpr const char* kFolds = "folds_";
    static Ulmex::ZString frameFile(const Ulmex::ZString& dir, const char* kind, float frame) {
        return dir + "/" + kind + frameTag(frame);
    }
    static Ulmex::ZString staticFile(const Ulmex::ZString& dir, const char* name) { return dir + "/" + name; }
    // The frame a per-frame file of `kind` is written for, when `fileName` is one the
    // bakers write (its tag is frameTag of the number it spells); false for any other name.
    static bool frameOfFile(const Ulmex::ZString& fileName, const char* kind, float* frame);

    // The sources file opens with the source count and this field count; the fields follow
    // in columns, each through every source before the next.
    static constexpr int32_t kSourceFields = 12;
};
