// The second cache generation: the cache directory of ZCacheData with ZSource objects
// beside the feathers. It adds a `sources` file (by columns) and a "SourceCount" key after
// "FeatherCount" in `info`, and calls a cache with sources "FeatherSet" even without
// feathers. Everything else, messages included (they name ZCacheData), is the first
// generation's. The two classes stand side by side and share their code in ZCacheCommon.
#pragma once

#include <ostream>
#include <vector>

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "feathers/ZSource.h"
#include "strands/ZFollicles.h"

class ZCacheData2 {
public:
    // The fields of ZCacheData, the same way, and the sources.
    Ulmex::ZString cacheType;     // filled by getInfo; baking derives the type itself
    Ulmex::ZString nodeName;      // names the cache directory
    Ulmex::ZString nodeType;      // the host node's type, recorded in the info file
    Ulmex::ZString meshNodeName;  // the body the groom is bound to, recorded in the info file
    int bindingScheme;             // how feathers follow their strands, recorded in the info file
    int textureType;               // the host's texture type, recorded in the info file
    float cacheFormatVersion;     // printed only: every bake writes version 1
    ZFollicles* follicles;         // roots and per-strand data: the follicles file, each frame's record
    Ulmex::ZCurves* curves;       // the strands' CVs of the frame being baked
    Ulmex::ZBoundingBox* boundingBox;  // bounds of the frame being baked
    std::vector<ZFeather*> feathers;   // kept by reset()
    Ulmex::ZVectorArray* scales;       // per strand, with rotations: the xforms_ file
    Ulmex::ZVectorArray* rotations;    // Euler angles in degrees
    Ulmex::ZFloatArray* folds;         // per strand fold angle: the folds_ file
    std::vector<ZSource*> sources;     // kept by reset(): the sources file

    ZCacheData2();

    // As ZCacheData::reset; feathers and sources untouched.
    void reset();

    // As ZCacheData's, then `sources` last when there is at least one source.
    bool bakeStaticData(const Ulmex::ZString& path) const;
    // As ZCacheData's: one frame's files (curves_, bbox_, and xforms_ and folds_ when set).
    bool bakePerFrameData(const Ulmex::ZString& path, float frame) const;
    // As ZCacheData's: the fields from an info file; false when it cannot be opened.
    bool getInfo(const char* file);
};

std::ostream& operator<<(std::ostream& os, const ZCacheData2& data);
