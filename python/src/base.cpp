// The base library: vectors, frames, matrices, boxes, curves, meshes, images, set arrays,
// noise and nearest-point search.
#include <nanobind/stl/pair.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <sstream>

#include "common.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

namespace {

std::string vecRepr(const ZVector& v) {
    std::ostringstream s;
    s << "ZVector(" << v.x << ", " << v.y << ", " << v.z << ")";
    return s.str();
}

// The 16 floats of a fixed-size member as a (4, 4) view that keeps its owner alive.
nb::object matrixView(float* data, nb::handle owner) {
    size_t shape[2] = {4, 4};
    return nb::ndarray<nb::numpy, float>(data, 2, shape, owner).cast(nb::rv_policy::reference);
}

ZVectorArray pointsFrom(nb::handle value, const char* what) {
    ZVectorArray out;
    assign(out, value, what);
    return out;
}

template <typename Mesh, typename Cls>
void meshDrawing(Cls& cls, const char* name) {
    // Drawing reads the points the mesh's indices name.
    auto check = [](const Mesh& mesh, const char* what) {
        if constexpr (std::is_same_v<Mesh, ZTriMesh>) checkTriMesh(mesh, what);
        else checkQuadMesh(mesh, what);
    };
    cls.def("drawVertices", [check](const Mesh& mesh) { check(mesh, "drawVertices"); mesh.drawVertices(); },
            doc(std::string(name) + ".drawVertices"))
        .def("drawWireframe", [check](const Mesh& mesh) { check(mesh, "drawWireframe"); mesh.drawWireframe(); },
             doc(std::string(name) + ".drawWireframe"))
        .def(
            "drawSurface",
            [check](const Mesh& mesh, bool smoothNormals) {
                check(mesh, "drawSurface");
                mesh.drawSurface(smoothNormals);
            },
            nb::arg("smoothNormals"), doc(std::string(name) + ".drawSurface"));
}

template <typename T>
void bindSetArray(nb::module_& m, const char* name) {
    using S = ZSetArray<T>;
    auto cls = nb::class_<S>(m, name, doc("ZSetArray"))
                   .def(nb::init<>())
                   .def("__init__", &copyInit<S>, nb::arg("other"))
                   .def("numSets", &S::numSets, doc("ZSetArray.numSets"))
                   .def("reset", [](S& s) { refuseIfViewed(s, "reset"); s.reset(); }, doc("ZSetArray.reset"))
                   .def(
                       "push",
                       [](S& s, nb::handle values) {
                           ZArray<T> v;
                           assign(v, values, "push");
                           refuseIfViewed(s, "push");
                           s.push(v.data(), v.length());
                       },
                       nb::arg("values"), doc("ZSetArray.push"))
                   .def(
                       "set",
                       [](const S& s, int i) {
                           checkSets(s, "set");
                           checkIndex(i, s.numSets(), "set");
                           return std::vector<T>(s.values.begin() + s.starts[i],
                                                 s.values.begin() + s.starts[i] + s.counts[i]);
                       },
                       nb::arg("i"), "Set i as a list.")
                   .def("__eq__", [](const S& a, const S& b) { return a == b; });
    arrayField(cls, "counts", &S::counts, "ZSetArray.counts");
    arrayField(cls, "starts", &S::starts, "ZSetArray.starts");
    arrayField(cls, "values", &S::values, "ZSetArray.values");
}

} // namespace

