#include "cache/ZCacheCommon.h"

#include <cstdint>
#include <fstream>
#include <iostream>
#include <sstream>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

using namespace Ulmex;

namespace {

// Both generations report under the first one's name, from either bake operation.
const char* const kFailedToWrite = "Error@ZCacheData::bakeStaticData(): Failed to write file: ";

// Opens `file` for output, truncated (no binary flag: the bytes are written as they are on
// this platform all the same); prints the failure message when it cannot.
bool openOut(std::ofstream& out, const ZString& file) {
    out.open(file.c_str(), std::ios::out | std::ios::trunc);
    if (out.is_open()) return true;
    ZReport(kFailedToWrite + static_cast<const std::string&>(file));
    return false;
}

void writeInt(std::ofstream& out, int32_t v) { out.write(reinterpret_cast<const char*>(&v), sizeof v); }

// One key line: a tab, the quoted key, a colon, the quoted value as it stands (nothing is
// escaped) and a comma, on every line including the last.
template <typename T>
void keyLine(std::ostream& out, const char* key, const T& value) {
    out << "\t\"" << key << "\":\"" << value << "\",\n";
}

bool writeInfo(const ZCacheCommon::BakeInput& in, const ZString& file, int32_t featherCount, int32_t sourceCount) {
    std::ofstream out;
    if (!openOut(out, file)) return false;
    out.precision(2);
    out << "{\n";
    keyLine(out, "CacheType", (featherCount > 0 || sourceCount > 0) ? "FeatherSet" : "Strands");
    keyLine(out, "NodeName", *in.nodeName);
    keyLine(out, "NodeType", *in.nodeType);
    keyLine(out, "MeshNodeName", *in.meshNodeName);
    keyLine(out, "BindingScheme", in.bindingScheme);
    keyLine(out, "TextureType", in.textureType);
    // The format version written is always 1, whatever the object's field says; a double
    // through the precision-2 stream prints "1".
    keyLine(out, "CacheFormatVersion", 1.0);
    keyLine(out, "StrandsCount", in.follicles->numStrands());
    keyLine(out, "FeatherCount", featherCount);
    if (in.sources) keyLine(out, "SourceCount", sourceCount);
    ZString system;
    ZGetSystemInfo(system);
    out << system << "}\n";
    return true;
}

// `feathers`, `rmanAttrs` and `featherRManAttrs`; the last two are the same bytes on purpose.
bool writeFeatherFiles(const std::vector<ZFeather*>& feathers, const ZString& dir, int32_t count) {
    {
        std::ofstream out;
        if (!openOut(out, ZCacheCommon::staticFile(dir, ZCacheCommon::kFeathers))) return false;
        writeInt(out, count);
        for (const ZFeather* f : feathers) f->write(out);
    }
    for (const char* name : {ZCacheCommon::kRManAttrs, ZCacheCommon::kFeatherRManAttrs}) {
        std::ofstream out;
        if (!openOut(out, ZCacheCommon::staticFile(dir, name))) return false;
        writeInt(out, count);
        for (const ZFeather* f : feathers) f->writeRManAttrs(out);
    }
    return true;
}

// The `sources` file is laid out by columns: each field runs through every source before
// the next field begins.
bool writeSourcesFile(const std::vector<ZSource*>& sources, const ZString& file, int32_t count) {
    std::ofstream out;
    if (!openOut(out, file)) return false;
    writeInt(out, count);
    writeInt(out, ZCacheCommon::kSourceFields);
    for (const ZSource* s : sources) s->name.write(out, true);
    for (const ZSource* s : sources) out.write(reinterpret_cast<const char*>(s->color), sizeof s->color);
    for (const ZSource* s : sources) s->mesh.write(out);
    for (const ZSource* s : sources) s->auxMeshA.write(out);
    for (const ZSource* s : sources) s->auxMeshB.write(out);
    for (const ZSource* s : sources) s->auxTextA.write(out, true);
    for (const ZSource* s : sources) s->curves.write(out);
    for (const ZSource* s : sources) s->auxTextB.write(out, true);
    for (const ZSource* s : sources) s->boundingBox.write(out);
    for (const ZSource* s : sources) writeInt(out, s->storedInt);
    static const ZString assetKey("txAssetName"), layerKey("txLayerName");
    for (const ZSource* s : sources) {
        writeInt(out, 2);
        assetKey.write(out, true);
        s->txAssetName.write(out, true);
        layerKey.write(out, true);
        s->txLayerName.write(out, true);
    }
    return true;
}

void report(const char* what) { ZReport(std::string("Error@ZCacheData::bakeStaticData(): ") + what); }

// What a bake needs before it writes anything, so that a refused bake leaves nothing half
// written: the strands (and for a frame their bounds), no null feather or source, and for
// a frame curves that lie inside their CVs, one per strand, and per-strand transforms and
// folds of one element per strand where they are written.
bool acceptable(const ZCacheCommon::BakeInput& in, bool perFrame) {
    bool present = in.follicles && in.curves && (!perFrame || in.boundingBox);
    for (const ZFeather* f : *in.feathers) present = present && f;
    if (in.sources)
        for (const ZSource* s : *in.sources) present = present && s;
    if (!present) {
        report("No data.");
        return false;
    }
    if (!perFrame) return true;
    const ZCurves& c = *in.curves;
    const size_t n = static_cast<size_t>(in.follicles->numStrands());
    std::string wrong;
    auto count = [&](const char* name, size_t size) {
        if (wrong.empty() && size != n)
            wrong = std::string(name) + " has " + std::to_string(size) + " elements for " + std::to_string(n) + " strands";
    };
    count("curves", c.numCVs.size());
    count("curves' start", c.start.size());
    if (in.scales && in.rotations) {
        count("scales", in.scales->size());
        count("rotations", in.rotations->size());
    }
    if (in.folds) count("folds", in.folds->size());
    for (size_t i = 0; wrong.empty() && i < c.numCVs.size() && i < c.start.size(); ++i)
        if (c.numCVs[i] < 0 || c.start[i] < 0 || size_t(c.start[i]) + size_t(c.numCVs[i]) > c.cvs.size())
            wrong = "strand " + std::to_string(i) + " lies outside the curves' " + std::to_string(c.cvs.size()) + " CVs";
    if (wrong.empty()) return true;
    report(("Wrong data: " + wrong + ".").c_str());
    return false;
}

} // namespace

