#include "base/ZString.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "base/ZStream.h"

namespace Ulmex {

ZString::ZString(float value) {
    if (std::isnan(value)) { assign("nan"); return; }
    if (std::isinf(value)) { assign(value > 0 ? "inf" : "-inf"); return; }
    if (value == 0.f) { assign("0"); return; }
    // Fixed notation keeps whole numbers free of exponents; shortest round trip keeps
    // fractions short (0.1, not 0.100000001).
    char buf[64];
    const auto res = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::fixed);
    assign(buf, res.ptr);
}

int ZString::asInt() const {
    errno = 0;
    const long v = std::strtol(c_str(), nullptr, 10);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

float ZString::asFloat() const { return std::strtof(c_str(), nullptr); }

void ZString::split(const ZString& delimiter, std::vector<ZString>& pieces) const {
    pieces.clear();
    if (empty()) return;
    if (delimiter.empty()) { pieces.push_back(*this); return; }
    size_type from = 0;
    while (from <= size()) {
        const size_type at = find(delimiter, from);
        const size_type end = at == npos ? size() : at;
        if (end > from) pieces.emplace_back(substr(from, end - from));
        if (at == npos) break;
        from = at + delimiter.size();
    }
}

void ZString::write(std::ofstream& file, bool withLength) const {
    if (withLength) {
        const int32_t n = static_cast<int32_t>(size());
        file.write(reinterpret_cast<const char*>(&n), sizeof n);
        if (n > 0) file.write(data(), n);
    } else {
        file.write(c_str(), static_cast<std::streamsize>(size()) + 1);
    }
}

bool ZString::read(std::ifstream& file, bool withLength) {
    clear();
    if (withLength) {
        int32_t n = 0;
        if (!readPod(file, n)) { markFailed(file); return false; }
        if (n < 0 || (n > kUncheckedReadBytes && n > ZStreamRemaining(file))) {
            markFailed(file);
            return false;
        }
        resize(static_cast<size_type>(n));
        if (n > 0 && !readRaw(file, &(*this)[0], static_cast<size_t>(n))) {
            std::string().swap(*this);  // give the memory back, not just the length
            markFailed(file);
            return false;
        }
        return true;
    }
    // NUL-terminated: bounded by the stream itself.
    std::getline(file, *this, '\0');
    if (file.fail() || file.eof()) { clear(); markFailed(file); return false; }
    return true;
}

} // namespace Ulmex
