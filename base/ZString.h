// Text value built on std::string: usable wherever a std::string is.
#pragma once

#include <fstream>
#include <ostream>
#include <string>
#include <vector>

namespace Ulmex {

class ZString : public std::string {
public:
    ZString() = default;
    ZString(const ZString&) = default;
    ZString(ZString&&) = default;
    ZString(const char* text) : std::string(text ? text : "") {}
    ZString(const std::string& text) : std::string(text) {}
    explicit ZString(char c) : std::string(1, c) {}
    // The shortest decimal text that reads back as the same float. A whole number gives
    // its digits with no fraction and no exponent (1001, -5, 0; -0 also gives 0), which
    // cache file names rely on. Infinities and NaN give "inf", "-inf" and "nan".
    explicit ZString(float value);

    ZString& operator=(const ZString&) = default;
    ZString& operator=(ZString&&) = default;
    ZString& operator=(const char* text) { assign(text ? text : ""); return *this; }
    ZString& operator=(const std::string& text) { assign(text); return *this; }

    bool operator==(const char* text) const { return compare(text ? text : "") == 0; }
    bool operator!=(const char* text) const { return !(*this == text); }
    bool operator==(const ZString& o) const { return compare(o) == 0; }
    bool operator!=(const ZString& o) const { return compare(o) != 0; }

    ZString& operator+=(const ZString& o) { append(o); return *this; }
    ZString& operator+=(const char* text) { if (text) append(text); return *this; }

    const char* asChar() const { return c_str(); }
    // Leading white space skipped, then as much of a number as there is; 0 when the text
    // does not start with one. asInt saturates at the int range.
    int asInt() const;
    float asFloat() const;

    // Cuts the text at each occurrence of `delimiter` and replaces the contents of
    // `pieces` with the non-empty parts, in order. An empty delimiter gives the whole
    // text as one piece (none for an empty text).
    void split(const ZString& delimiter, std::vector<ZString>& pieces) const;

    // Binary form. With `withLength` true (the form the library uses everywhere) the text
    // is an int32 byte count followed by that many bytes, no terminator: self-delimiting.
    // With false the bytes are followed by one NUL byte and the reader stops at the NUL.
    void write(std::ofstream& file, bool withLength) const;
    // Returns false, leaves the text empty and fails the stream when no whole text can be
    // read: a short stream, or a negative count or one larger than the bytes left.
    bool read(std::ifstream& file, bool withLength);
};

inline ZString operator+(const ZString& a, const ZString& b) { ZString r(a); r += b; return r; }
inline ZString operator+(const ZString& a, const char* b) { ZString r(a); r += b; return r; }
inline ZString operator+(const char* a, const ZString& b) { ZString r(a); r += b; return r; }

inline std::ostream& operator<<(std::ostream& os, const ZString& s) {
    return os << static_cast<const std::string&>(s);
}

} // namespace Ulmex
