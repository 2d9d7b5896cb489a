// Free functions over a cache directory written by ZCacheData or ZCacheData2. They hold
// no state, print nothing and report by their result alone.
#pragma once

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

// The text fields of an `info` record. The caller owns it and gives it its first values:
// the readers neither clear nor initialise it, and a key a record lacks leaves its field.
struct RuvoCacheInfo {
    Ulmex::ZString cacheType;
    Ulmex::ZString nodeName;
    Ulmex::ZString nodeType;
    Ulmex::ZString meshNodeName;
    int bindingScheme;
    int textureType;
    float cacheFormatVersion;
};

// True when `path` exists and so does `path`/`name` (nothing looks inside it).
bool isValidCachePathAndCacheName(const Ulmex::ZString& path, Ulmex::ZString name);

// Reads `cacheDirectory`/info into `info` with the token loop: values end at a blank, a
// colon or a double-quote mark, an empty value reads as the comma behind it, a later key
// overwrites an earlier one, and counts are not read. False, with `info` unchanged, when
// the file cannot be opened; true for a file of any content.
bool readInfoData(const Ulmex::ZString& cacheDirectory, RuvoCacheInfo* info);

// Loads one frame: `curves_` plus the frame text ("p1001", "m-5", and "z0" for frame 0,
// a name the bakers never write), then the static `follicles` record and the per-frame
// record behind the curves overlaid on it. False with nothing changed when the curves file
// is missing; false with the curves already filled when `follicles` is missing.
bool readStrandsData(const Ulmex::ZString& cacheDirectory, int frame, Ulmex::ZCurves* curves,
                     ZFollicles* follicles);
