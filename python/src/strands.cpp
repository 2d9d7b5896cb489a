// ZFollicles: the per-strand arrays of a groom.
#include "common.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

namespace {

template <void (ZFollicles::*Setter)(float, float, bool), FollicleArray Target>
void randomSetter(nb::class_<ZFollicles>& cls, const char* name) {
    cls.def(
        name,
        [name](ZFollicles& f, float lo, float hi, bool useOpenMP) {
            checkFollicles(f, Uid | Target, name);
            const Unlocked unlocked(name, {writing(f)});
            (f.*Setter)(lo, hi, useOpenMP);
        },
        nb::arg("min"), nb::arg("max"), nb::arg("useOpenMP"), doc(std::string("ZFollicles.") + name));
}

} // namespace

void bindStrands(nb::module_& m) {
    nb::class_<ZFollicles> cls(m, "ZFollicles", doc("ZFollicles"));
    cls.def(nb::init<>())
        .def("__init__", &copyInit<ZFollicles>, nb::arg("other"))
        .def_rw("maxLn0", &ZFollicles::maxLn0, doc("ZFollicles.maxLn0"))
        .def_rw("maxLn1", &ZFollicles::maxLn1, doc("ZFollicles.maxLn1"))
        .def_prop_ro(
            "bdi", [](ZFollicles& f) -> ZIntSetArray& { return f.bdi; }, nb::rv_policy::reference_internal,
            doc("ZFollicles.bdi"))
        .def_prop_ro(
            "bdw", [](ZFollicles& f) -> ZFloatSetArray& { return f.bdw; }, nb::rv_policy::reference_internal,
            doc("ZFollicles.bdw"))
        .def("numStrands", &ZFollicles::numStrands, "The number of strands (the length of tgl).")
        .def("reset", [](ZFollicles& f) { refuseIfViewed(f, "reset"); f.reset(); }, doc("ZFollicles.reset"))
        .def(
            "calcRxy",
            [](ZFollicles& f, const ZCurves& curves, bool useOpenMP) {
                checkGroom(f, curves, Axs | Rxy, "calcRxy");
                const Unlocked unlocked("calcRxy", {writing(f), reading(curves)});
                return f.calcRxy(curves, useOpenMP);
            },
            nb::arg("curves"), nb::arg("useOpenMP"), doc("ZFollicles.calcRxy"))
        .def(
            "updateAxes",
            [](ZFollicles& f, const ZTriMesh& mesh, nb::handle vertexAxes, bool useOpenMP) {
                ZAxisArray axes;
                assign(axes, vertexAxes, "vertexAxes");
                checkFollicles(f, Bcc | Axs, "updateAxes");
                checkTriMesh(mesh, "updateAxes");
                const Unlocked unlocked("updateAxes", {writing(f), reading(mesh)});
                return f.updateAxes(mesh, axes, useOpenMP);
            },
            nb::arg("mesh"), nb::arg("vertexAxes"), nb::arg("useOpenMP"),
            nb::sig("def updateAxes(self, mesh: ZTriMesh, vertexAxes: numpy.typing.NDArray[numpy.float32], "
                    "useOpenMP: bool) -> bool"),
            doc("ZFollicles.updateAxes"))
        .def(
            "getRootPositions",
            [](const ZFollicles& f) {
                checkFollicles(f, Axs, "getRootPositions");
                ZVectorArray out;
                f.getRootPositions(out);
                return owned(std::move(out));
            },
            nb::sig("def getRootPositions(self) -> numpy.typing.NDArray[numpy.float32]"),
            "The roots (the origins of axs) as a new (n, 3) array.")
        .def(
            "getRootNormals",
            [](const ZFollicles& f) {
                checkFollicles(f, Axs, "getRootNormals");
                ZVectorArray out;
                f.getRootNormals(out);
                return owned(std::move(out));
            },
            nb::sig("def getRootNormals(self) -> numpy.typing.NDArray[numpy.float32]"),
            "The root normals (the z axes of axs) as a new (n, 3) array.")
        .def(
            "write",
            [](const ZFollicles& f, const ZString& path, bool isStatic) {
                auto file = openOut(path);
                const Unlocked unlocked("write", {reading(f)});
                f.write(file, isStatic);
            },
            nb::arg("path"), nb::arg("isStatic"), doc("ZFollicles.write"))
        .def(
            "read",
            [](ZFollicles& f, const ZString& path) {
                refuseIfViewed(f, "read");
                auto file = openIn(path);
                const Unlocked unlocked("read", {writing(f)});
                f.read(file);
            },
            nb::arg("path"), doc("ZFollicles.read"))
        .def(
            "from_",
            [](ZFollicles& f, const ZFollicles& source, nb::handle keep) {
                ZCharArray k;
                assign(k, keep, "keep");
                checkLength(k, source.tgl.size(), "from_", "keep");
                if (source.bdi.numSets() > 0) checkSets(source.bdi, "from_");
                if (source.bdw.numSets() > 0) checkSets(source.bdw, "from_");
                refuseIfViewed(f, "from_");
                const Unlocked unlocked("from_", {writing(f), reading(source)});
                f.from(source, k);
            },
            nb::arg("source"), nb::arg("keep"),
            nb::sig("def from_(self, source: ZFollicles, keep: numpy.typing.NDArray[numpy.int8]) -> None"),
            "C++ `from` (a Python keyword): becomes the strands of `source` whose keep byte is nonzero. "
            "`keep` holds one byte per strand of `source` (ValueError otherwise); `source` may be this object.")
        .def(
            "append",
            [](ZFollicles& f, const ZFollicles& other, bool withBindings) {
                refuseIfViewed(f, "append");
                const Unlocked unlocked("append", {writing(f), reading(other)});
                f.append(other, withBindings);
            },
            nb::arg("other"), nb::arg("withBindings"), doc("ZFollicles.append"))
        .def(
            "assign", [](ZFollicles& f, const ZFollicles& other) {
                refuseIfViewed(f, "assign");
                refuseIfBusy(reading(other), "assign");
                f = other;
            },
            nb::arg("other"), "C++ assignment: every array and maximum of `other`.")
        .def("usedMemorySize", [](const ZFollicles& f, int unit) {
                return f.usedMemorySize(static_cast<ZDataUnit::DataUnit>(unit)); },
            nb::arg("unit"), doc("ZFollicles.usedMemorySize"));

    randomSetter<&ZFollicles::setTipWidth, Twh>(cls, "setTipWidth");
    randomSetter<&ZFollicles::setRootWidth, Rwh>(cls, "setRootWidth");
    randomSetter<&ZFollicles::setTipOpacity, Top>(cls, "setTipOpacity");
    randomSetter<&ZFollicles::setRootOpacity, Rop>(cls, "setRootOpacity");

    arrayField(cls, "uid", &ZFollicles::uid, "ZFollicles.uid");
    arrayField(cls, "rtp", &ZFollicles::rtp, "ZFollicles.rtp");
    arrayField(cls, "tgl", &ZFollicles::tgl, "ZFollicles.tgl");
    arrayField(cls, "bcc", &ZFollicles::bcc, "ZFollicles.bcc");
    arrayField(cls, "uvw", &ZFollicles::uvw, "ZFollicles.uvw");
    arrayField(cls, "nmp", &ZFollicles::nmp, "ZFollicles.nmp");
    arrayField(cls, "ln0", &ZFollicles::ln0, "ZFollicles.ln0");
    arrayField(cls, "ln1", &ZFollicles::ln1, "ZFollicles.ln1");
    arrayField(cls, "rxy", &ZFollicles::rxy, "ZFollicles.rxy");
    arrayField(cls, "twh", &ZFollicles::twh, "ZFollicles.twh");
    arrayField(cls, "rwh", &ZFollicles::rwh, "ZFollicles.rwh");
    arrayField(cls, "top", &ZFollicles::top, "ZFollicles.top");
    arrayField(cls, "rop", &ZFollicles::rop, "ZFollicles.rop");
    arrayField(cls, "axs", &ZFollicles::axs, "ZFollicles.axs");
    arrayField(cls, "auxInt0", &ZFollicles::auxInt0, "ZFollicles.auxInt0");
    arrayField(cls, "auxInt1", &ZFollicles::auxInt1, "ZFollicles.auxInt1");
    arrayField(cls, "auxFloat0", &ZFollicles::auxFloat0, "ZFollicles.auxFloat0");
    arrayField(cls, "auxFloat1", &ZFollicles::auxFloat1, "ZFollicles.auxFloat1");
    arrayField(cls, "auxFloat2", &ZFollicles::auxFloat2, "ZFollicles.auxFloat2");
    arrayField(cls, "auxFloat3", &ZFollicles::auxFloat3, "ZFollicles.auxFloat3");

    m.attr("zBytes") = int(ZDataUnit::zBytes);
    m.attr("zKilobytes") = int(ZDataUnit::zKilobytes);
    m.attr("zMegabytes") = int(ZDataUnit::zMegabytes);
    m.attr("zGigabytes") = int(ZDataUnit::zGigabytes);
}

} // namespace gcpy