void bindBase(nb::module_& m) {
    nb::class_<ZVector>(m, "ZVector", "Three single-precision floats: positions, directions and surface coordinates alike.")
        .def(nb::init<>())
        .def(nb::init<float, float, float>(), nb::arg("x"), nb::arg("y"), nb::arg("z"))
        .def_rw("x", &ZVector::x)
        .def_rw("y", &ZVector::y)
        .def_rw("z", &ZVector::z)
        .def("__getitem__", [](const ZVector& v, int i) { checkIndex(i, 3, "ZVector"); return v[i]; })
        .def("__setitem__", [](ZVector& v, int i, float x) { checkIndex(i, 3, "ZVector"); v[i] = x; })
        .def("__len__", [](const ZVector&) { return 3; })
        .def("__iter__", [](const ZVector& v) { return nb::iter(nb::make_tuple(v.x, v.y, v.z)); })
        .def("__eq__", [](const ZVector& a, const ZVector& b) { return a == b; })
        .def("__repr__", &vecRepr)
        .def("dot", &ZVector::dot, nb::arg("other"), doc("ZVector.dot"))
        .def("cross", &ZVector::cross, nb::arg("other"), "The cross product self x other.")
        .def("length", &ZVector::length, "The Euclidean length.")
        .def("squaredLength", &ZVector::squaredLength, "The squared Euclidean length.");

    nb::class_<ZAxis>(m, "ZAxis", doc("ZAxis"))
        .def(nb::init<>())
        .def_rw("origin", &ZAxis::origin)
        .def_rw("xAxis", &ZAxis::xAxis)
        .def_rw("yAxis", &ZAxis::yAxis)
        .def_rw("zAxis", &ZAxis::zAxis)
        .def("set", &ZAxis::set, nb::arg("a"), nb::arg("b"), nb::arg("c"), nb::arg("wa"), nb::arg("wb"),
             nb::arg("wc"), nb::arg("orthonormalize"), doc("ZAxis.set"))
        .def("__eq__", [](const ZAxis& a, const ZAxis& b) { return a == b; });

    nb::class_<ZMatrix>(m, "ZMatrix", "A 4 x 4 single-precision matrix, row-major, translation in the last column.")
        .def(nb::init<>())
        .def(
            "__init__",
            [](ZMatrix* self, nb::ndarray<float, nb::shape<4, 4>, nb::device::cpu> rows) {
                new (self) ZMatrix();
                for (int r = 0; r < 4; ++r)
                    for (int c = 0; c < 4; ++c) (*self)(r, c) = rows(r, c);
            },
            nb::arg("rows"), "From a (4, 4) float32 array.")
        .def_prop_ro(
            "data", [](nb::handle self) { return matrixView(nb::cast<ZMatrix&>(self).data, self); },
            nb::sig("def data(self, /) -> numpy.typing.NDArray[numpy.float32]"),
            "The 16 floats as a writable (4, 4) view.")
        .def_static("identity", &ZMatrix::identity, "A new identity matrix.")
        .def("__mul__", [](const ZMatrix& a, const ZMatrix& b) { return a * b; })
        .def("det", &ZMatrix::det, doc("ZMatrix.det"))
        .def("transformPoint", &ZMatrix::transformPoint, nb::arg("p"), doc("ZMatrix.transformPoint"))
        .def("transformVector", &ZMatrix::transformVector, nb::arg("v"), doc("ZMatrix.transformVector"));

    nb::class_<ZBoundingBox>(m, "ZBoundingBox", doc("ZBoundingBox"))
        .def(nb::init<>())
        .def(nb::init<const ZVector&, const ZVector&>(), nb::arg("a"), nb::arg("b"))
        .def_rw("minPoint", &ZBoundingBox::minPoint)
        .def_rw("maxPoint", &ZBoundingBox::maxPoint)
        .def("reset", &ZBoundingBox::reset, "Makes the box empty (min +FLT_MAX, max -FLT_MAX).")
        .def("isEmpty", &ZBoundingBox::isEmpty, "True when the minimum exceeds the maximum along some axis.")
        .def("expand", nb::overload_cast<const ZVector&>(&ZBoundingBox::expand), nb::arg("p"))
        .def("expand", nb::overload_cast<const ZBoundingBox&>(&ZBoundingBox::expand), nb::arg("other"))
        .def("width", [](const ZBoundingBox& b, int axis) { checkIndex(axis, 3, "width"); return b.width(axis); },
             nb::arg("axis"), doc("ZBoundingBox.width"))
        .def("center", &ZBoundingBox::center, doc("ZBoundingBox.center"))
        .def("draw", &ZBoundingBox::draw, doc("ZBoundingBox.draw"))
        .def("write", [](const ZBoundingBox& b, const ZString& path) { auto f = openOut(path); b.write(f); },
             nb::arg("path"), doc("ZBoundingBox.write"))
        .def("read", [](ZBoundingBox& b, const ZString& path) { auto f = openIn(path); b.read(f); },
             nb::arg("path"), doc("ZBoundingBox.read"))
        .def("__eq__", [](const ZBoundingBox& a, const ZBoundingBox& b) { return a == b; });

    auto curves =
        nb::class_<ZCurves>(m, "ZCurves", "Control vertices of a set of strands: CV j of strand i is cvs[start[i] + j].")
            .def(nb::init<>())
            .def("__init__", &copyInit<ZCurves>, nb::arg("other"))
            .def("numCurves", &ZCurves::numCurves, "The number of strands.")
            .def("reset", [](ZCurves& c) { refuseIfViewed(c, "reset"); c.reset(); }, "Removes every strand.")
            .def(
                "push",
                [](ZCurves& c, nb::handle points) {
                    ZVectorArray p = pointsFrom(points, "push");
                    refuseIfViewed(c, "push");
                    c.push(p.data(), p.length());
                },
                nb::arg("points"), doc("ZCurves.push"))
            .def(
                "position",
                [](const ZCurves& c, int strand, float t) {
                    checkCurves(c, "position");
                    checkIndex(strand, c.numCurves(), "position");
                    return c.position(strand, t);
                },
                nb::arg("strand"), nb::arg("t"), doc("ZCurves.position"))
            .def(
                "getPositionAndTangent",
                [](const ZCurves& c, int strand, float t) {
                    checkCurves(c, "getPositionAndTangent");
                    checkIndex(strand, c.numCurves(), "getPositionAndTangent");
                    ZVector p, d;
                    c.getPositionAndTangent(strand, t, p, d);
                    return std::make_pair(p, d);
                },
                nb::arg("strand"), nb::arg("t"), doc("ZCurves.getPositionAndTangent"))
            .def(
                "lineLength",
                [](const ZCurves& c, int strand) {
                    checkCurves(c, "lineLength");
                    checkIndex(strand, c.numCurves(), "lineLength");
                    return c.lineLength(strand);
                },
                nb::arg("strand"), doc("ZCurves.lineLength"))
            .def(
                "boundingBox",
                [](const ZCurves& c, bool rootsOnly, bool useOpenMP) {
                    checkCurves(c, "boundingBox");
                    const Unlocked unlocked("boundingBox", {reading(c)});
                    return c.boundingBox(rootsOnly, useOpenMP);
                },
                nb::arg("rootsOnly"), nb::arg("useOpenMP"), doc("ZCurves.boundingBox"))
            .def(
                "write",
                [](const ZCurves& c, const ZString& path) {
                    auto f = openOut(path);
                    const Unlocked unlocked("write", {reading(c)});
                    c.write(f);
                },
                nb::arg("path"), doc("ZCurves.write"))
            .def(
                "read",
                [](ZCurves& c, const ZString& path) {
                    refuseIfViewed(c, "read");
                    auto f = openIn(path);
                    const Unlocked unlocked("read", {writing(c)});
                    return c.read(f);
                },
                nb::arg("path"), doc("ZCurves.read"))
            .def("__eq__", [](const ZCurves& a, const ZCurves& b) { return a == b; });
    arrayField(curves, "numCVs", &ZCurves::numCVs, "ZCurves.numCVs");
    arrayField(curves, "start", &ZCurves::start, "ZCurves.start");
    arrayField(curves, "cvs", &ZCurves::cvs, "ZCurves.cvs");

    auto tri = nb::class_<ZTriMesh>(m, "ZTriMesh", "A triangle mesh: points, corner indices and per-corner surface coordinates.")
                   .def(nb::init<>())
                   .def("__init__", &copyInit<ZTriMesh>, nb::arg("other"))
                   .def("numVertices", &ZTriMesh::numVertices, doc("ZTriMesh.numVertices"))
                   .def("numTriangles", &ZTriMesh::numTriangles, doc("ZTriMesh.numTriangles"))
                   .def("reset", [](ZTriMesh& t) { refuseIfViewed(t, "reset"); t.reset(); }, doc("ZTriMesh.reset"))
                   .def(
                       "boundingBox",
                       [](const ZTriMesh& t, bool useOpenMP) {
                           const Unlocked unlocked("boundingBox", {reading(t)});
                           return t.boundingBox(useOpenMP);
                       },
                       nb::arg("useOpenMP"), doc("ZTriMesh.boundingBox"))
                   .def(
                       "transform",
                       [](ZTriMesh& t, const ZMatrix& mat, bool useOpenMP) {
                           const Unlocked unlocked("transform", {writing(t)});
                           t.transform(mat, useOpenMP);
                       },
                       nb::arg("m"), nb::arg("useOpenMP"), doc("ZTriMesh.transform"))
                   .def(
                       "write",
                       [](const ZTriMesh& t, const ZString& path) {
                           checkTriMesh(t, "write");
                           auto f = openOut(path);
                           t.write(f);
                       },
                       nb::arg("path"), doc("ZTriMesh.write"))
                   .def(
                       "read",
                       [](ZTriMesh& t, const ZString& path) {
                           refuseIfViewed(t, "read");
                           auto f = openIn(path);
                           const Unlocked unlocked("read", {writing(t)});
                           return t.read(f);
                       },
                       nb::arg("path"), doc("ZTriMesh.read"))
                   .def("__eq__", [](const ZTriMesh& a, const ZTriMesh& b) { return a == b; });
    meshDrawing<ZTriMesh>(tri, "ZTriMesh");
    arrayField(tri, "points", &ZTriMesh::points, "ZTriMesh.points");
    arrayField(tri, "v012", &ZTriMesh::v012, "ZTriMesh.v012");
    arrayField(tri, "uvs", &ZTriMesh::uvs, "ZTriMesh.uvs");

    auto quad = nb::class_<ZQuadMesh>(m, "ZQuadMesh", "A quad mesh: the proxy lattice of feathers and sources.")
                    .def(nb::init<>())
                    .def("numVertices", &ZQuadMesh::numVertices, doc("ZQuadMesh.numVertices"))
                    .def("numQuads", &ZQuadMesh::numQuads, doc("ZQuadMesh.numQuads"))
                    .def("reset", [](ZQuadMesh& q) { refuseIfViewed(q, "reset"); q.reset(); }, doc("ZQuadMesh.reset"))
                    .def("__eq__", [](const ZQuadMesh& a, const ZQuadMesh& b) { return a == b; });
    meshDrawing<ZQuadMesh>(quad, "ZQuadMesh");
    arrayField(quad, "points", &ZQuadMesh::points, "ZQuadMesh.points");
    arrayField(quad, "quads", &ZQuadMesh::quads, "ZQuadMesh.quads");
    arrayField(quad, "uvs", &ZQuadMesh::uvs, "ZQuadMesh.uvs");

    auto poly =
        nb::class_<ZPolyMesh>(m, "ZPolyMesh", "A polygon mesh with optional per-point and per-corner attributes.")
            .def(nb::init<>())
            .def_rw("boundingBox", &ZPolyMesh::boundingBox, doc("ZPolyMesh.boundingBox"))
            .def("numVertices", &ZPolyMesh::numVertices, doc("ZPolyMesh.numVertices"))
            .def("numPolygons", &ZPolyMesh::numPolygons, doc("ZPolyMesh.numPolygons"))
            .def("reset", [](ZPolyMesh& p) { refuseIfViewed(p, "reset"); p.reset(); }, doc("ZPolyMesh.reset"))
            .def(
                "append",
                [](ZPolyMesh& p, const ZPolyMesh& other, bool withAttributes) {
                    checkPolyMesh(p, "append");
                    checkPolyMesh(other, "append");
                    refuseIfViewed(p, "append");
                    p.append(other, withAttributes);
                },
                nb::arg("other"), nb::arg("withAttributes"), doc("ZPolyMesh.append"))
            .def(
                "transform",
                [](ZPolyMesh& p, const ZMatrix& mat, bool useOpenMP) {
                    checkPolyMesh(p, "transform");
                    const Unlocked unlocked("transform", {writing(p)});
                    p.transform(mat, useOpenMP);
                },
                nb::arg("m"), nb::arg("useOpenMP"), doc("ZPolyMesh.transform"))
            .def(
                "convertTo",
                [](const ZPolyMesh& p, ZTriMesh& mesh) {
                    checkPolyMesh(p, "convertTo");
                    refuseIfViewed(mesh, "convertTo");
                    const Unlocked unlocked("convertTo", {reading(p), writing(mesh)});
                    p.convertTo(mesh);
                },
                nb::arg("mesh"), doc("ZPolyMesh.convertTo"))
            .def("computeBoundingBox", &ZPolyMesh::computeBoundingBox, doc("ZPolyMesh.computeBoundingBox"));
    arrayField(poly, "points", &ZPolyMesh::points, "ZPolyMesh.points");
    arrayField(poly, "vCounts", &ZPolyMesh::vCounts, "ZPolyMesh.vCounts");
    arrayField(poly, "vConnects", &ZPolyMesh::vConnects, "ZPolyMesh.vConnects");
    arrayField(poly, "velocities", &ZPolyMesh::velocities, "ZPolyMesh.velocities");
    arrayField(poly, "uvs", &ZPolyMesh::uvs, "ZPolyMesh.uvs");
    arrayField(poly, "uvIndices", &ZPolyMesh::uvIndices, "ZPolyMesh.uvIndices");
    arrayField(poly, "normals", &ZPolyMesh::normals, "ZPolyMesh.normals");

    // The pixels are the host's memory: the image holds the numpy array it was given (made
    // contiguous float32) and takes width, height and channels from its shape.
    nb::class_<ZImageMap>(m, "ZImageMap", nb::dynamic_attr(), doc("ZImageMap"))
        .def(nb::init<>())
        .def_ro("width", &ZImageMap::width)
        .def_ro("height", &ZImageMap::height)
        .def_ro("numChannels", &ZImageMap::numChannels)
        .def_rw("filePath", &ZImageMap::filePath)
        .def_prop_rw(
            "pixels", [](nb::handle self) -> nb::object { return nb::getattr(self, "_pixels", nb::none()); },
            [](nb::handle self, nb::handle value) {
                ZImageMap& map = nb::cast<ZImageMap&>(self);
                if (value.is_none()) {
                    map.pixels = nullptr;
                    map.width = map.height = map.numChannels = 0;
                    nb::setattr(self, "_pixels", nb::none());
                    return;
                }
                nb::ndarray<float, nb::c_contig, nb::device::cpu> a;
                if (!nb::try_cast(value, a, false) || (a.ndim() != 2 && a.ndim() != 3))
                    throw nb::type_error("pixels: expected a C-contiguous float32 numpy array (height, width) or "
                                         "(height, width, channels)");
                const size_t c = a.ndim() == 3 ? a.shape(2) : 1;
                if (a.shape(0) == 0 || a.shape(1) == 0 || c == 0 || a.shape(0) > INT32_MAX || a.shape(1) > INT32_MAX ||
                    c > INT32_MAX)
                    throw nb::value_error("pixels: every dimension must be at least 1");
                map.pixels = const_cast<float*>(static_cast<const float*>(a.data()));
                map.height = static_cast<int>(a.shape(0));
                map.width = static_cast<int>(a.shape(1));
                map.numChannels = static_cast<int>(c);
                nb::setattr(self, "_pixels", value);
            },
            nb::for_getter(nb::sig("def pixels(self, /) -> numpy.typing.NDArray[numpy.float32] | None")),
            nb::for_setter(nb::sig("def pixels(self, value: numpy.typing.NDArray[numpy.float32] | None, /) -> None")),
            nb::for_setter(nb::arg("value").none()),
            nb::for_getter("Rows from the top, channels interleaved: the array the image holds (it is not copied)."));

    bindSetArray<int>(m, "ZIntSetArray");
    bindSetArray<float>(m, "ZFloatSetArray");

    nb::class_<ZSimplexNoise>(m, "ZSimplexNoise", "Seeded 3D and 1D simplex noise with analytic derivatives.")
        .def(nb::init<unsigned int>(), nb::arg("seed") = 0)
        .def("seed", &ZSimplexNoise::seed, "The seed the noise was made with.")
        .def(
            "pureValue",
            [](const ZSimplexNoise& n, float x, float y, float z) { return n.pureValue(x, y, z, nullptr, nullptr, nullptr); },
            nb::arg("x"), nb::arg("y"), nb::arg("z"), doc("ZSimplexNoise.pureValue"))
        .def(
            "pureValue", [](const ZSimplexNoise& n, float x) { return n.pureValue(x, nullptr); }, nb::arg("x"));

    nb::class_<ZPointsDistTree>(m, "ZPointsDistTree", doc("ZPointsDistTree"))
        .def(nb::init<>())
        .def(
            "build",
            [](ZPointsDistTree& t, nb::handle points) {
                ZVectorArray p = pointsFrom(points, "build");
                const Unlocked unlocked("build", {writing(t)});
                t.build(p);
            },
            nb::arg("points"), doc("ZPointsDistTree.build"))
        .def("size", &ZPointsDistTree::size, "The number of points the tree holds.")
        .def(
            "findClosestPoint",
            [](const ZPointsDistTree& t, const ZVector& q) {
                int index = -1;
                float distance = 0.f;
                t.findClosestPoint(q, index, distance);
                return std::make_tuple(index, distance);
            },
            nb::arg("query"), doc("ZPointsDistTree.findClosestPoint"));

    m.def("ZRandomHash", &ZRandomHash, nb::arg("s"), "The hash behind all per-strand randomness.");
    m.def("ZRandomUnit", &ZRandomUnit, nb::arg("s"), "ZRandomHash(s) scaled to [0, 1).");
    m.def(
        "ZRoomToWrite",
        [](const ZString& path, unsigned long long bytes) {
            ZString why;
            const bool ok = ZRoomToWrite(path.c_str(), bytes, &why);
            return nb::make_tuple(ok, why);
        },
        nb::arg("path"), nb::arg("bytes"),
        "(room, why): whether the disk holding the file `path` has room for `bytes` more, with a sixty-fourth and "
        "64 KiB to spare, and if not why (\"No space left on device: about N bytes to write, M free\"). Writers that "
        "do not stop at a failed write ask before they start a file.");
}

} // namespace gcpy
