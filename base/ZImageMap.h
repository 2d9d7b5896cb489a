// A texture map the host has loaded. A plain struct: the host fills the fields and owns
// the pixel memory, which the library only reads and never frees. A modifier samples a
// registered map at a strand's root (u, v) by nearest pixel, without filtering: column
// trunc(width * u) and row trunc((1 - v) * height) (row 0 is the top, so v = 1 is the top
// edge), each clamped to the image, first channel only.
#pragma once

#include "base/ZString.h"

namespace Ulmex {

struct ZImageMap {
    int width = 0;        // pixels per row
    int height = 0;       // rows
    int numChannels = 0;  // floats per pixel; the modifiers read the first
    // width * height * numChannels floats, row after row from the top, channels
    // interleaved. Owned by the host.
    float* pixels = nullptr;
    ZString filePath;     // the image file; registering a map checks that it exists
};

} // namespace Ulmex
