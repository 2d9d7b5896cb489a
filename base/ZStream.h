// Bounded reading of binary streams.
//
// Every reader of the base library and of the system treats what a file says about its
// own sizes as a claim to be checked against what the stream can still deliver. A count
// read from a corrupt or truncated file never makes a reader allocate more than the
// stream holds, read past its end, or loop for longer than it has bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>

namespace Ulmex {

// A read of at most this many bytes (a quarter of the 64 KiB every reader may take beyond
// four times its input, leaving room for the stream's own buffer) is made without asking
// how much the stream holds: it simply fails when the stream runs short, and gives back
// what it took. Asking costs two
// seeks, which throw away the stream's buffer, so a file of many small records (or of
// garbage that looks like them) would read at a fraction of stream speed. Larger claims
// are checked before anything is allocated.
constexpr std::int64_t kUncheckedReadBytes = 16 * 1024;

// Bytes left between the read position and the end of the stream; 0 when the stream has
// failed or is at its end, and 0 for a stream whose position cannot be told (a pipe),
// so that nothing is read from it on trust.
std::int64_t ZStreamRemaining(std::istream& in);

// Reads exactly `size` bytes into `dst`; false (with the stream failed) if fewer came.
bool readRaw(std::istream& in, void* dst, std::size_t size);

template <typename T>
bool readPod(std::istream& in, T& value) {
    return readRaw(in, &value, sizeof(T));
}

// Puts the stream into the failed state, so that every later read on it stops.
inline void markFailed(std::istream& in) { in.setstate(std::ios::failbit); }

} // namespace Ulmex