ZString ZCacheCommon::frameTag(float frame) {
    return ZString(frame < 0.f ? "m" : "p") + ZString(frame);
}

bool ZCacheCommon::frameOfFile(const ZString& fileName, const char* kind, float* frame) {
    const std::string prefix(kind);
    if (fileName.compare(0, prefix.size(), prefix) != 0 || fileName.size() < prefix.size() + 2) return false;
    const std::string number = fileName.substr(prefix.size() + 1);
    // The tag spells a decimal number: the shortest text that reads back as the frame.
    if (number.find_first_not_of("-.0123456789") != std::string::npos) return false;
    char* end = nullptr;
    const float f = std::strtof(number.c_str(), &end);
    if (end != number.c_str() + number.size() || !std::isfinite(f)) return false;
    if (prefix + static_cast<const std::string&>(frameTag(f)) != fileName) return false;
    *frame = f;
    return true;
}

bool ZCacheCommon::bakeStatic(const BakeInput& in, const ZString& path) {
    if (!acceptable(in, false)) return false;
    const int32_t featherCount = static_cast<int32_t>(in.feathers->size());
    const int32_t sourceCount = in.sources ? static_cast<int32_t>(in.sources->size()) : 0;
    const ZString dir = path + "/" + *in.nodeName;
    if (!ZCreateDirectory(dir.c_str(), 0755)) {
        ZReport("Error@ZCacheData::bakeStaticData(): Failed to create directory: " + dir);
        return false;
    }
    if (!writeInfo(in, staticFile(dir, kInfo), featherCount, sourceCount)) return false;
    {
        std::ofstream out;
        if (!openOut(out, staticFile(dir, kFollicles))) return false;
        in.follicles->write(out, true);
    }
    if (featherCount > 0 && !writeFeatherFiles(*in.feathers, dir, featherCount)) return false;
    if (sourceCount > 0) return writeSourcesFile(*in.sources, staticFile(dir, kSources), sourceCount);
    return true;
}

