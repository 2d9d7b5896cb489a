// ZCurvesToUSD. Its layer lives in the OpenUSD groomcore links, which is not usd-core's
// `pxr`: `stage` is given to Python as the layer's identifier (the file it writes), which
// usd-core opens like any other file.
#include <pxr/ar/resolver.h>
#include <pxr/sdf/fileFormat.h>

#include <nanobind/stl/optional.h>
#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "common.h"
#include "feathers/ZFeather.h"
#include "pointers.h"
#include "usd/ZCurvesFromUSD.h"
#include "usd/ZCurvesToUSD.h"
#include "usd/ZMeshFromUSD.h"
#include "usd/ZUsdLayer.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

namespace {

// OpenUSD imports the Python bindings of its libraries whenever it loads a plug-in into a
// process where Python runs (TfScriptModuleLoader, on every dlopen). The exporter's
// OpenUSD brings no bindings, so in Python that import would find another release's `pxr`
// (usd-core's, a DCC's) and load it into the process, or print a traceback per module where
// there is none. Before the exporter's first call, its plug-ins are loaded once with
// placeholder modules standing in for the `pxr` names not yet imported, so that OpenUSD
// takes them as loaded; the placeholders are removed right after. Called with the GIL held.
void loadPluginsApartFromPython() {
    static bool done = false;
    if (done) return;
    done = true;
    static const char* const kNames[] = {"pxr",       "pxr.Arch",  "pxr.Tf",   "pxr.Gf",  "pxr.Js",
                                         "pxr.Trace", "pxr.Work",  "pxr.Plug", "pxr.Vt",  "pxr.Ts",
                                         "pxr.Ar",    "pxr.Sdf",   "pxr.Pegtl"};
    nb::dict modules = nb::borrow<nb::dict>(PyImport_GetModuleDict());
    std::vector<const char*> placed;
    for (const char* name : kNames)
        if (!modules.contains(name)) {
            modules[name] = nb::steal(PyModule_New(name));
            placed.push_back(name);
        }
    pxr::ArGetResolver();
    pxr::SdfFileFormat::FindByExtension("usd");
    for (const char* name : placed) PyDict_DelItemString(modules.ptr(), name);
}

// What the writers read: the strands, their widths, surface coordinates and frames, and in
// feather mode the feather kinds, lean axes and per-strand transforms.
// The feather writers read all of it whatever featherMode says.
void checkExport(const ZCurvesToUSD& x, const char* what, bool feathers) {
    if (!x.follicles || !x.curves || !x.boundingBox) invalid(what, "follicles, curves and boundingBox must be set");
    checkGroom(*x.follicles, *x.curves, Uvw | Twh | Rwh | Axs | Rtp, what);
    if (!feathers) return;
    checkFollicles(*x.follicles, Rxy, what);
    const size_t n = x.follicles->tgl.size();
    if (!x.scales || !x.rotations || !x.folds) invalid(what, "feather mode needs scales, rotations and folds");
    checkLength(*x.scales, n, what, "scales");
    checkLength(*x.rotations, n, what, "rotations");
    checkLength(*x.folds, n, what, "folds");
    for (const ZFeather* f : x.feathers) {
        checkTriMesh(f->mesh, what);
        checkCurves(f->curves, what);
    }
}

} // namespace

// The USD readers (ZCurvesFromUSD, ZMeshFromUSD) offer the same calls: the prims of their
// type, the sampled time codes of one, and the prim read at a time code into an Out.
template <typename R, typename Out>
void bindUsdReader(nb::module_& m, const char* name, const char* primsName,
                   std::vector<std::string> (R::*prims)(const std::string&), const char* readDoc) {
    const std::string cls(name);
    nb::class_<R>(m, name, doc(cls))
        .def(nb::init<>())
        .def_ro("message", &R::message, doc(cls + ".message"))
        .def(
            "sampledTimes",
            [](R& r, const ZString& file, const std::string& primPath) -> std::optional<std::pair<double, double>> {
                loadPluginsApartFromPython();
                double first = 0.0, last = 0.0;
                bool ok;
                {
                    const Unlocked unlocked("sampledTimes", {writing(r)});
                    ok = r.sampledTimes(file, primPath, first, last);
                }
                if (!ok) return std::nullopt;
                return std::make_pair(first, last);
            },
            nb::arg("file"), nb::arg("primPath"),
            "(first, last) time codes at which the prim, or a transform above it, is sampled; None for a prim "
            "nothing of which is animated, or one that cannot be read (the reason in message).")
        .def(
            primsName,
            [prims, primsName](R& r, const ZString& file) {
                loadPluginsApartFromPython();
                const Unlocked unlocked(primsName, {writing(r)});
                return (r.*prims)(file);
            },
            nb::arg("file"), doc(cls + "." + primsName))
        .def(
            "read",
            [](R& r, const ZString& file, const std::string& primPath, double time) -> std::optional<Out> {
                loadPluginsApartFromPython();
                Out out;
                bool ok;
                {
                    const Unlocked unlocked("read", {writing(r)});
                    ok = r.read(file, primPath, time, out);
                }
                if (!ok) return std::nullopt;
                return out;
            },
            nb::arg("file"), nb::arg("primPath"), nb::arg("time"), readDoc);
}

