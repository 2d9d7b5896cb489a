// The growable array: std::vector with no further member, so a ZArray is exactly the
// vector's data and its elements go to a file in one block. Its allocator is the standard
// one, except that an array can grow without writing its new elements
// (setLengthForOverwrite), for arrays a parallel loop then fills whole.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/ZAxis.h"
#include "base/ZDataUnit.h"
#include "base/ZMatrix.h"
#include "base/ZMessage.h"
#include "base/ZStream.h"
#include "base/ZString.h"
#include "base/ZTuple.h"
#include "base/ZVector.h"

namespace Ulmex {

namespace ZArrayDetail {

// Set on a thread while setLengthForOverwrite grows an array there.
inline thread_local bool gOverwrite = false;

// std::allocator's memory and construction, but the elements a vector gains by resize are
// left as allocated while gOverwrite is set on the calling thread.
template <typename T>
struct Allocator {
    using value_type = T;
    Allocator() noexcept = default;
    template <typename U>
    Allocator(const Allocator<U>&) noexcept {}
    T* allocate(size_t n) { return std::allocator<T>().allocate(n); }
    void deallocate(T* p, size_t n) noexcept { std::allocator<T>().deallocate(p, n); }
    template <typename U>
    void construct(U* p) noexcept(std::is_nothrow_default_constructible<U>::value) {
        if (!gOverwrite) ::new (static_cast<void*>(p)) U();
    }
    template <typename U, typename... A>
    void construct(U* p, A&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<A>(args)...);
    }
    template <typename U>
    bool operator==(const Allocator<U>&) const noexcept { return true; }
    template <typename U>
    bool operator!=(const Allocator<U>&) const noexcept { return false; }
};

} // namespace ZArrayDetail

template <typename T>
class ZArray : public std::vector<T, ZArrayDetail::Allocator<T>> {
    using Base = std::vector<T, ZArrayDetail::Allocator<T>>;

public:
    using Base::Base;
    ZArray() = default;

    int length() const { return static_cast<int>(this->size()); }

    // n < 1 empties the array. Otherwise it resizes to exactly n; with zeroFill every
    // element is then set to zero bytes, so a shrink or a same-size call clears old values.
    void setLength(int n, bool zeroFill = true);

    // n < 1 empties the array. Otherwise it resizes to exactly n, keeping the values of the
    // elements it keeps and leaving the ones it gains unwritten: the caller writes every one
    // of them. Meant for a parallel loop that fills the whole array, so that growing it is
    // no serial pass and each page is first touched by the thread that fills it.
    void setLengthForOverwrite(int n);

    // Every element to zero bytes.
    void zeroize() {
        static_assert(std::is_trivially_copyable<T>::value, "raw element type needed");
        if (!this->empty()) std::memset(static_cast<void*>(this->data()), 0, this->size() * sizeof(T));
    }

    // Raw form. With writeLength, an int32 element count comes first. The elements follow
    // as one block; an empty array writes no element bytes (and none at all without the
    // count).
    void write(std::ofstream& file, bool writeLength) const;

    // With readLength, first reads an int32 count and resizes; a negative count, or one
    // that needs more bytes than the stream has left, fails the stream and empties the
    // array (a claim beyond kUncheckedReadBytes is checked before anything is allocated). Then reads length() elements as one block. Elements the stream cannot
    // deliver keep their value (zero after a sizing read); false when not all came.
    bool read(std::ifstream& file, bool readLength);

    // Sizes the array to n and reads n elements as one block, reusing the array's memory;
    // elements the stream cannot deliver are zero. False when not all came.
    bool readExactly(std::ifstream& file, int n);

    // Empties the array first; then, for a non-empty source, takes source[i] for each
    // nonzero keep[i], in order. A keep of another length prints
    // "Error@ZArray::from(): Invalid input data." and leaves the array empty.
    void from(const ZArray<T>& source, const ZArray<char>& keep);

    // The elements of `other` behind this array's own. Appending or filtering (from) an
    // array into itself works as on a copy of it.
    void append(const ZArray<T>& other);

    // length * sizeof(T) in the given unit; an invalid unit prints
    // "Error@ZArray::usedMemorySize(): Invalid data unit." and counts 0.
    double usedMemorySize(ZDataUnit::DataUnit unit) const;
};

template <typename T>
void ZArray<T>::setLength(int n, bool zeroFill) {
    if (n < 1) { this->clear(); return; }
    this->resize(static_cast<size_t>(n));
    if (zeroFill) zeroize();
}

