#include "base/ZStream.h"

namespace Ulmex {

std::int64_t ZStreamRemaining(std::istream& in) {
    if (!in.good()) return 0;
    const std::istream::pos_type here = in.tellg();
    if (here == std::istream::pos_type(-1)) return 0;  // not seekable: trust nothing
    in.seekg(0, std::ios::end);
    const std::istream::pos_type end = in.tellg();
    in.seekg(here);
    if (end == std::istream::pos_type(-1) || !in.good()) return 0;
    const std::int64_t left = static_cast<std::int64_t>(end - here);
    return left > 0 ? left : 0;
}

bool readRaw(std::istream& in, void* dst, std::size_t size) {
    if (size == 0) return in.good();
    in.read(static_cast<char*>(dst), static_cast<std::streamsize>(size));
    return static_cast<std::size_t>(in.gcount()) == size;
}

} // namespace Ulmex
