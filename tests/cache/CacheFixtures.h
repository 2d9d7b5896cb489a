// A small groom with every record field filled, and helpers to look at the files a bake
// leaves in a cache directory.
#pragma once

#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "base/UlmexBase.h"
#include "strands/FollicleFixtures.h"
#include "support/TestUtil.h"

namespace fixtures {

// Strand i has 2 + i % 4 CVs; everything depends on the frame so frames differ.
struct CacheGroom {
    ZFollicles follicles;
    Ulmex::ZCurves curves;
    Ulmex::ZBoundingBox box;

    explicit CacheGroom(int n = 7) : follicles(makeFollicles(n)) { setFrame(1.f); }

    void setFrame(float frame) {
        using namespace Ulmex;
        curves.reset();
        for (int i = 0; i < follicles.numStrands(); ++i) {
            std::vector<ZVector> cv;
            for (int j = 0; j < 2 + i % 4; ++j)
                cv.emplace_back(0.25f * i + 0.01f * frame, 0.5f * j, -0.125f * frame * static_cast<float>(j));
            curves.push(cv.data(), static_cast<int>(cv.size()));
        }
        for (int i = 0; i < follicles.numStrands(); ++i) {
            follicles.ln1[i] = 1.5f + 0.1f * frame + static_cast<float>(i);
            follicles.axs[i].origin = ZVector(frame, static_cast<float>(i), -frame);
        }
        follicles.maxLn1 = 100.f + frame;
        box = curves.boundingBox(false, false);
    }
};

inline std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// The bytes `writer` puts into a fresh stream.
inline std::vector<char> bytesOf(const std::function<void(std::ofstream&)>& writer) {
    testutil::TempDir dir;
    {
        std::ofstream out(dir.file("blob"), std::ios::binary);
        writer(out);
    }
    return testutil::readBytes(dir.file("blob"));
}

inline std::vector<char> concat(std::initializer_list<std::vector<char>> parts) {
    std::vector<char> all;
    for (const auto& p : parts) all.insert(all.end(), p.begin(), p.end());
    return all;
}

} // namespace fixtures
