// The base library's Alembic reader: archives, objects, their transforms, meshes and curves.
#include <nanobind/stl/optional.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <optional>

#include "common.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

void bindAlembic(nb::module_& m) {
    nb::class_<ZAlembicCurves> curves(m, "ZAlembicCurves", doc("ZAlembicCurves"));
    curves.def(nb::init<>())
        .def_rw("type", &ZAlembicCurves::type, doc("ZAlembicCurves.type"))
        .def_rw("wrap", &ZAlembicCurves::wrap, doc("ZAlembicCurves.wrap"))
        .def_rw("basis", &ZAlembicCurves::basis, doc("ZAlembicCurves.basis"))
        .def_rw("worldMatrix", &ZAlembicCurves::worldMatrix, doc("ZAlembicCurves.worldMatrix"))
        .def("clear", [](ZAlembicCurves& c) { refuseIfViewed(c, "clear"); c.clear(); }, doc("ZAlembicCurves.clear"))
        .def("__repr__", [](const ZAlembicCurves& c) {
            return "<ZAlembicCurves " + std::to_string(c.counts.size()) + " curves, " + std::to_string(c.points.size()) +
                   " points>";
        });
    arrayField(curves, "points", &ZAlembicCurves::points, "ZAlembicCurves.points");
    arrayField(curves, "counts", &ZAlembicCurves::counts, "ZAlembicCurves.counts");
    arrayField(curves, "widths", &ZAlembicCurves::widths, "ZAlembicCurves.widths");
    arrayField(curves, "uvs", &ZAlembicCurves::uvs, "ZAlembicCurves.uvs");
    arrayField(curves, "ids", &ZAlembicCurves::ids, "ZAlembicCurves.ids");
    for (const auto& [name, value] : std::initializer_list<std::pair<const char*, int>>{
             {"kCubic", ZAlembicCurves::kCubic}, {"kLinear", ZAlembicCurves::kLinear},
             {"kVariableOrder", ZAlembicCurves::kVariableOrder}, {"kNonPeriodic", ZAlembicCurves::kNonPeriodic},
             {"kPeriodic", ZAlembicCurves::kPeriodic}, {"kNoBasis", ZAlembicCurves::kNoBasis},
             {"kBezier", ZAlembicCurves::kBezier}, {"kBSpline", ZAlembicCurves::kBSpline},
             {"kCatmullRom", ZAlembicCurves::kCatmullRom}, {"kHermite", ZAlembicCurves::kHermite},
             {"kPower", ZAlembicCurves::kPower}})
        curves.attr(name) = value;

    nb::class_<ZAlembicObject>(m, "ZAlembicObject", "An object of an Alembic archive; it keeps its file open.")
        .def(nb::init<>())
        .def("name", &ZAlembicObject::name, doc("ZAlembicObject.name"))
        .def("fullPath", &ZAlembicObject::fullPath, doc("ZAlembicObject.fullPath"))
        .def("isLeaf", &ZAlembicObject::isLeaf, doc("ZAlembicObject.isLeaf"))
        .def("isShape", &ZAlembicObject::isShape, doc("ZAlembicObject.isShape"))
        .def("isPolyMesh", &ZAlembicObject::isPolyMesh, doc("ZAlembicObject.isPolyMesh"))
        .def("numChildren", &ZAlembicObject::numChildren, release(), "The number of objects right below this one.")
        .def(
            "getChild",
            [](const ZAlembicObject& o, int index) -> std::optional<ZAlembicObject> {
                ZAlembicObject child;
                bool ok;
                {
                    nb::gil_scoped_release unlocked;
                    ok = o.getChild(index, child);
                }
                if (!ok) return std::nullopt;
                return child;
            },
            nb::arg("index"), "The child at index, or None for an index out of range.")
        .def(
            "getTransformations",
            [](const ZAlembicObject& o, int sample) -> std::optional<std::tuple<ZVector, ZVector, ZVector>> {
                ZVector t, r, s;
                if (!o.getTransformations(t, r, s, sample)) return std::nullopt;
                return std::make_tuple(t, r, s);
            },
            nb::arg("sample"),
            "(translate, rotateDegrees, scale) of an Xform at the sample, or None for an object that is not a "
            "transform. The C++ reader's rules hold: a missing op gives 0, 0 and 1.")
        .def(
            "getPolyMeshData",
            [](const ZAlembicObject& o, int sample) -> nb::object {
                ZVectorArray points, velocities;
                ZIntArray counts, connections, uvIndices;
                ZBoundingBox box;
                ZMatrix world;
                ZFloatArray uvs;
                bool ok;
                {
                    nb::gil_scoped_release unlocked;
                    ok = o.getPolyMeshData(&points, &velocities, &counts, &connections, &box, &world, &uvs, &uvIndices,
                                           sample);
                }
                if (!ok) return nb::none();
                return nb::make_tuple(owned(std::move(points)), owned(std::move(velocities)), owned(std::move(counts)),
                                      owned(std::move(connections)), box, world, owned(std::move(uvs)),
                                      owned(std::move(uvIndices)));
            },
            nb::arg("sample"),
            nb::sig("def getPolyMeshData(self, sample: int) -> tuple[numpy.typing.NDArray[numpy.float32], "
                    "numpy.typing.NDArray[numpy.float32], numpy.typing.NDArray[numpy.int32], "
                    "numpy.typing.NDArray[numpy.int32], ZBoundingBox, ZMatrix, numpy.typing.NDArray[numpy.float32], "
                    "numpy.typing.NDArray[numpy.int32]] | None"),
            "(points, velocities, counts, connections, box, worldMatrix, uvs, uvIndices) of a PolyMesh at the "
            "sample, or None for an object that is not a polygon mesh. As the C++ reader: uvs holds two floats per "
            "value; plain UVs come with the indices 0, 1, 2, ...")
        .def("isCurves", &ZAlembicObject::isCurves, doc("ZAlembicObject.isCurves"))
        .def(
            "getCurvesData",
            [](const ZAlembicObject& o, int sample) -> std::optional<ZAlembicCurves> {
                ZAlembicCurves c;
                bool ok;
                {
                    nb::gil_scoped_release unlocked;
                    ok = o.getCurvesData(c, sample);
                }
                if (!ok) return std::nullopt;
                return c;
            },
            nb::arg("sample"),
            "A ZAlembicCurves of the object's curves at the sample, or None for an object that is not curves. Points "
            "and counts that do not add up read as no curves; the world matrix is the one above the curves, as for "
            "a mesh.")
        .def("schema", &ZAlembicObject::schema, doc("ZAlembicObject.schema"))
        .def("numSamples", &ZAlembicObject::numSamples, doc("ZAlembicObject.numSamples"))
        .def("sampleTime", &ZAlembicObject::sampleTime, nb::arg("sample"), doc("ZAlembicObject.sampleTime"))
        .def("sampleAt", &ZAlembicObject::sampleAt, nb::arg("time"), doc("ZAlembicObject.sampleAt"))
        .def("sampleAtFrame", &ZAlembicObject::sampleAtFrame, nb::arg("frame"), nb::arg("framesPerSecond"),
             doc("ZAlembicObject.sampleAtFrame"))
        .def("__repr__", [](const ZAlembicObject& o) { return "<ZAlembicObject " + std::string(o.fullPath()) + ">"; });

    nb::class_<ZAlembicArchive>(m, "ZAlembicArchive", "An Ogawa Alembic archive, read-only; a file changed while open reads as an error, never a crash.")
        .def(nb::init<>())
        .def(
            "open",
            [](ZAlembicArchive& a, const ZString& path) {
                const Unlocked unlocked("open", {writing(a)});
                return a.open(path.c_str());
            },
            nb::arg("path"), doc("ZAlembicArchive.open"))
        .def("close", [](ZAlembicArchive& a) { refuseIfBusy(writing(a), "close"); a.close(); }, doc("ZAlembicArchive.close"))
        .def("isOpen", &ZAlembicArchive::isOpen, "True while an archive is open.")
        .def("topObject", &ZAlembicArchive::topObject, doc("ZAlembicArchive.topObject"));

    m.def(
        "GetAllDescendantObjects",
        [](const ZAlembicObject& object, bool leavesOnly) {
            ZAlembicObjectArray found;
            {
                nb::gil_scoped_release unlocked;
                GetAllDescendantObjects(object, found, leavesOnly);
            }
            std::vector<ZAlembicObject> out;
            out.reserve(size_t(found.length()));
            for (int i = 0; i < found.length(); ++i) out.push_back(found[i]);
            return out;
        },
        nb::arg("object"), nb::arg("leavesOnly"),
        "The objects below `object` as a new list, depth first, parents before their children, instances followed "
        "to the objects they name (listed under the instance's path); with leavesOnly, only the shape nodes: "
        "objects with a geometry schema (not the face sets below them) and objects without children. A walk lists "
        "at most max(4096, file bytes / 4) objects, so that instancing cannot make a small file describe an endless "
        "tree.");

    m.def(
        "ReverseConnections",
        [](nb::handle counts, nb::handle connections) {
            ZIntArray c, v;
            assign(c, counts, "counts");
            assign(v, connections, "connections");
            ReverseConnections(c, v);
            return owned(std::move(v));
        },
        nb::arg("counts"), nb::arg("connections"),
        nb::sig("def ReverseConnections(counts: numpy.typing.NDArray[numpy.int32], connections: "
                "numpy.typing.NDArray[numpy.int32]) -> numpy.typing.NDArray[numpy.int32]"),
        "The connections with every polygon's vertex order reversed, its first vertex kept first (a new array; "
        "the C++ function works in place).");
}

} // namespace gcpy