void bindUsd(nb::module_& m) {
    using X = ZCurvesToUSD;
    nb::class_<X> cls(m, "ZCurvesToUSD", nb::dynamic_attr(), doc("ZCurvesToUSD"));
    cls.def(nb::init<>())
        .def_rw("name", &X::name, doc("ZCurvesToUSD.name"))
        .def_rw("reservedText", &X::reservedText)
        .def_rw("suffix", &X::suffix, doc("ZCurvesToUSD.suffix"))
        .def_rw("basePath", &X::basePath, doc("ZCurvesToUSD.basePath"))
        .def_rw("kind", &X::kind, doc("ZCurvesToUSD.kind"))
        .def_rw("bindingScheme", &X::bindingScheme, doc("ZCurvesToUSD.bindingScheme"))
        .def_rw("writeNormals", &X::writeNormals, doc("ZCurvesToUSD.writeNormals"))
        .def_rw("perFrameFiles", &X::perFrameFiles, doc("ZCurvesToUSD.perFrameFiles"))
        .def_rw("featherMode", &X::featherMode, doc("ZCurvesToUSD.featherMode"))
        .def_rw("time", &X::time, doc("ZCurvesToUSD.time"))
        .def_rw("high", &X::high, doc("ZCurvesToUSD.high"))
        .def_rw("hasFrameRange", &X::hasFrameRange, doc("ZCurvesToUSD.hasFrameRange"))
        .def_rw("startTime", &X::startTime)
        .def_rw("endTime", &X::endTime)
        .def_rw("exportRatio", &X::exportRatio, doc("ZCurvesToUSD.exportRatio"))
        .def_prop_ro(
            "stage",
            [](const X& x) -> nb::object {
                if (!x.stage) return nb::none();
                return nb::str(x.stage->GetIdentifier().c_str());
            },
            nb::sig("def stage(self, /) -> str | None"),
            "The identifier (file) of the layer of the last call, or None.")
        .def(
            "reset",
            [](nb::handle self) {
                nb::cast<X&>(self).reset();
                for (const char* key : {"_follicles", "_curves", "_boundingBox"}) nb::setattr(self, key, nb::none());
            },
            doc("ZCurvesToUSD.reset"))
        .def(
            "removeNamespace", [](X& x, ZString name) { return x.removeNamespace(name); }, nb::arg("name"),
            doc("ZCurvesToUSD.removeNamespace"))
        .def_static("primName", &X::primName, nb::arg("name"), doc("ZCurvesToUSD.primName"))
        .def(
            "writeGeometryToUSD",
            [](nb::handle self, float time, bool high, bool subFrame) {
                X& x = nb::cast<X&>(self);
                Transforms t;
                takeTransforms(self, x, t);
                checkExport(x, "writeGeometryToUSD", x.featherMode);
                loadPluginsApartFromPython();
                {
                    const Unlocked unlocked("writeGeometryToUSD", hostUses(x, true));
                    x.writeGeometryToUSD(time, high, subFrame);
                }
                if (!x.failure.empty()) raiseOSError("writeGeometryToUSD", x.failure);
            },
            nb::arg("time"), nb::arg("high"), nb::arg("subFrame"), doc("ZCurvesToUSD.writeGeometryToUSD"))
        .def(
            "writeAttributeToUSD",
            [](nb::handle self, bool high) {
                X& x = nb::cast<X&>(self);
                Transforms t;
                takeTransforms(self, x, t);
                checkExport(x, "writeAttributeToUSD", x.featherMode);
                loadPluginsApartFromPython();
                {
                    const Unlocked unlocked("writeAttributeToUSD", hostUses(x, true));
                    x.writeAttributeToUSD(high);
                }
                if (!x.failure.empty()) raiseOSError("writeAttributeToUSD", x.failure);
            },
            nb::arg("high"), doc("ZCurvesToUSD.writeAttributeToUSD"))
        .def(
            "curveArrays",
            [](nb::handle self, bool high) {
                X& x = nb::cast<X&>(self);
                Transforms t;
                takeTransforms(self, x, t);
                checkExport(x, "curveArrays", false);
                pxr::VtVec3fArray points;
                pxr::VtIntArray counts, strands;
                pxr::VtFloatArray widths;
                pxr::VtVec2fArray st;
                {
                    const Unlocked unlocked("curveArrays", hostUses(x, false));
                    x.curveArrays(high, &points, &counts, &widths, &strands, &st);
                }
                ZVectorArray p(points.size());
                if (!points.empty())
                    std::memcpy(static_cast<void*>(p.data()), points.cdata(), points.size() * sizeof(ZVector));
                ZIntArray c(counts.cbegin(), counts.cend()), n(strands.cbegin(), strands.cend());
                ZFloatArray w(widths.cbegin(), widths.cend());
                ZFloat2Array uv(st.size());
                if (!st.empty()) std::memcpy(static_cast<void*>(uv.data()), st.cdata(), st.size() * sizeof(uv[0]));
                nb::dict out;
                out["points"] = owned(std::move(p));
                out["counts"] = owned(std::move(c));
                out["widths"] = owned(std::move(w));
                out["strands"] = owned(std::move(n));
                out["st"] = owned(std::move(uv));
                return out;
            },
            nb::arg("high"),
            nb::sig("def curveArrays(self, high: bool) -> dict[str, numpy.typing.NDArray[typing.Any]]"),
            "The curves the curve writers author at the level, as a dict of numpy arrays: points (each curve's "
            "first and last CV twice), counts (CVs plus 2), widths (one per point, root to tip), strands (the "
            "number of each strand written) and st (its root's u, v). For writing the same curves in another "
            "format; nothing is written.")
        .def("geometryFile", &X::geometryFile, nb::arg("time"), nb::arg("high"), nb::arg("subFrame"),
             doc("ZCurvesToUSD.geometryFile"))
        .def("attributeFile", &X::attributeFile, nb::arg("high"), doc("ZCurvesToUSD.attributeFile"));

    // The four writers work on the layer of the last entry call.
    auto writer = [&](const char* name, void (X::*fn)(), bool feathers) {
        cls.def(
            name,
            [fn, name, feathers](nb::handle self) {
                X& x = nb::cast<X&>(self);
                if (!x.stage) invalid(name, "no layer yet: call writeGeometryToUSD or writeAttributeToUSD first");
                Transforms t;
                takeTransforms(self, x, t);
                checkExport(x, name, feathers);
                const Unlocked unlocked(name, hostUses(x, true));
                (x.*fn)();
            },
            doc(std::string("ZCurvesToUSD.") + name));
    };
    writer("writeGeometryToCurve", &X::writeGeometryToCurve, false);
    writer("writeAttributeToCurve", &X::writeAttributeToCurve, false);
    writer("writeGeometryToFeather", &X::writeGeometryToFeather, true);
    writer("writeAttributeToFeather", &X::writeAttributeToFeather, true);

    hostDataFields<X>(cls, "ZCurvesToUSD");

    bindUsdReader<ZCurvesFromUSD, ZAlembicCurves>(
        m, "ZCurvesFromUSD", "curvePrims", &ZCurvesFromUSD::curvePrims,
        "A ZAlembicCurves of the BasisCurves prim at primPath of the file's layer at the time code, or None with "
        "the reason in message.");

    // The USD readers read a file whole in another process before they open it here (see
    // ZUsdLayer::open). In Python that process is this interpreter run again: OpenUSD in
    // this package takes the interpreter's symbols, so it has no program of its own.
    m.def(
        "_verifyLayer",
        [](const ZString& file) {
            loadPluginsApartFromPython();
            nb::gil_scoped_release unlocked;
            return ZUsdLayer::readEveryValue(file);
        },
        nb::arg("file"), "0 when OpenUSD reads every value of the layer, 1 when it is no layer (the readers' verifier).");
    {
        const std::string python = nb::cast<std::string>(nb::module_::import_("sys").attr("executable"));
        if (!python.empty())
            ZUsdLayer::setVerifier({python, "-c",
                                    "import sys\nfrom groomcore._groomcore import _verifyLayer\n"
                                    "sys.exit(_verifyLayer(sys.argv[1]))"});
    }

    bindUsdReader<ZMeshFromUSD, ZTriMesh>(
        m, "ZMeshFromUSD", "meshPrims", &ZMeshFromUSD::meshPrims,
        "The ZTriMesh of the Mesh prim at primPath of the file's layer at the time code, in world space, or None "
        "with the reason in message.");
}

} // namespace gcpy
