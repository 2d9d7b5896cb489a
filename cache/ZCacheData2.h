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
    Ulmex::ZString cacheType;
    Ulmex::ZString nodeName;
    Ulmex::ZString nodeType;
    Ulmex::ZString meshNodeName;
    int bindingScheme;
    int textureType;
    float cacheFormatVersion;
    ZFollicles* follicles;
    Ulmex::ZCurves* curves;
    Ulmex::ZBoundingBox* boundingBox;
    std::vector<ZFeather*> feathers;   // kept by reset()
    Ulmex::ZVectorArray* scales;
    Ulmex::ZVectorArray* rotations;
    Ulmex::ZFloatArray* folds;
    std::vector<ZSource*> sources;     // kept by reset()

    ZCacheData2();

    // As ZCacheData::reset; feathers and sources untouched.
    void reset();

    // As ZCacheData's, then `sources` last when there is at least one source.
    bool bakeStaticData(const Ulmex::ZString& path) const;
    bool bakePerFrameData(const Ulmex::ZString& path, float frame) const;
    bool getInfo(const char* file);
};

std::ostream& operator<<(std::ostream& os, const ZCacheData2& data);
