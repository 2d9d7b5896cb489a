// ZFeather and ZSource: templates placed along strands. They share their fields and
// placement in C++ (ZFeatherCommon), and their bindings here.
#include <nanobind/stl/tuple.h>

#include "common.h"
#include "feathers/ZFeather.h"
#include "feathers/ZSource.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

namespace {

// A sub-object member (mesh, curves, lattice, box) as an attribute: reading gives the
// object itself (it keeps the template alive), assigning copies in.
template <typename C, typename T, typename Cls>
void member(Cls& cls, const char* name, T C::*m, const char* docKey) {
    cls.def_prop_rw(
        name, [m](C& self) -> T& { return self.*m; },
        [m, name](C& self, const T& value) {
            refuseIfViewed(self.*m, name);
            self.*m = value;
        },
        nb::for_getter(nb::rv_policy::reference_internal), nb::for_getter(doc(docKey)));
}

// The template's own geometry must be consistent before it is placed.
template <typename C>
void checkTemplate(const C& t, const char* what) {
    checkTriMesh(t.mesh, what);
    checkCurves(t.curves, what);
}

// What the display lists and the drawing read: the mesh and the lattice.
template <typename C>
void checkDrawable(const C& t, const char* what) {
    checkTriMesh(t.mesh, what);
    checkQuadMesh(t.lattice, what);
}

// Placement of one strand: the strand's curve and root data must be there.
void checkStrand(const ZFollicles& f, const ZCurves& c, int strand, const char* what) {
    checkIndex(strand, c.numCurves(), what);
    if (c.start.size() != c.numCVs.size() || c.numCVs[strand] < 1 || c.start[strand] < 0 ||
        int64_t(c.start[strand]) + c.numCVs[strand] > int64_t(c.cvs.size()))
        invalid(what, "strand " + std::to_string(strand) + " lies outside the curves' CVs");
    if (f.axs.size() <= size_t(strand) || f.rxy.size() <= size_t(strand))
        invalid(what, "the follicles have no axs and rxy for strand " + std::to_string(strand));
}

template <typename Place>
nb::object placed(Place&& place) {
    ZVectorArray mesh, lattice, curves;
    place(mesh, lattice, curves);
    return nb::make_tuple(owned(std::move(mesh)), owned(std::move(lattice)), owned(std::move(curves)));
}

const char* kPlacedSig =
    "tuple[numpy.typing.NDArray[numpy.float32], numpy.typing.NDArray[numpy.float32], "
    "numpy.typing.NDArray[numpy.float32]]";

template <typename C>
nb::class_<C> templateClass(nb::module_& m, const char* name) {
    nb::class_<C> cls(m, name, doc(name));
    cls.def(nb::init<>())
        .def("__init__", &copyInit<C>, nb::arg("other"))
        .def("reset", [](C& t) { refuseIfViewed(t, "reset"); t.reset(); }, doc(std::string(name) + ".reset"))
        .def(
            "genDisplayLists",
            [](C& t) {
                checkDrawable(t, "genDisplayLists");
                t.genDisplayLists();
            },
            doc("ZFeather.genDisplayLists"))
        .def("drawVertices", [](const C& t) { checkDrawable(t, "drawVertices"); t.drawVertices(); }, doc("ZFeather.drawVertices"))
        .def("drawWireframe", [](const C& t) { checkDrawable(t, "drawWireframe"); t.drawWireframe(); }, doc("ZFeather.drawWireframe"))
        .def("drawSurface", [](const C& t) { checkDrawable(t, "drawSurface"); t.drawSurface(); }, doc("ZFeather.drawSurface"))
        .def(
            "initialize",
            [](C& t) {
                checkTemplate(t, "initialize");
                refuseIfViewed(t, "initialize");
                t.initialize();
            },
            doc("ZFeather.initialize"))
        .def(
            "genLatticeForCurves",
            [](C& t) {
                checkTemplate(t, "genLatticeForCurves");
                refuseIfViewed(t, "genLatticeForCurves");
                t.genLatticeForCurves();
            },
            doc("ZFeather.genLatticeForCurves"))
        .def(
            "deform",
            [](const C& t, const ZFollicles& f, const ZCurves& c, int strand, float scale, float angle,
               bool useStrandBend) {
                checkTemplate(t, "deform");
                checkStrand(f, c, strand, "deform");
                return placed([&](ZVectorArray& mesh, ZVectorArray& lattice, ZVectorArray& curves) {
                    mesh.resize(t.mesh.points.size());
                    lattice.resize(t.lattice.points.size());
                    curves.resize(t.curves.cvs.size());
                    const Unlocked unlocked("deform", {reading(t), reading(f), reading(c)});
                    t.deform(f, c, strand, scale, angle, &mesh, &lattice, &curves, useStrandBend);
                });
            },
            nb::arg("follicles"), nb::arg("curves"), nb::arg("strandIndex"), nb::arg("scale"), nb::arg("angle"),
            nb::arg("useStrandBend"),
            nb::sig(intern(std::string("def deform(self, follicles: ZFollicles, curves: ZCurves, strandIndex: int, "
                                       "scale: float, angle: float, useStrandBend: bool) -> ") + kPlacedSig)),
            intern(std::string(std::is_same_v<C, ZFeather>
                                   ? "Places the template along strand strandIndex of curves: Y along the strand "
                                     "parameter, X across along a side vector (from the strand's bend with "
                                     "useStrandBend, else from rxy and the root frame), Z out of the plane; the two "
                                     "halves fold by +-angle about the chord."
                                   : doc(std::string(name) + ".deform")) +
                   " Returns the placed mesh points, lattice points and CVs as new (n, 3) arrays."))
        .def(
            "rotate",
            [](const C& t, const ZFollicles& f, const ZCurves& c, int strand, float scale, float angle) {
                checkTemplate(t, "rotate");
                checkStrand(f, c, strand, "rotate");
                return placed([&](ZVectorArray& mesh, ZVectorArray& lattice, ZVectorArray& curves) {
                    mesh.resize(t.mesh.points.size());
                    lattice.resize(t.lattice.points.size());
                    curves.resize(t.curves.cvs.size());
                    const Unlocked unlocked("rotate", {reading(t), reading(f), reading(c)});
                    t.rotate(f, c, strand, scale, angle, &mesh, &lattice, &curves);
                });
            },
            nb::arg("follicles"), nb::arg("curves"), nb::arg("strandIndex"), nb::arg("scale"), nb::arg("angle"),
            nb::sig(intern(std::string("def rotate(self, follicles: ZFollicles, curves: ZCurves, strandIndex: int, "
                                       "scale: float, angle: float) -> ") + kPlacedSig)),
            "As deform, straight along the chord from root to tip.")
        .def_rw("name", &C::name)
        .def_prop_ro(
            "color",
            [](nb::handle self) {
                size_t shape[1] = {4};
                return nb::ndarray<nb::numpy, float>(nb::cast<C&>(self).color, 1, shape, self)
                    .cast(nb::rv_policy::reference);
            },
            nb::sig("def color(self, /) -> numpy.typing.NDArray[numpy.float32]"), "RGBA as a writable (4,) view.")
        .def_rw("storedInt", &C::storedInt)
        .def_prop_rw(
            "transientFlag", [](const C& t) { return int(t.transientFlag); },
            [](C& t, int v) { t.transientFlag = static_cast<char>(v); })
        .def_rw("transientText", &C::transientText)
        .def_rw("latticeResolution", &C::latticeResolution, doc("ZFeather.latticeResolution"))
        .def_prop_ro(
            "displayLists",
            [](const C& t) {
                nb::list out;
                for (int id : t.displayLists) out.append(id);
                return nb::tuple(out);
            },
            nb::sig("def displayLists(self, /) -> tuple[int, ...]"), doc("ZFeather.displayLists"))
        .def_rw("txLayerName", &C::txLayerName);
    member(cls, "mesh", &C::mesh, "ZFeather.mesh");
    member(cls, "curves", &C::curves, "ZFeather.curves");
    member(cls, "boundingBox", &C::boundingBox, "ZFeather.boundingBox");
    member(cls, "lattice", &C::lattice, "ZFeather.lattice");
    return cls;
}

} // namespace

