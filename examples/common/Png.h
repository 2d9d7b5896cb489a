// Writes 8-bit RGBA pictures as PNG files (libpng).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace examples {

// rgba: width * height * 4 bytes, top row first. False if the file cannot be written.
bool writePng(const std::string& path, int width, int height, const std::vector<uint8_t>& rgba);

} // namespace examples
