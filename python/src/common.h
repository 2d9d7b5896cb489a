// What every binding unit shares: ZString as str, arrays as numpy views that share the
// library's memory, the guard that keeps a view from outliving its memory, file
// arguments, and the docstrings taken from the headers.
#pragma once

#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>
#include <nanobind/stl/string.h>

#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "base/UlmexBase.h"

namespace nb = nanobind;

// --------------------------------------------------------------------------- ZString
// ZString crosses as str (and, as an argument, any os.PathLike that names a file).
NAMESPACE_BEGIN(NB_NAMESPACE)
NAMESPACE_BEGIN(detail)
template <>
struct type_caster<Ulmex::ZString> {
    NB_TYPE_CASTER(Ulmex::ZString, io_name("str | os.PathLike[str]", "str"))

    bool from_python(handle src, uint8_t, cleanup_list*) noexcept {
        PyObject* text = src.ptr();
        PyObject* owned = nullptr;
        if (!PyUnicode_Check(text)) {
            if (!PyObject_HasAttrString(text, "__fspath__")) return false;
            owned = PyOS_FSPath(text);
            if (!owned || !PyUnicode_Check(owned)) {
                Py_XDECREF(owned);
                PyErr_Clear();
                return false;
            }
            text = owned;
        }
        Py_ssize_t size = 0;
        const char* data = PyUnicode_AsUTF8AndSize(text, &size);
        if (data) value.assign(data, static_cast<size_t>(size));
        Py_XDECREF(owned);
        if (!data) PyErr_Clear();
        return data != nullptr;
    }
    static handle from_cpp(const Ulmex::ZString& v, rv_policy, cleanup_list*) noexcept {
        return PyUnicode_DecodeUTF8(v.data(), static_cast<Py_ssize_t>(v.size()), "surrogateescape");
    }
};
NAMESPACE_END(detail)
NAMESPACE_END(NB_NAMESPACE)

