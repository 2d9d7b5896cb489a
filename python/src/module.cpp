// The extension module groomcore._groomcore: one binding unit per subsystem, and the
// helpers they share.
#include <climits>
#include <cstdio>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <vector>
#include <unordered_map>

#include "common.h"
#include "docstrings.h"

#include <nanobind/stl/vector.h>

namespace gcpy {

const char* intern(std::string text) {
    static std::deque<std::string> strings;
    strings.push_back(std::move(text));
    return strings.back().c_str();
}

// Keys asked for that the headers' comments do not document; the test suite requires
// none (undocumented()), so a binding cannot silently get an empty docstring.
std::vector<std::string>& undocumentedKeys() {
    static std::vector<std::string> keys;
    return keys;
}

const char* documented(std::string_view key) {
    static const std::unordered_map<std::string_view, const char*> table = [] {
        std::unordered_map<std::string_view, const char*> t;
        for (const auto& entry : kHeaderDocs) t.emplace(entry.key, entry.text);
        return t;
    }();
    auto it = table.find(key);
    return it == table.end() ? nullptr : it->second;
}

const char* doc(std::string_view key) {
    if (const char* text = documented(key)) return text;
    undocumentedKeys().emplace_back(key);
    return "";
}

// Keyed by array address; touched only with the GIL held (view creation and capsule
// destruction run under it, and so do the checks before a call releases it).
static std::unordered_map<const void*, int>& liveViews() {
    static std::unordered_map<const void*, int> views;
    return views;
}

// The objects calls without the GIL are using; guarded by its own mutex, since calls check
// it with and without the GIL.
namespace {
struct BusyEntry {
    const char* begin;
    const char* end;
    bool writes;
    const char* what;
};
std::mutex busyMutex;
std::vector<BusyEntry>& busyEntries() {
    static std::vector<BusyEntry> entries;
    return entries;
}
const BusyEntry* conflict(const Use& use) {
    const char* begin = static_cast<const char*>(use.object);
    const char* end = begin + use.size;
    for (const BusyEntry& e : busyEntries())
        if (begin < e.end && e.begin < end && (use.writes || e.writes)) return &e;
    return nullptr;
}
[[noreturn]] void busy(const BusyEntry& e, const char* what) {
    throw std::runtime_error(std::string(what) + ": the object is in use by " + e.what +
                             " on another thread; call again when it has returned");
}
} // namespace

void refuseIfBusy(const Use& use, const char* what) {
    std::lock_guard<std::mutex> lock(busyMutex);
    if (const BusyEntry* e = conflict(use)) busy(*e, what);
}

Busy::Busy(const char* what, std::vector<Use> uses) : _uses(std::move(uses)) {
    std::lock_guard<std::mutex> lock(busyMutex);
    for (const Use& u : _uses)
        if (const BusyEntry* e = conflict(u)) busy(*e, what);
    for (const Use& u : _uses) {
        const char* begin = static_cast<const char*>(u.object);
        busyEntries().push_back(BusyEntry{begin, begin + u.size, u.writes, what});
    }
}

Busy::~Busy() {
    std::lock_guard<std::mutex> lock(busyMutex);
    auto& entries = busyEntries();
    for (const Use& u : _uses)
        for (auto it = entries.begin(); it != entries.end(); ++it)
            if (it->begin == static_cast<const char*>(u.object) && it->writes == u.writes) {
                entries.erase(it);
                break;
            }
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

[[noreturn]] void raiseOSError(const char* what, const std::string& why) {
    PyErr_SetString(PyExc_OSError, (std::string(what) + ": " + why).c_str());
    throw nb::python_error();
}

std::ifstream openIn(const Ulmex::ZString& path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
        throw nb::python_error();
    }
    return f;
}

namespace {
// Python's str() of any object.
std::string pyText(nb::handle value) {
    nb::object text = nb::steal(PyObject_Str(value.ptr()));
    if (!text.is_valid()) {
        PyErr_Clear();
        return "?";
    }
    const char* utf8 = PyUnicode_AsUTF8(text.ptr());
    if (!utf8) {
        PyErr_Clear();
        return "?";
    }
    return utf8;
}
} // namespace

std::string describeGiven(nb::handle value) {
    if (value.is_none()) return "None";
    if (!nb::hasattr(value, "shape") || !nb::hasattr(value, "dtype")) return typeName(value);
    std::string got = "(";
    const nb::tuple shape = nb::tuple(value.attr("shape"));
    for (size_t i = 0; i < shape.size(); ++i) got += (i ? ", " : "") + pyText(shape[i]);
    if (shape.size() == 1) got += ",";
    return got + ") " + pyText(value.attr("dtype"));
}

nb::object convertedArray(nb::handle value, const char* what, const std::string& expected, int ndim,
                          const size_t* dims, const char* scalar) {
    auto refuse = [&](bool typeError, nb::handle given) {
        const std::string text = std::string(what) + ": expected a numpy array " + expected + ", got " + describeGiven(given);
        if (typeError) throw nb::type_error(text.c_str());
        throw nb::value_error(text.c_str());
    };
    // Arrays and buffers only: a list or a number is no array of the expected layout.
    const bool arrayLike = PyObject_CheckBuffer(value.ptr()) || nb::hasattr(value, "__array_interface__") ||
                           nb::hasattr(value, "__array__");
    if (value.is_none() || !arrayLike) refuse(true, value);
    // Kept for the process's life (never destroyed after the interpreter has gone).
    static const nb::object& numpy = *new nb::object(nb::module_::import_("numpy"));
    nb::object a = numpy.attr("asarray")(value);
    const nb::tuple shape = nb::tuple(a.attr("shape"));
    bool fits = shape.size() == size_t(ndim);
    for (int i = 1; fits && i < ndim; ++i) fits = nb::cast<size_t>(shape[size_t(i)]) == dims[i - 1];
    if (!fits) refuse(false, a);
    const std::string kind = nb::cast<std::string>(a.attr("dtype").attr("kind"));
    const std::string target(scalar);
    if (target == "float32") {
        if (kind != "f") refuse(true, a);
    } else {
        if (kind != "b" && kind != "i" && kind != "u") refuse(true, a);
        const bool narrow = target == "int8";
        const long long lo = narrow ? -128 : INT32_MIN, hi = narrow ? 127 : INT32_MAX;
        if (kind != "b" && nb::cast<size_t>(a.attr("size")) > 0) {
            const nb::object least = a.attr("min")(), most = a.attr("max")();
            // Compared in Python: a uint64 beyond long long still compares exactly.
            if (PyObject_RichCompareBool(least.ptr(), nb::int_(lo).ptr(), Py_LT) == 1 ||
                PyObject_RichCompareBool(most.ptr(), nb::int_(hi).ptr(), Py_GT) == 1)
                throw nb::value_error((std::string(what) + ": values from " + pyText(least) + " to " + pyText(most) +
                                       " do not fit " + target).c_str());
        }
    }
    return numpy.attr("ascontiguousarray")(a, numpy.attr(scalar));
}

void checkIndex(long long index, long long size, const char* what) {
    if (index < 0 || index >= size)
        throw nb::index_error((std::string(what) + ": index " + std::to_string(index) + " outside 0.." +
                               std::to_string(size - 1))
                                  .c_str());
}

} // namespace gcpy

