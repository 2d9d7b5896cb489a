// The host toolkit: body frames, roots projected onto a body, grooms from curves.
#include <nanobind/stl/optional.h>
#include <nanobind/stl/tuple.h>

#include "common.h"
#include "toolkit/ZAlembicBody.h"
#include "toolkit/ZBodyFrames.h"
#include "toolkit/ZGroomFromCurves.h"
#include "toolkit/ZGuideBinder.h"
#include "toolkit/ZRootGrower.h"
#include "toolkit/ZRootProjector.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

void bindToolkit(nb::module_& m) {
    nb::class_<ZAlembicBody>(m, "ZAlembicBody", doc("ZAlembicBody"))
        .def_static(
            "read",
            [](const ZAlembicObject& mesh, int sample) {
                ZTriMesh body;
                ZString why;
                bool ok;
                {
                    nb::gil_scoped_release unlocked;
                    ok = ZAlembicBody::read(mesh, sample, body, &why);
                }
                if (!ok) throw nb::value_error(why.c_str());
                return body;
            },
            nb::arg("mesh"), nb::arg("sample"),
            "The ZTriMesh of a polygon mesh at the sample, in world space, triangulated as the rebinding binds. "
            "Raises ValueError, saying why, for an object that is not a polygon mesh or a mesh without triangles.");

    nb::class_<ZBodyFrames>(m, "ZBodyFrames", doc("ZBodyFrames"))
        .def(nb::init<>())
        .def(
            "build",
            [](ZBodyFrames& b, const ZTriMesh& body) {
                const Unlocked unlocked("build", {writing(b), reading(body)});
                return b.build(body);
            },
            nb::arg("body"), doc("ZBodyFrames.build"))
        .def(
            "compute",
            [](const ZBodyFrames& b, const ZTriMesh& body) -> nb::object {
                ZAxisArray frames;
                bool ok;
                {
                    const Unlocked unlocked("compute", {reading(b), reading(body)});
                    ok = b.compute(body, frames);
                }
                if (!ok) throw nb::value_error("compute: the body's triangles or point count differ from build's");
                return owned(std::move(frames));
            },
            nb::arg("body"),
            nb::sig("def compute(self, body: ZTriMesh) -> numpy.typing.NDArray[numpy.float32]"),
            "The body's per-vertex frames, an (n, 4, 3) array of origin, x, y and z axes (the vertexAxes "
            "ZFollicles.updateAxes takes). Raises ValueError for a body whose triangles or point count differ from "
            "the one build learnt.");

    nb::class_<ZRootProjector>(m, "ZRootProjector", doc("ZRootProjector"))
        .def(nb::init<>())
        .def(
            "build",
            [](ZRootProjector& p, const ZTriMesh& body) {
                const Unlocked unlocked("build", {writing(p), reading(body)});
                return p.build(body);
            },
            nb::arg("body"), doc("ZRootProjector.build"))
        .def("numTriangles", &ZRootProjector::numTriangles, "The number of triangles build learnt.")
        .def(
            "nearest",
            [](const ZRootProjector& p, const ZVector& point) -> nb::object {
                ZTuple<3, float> w;
                float d = 0.f;
                const int t = p.nearest(point, w, d);
                if (t < 0) return nb::none();
                return nb::make_tuple(t, nb::make_tuple(w[0], w[1], w[2]), d);
            },
            nb::arg("point"),
            "(triangle, (b0, b1, b2), distance) of the point of the body nearest `point`, or None before a "
            "successful build or for a point that is not finite.")
        .def(
            "project",
            [](const ZRootProjector& p, nb::handle points, ZFollicles& f) -> nb::object {
                ZVectorArray pts;
                assign(pts, points, "points");
                refuseIfViewed(f, "project");
                ZFloatArray distances;
                bool ok;
                {
                    const Unlocked unlocked("project", {reading(p), writing(f)});
                    ok = p.project(pts, f, &distances);
                }
                if (!ok) throw nb::value_error("project: no body built, or a point that is not finite");
                return owned(std::move(distances));
            },
            nb::arg("points"), nb::arg("follicles"),
            nb::sig("def project(self, points: numpy.typing.NDArray[numpy.float32], follicles: ZFollicles) -> "
                    "numpy.typing.NDArray[numpy.float32]"),
            "One root per point: fills tgl, bcc, uvw and nmp of `follicles` and returns how far each point lies "
            "from the body. Raises ValueError before a successful build or for a point that is not finite.");

    nb::class_<ZRootGrower> grower(m, "ZRootGrower", doc("ZRootGrower"));
    grower.def(nb::init<>())
        .def_rw("seed", &ZRootGrower::seed, doc("ZRootGrower.seed"))
        .def_ro("message", &ZRootGrower::message, doc("ZRootGrower.message"))
        .def_ro_static("kMaxDraws", &ZRootGrower::kMaxDraws, "Draws a root makes before it stays at its last one.")
        .def(
            "grow",
            [](ZRootGrower& g, const ZTriMesh& body, int count, ZFollicles& f, const ZImageMap* densityMap) {
                refuseIfViewed(f, "grow");
                const Unlocked unlocked("grow", {writing(g), reading(body), writing(f)});
                g.densityMap = densityMap;
                const bool ok = g.grow(body, count, f);
                g.densityMap = nullptr;
                return ok;
            },
            nb::arg("body"), nb::arg("count"), nb::arg("follicles"), nb::arg("densityMap").none() = nb::none(),
            "`count` roots on `body` into tgl, bcc, uvw, nmp and uid of `follicles`, by area, pointDensity and "
            "densityMap (a ZImageMap read through the body's UVs, or None). False, with the reason in message and "
            "the follicles unchanged, when the body or the density cannot be grown on.")
        .def(
            "growByDensity",
            [](ZRootGrower& g, const ZTriMesh& body, float rootsPerUnitArea, ZFollicles& f, const ZImageMap* densityMap) {
                refuseIfViewed(f, "growByDensity");
                const Unlocked unlocked("growByDensity", {writing(g), reading(body), writing(f)});
                g.densityMap = densityMap;
                const bool ok = g.growByDensity(body, rootsPerUnitArea, f);
                g.densityMap = nullptr;
                return ok;
            },
            nb::arg("body"), nb::arg("rootsPerUnitArea"), nb::arg("follicles"), nb::arg("densityMap").none() = nb::none(),
            doc("ZRootGrower.growByDensity"));
    grower.def(
        "growStrands",
        [](ZRootGrower& g, const ZTriMesh& body, nb::handle frames, int count, int cvCount, float length,
           float lengthRandom, const ZImageMap* densityMap) {
            ZAxisArray axes;
            assign(axes, frames, "frames");
            checkTriMesh(body, "growStrands");
            ZFollicles f;
            ZCurves c;
            bool ok;
            {
                const Unlocked unlocked("growStrands", {writing(g), reading(body)});
                g.densityMap = densityMap;
                ok = g.growStrands(body, axes, count, cvCount, length, lengthRandom, f, c);
                g.densityMap = nullptr;
            }
            if (!ok) throw nb::value_error(("growStrands: " + g.message).c_str());
            return nb::make_tuple(std::move(f), std::move(c));
        },
        nb::arg("body"), nb::arg("frames"), nb::arg("count"), nb::arg("cvCount"), nb::arg("length"),
        nb::arg("lengthRandom") = 0.f, nb::arg("densityMap").none() = nb::none(),
        nb::sig("def growStrands(self, body: ZTriMesh, frames: numpy.typing.NDArray[numpy.float32], count: int, "
                "cvCount: int, length: float, lengthRandom: float = 0.0, densityMap: ZImageMap | None = None) -> "
                "tuple[ZFollicles, ZCurves]"),
        "(follicles, curves): `count` straight strands of cvCount CVs grown on the body, each along its root "
        "frame's normal (frames: ZBodyFrames.compute(body)), `length` long times (1 - lengthRandom / 2 + "
        "lengthRandom * u) for a unit draw u from the uid's hash, every follicle array filled, each strand its "
        "own guide. Raises ValueError, saying why, where the body, the frames or the numbers cannot be grown on.");
    arrayField(grower, "pointDensity", &ZRootGrower::pointDensity, "ZRootGrower.pointDensity");

    nb::class_<ZGuideBinder>(m, "ZGuideBinder", doc("ZGuideBinder"))
        .def(nb::init<>())
        .def_ro("message", &ZGuideBinder::message, doc("ZGuideBinder.message"))
        .def(
            "bind",
            [](ZGuideBinder& b, ZFollicles& f, nb::handle guides) {
                ZIntArray g;
                assign(g, guides, "guides");
                refuseIfViewed(f, "bind");
                const Unlocked unlocked("bind", {writing(b), writing(f)});
                return b.bind(f, g);
            },
            nb::arg("follicles"), nb::arg("guides"),
            nb::sig("def bind(self, follicles: ZFollicles, guides: numpy.typing.NDArray[numpy.int32]) -> bool"),
            doc("ZGuideBinder.bind"));

    nb::class_<ZGroomFromCurves>(m, "ZGroomFromCurves", doc("ZGroomFromCurves"))
        .def(nb::init<>())
        .def_rw("maxRootDistance", &ZGroomFromCurves::maxRootDistance, doc("ZGroomFromCurves.maxRootDistance"))
        .def_rw("defaultWidth", &ZGroomFromCurves::defaultWidth, doc("ZGroomFromCurves.defaultWidth"))
        .def_ro("message", &ZGroomFromCurves::message, doc("ZGroomFromCurves.message"))
        .def_ro("farthestRoot", &ZGroomFromCurves::farthestRoot, doc("ZGroomFromCurves.farthestRoot"))
        .def(
            "build",
            [](ZGroomFromCurves& g, const ZAlembicCurves& curves, const ZTriMesh& body, nb::handle frames,
               ZFollicles& f, ZCurves& strands) {
                ZAxisArray axes;
                assign(axes, frames, "frames");
                checkTriMesh(body, "build");
                refuseIfViewed(f, "build");
                refuseIfViewed(strands, "build");
                const Unlocked unlocked("build", {writing(g), reading(curves), reading(body), writing(f), writing(strands)});
                return g.build(curves, body, axes, f, strands);
            },
            nb::arg("curves"), nb::arg("body"), nb::arg("frames"), nb::arg("follicles"), nb::arg("strands"),
            nb::sig("def build(self, curves: ZAlembicCurves, body: ZTriMesh, frames: numpy.typing.NDArray[numpy.float32], "
                    "follicles: ZFollicles, strands: ZCurves) -> bool"),
            doc("ZGroomFromCurves.build"));
}

} // namespace gcpy