template <typename T>
void ZArray<T>::setLengthForOverwrite(int n) {
    static_assert(std::is_trivially_copyable<T>::value && std::is_trivially_destructible<T>::value,
                  "raw element type needed");
    if (n < 1) { this->clear(); return; }
    struct Flag {
        Flag() { ZArrayDetail::gOverwrite = true; }
        ~Flag() { ZArrayDetail::gOverwrite = false; }
    } flag;
    this->resize(static_cast<size_t>(n));
}

template <typename T>
void ZArray<T>::write(std::ofstream& file, bool writeLength) const {
    static_assert(std::is_trivially_copyable<T>::value, "raw element type needed");
    if (writeLength) {
        const int32_t n = length();
        file.write(reinterpret_cast<const char*>(&n), sizeof n);
    }
    if (!this->empty())
        file.write(reinterpret_cast<const char*>(this->data()),
                   static_cast<std::streamsize>(this->size() * sizeof(T)));
}

template <typename T>
bool ZArray<T>::read(std::ifstream& file, bool readLength) {
    static_assert(std::is_trivially_copyable<T>::value, "raw element type needed");
    if (readLength) {
        int32_t n = 0;
        auto fail = [&] {
            Base().swap(*this);  // give the memory back, not just the length
            markFailed(file);
            return false;
        };
        if (!readPod(file, n) || n < 0) return fail();
        const int64_t want = static_cast<int64_t>(n) * static_cast<int64_t>(sizeof(T));
        if (want > kUncheckedReadBytes && want > ZStreamRemaining(file)) return fail();
        // A count the stream cannot fill fails the read and empties the array.
        return readExactly(file, n) ? true : fail();
    }
    if (this->empty()) return true;
    const size_t want = this->size() * sizeof(T);
    file.read(reinterpret_cast<char*>(this->data()), static_cast<std::streamsize>(want));
    return static_cast<size_t>(file.gcount()) == want;
}

template <typename T>
bool ZArray<T>::readExactly(std::ifstream& file, int n) {
    static_assert(std::is_trivially_copyable<T>::value, "raw element type needed");
    if (n < 1) { this->clear(); return true; }
    // No zero fill before the read: the bytes are overwritten by the file, and only what
    // it could not deliver is cleared afterwards. On a large frame this saves a whole
    // pass over the array.
    setLengthForOverwrite(n);
    const size_t want = this->size() * sizeof(T);
    file.read(reinterpret_cast<char*>(this->data()), static_cast<std::streamsize>(want));
    const size_t got = static_cast<size_t>(file.gcount());
    if (got == want) return true;
    std::memset(reinterpret_cast<char*>(this->data()) + got, 0, want - got);
    return false;
}

template <typename T>
void ZArray<T>::from(const ZArray<T>& source, const ZArray<char>& keep) {
    if (&source == this) {  // filtered into itself: as from a copy
        const ZArray<T> copy(source);
        from(copy, keep);
        return;
    }
    this->clear();
    if (source.empty()) return;
    if (source.size() != keep.size()) {
        ZReport("Error@ZArray::from(): Invalid input data.");
        return;
    }
    size_t count = 0;
    for (char k : keep) count += (k != 0);
    this->reserve(count);
    for (size_t i = 0; i < source.size(); ++i)
        if (keep[i] != 0) this->push_back(source[i]);
}

template <typename T>
void ZArray<T>::append(const ZArray<T>& other) {
    const size_t old = this->size(), extra = other.size();
    // Resizing may move the elements: an array appended to itself copies them from their new
    // place, which holds them unchanged in front of the new room.
    const bool self = &other == this;
    this->resize(old + extra);
    const auto from = self ? this->cbegin() : other.begin();
    std::copy(from, from + static_cast<std::ptrdiff_t>(extra), this->begin() + static_cast<std::ptrdiff_t>(old));
}

template <typename T>
double ZArray<T>::usedMemorySize(ZDataUnit::DataUnit unit) const {
    const double scale = ZDataUnit::scale(unit);
    if (scale < 0.0) {
        ZReport("Error@ZArray::usedMemorySize(): Invalid data unit.");
        return 0.0;
    }
    return static_cast<double>(this->size()) * static_cast<double>(sizeof(T)) * scale;
}

using ZIntArray = ZArray<int>;
using ZCharArray = ZArray<char>;
using ZFloatArray = ZArray<float>;
using ZFloat2Array = ZArray<ZTuple<2, float>>;
using ZFloat3Array = ZArray<ZTuple<3, float>>;
using ZInt3Array = ZArray<ZTuple<3, int>>;
using ZVectorArray = ZArray<ZVector>;
using ZAxisArray = ZArray<ZAxis>;
using ZMatrixArray = ZArray<ZMatrix>;
using ZStringArray = ZArray<ZString>;

} // namespace Ulmex
