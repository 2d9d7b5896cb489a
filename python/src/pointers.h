// Pointer fields of the classes that point at the host's data (the cache classes, the
// exporter): in Python they hold the objects they are given, in the instance's dictionary,
// so those stay alive as long as they are set.
#pragma once

#include <string>
#include <vector>

#include "common.h"

namespace gcpy {

// A pointer field: the Python object is kept in the instance's dictionary under `_name`.
template <typename C, typename T, typename Cls>
void pointerField(Cls& cls, const char* name, T* C::*m, const char* docKey, const char* pyType) {
    const std::string key = std::string("_") + name;
    cls.def_prop_rw(
        name, [key](nb::handle self) { return nb::getattr(self, key.c_str(), nb::none()); },
        [m, key, pyType](nb::handle self, nb::handle value) {
            if (!value.is_none() && !nb::isinstance<T>(value))
                throw nb::type_error(
                    (key.substr(1) + ": expected " + pyType + " or None, got " + typeName(value)).c_str());
            C& c = nb::cast<C&>(self);
            c.*m = value.is_none() ? nullptr : &nb::cast<T&>(value);
            nb::setattr(self, key.c_str(), value);
        },
        nb::for_getter(nb::sig(intern("def " + std::string(name) + "(self, /) -> " +
                                      pyType + " | None"))),
        nb::for_setter(nb::sig(intern("def " + std::string(name) + "(self, value: " +
                                      pyType + " | None, /) -> None"))),
        nb::for_setter(nb::arg("value").none()),
        nb::for_getter(doc(docKey)));
}

// A list of feathers or sources: kept as a tuple of the objects.
template <typename C, typename T, typename Cls>
void listField(Cls& cls, const char* name, std::vector<T*> C::*m, const char* docKey, const char* pyType) {
    const std::string key = std::string("_") + name;
    cls.def_prop_rw(
        name, [key](nb::handle self) { return nb::getattr(self, key.c_str(), nb::tuple()); },
        [m, key, pyType](nb::handle self, nb::handle value) {
            std::vector<T*> items;
            nb::list kept;
            if (!nb::isinstance<nb::sequence>(value))
                throw nb::type_error((key.substr(1) + ": expected a sequence of " + pyType).c_str());
            for (nb::handle item : value) {
                if (!nb::isinstance<T>(item))
                    throw nb::type_error(
                        (key.substr(1) + ": expected a sequence of " + pyType + ", got " + typeName(item)).c_str());
                items.push_back(&nb::cast<T&>(item));
                kept.append(item);
            }
            nb::cast<C&>(self).*m = items;
            nb::setattr(self, key.c_str(), nb::tuple(kept));
        },
        nb::for_getter(nb::sig(intern("def " + std::string(name) + "(self, /) -> tuple[" +
                                      pyType + ", ...]"))),
        nb::for_setter(nb::sig(intern("def " + std::string(name) + "(self, value: typing.Sequence[" +
                                      pyType + "], /) -> None"))),
        nb::for_getter(doc(docKey)));
}

// The per-strand feather transforms are numpy arrays in Python; a bake or export copies
// the current values of the arrays it was given (read at call time, as the C++ pointers
// would be).
struct Transforms {
    Ulmex::ZVectorArray scales, rotations;
    Ulmex::ZFloatArray folds;
};

template <typename C>
void takeTransforms(nb::handle self, C& c, Transforms& t) {
    auto take = [&](const char* key, auto& array, auto*& pointer) {
        nb::object value = nb::getattr(self, key, nb::none());
        if (value.is_none()) {
            pointer = nullptr;
            return;
        }
        assign(array, value, key + 1);
        pointer = &array;
    };
    take("_scales", t.scales, c.scales);
    take("_rotations", t.rotations, c.rotations);
    take("_folds", t.folds, c.folds);
}

template <typename C, typename Cls>
void transformField(Cls& cls, const char* name) {
    const std::string key = std::string("_") + name, type = "numpy.float32";
    cls.def_prop_rw(
        name, [key](nb::handle self) { return nb::getattr(self, key.c_str(), nb::none()); },
        [key](nb::handle self, nb::handle value) { nb::setattr(self, key.c_str(), value); },
        nb::for_getter(nb::sig(intern("def " + std::string(name) + "(self, /) -> numpy.typing.NDArray[" + type +
                                      "] | None"))),
        nb::for_setter(nb::sig(intern("def " + std::string(name) + "(self, value: numpy.typing.NDArray[" + type +
                                      "] | None, /) -> None"))),
        nb::for_setter(nb::arg("value").none()),
        nb::for_getter("Per strand (float32), or None; read when a bake or export runs."));
}

// What a bake or an export uses while it runs without the GIL: the object itself (written
// by the exporter, read by a bake) and everything it points at, read.
template <typename C>
std::vector<Use> hostUses(const C& c, bool writesSelf) {
    std::vector<Use> uses{writesSelf ? writing(c) : reading(c)};
    if (c.follicles) uses.push_back(reading(*c.follicles));
    if (c.curves) uses.push_back(reading(*c.curves));
    if (c.boundingBox) uses.push_back(reading(*c.boundingBox));
    for (const auto* f : c.feathers)
        if (f) uses.push_back(reading(*f));
    return uses;
}

// What both the cache classes and the exporter point at: the strands, their box, the
// feather kinds and the per-strand feather transforms.
template <typename C, typename Cls>
void hostDataFields(Cls& cls, const std::string& docClass) {
    pointerField(cls, "follicles", &C::follicles, intern(docClass + ".follicles"), "ZFollicles");
    pointerField(cls, "curves", &C::curves, intern(docClass + ".curves"), "ZCurves");
    pointerField(cls, "boundingBox", &C::boundingBox, intern(docClass + ".boundingBox"), "ZBoundingBox");
    listField(cls, "feathers", &C::feathers, intern(docClass + ".feathers"), "ZFeather");
    for (const char* name : {"scales", "rotations", "folds"}) transformField<C>(cls, name);
}

} // namespace gcpy
