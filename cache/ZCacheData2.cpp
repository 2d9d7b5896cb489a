#include "cache/ZCacheData2.h"

#include "cache/ZCacheCommon.h"

ZCacheData2::ZCacheData2() { reset(); }

void ZCacheData2::reset() { ZCacheCommon::resetHead(*this); }

bool ZCacheData2::bakeStaticData(const Ulmex::ZString& path) const {
    return ZCacheCommon::bakeStatic(ZCacheCommon::bakeInput(*this, &sources), path);
}

bool ZCacheData2::bakePerFrameData(const Ulmex::ZString& path, float frame) const {
    return ZCacheCommon::bakePerFrame(ZCacheCommon::bakeInput(*this, &sources), path, frame);
}

bool ZCacheData2::getInfo(const char* file) { return ZCacheCommon::getInfo(ZCacheCommon::infoFields(*this), file); }

std::ostream& operator<<(std::ostream& os, const ZCacheData2& data) {
    return ZCacheCommon::print(os, data, "<ZCacheData2>");
}
