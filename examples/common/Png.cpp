#include "Png.h"

#include <png.h>

#include <cstdio>

namespace examples {

bool writePng(const std::string& path, int width, int height, const std::vector<uint8_t>& rgba) {
    FILE* fp = std::fopen(path.c_str(), "wb");
    if (!fp) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    bool ok = png && info && !setjmp(png_jmpbuf(png));
    if (ok) {
        png_init_io(png, fp);
        png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                     PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        png_write_info(png, info);
        for (int y = 0; y < height; ++y)
            png_write_row(png, const_cast<png_bytep>(rgba.data() + static_cast<size_t>(y) * width * 4));
        png_write_end(png, nullptr);
    }
    png_destroy_write_struct(&png, &info);
    std::fclose(fp);
    return ok;
}

} // namespace examples
