#include "modifiers/ZModifier.h"

#include <iostream>

using namespace Ulmex;

ZImageMap* ZModifier::find(const char* name) const {
    const ZString key(name);
    for (const auto& entry : attributeMaps)
        if (entry.first == key) return entry.second;
    return nullptr;
}

void ZModifier::getAttributeNames(ZStringArray& names) const {
    names.clear();
    for (const auto& entry : attributeMaps) names.push_back(entry.first);
}

void ZModifier::append(const char* name, ZImageMap& map) {
    if (find(name)) return;
    if (map.filePath == "") {
        Ulmex::ZReport("Error@ZModifier::append(): No file.");
        return;
    }
    if (!ZFileExist(map.filePath.asChar())) {
        Ulmex::ZReport("Error@ZModifier::append(): Failed to find: " + map.filePath);
        return;
    }
    attributeMaps.emplace_back(ZString(name), &map);
}