bool ZCacheCommon::bakePerFrame(const BakeInput& in, const ZString& path, float frame) {
    if (!acceptable(in, true)) return false;
    const ZString dir = path + "/" + *in.nodeName;
    {
        std::ofstream out;
        if (!openOut(out, frameFile(dir, kCurves, frame))) return false;
        in.curves->write(out);
        in.follicles->write(out, false);
    }
    {
        std::ofstream out;
        if (!openOut(out, frameFile(dir, kBoundingBox, frame))) return false;
        const ZBoundingBox& b = *in.boundingBox;
        out << double(b.minPoint.x) << ' ' << double(b.maxPoint.x) << ' ' << double(b.minPoint.y) << ' '
            << double(b.maxPoint.y) << ' ' << double(b.minPoint.z) << ' ' << double(b.maxPoint.z) << '\n';
    }
    if (in.scales && in.rotations) {
        std::ofstream out;
        if (!openOut(out, frameFile(dir, kTransforms, frame))) return false;
        in.scales->write(out, true);
        in.rotations->write(out, true);
    }
    if (in.folds) {
        std::ofstream out;
        if (!openOut(out, frameFile(dir, kFolds, frame))) return false;
        in.folds->write(out, true);
    }
    return true;
}

bool ZCacheCommon::getInfo(const InfoFields& out, const char* file) {
    out.cacheType->clear();
    out.nodeName->clear();
    out.nodeType->clear();
    out.meshNodeName->clear();
    *out.bindingScheme = -1;
    *out.textureType = -1;
    *out.cacheFormatVersion = 0.f;  // a record without the version key reads as version 0
    if (!file) return false;
    std::ifstream in(file);
    if (!in.is_open()) return false;
    readInfoTokens(in, out);
    return true;
}

ZCacheCommon::InfoRecord ZCacheCommon::readInfoRecord(std::istream& file) {
    // A record is a few hundred bytes: at most kMaxInfoBytes are read, so that a device
    // or a huge file named `info` (/dev/zero, /dev/urandom) costs a bounded read.
    std::string head;
    char block[4096];
    while (head.size() < kMaxInfoBytes && file) {
        file.read(block, static_cast<std::streamsize>(std::min(sizeof block, kMaxInfoBytes - head.size())));
        head.append(block, static_cast<size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    }
    std::istringstream in(head);
    ZString token;
    std::vector<ZString> pieces, value;
    InfoRecord record;
    while (!in.eof()) {
        // A failed extraction without end of file (a stream that cannot be read) must end
        // the loop too, or it would spin.
        if (!(in >> static_cast<std::string&>(token))) break;
        token.split(":", pieces);
        if (pieces.size() < 2) continue;
        const std::string& quoted = pieces[0];
        if (quoted.size() < 3 || quoted.front() != '"' || quoted.back() != '"' ||
            quoted.find('"', 1) != quoted.size() - 1)
            continue;
        const ZString key(quoted.substr(1, quoted.size() - 2));
        // The value runs to the next double-quote mark. A second piece made only of
        // double-quote marks holds no text at all: it reads as the empty value.
        pieces[1].split("\"", value);
        const ZString v = value.empty() ? ZString() : value[0];
        auto same = std::find_if(record.begin(), record.end(), [&](const auto& kv) { return kv.first == key; });
        if (same != record.end()) same->second = v;
        else record.emplace_back(key, v);
    }
    return record;
}

void ZCacheCommon::readInfoTokens(std::istream& file, const InfoFields& out) {
    for (const auto& [key, v] : readInfoRecord(file)) {
        if (key == "CacheType") *out.cacheType = v;
        else if (key == "NodeName") *out.nodeName = v;
        else if (key == "NodeType") *out.nodeType = v;
        else if (key == "MeshNodeName") *out.meshNodeName = v;
        else if (key == "BindingScheme") *out.bindingScheme = v.asInt();
        else if (key == "TextureType") *out.textureType = v.asInt();
        else if (key == "CacheFormatVersion") *out.cacheFormatVersion = v.asFloat();
    }
}
