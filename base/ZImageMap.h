// A texture map the host has loaded. A plain struct: the host fills the fields and owns
// the pixel memory, which the library only reads and never frees.
#pragma once

#include "base/ZString.h"

namespace Ulmex {

struct ZImageMap {
    int width = 0;
    int height = 0;
    int numChannels = 0;
    // width * height * numChannels floats, row after row from the top, channels
    // interleaved. Owned by the host.
    float* pixels = nullptr;
    ZString filePath;
};

} // namespace Ulmex
