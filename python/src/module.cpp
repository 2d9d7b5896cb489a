// The extension module groomcore._groomcore: one binding unit per subsystem, and the
// helpers they share.
#include <deque>
#include <mutex>
#include <unordered_map>

#include "common.h"
#include "docstrings.h"

namespace gcpy {

const char* intern(std::string text) {
    static std::deque<std::string> strings;
    strings.push_back(std::move(text));
    return strings.back().c_str();
}

const char* doc(std::string_view key) {
    static const std::unordered_map<std::string_view, const char*> table = [] {
        std::unordered_map<std::string_view, const char*> t;
        for (const auto& entry : kHeaderDocs) t.emplace(entry.key, entry.text);
        return t;
    }();
    auto it = table.find(key);
    return it == table.end() ? "" : it->second;
}

// Keyed by array address; touched only with the GIL held (view creation and capsule
// destruction run under it, and so do the checks before a call releases it).
static std::unordered_map<const void*, int>& liveViews() {
    static std::unordered_map<const void*, int> views;
    return views;
}

void viewOpened(const void* array) { ++liveViews()[array]; }

void viewClosed(const void* array) {
    auto it = liveViews().find(array);
    if (it != liveViews().end() && --it->second <= 0) liveViews().erase(it);
}

void refuseIfViewed(const void* object, size_t size, const char* what) {
    const char* begin = static_cast<const char*>(object);
    for (const auto& entry : liveViews()) {
        const char* a = static_cast<const char*>(entry.first);
        if (a >= begin && a < begin + size)
            throw nb::buffer_error(
                (std::string(what) +
                 ": a numpy view of this object's arrays is alive and this call may resize them; "
                 "delete the view (del v) or work on a copy (v.copy()) first")
                    .c_str());
    }
}

std::ofstream openOut(const Ulmex::ZString& path) {
    std::ofstream f(path, std::ios::binary);
    if (!f) {
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
        throw nb::python_error();
    }
    return f;
}

std::ifstream openIn(const Ulmex::ZString& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
        throw nb::python_error();
    }
    return f;
}

void checkIndex(long long index, long long size, const char* what) {
    if (index < 0 || index >= size)
        throw nb::index_error((std::string(what) + ": index " + std::to_string(index) + " outside 0.." +
                               std::to_string(size - 1))
                                  .c_str());
}

} // namespace gcpy

NB_MODULE(_groomcore, m) {
    m.doc() = "groomcore: strands, modifiers, feathers, caches, Alembic bodies and USD export.";
    gcpy::bindBase(m);
    gcpy::bindAlembic(m);
    gcpy::bindStrands(m);
    gcpy::bindModifiers(m);
    gcpy::bindFeathers(m);
    gcpy::bindCache(m);
    gcpy::bindUsd(m);
}