void bindFeathers(nb::module_& m) {
    auto feather = templateClass<ZFeather>(m, "ZFeather");
    feather.def_rw("storedText", &ZFeather::storedText)
        .def_rw("txBasePath", &ZFeather::txBasePath)
        .def_rw("MaterialSet", &ZFeather::MaterialSet)
        .def_rw("txmultiUV", &ZFeather::txmultiUV)
        .def(
            "write",
            [](const ZFeather& t, const ZString& path) {
                auto f = openOut(path);
                t.write(f);
            },
            nb::arg("path"), doc("ZFeather.write"))
        .def(
            "read",
            [](ZFeather& t, const ZString& path, long long offset) -> long long {
                refuseIfViewed(t, "read");
                auto f = openIn(path);
                const Unlocked unlocked("read", {writing(t)});
                f.seekg(offset < 0 ? 0 : offset);
                t.read(f);
                return f ? static_cast<long long>(f.tellg()) : -1;
            },
            nb::arg("path"), nb::arg("offset") = 0,
            intern(std::string(doc("ZFeather.read")) +
                   " From `offset` in the file; returns the offset behind the record, or -1 when the file "
                   "ended or failed before it (the `feathers` file of a cache is a count, then the records)."))
        .def(
            "writeRManAttrs",
            [](const ZFeather& t, const ZString& path) {
                auto f = openOut(path);
                t.writeRManAttrs(f);
            },
            nb::arg("path"), doc("ZFeather.writeRManAttrs"))
        .def(
            "readRManAttrs",
            [](ZFeather& t, const ZString& path) {
                refuseIfViewed(t, "readRManAttrs");
                auto f = openIn(path);
                const Unlocked unlocked("readRManAttrs", {writing(t)});
                t.readRManAttrs(f);
            },
            nb::arg("path"), doc("ZFeather.readRManAttrs"));

    auto source = templateClass<ZSource>(m, "ZSource");
    member(source, "auxMeshA", &ZSource::auxMeshA, "ZSource.auxMeshA");
    member(source, "auxMeshB", &ZSource::auxMeshB, "ZSource.auxMeshB");
    source.def_rw("auxTextA", &ZSource::auxTextA)
        .def_rw("auxTextB", &ZSource::auxTextB)
        .def_rw("txAssetName", &ZSource::txAssetName)
        .def(
            "setAlembic",
            [](ZSource& s, const ZString& path) {
                refuseIfViewed(s, "setAlembic");
                const Unlocked unlocked("setAlembic", {writing(s)});
                s.setAlembic(path);
            },
            nb::arg("path"), doc("ZSource.setAlembic"))
        .def(
            "getAlembicXformMatrix",
            [](ZSource& s, const ZAlembicObject& object) {
                ZMatrix out;
                s.getAlembicXformMatrix(object, out);
                return out;
            },
            nb::arg("object"), doc("ZSource.getAlembicXformMatrix"));
}

} // namespace gcpy
