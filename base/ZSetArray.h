// One variable-length set per strand, held in three arrays: set sizes, the index of each
// set's first value, and all values one set after another.
#pragma once

#include <cstdint>
#include <fstream>

#include "base/ZArray.h"

namespace Ulmex {

template <typename T>
class ZSetArray {
public:
    ZIntArray counts;  // size of each set
    ZIntArray starts;  // index in `values` of each set's first value
    ZArray<T> values;  // all sets, one after another

    int numSets() const { return counts.length(); }  // the number of sets
    int count(int i) const { return counts[i]; }
    // Value j of set i.
    const T& operator()(int i, int j) const { return values[starts[i] + j]; }

    void reset() { counts.clear(); starts.clear(); values.clear(); }  // no set at all

    // Adds one set behind the others.
    void push(const T* set, int n) {
        counts.push_back(n);
        starts.push_back(values.length());
        if (n > 0) values.insert(values.end(), set, set + n);
    }

    // The sets of `other` behind this object's own; their starts are shifted.
    void append(const ZSetArray& other);

    // Becomes the sets of `source` whose keep byte is not 0, in order. An empty source, or
    // a keep of another length, leaves this object empty (silently: the follicle set
    // reports a wrong keep once per plain array).
    void from(const ZSetArray& source, const ZCharArray& keep);

    // Binary form: int32 set count, the counts, int32 value count, the values. Starts are
    // not stored: they follow from the counts. The form is self-delimiting.
    void write(std::ofstream& file) const;
    // Reads that form. Counts that are negative, do not add up to the value count, or
    // need more bytes than the stream has left make the read fail: the object is left
    // empty and the stream failed, so a corrupt file never yields a set that points
    // outside its values.
    bool read(std::ifstream& file);

    // Bytes of the three arrays in the given unit (each array reports an invalid unit).
    double usedMemorySize(ZDataUnit::DataUnit unit) const {
        return counts.usedMemorySize(unit) + starts.usedMemorySize(unit) + values.usedMemorySize(unit);
    }

    bool operator==(const ZSetArray& o) const {
        return counts == o.counts && starts == o.starts && values == o.values;
    }
};

template <typename T>
void ZSetArray<T>::append(const ZSetArray& other) {
    if (&other == this) {  // appended to itself: as a copy
        const ZSetArray copy(other);
        append(copy);
        return;
    }
    const int shift = values.length();
    const size_t old = starts.size();
    counts.append(other.counts);
    starts.append(other.starts);
    for (size_t i = old; i < starts.size(); ++i) starts[i] += shift;
    values.append(other.values);
}

template <typename T>
void ZSetArray<T>::from(const ZSetArray& source, const ZCharArray& keep) {
    if (&source == this) {  // filtered into itself: as from a copy
        const ZSetArray copy(source);
        from(copy, keep);
        return;
    }
    reset();
    if (source.counts.empty()) return;
    if (source.counts.size() != keep.size()) return;
    for (size_t i = 0; i < keep.size(); ++i)
        if (keep[i] != 0) push(source.values.data() + source.starts[i], source.counts[i]);
}

template <typename T>
void ZSetArray<T>::write(std::ofstream& file) const {
    counts.write(file, true);
    values.write(file, true);
}

template <typename T>
bool ZSetArray<T>::read(std::ifstream& file) {
    // Straight into the members, reusing their memory from one read to the next; a
    // rejected record leaves the object empty.
    auto fail = [&] {
        reset();
        markFailed(file);
        return false;
    };
    if (!counts.read(file, true) || !values.read(file, true)) return fail();
    starts.resize(counts.size());
    int64_t total = 0;
    for (size_t i = 0; i < counts.size(); ++i) {
        if (counts[i] < 0) return fail();
        starts[i] = static_cast<int>(total);
        total += counts[i];
    }
    if (total != values.length()) return fail();
    return true;
}

using ZIntSetArray = ZSetArray<int>;
using ZFloatSetArray = ZSetArray<float>;

} // namespace Ulmex
