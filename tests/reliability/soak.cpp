// A long shot through the whole pipeline with its memory watched:
//   soak OUT_DIR FRAMES STRANDS [--no-memory-check]
// Bakes FRAMES frames of an animated groom, reads every frame back into fresh objects and
// compares it bit for bit, and exports it to one USD file gathering all frames. Resident
// memory is taken after the first tenth of the frames and at the end; the run fails when it
// grew by more than 16 MiB plus 5%, or when any frame differs. Prints the figures. Under
// AddressSanitizer, whose allocator keeps freed memory in quarantine, resident memory says
// nothing about the library: --no-memory-check keeps every other check.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "cache/RuvoMisc.h"
#include "cache/ZCacheData.h"
#include "common/AnimatedGroom.h"
#include "usd/ZCurvesToUSD.h"

using namespace Ulmex;

namespace {

double residentMiB() {
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("VmRSS:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return 0;
}

template <typename T>
bool same(const ZArray<T>& a, const ZArray<T>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4 && !(argc == 5 && std::strcmp(argv[4], "--no-memory-check") == 0)) {
        std::cerr << "usage: soak OUT_DIR FRAMES STRANDS [--no-memory-check]\n";
        return 2;
    }
    const bool checkMemory = argc == 4;
    const std::string out = argv[1];
    const int frames = std::atoi(argv[2]), strands = std::atoi(argv[3]);
    std::filesystem::create_directories(out);
    examples::AnimatedGroom shot(strands, 12);
    shot.follicles.setTipWidth(0.002f, 0.004f, true);
    shot.follicles.setRootWidth(0.01f, 0.02f, true);
    ZCacheData cache;
    cache.nodeName = "hair";
    cache.follicles = &shot.follicles;
    cache.curves = &shot.curves;
    cache.boundingBox = &shot.box;
    ZCurvesToUSD usd;
    usd.name = "hair";
    usd.basePath = out + "/hair";
    usd.follicles = &shot.follicles;
    usd.curves = &shot.curves;
    usd.boundingBox = &shot.box;
    usd.exportRatio = 1.f;
    usd.hasFrameRange = true;
    usd.startTime = 1.f;
    usd.endTime = static_cast<float>(frames);
    shot.setFrame(1.f);
    if (!cache.bakeStaticData(out)) return 1;
    usd.writeAttributeToUSD(true);
    double early = 0, peakLate = 0;
    int bad = 0;
    for (int frame = 1; frame <= frames; ++frame) {
        shot.setFrame(static_cast<float>(frame));
        if (!cache.bakePerFrameData(out, static_cast<float>(frame))) return 1;
        ZCurves c;
        ZFollicles f;
        if (!readStrandsData(out + "/hair", frame, &c, &f) || !same(c.cvs, shot.curves.cvs) ||
            !same(c.numCVs, shot.curves.numCVs) || !same(f.ln1, shot.follicles.ln1) || !same(f.axs, shot.follicles.axs) ||
            !same(f.uid, shot.follicles.uid)) {
            std::cerr << "frame " << frame << " read back differently\n";
            ++bad;
        }
        usd.writeGeometryToUSD(static_cast<float>(frame), true, false);
        // The frame's cache files have been checked; only the USD file keeps growing.
        for (const char* kind : {"/hair/curves_p", "/hair/bbox_p"})
            std::filesystem::remove(out + kind + std::to_string(frame));
        if (frame == std::max(1, frames / 10)) early = residentMiB();
        if (frame > frames / 10) peakLate = std::max(peakLate, residentMiB());
    }
    const double growth = peakLate - early;
    std::cout << "soak: " << frames << " frames of " << strands << " strands baked, read back (" << frames - bad
              << " identical) and exported; resident memory " << early << " MiB after " << std::max(1, frames / 10)
              << " frames, at most " << peakLate << " MiB after that (" << (growth >= 0 ? "+" : "") << growth
              << " MiB); USD file " << std::filesystem::file_size(out + "/hair.high_geom.usd") / (1024.0 * 1024.0)
              << " MiB\n";
    return bad == 0 && (!checkMemory || growth <= 16.0 + 0.05 * early) ? 0 : 1;
}
