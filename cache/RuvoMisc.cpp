#include "cache/RuvoMisc.h"

#include <fstream>
#include <string>

#include "cache/ZCacheCommon.h"

using namespace Ulmex;

bool isValidCachePathAndCacheName(const ZString& path, ZString name) {
    if (!ZFileExist(path.c_str())) return false;
    return ZFileExist((path + "/" + name).c_str());
}

bool readInfoData(const ZString& cacheDirectory, RuvoCacheInfo* info) {
    std::ifstream in((cacheDirectory + "/info").c_str());
    if (!in.is_open()) return false;
    ZCacheCommon::readInfoTokens(in, ZCacheCommon::infoFields(*info));
    return true;
}

bool readStrandsData(const ZString& cacheDirectory, int frame, ZCurves* curves, ZFollicles* follicles) {
    const float f = static_cast<float>(frame);
    const char* sign = f < 0.f ? "m" : (f > 0.f ? "p" : "z");
    const ZString name = cacheDirectory + "/curves_" + sign + ZString(std::to_string(frame));
    std::ifstream curvesFile(name.c_str());
    if (!curvesFile.is_open()) return false;
    curves->read(curvesFile);
    std::ifstream folliclesFile((cacheDirectory + "/follicles").c_str());
    if (!folliclesFile.is_open()) return false;
    // The static record first, then the per-frame record behind the curves overlays it.
    follicles->read(folliclesFile);
    follicles->read(curvesFile);
    return true;
}