namespace gcpy {

// A string that lives as long as the module: signatures composed at binding time.
const char* intern(std::string text);

// --------------------------------------------------------------------------- docstrings
// The comment of a declaration in the headers ("ZFollicles.uid", "readStrandsData"), or "".
const char* doc(std::string_view key);
// The header's text for `key`, or null when it has none (doc() without the bookkeeping).
const char* documented(std::string_view key);
// The keys doc() was asked for and found no text under.
std::vector<std::string>& undocumentedKeys();

// --------------------------------------------------------------------------- element layout
// How one array element looks to numpy: its scalar type and the dimensions it adds.
template <typename T>
struct Layout;
template <> struct Layout<int> { using Scalar = int32_t; static constexpr int n = 0; static constexpr size_t dims[2] = {0, 0}; };
template <> struct Layout<float> { using Scalar = float; static constexpr int n = 0; static constexpr size_t dims[2] = {0, 0}; };
template <> struct Layout<char> { using Scalar = int8_t; static constexpr int n = 0; static constexpr size_t dims[2] = {0, 0}; };
template <> struct Layout<Ulmex::ZVector> { using Scalar = float; static constexpr int n = 1; static constexpr size_t dims[2] = {3, 0}; };
template <int N, typename T>
struct Layout<Ulmex::ZTuple<N, T>> { using Scalar = std::conditional_t<std::is_same_v<T, int>, int32_t, T>; static constexpr int n = 1; static constexpr size_t dims[2] = {N, 0}; };
template <> struct Layout<Ulmex::ZAxis> { using Scalar = float; static constexpr int n = 2; static constexpr size_t dims[2] = {4, 3}; };
template <> struct Layout<Ulmex::ZMatrix> { using Scalar = float; static constexpr int n = 2; static constexpr size_t dims[2] = {4, 4}; };

// The name of a value's type without its module: "ZCurves", "list".
inline std::string typeName(nb::handle value) {
    const std::string full = nb::type_name(value.type()).c_str();
    return full.substr(full.find_last_of('.') + 1);
}

// "(n, 3) float32": what an assignment expects, for its error message.
template <typename T>
std::string describe() {
    using L = Layout<T>;
    std::string s = "(n";
    for (int i = 0; i < L::n; ++i) s += ", " + std::to_string(L::dims[i]);
    s += L::n == 0 ? ",) " : ") ";
    if (std::is_same_v<typename L::Scalar, float>) s += "float32";
    else if (std::is_same_v<typename L::Scalar, int32_t>) s += "int32";
    else s += "int8";
    return s;
}

// --------------------------------------------------------------------------- live views
// Views register the array they look into while they live. A call that may reallocate
// arrays of an object asks first: while a view of any array inside the object is alive
// the call is refused with BufferError, as Python refuses to resize a bytearray that is
// exporting its buffer. No view can then read freed memory.
void viewOpened(const void* array);
void viewClosed(const void* array);
// Raises BufferError when a live view looks into an array within [object, object + size).
void refuseIfViewed(const void* object, size_t size, const char* what);
template <typename T>
void refuseIfViewed(const T& object, const char* what);

// --------------------------------------------------------------------------- busy objects
// A call that works without the GIL marks the objects it uses as busy while it runs: a call
// from another thread that would change an object in use, or use an object being changed,
// raises RuntimeError instead of racing it. Reading one object from two threads at once is
// fine. Objects are address ranges, so an array inside a busy object is busy too.
struct Use {
    const void* object;
    size_t size;
    bool writes;
};
template <typename T>
Use reading(const T& object) { return Use{&object, sizeof(T), false}; }
template <typename T>
Use writing(const T& object) { return Use{&object, sizeof(T), true}; }

// Raises RuntimeError when a call on another thread has [object, object + size) in use in a
// way that conflicts with this use.
void refuseIfBusy(const Use& use, const char* what);

class Busy {
public:
    Busy(const char* what, std::vector<Use> uses);
    ~Busy();
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::vector<Use> _uses;
};

// Marks the uses busy, then releases the GIL; on leaving takes the GIL back, then frees them.
class Unlocked {
public:
    Unlocked(const char* what, std::vector<Use> uses) : _busy(what, std::move(uses)) {}

private:
    Busy _busy;
    nb::gil_scoped_release _release;
};

// A copy of `other` for a copy constructor, refused while another thread changes it.
template <typename T>
void copyInit(T* self, const T& other) {
    refuseIfBusy(reading(other), "copy");
    new (self) T(other);
}

// Calls that may reallocate an object's arrays: refused while a view looks into it or
// another thread uses it.
template <typename T>
void refuseIfViewed(const T& object, const char* what) {
    refuseIfBusy(writing(object), what);
    refuseIfViewed(static_cast<const void*>(&object), sizeof(T), what);
}

// A writable numpy view of `array`, which lives inside the Python object `owner`; the view
// keeps the owner alive. Constant time whatever the length.
template <typename T>
nb::object view(Ulmex::ZArray<T>& array, nb::handle owner) {
    using L = Layout<T>;
    struct Guard {
        PyObject* owner;
        const void* array;
    };
    refuseIfBusy(reading(array), "a view");
    auto* g = new Guard{owner.ptr(), &array};
    Py_INCREF(g->owner);
    viewOpened(&array);
    nb::capsule keep(g, [](void* p) noexcept {
        auto* g = static_cast<Guard*>(p);
        viewClosed(g->array);
        Py_DECREF(g->owner);
        delete g;
    });
    size_t shape[3] = {array.size(), L::dims[0], L::dims[1]};
    static typename L::Scalar empty[16] = {};
    void* data = array.empty() ? static_cast<void*>(empty) : static_cast<void*>(array.data());
    nb::ndarray<nb::numpy, typename L::Scalar> out(data, 1 + L::n, shape, keep);
    return out.cast(nb::rv_policy::reference);
}

// A numpy array that takes over `array` (no copy): for results the library hands back.
template <typename T>
nb::object owned(Ulmex::ZArray<T>&& array) {
    using L = Layout<T>;
    auto* heap = new Ulmex::ZArray<T>(std::move(array));
    nb::capsule keep(heap, [](void* p) noexcept { delete static_cast<Ulmex::ZArray<T>*>(p); });
    size_t shape[3] = {heap->size(), L::dims[0], L::dims[1]};
    static typename L::Scalar empty[16] = {};
    void* data = heap->empty() ? static_cast<void*>(empty) : static_cast<void*>(heap->data());
    return nb::ndarray<nb::numpy, typename L::Scalar>(data, 1 + L::n, shape, keep).cast(nb::rv_policy::reference);
}

// "(3, 2) float64": what an assignment was given, for its error message.
std::string describeGiven(nb::handle array);

// `value` as a C-contiguous numpy array of T's scalar type in native byte order, copied
// and converted by numpy where it is not one already: read-only, strided, Fortran-order
// and byte-swapped arrays, and any buffer (a Vt array from usd-core) whose kind converts
// by value: floats of any width to float32; booleans and integers to int32 or int8 when
// every value fits. Anything else is refused naming what was expected and what was given:
// TypeError for another kind, ValueError for another shape or a value out of range.
nb::object convertedArray(nb::handle value, const char* what, const std::string& expected, int ndim,
                          const size_t* dims, const char* scalar);

// Copies an array of T's element layout into `array`, resizing it (see convertedArray for
// what converts).
template <typename T>
void assign(Ulmex::ZArray<T>& array, nb::handle value, const char* what) {
    using L = Layout<T>;
    nb::ndarray<nb::numpy, const typename L::Scalar, nb::c_contig, nb::device::cpu> a;
    bool exact = nb::try_cast(value, a, false);
    for (int i = 0; exact && i < L::n; ++i) exact = a.ndim() == size_t(1 + L::n) && a.shape(1 + i) == L::dims[i];
    exact = exact && a.ndim() == size_t(1 + L::n);
    nb::object converted;
    if (!exact) {
        static const char* scalar =
            std::is_same_v<typename L::Scalar, float> ? "float32" : std::is_same_v<typename L::Scalar, int32_t> ? "int32" : "int8";
        converted = convertedArray(value, what, describe<T>(), 1 + L::n, L::dims, scalar);
        if (!nb::try_cast(converted, a, false))
            throw nb::type_error((std::string(what) + ": expected " + describe<T>() + ", got " + describeGiven(value)).c_str());
    }
    const size_t n = a.ndim() ? a.shape(0) : 0;
    if (n > size_t(INT32_MAX)) throw nb::value_error((std::string(what) + ": more than 2^31 - 1 elements").c_str());
    if (n == array.size() && n && a.data() == static_cast<const void*>(array.data())) return;  // its own view
    refuseIfBusy(writing(array), what);
    // The same length copies into the same block, which views keep seeing; another length
    // reallocates, which no live view may see.
    if (n != array.size()) refuseIfViewed(array, what);
    array.resize(n);
    if (n) std::memmove(static_cast<void*>(array.data()), a.data(), n * sizeof(T));
}

// The numpy type of an element's scalar, for the stubs: "numpy.float32".
template <typename T>
const char* numpyScalar() {
    using S = typename Layout<T>::Scalar;
    return std::is_same_v<S, float> ? "numpy.float32" : std::is_same_v<S, int32_t> ? "numpy.int32" : "numpy.int8";
}

// A read-write property `name` of class C for the array member `m`: reading gives a view,
// assigning copies in. Its docstring is the header's under `docKey`, or `text` when given.
template <typename C, typename T, typename Cls>
void arrayField(Cls& cls, const char* name, Ulmex::ZArray<T> C::*m, const char* docKey, const char* text = nullptr) {
    const std::string type = std::string("numpy.typing.NDArray[") + numpyScalar<T>() + "]";
    cls.def_prop_rw(
        name, [m](nb::handle self) { return view(nb::cast<C&>(self).*m, self); },
        [m, name](C& self, nb::handle value) { assign(self.*m, value, name); },
        nb::for_getter(nb::sig(intern("def " + std::string(name) + "(self, /) -> " + type))),
        nb::for_setter(nb::sig(intern("def " + std::string(name) + "(self, value: " + type + ", /) -> None"))),
        nb::for_setter(nb::arg("value").none()),
        nb::for_getter(text ? text : doc(docKey)));
}

// --------------------------------------------------------------------------- files
// Raises OSError "what: why".
[[noreturn]] void raiseOSError(const char* what, const std::string& why);
// Opens a file for a record writer or reader; OSError with the path when it cannot.
std::ofstream openOut(const Ulmex::ZString& path);
std::ifstream openIn(const Ulmex::ZString& path);

// Raises ValueError unless 0 <= index < size.
void checkIndex(long long index, long long size, const char* what);

using release = nb::call_guard<nb::gil_scoped_release>;

void bindBase(nb::module_& m);
void bindAlembic(nb::module_& m);
void bindStrands(nb::module_& m);
void bindModifiers(nb::module_& m);
void bindFeathers(nb::module_& m);
void bindCache(nb::module_& m);
void bindToolkit(nb::module_& m);
void bindUsd(nb::module_& m);

} // namespace gcpy
