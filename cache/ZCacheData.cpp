#include "cache/ZCacheData.h"

#include "cache/ZCacheCommon.h"

ZCacheData::ZCacheData() { reset(); }

void ZCacheData::reset() { ZCacheCommon::resetHead(*this); }

bool ZCacheData::bakeStaticData(const Ulmex::ZString& path) const {
    return ZCacheCommon::bakeStatic(ZCacheCommon::bakeInput(*this, nullptr), path);
}

bool ZCacheData::bakePerFrameData(const Ulmex::ZString& path, float frame) const {
    return ZCacheCommon::bakePerFrame(ZCacheCommon::bakeInput(*this, nullptr), path, frame);
}

bool ZCacheData::getInfo(const char* file) { return ZCacheCommon::getInfo(ZCacheCommon::infoFields(*this), file); }

std::ostream& operator<<(std::ostream& os, const ZCacheData& data) {
    return ZCacheCommon::print(os, data, "<ZCacheData>");
}