namespace {

// The Python callable the library's report lines go to, or None for standard output. Held
// for the process's life: the sink may be called after the module's objects are gone.
nb::object& pythonSink() {
    static nb::object* sink = new nb::object(nb::none());
    return *sink;
}

void toPython(const std::string& line, void*) {
    if (!Py_IsInitialized() || _Py_IsFinalizing()) {
        std::fputs((line + "\n").c_str(), stdout);
        return;
    }
    nb::gil_scoped_acquire held;  // reports may come from threads running without the GIL
    try {
        pythonSink()(line);
    } catch (nb::python_error& e) {
        e.discard_as_unraisable("groomcore message sink");
    }
}

} // namespace

NB_MODULE(_groomcore, m) {
    m.def(
        "setMessageSink",
        [](nb::handle sink) {
            if (!sink.is_none() && !PyCallable_Check(sink.ptr()))
                throw nb::type_error(("setMessageSink: expected a callable or None, got " + gcpy::typeName(sink)).c_str());
            pythonSink() = nb::borrow(sink);
            Ulmex::ZSetMessageSink(sink.is_none() ? nullptr : &toPython, nullptr);
        },
        nb::arg("sink").none(), nb::sig("def setMessageSink(sink: typing.Callable[[str], object] | None) -> None"),
        "Routes the library's report lines (\"Error@...\"), one string each, to `sink`; None sends them to "
        "standard output, the C++ default. The package routes them to the logging logger \"groomcore\" at "
        "import. The sink may be called from any thread.");
    m.doc() = "groomcore: strands, modifiers, feathers, caches, Alembic bodies and USD export.";
    gcpy::bindBase(m);
    gcpy::bindAlembic(m);
    gcpy::bindStrands(m);
    gcpy::bindModifiers(m);
    gcpy::bindFeathers(m);
    gcpy::bindCache(m);
    gcpy::bindToolkit(m);
    gcpy::bindUsd(m);
    m.def(
        "_undocumented", [] { return gcpy::undocumentedKeys(); },
        "The docstring keys the bindings asked for that no header documents (the test suite requires none).");
}
