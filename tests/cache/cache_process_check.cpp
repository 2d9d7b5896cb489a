// Bakes an animated groom in one process and reads it back in another:
//   cache_process_check bake DIR     writes DIR/hair (static files and frames 1-6)
//   cache_process_check verify DIR   tests the cache, reads its info and every frame into
//                                    fresh objects and compares them bit for bit with
//                                    the groom rebuilt from scratch.
// Exit status 0 on success; what differs is printed.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "cache/RuvoMisc.h"
#include "cache/ZCacheData2.h"
#include "common/AnimatedGroom.h"

using namespace Ulmex;

namespace {

const int kFrames[] = {1, 2, 3, 4, 5, 6};

std::string bytes(const ZCurves& c, const ZFollicles& f) {
    char name[] = "/tmp/groomcore-frame-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) return {};
    close(fd);
    {
        std::ofstream o(name, std::ios::binary);
        c.write(o);
        f.write(o, true);
        f.write(o, false);
    }
    std::ifstream in(name, std::ios::binary);
    std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::remove(name);
    return all;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: cache_process_check bake|verify DIR\n";
        return 2;
    }
    examples::AnimatedGroom groom(300, 6);
    const ZString dir = argv[2];
    if (std::strcmp(argv[1], "bake") == 0) {
        ZCacheData2 cache;
        cache.nodeName = "hair";
        cache.nodeType = "groom";
        cache.meshNodeName = "body";
        cache.bindingScheme = 4;
        cache.follicles = &groom.follicles;
        cache.curves = &groom.curves;
        cache.boundingBox = &groom.box;
        if (!ZCreateDirectory(dir.c_str(), 0755) || !cache.bakeStaticData(dir)) return 1;
        for (int f : kFrames) {
            groom.setFrame(static_cast<float>(f));
            if (!cache.bakePerFrameData(dir, static_cast<float>(f))) return 1;
        }
        return 0;
    }
    if (!isValidCachePathAndCacheName(dir, "hair")) {
        std::cerr << "no cache at " << dir << "/hair\n";
        return 1;
    }
    RuvoCacheInfo info{};
    if (!readInfoData(dir + "/hair", &info) || info.nodeName != "hair" || info.bindingScheme != 4 ||
        info.meshNodeName != "body" || info.cacheType != "Strands" || info.cacheFormatVersion != 1.f) {
        std::cerr << "info record differs\n";
        return 1;
    }
    int bad = 0;
    // Last frame first: each frame must stand on its own.
    for (int k = static_cast<int>(std::size(kFrames)) - 1; k >= 0; --k) {
        const int f = kFrames[k];
        groom.setFrame(static_cast<float>(f));
        ZCurves curves;
        ZFollicles follicles;
        if (!readStrandsData(dir + "/hair", f, &curves, &follicles) ||
            bytes(curves, follicles) != bytes(groom.curves, groom.follicles)) {
            std::cerr << "frame " << f << " differs\n";
            ++bad;
        }
    }
    std::cout << std::size(kFrames) - bad << " of " << std::size(kFrames) << " frames identical\n";
    return bad == 0 ? 0 : 1;
}
