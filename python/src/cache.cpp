// The cache: ZCacheData and ZCacheData2, the readers of RuvoMisc and the body rebinding.
// The cache classes point at the host's data; in Python their pointer fields hold the
// objects they are given, which stay alive as long as they are set.
#include <nanobind/stl/optional.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include <optional>
#include <sstream>

#include "cache/RuvoMisc.h"
#include "cache/ZCacheCommon.h"
#include "cache/ZCacheData.h"
#include "cache/ZCacheData2.h"
#include "common.h"
#include "pointers.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

namespace {

template <typename C>
void cacheClass(nb::module_& m, const char* name) {
    nb::class_<C> cls(m, name, nb::dynamic_attr(), doc(name));
    cls.def(nb::init<>())
        .def_rw("cacheType", &C::cacheType, doc("ZCacheData.cacheType"))
        .def_rw("nodeName", &C::nodeName, doc("ZCacheData.nodeName"))
        .def_rw("nodeType", &C::nodeType)
        .def_rw("meshNodeName", &C::meshNodeName)
        .def_rw("bindingScheme", &C::bindingScheme)
        .def_rw("textureType", &C::textureType)
        .def_rw("cacheFormatVersion", &C::cacheFormatVersion, doc("ZCacheData.cacheFormatVersion"))
        .def(
            "reset",
            [](nb::handle self) {
                nb::cast<C&>(self).reset();
                for (const char* key : {"_follicles", "_curves", "_boundingBox", "_scales", "_rotations", "_folds"})
                    nb::setattr(self, key, nb::none());
            },
            doc(std::string(name) + ".reset"))
        .def(
            "bakeStaticData",
            [](nb::handle self, const ZString& path) {
                C& c = nb::cast<C&>(self);
                Transforms t;
                takeTransforms(self, c, t);
                const Unlocked unlocked("bakeStaticData", hostUses(c, false));
                return c.bakeStaticData(path);
            },
            nb::arg("path"), doc(std::string(name) + ".bakeStaticData"))
        .def(
            "bakePerFrameData",
            [](nb::handle self, const ZString& path, float frame) {
                C& c = nb::cast<C&>(self);
                Transforms t;
                takeTransforms(self, c, t);
                const Unlocked unlocked("bakePerFrameData", hostUses(c, false));
                return c.bakePerFrameData(path, frame);
            },
            nb::arg("path"), nb::arg("frame"), doc(std::string(name) + ".bakePerFrameData"))
        .def(
            "getInfo",
            [](C& c, const ZString& file) {
                const Unlocked unlocked("getInfo", {writing(c)});
                return c.getInfo(file.c_str());
            },
            nb::arg("file"), doc(std::string(name) + ".getInfo"))
        .def("__str__", [](const C& c) {
            std::ostringstream s;
            s << c;
            return s.str();
        });
    hostDataFields<C>(cls, "ZCacheData");
    if constexpr (std::is_same_v<C, ZCacheData2>) listField(cls, "sources", &C::sources, "ZCacheData2.sources", "ZSource");
}

} // namespace

void bindCache(nb::module_& m) {
    cacheClass<ZCacheData>(m, "ZCacheData");
    cacheClass<ZCacheData2>(m, "ZCacheData2");

    nb::class_<RuvoCacheInfo>(m, "RuvoCacheInfo", doc("RuvoCacheInfo"))
        .def("__init__", [](RuvoCacheInfo* info) { new (info) RuvoCacheInfo{{}, {}, {}, {}, 0, 0, 0.f}; })
        .def_rw("cacheType", &RuvoCacheInfo::cacheType)
        .def_rw("nodeName", &RuvoCacheInfo::nodeName)
        .def_rw("nodeType", &RuvoCacheInfo::nodeType)
        .def_rw("meshNodeName", &RuvoCacheInfo::meshNodeName)
        .def_rw("bindingScheme", &RuvoCacheInfo::bindingScheme)
        .def_rw("textureType", &RuvoCacheInfo::textureType)
        .def_rw("cacheFormatVersion", &RuvoCacheInfo::cacheFormatVersion);

    m.def(
        "frameTag", [](float frame) { return std::string(ZCacheCommon::frameTag(frame)); }, nb::arg("frame"),
        "The text that ends the per-frame file names of a bake at `frame` (curves_, bbox_, xforms_, folds_), "
        "as the bakers write it: p1001, m-5, p0 for 0 and -0, p1001.125 for a sub-frame.");
    // The cache directory's file names, for tools that list or check its files.
    m.attr("CACHE_INFO") = ZCacheCommon::kInfo;
    m.attr("CACHE_FOLLICLES") = ZCacheCommon::kFollicles;
    m.attr("CACHE_FEATHERS") = ZCacheCommon::kFeathers;
    m.attr("CACHE_RMAN_ATTRS") = ZCacheCommon::kRManAttrs;
    m.attr("CACHE_FEATHER_RMAN_ATTRS") = ZCacheCommon::kFeatherRManAttrs;
    m.attr("CACHE_SOURCES") = ZCacheCommon::kSources;
    m.attr("CACHE_CURVES") = ZCacheCommon::kCurves;
    m.attr("CACHE_BOUNDING_BOX") = ZCacheCommon::kBoundingBox;
    m.attr("CACHE_TRANSFORMS") = ZCacheCommon::kTransforms;
    m.attr("CACHE_FOLDS") = ZCacheCommon::kFolds;
    m.def(
        "cacheFramePath",
        [](const ZString& dir, const std::string& kind, float frame) {
            for (const char* k : {ZCacheCommon::kCurves, ZCacheCommon::kBoundingBox, ZCacheCommon::kTransforms,
                                  ZCacheCommon::kFolds})
                if (kind == k) return std::string(ZCacheCommon::frameFile(dir, k, frame));
            throw nb::value_error(("cacheFramePath: '" + kind +
                                   "' is not a per-frame file kind (CACHE_CURVES, CACHE_BOUNDING_BOX, "
                                   "CACHE_TRANSFORMS, CACHE_FOLDS)")
                                      .c_str());
        },
        nb::arg("cacheDirectory"), nb::arg("kind"), nb::arg("frame"),
        "The path of a per-frame file of the cache as the bakers name it: cacheDirectory/kind + frameTag(frame), "
        "kind one of CACHE_CURVES, CACHE_BOUNDING_BOX, CACHE_TRANSFORMS and CACHE_FOLDS.");
    m.def("isValidCachePathAndCacheName", &isValidCachePathAndCacheName, nb::arg("path"), nb::arg("name"),
          release(), doc("isValidCachePathAndCacheName"));
    m.def(
        "readInfoData",
        [](const ZString& dir, RuvoCacheInfo& info) {
            const Unlocked unlocked("readInfoData", {writing(info)});
            return readInfoData(dir, &info);
        },
        nb::arg("cacheDirectory"), nb::arg("info"), doc("readInfoData"));
    m.def(
        "readInfoRecord",
        [](const ZString& dir) -> std::optional<nb::dict> {
            std::vector<std::pair<ZString, ZString>> record;
            bool ok;
            {
                const Unlocked unlocked("readInfoRecord", {});
                ok = readInfoRecord(dir, &record);
            }
            if (!ok) return std::nullopt;
            nb::dict out;
            for (const auto& [key, value] : record) out[nb::cast(key)] = nb::cast(value);
            return out;
        },
        nb::arg("cacheDirectory"),
        nb::sig("def readInfoRecord(cacheDirectory: str) -> dict[str, str] | None"),
        "Every key of the cache's info record with its value as readInfoData reads it (\"NodeName\":\"ns:hair\" "
        "gives 'ns'), in the order of first appearance; None when there is no info file.");
    m.def(
        "readStrandsData",
        [](const ZString& dir, int frame, ZCurves& curves, ZFollicles& follicles) {
            refuseIfViewed(curves, "readStrandsData");
            refuseIfViewed(follicles, "readStrandsData");
            const Unlocked unlocked("readStrandsData", {writing(curves), writing(follicles)});
            return readStrandsData(dir, frame, &curves, &follicles);
        },
        nb::arg("cacheDirectory"), nb::arg("frame"), nb::arg("curves"), nb::arg("follicles"), doc("readStrandsData"));

    m.def(
        "isStrandsFrameWhole",
        [](const ZString& dir, float frame) {
            const Unlocked unlocked("isStrandsFrameWhole", {});
            return isStrandsFrameWhole(dir, frame);
        },
        nb::arg("cacheDirectory"), nb::arg("frame"), doc("isStrandsFrameWhole"));
    m.def(
        "readCacheFrames",
        [](const ZString& dir) -> std::optional<std::vector<float>> {
            std::vector<float> frames;
            const Unlocked unlocked("readCacheFrames", {});
            if (!readCacheFrames(dir, &frames)) return std::nullopt;
            return frames;
        },
        nb::arg("cacheDirectory"), nb::sig("def readCacheFrames(cacheDirectory: str) -> list[float] | None"),
        intern(std::string(doc("readCacheFrames")) + " None when the directory cannot be listed."));
    m.def(
        "readFeathersData",
        [](const ZString& dir) -> nb::object {
            std::vector<ZFeather> feathers;
            bool ok;
            {
                const Unlocked unlocked("readFeathersData", {});
                ok = readFeathersData(dir, &feathers);
            }
            if (!ok) return nb::none();
            nb::list out;
            for (ZFeather& f : feathers) out.append(nb::cast(std::move(f), nb::rv_policy::move));
            return out;
        },
        nb::arg("cacheDirectory"), nb::sig("def readFeathersData(cacheDirectory: str) -> list[ZFeather] | None"),
        intern(std::string(doc("readFeathersData")) + " None when they cannot be read whole."));
    m.def(
        "readSourcesData",
        [](const ZString& dir) -> nb::object {
            std::vector<ZSource> sources;
            bool ok;
            {
                const Unlocked unlocked("readSourcesData", {});
                ok = readSourcesData(dir, &sources);
            }
            if (!ok) return nb::none();
            nb::list out;
            for (ZSource& s : sources) out.append(nb::cast(std::move(s), nb::rv_policy::move));
            return out;
        },
        nb::arg("cacheDirectory"), nb::sig("def readSourcesData(cacheDirectory: str) -> list[ZSource] | None"),
        intern(std::string(doc("readSourcesData")) + " None when they cannot be read whole."));
    m.def(
        "readBoundingBoxData",
        [](const ZString& dir, float frame) -> std::optional<ZBoundingBox> {
            ZBoundingBox box;
            const Unlocked unlocked("readBoundingBoxData", {});
            if (!readBoundingBoxData(dir, frame, &box)) return std::nullopt;
            return box;
        },
        nb::arg("cacheDirectory"), nb::arg("frame"),
        intern(std::string(doc("readBoundingBoxData")) + " None when the file is missing or damaged."));
    m.def(
        "readFeatherTransformsData",
        [](const ZString& dir, float frame) -> nb::object {
            ZVectorArray scales, rotations;
            bool ok;
            {
                const Unlocked unlocked("readFeatherTransformsData", {});
                ok = readFeatherTransformsData(dir, frame, &scales, &rotations);
            }
            if (!ok) return nb::none();
            return nb::make_tuple(owned(std::move(scales)), owned(std::move(rotations)));
        },
        nb::arg("cacheDirectory"), nb::arg("frame"),
        nb::sig("def readFeatherTransformsData(cacheDirectory: str, frame: float) -> "
                "tuple[numpy.typing.NDArray[numpy.float32], numpy.typing.NDArray[numpy.float32]] | None"),
        intern(std::string(doc("readFeatherTransformsData")) +
               " Returns (scales, rotations) as new (n, 3) arrays; None when the file is missing or damaged."));
    m.def(
        "readFoldsData",
        [](const ZString& dir, float frame) -> nb::object {
            ZFloatArray folds;
            bool ok;
            {
                const Unlocked unlocked("readFoldsData", {});
                ok = readFoldsData(dir, frame, &folds);
            }
            if (!ok) return nb::none();
            return owned(std::move(folds));
        },
        nb::arg("cacheDirectory"), nb::arg("frame"),
        nb::sig("def readFoldsData(cacheDirectory: str, frame: float) -> numpy.typing.NDArray[numpy.float32] | None"),
        intern(std::string(doc("readFoldsData")) + " A new array; None when the file is missing or damaged."));
    m.def(
        "findBodyMeshCandidates",
        [](const ZString& path, const ZString& bodyName) -> std::optional<std::vector<ZAlembicObject>> {
            ZAlembicObjectArray found;
            {
                const Unlocked unlocked("findBodyMeshCandidates", {});
                if (!findBodyMeshCandidates(path, bodyName, &found)) return std::nullopt;
            }
            std::vector<ZAlembicObject> out;
            for (int i = 0; i < found.length(); ++i) out.push_back(found[i]);
            return out;
        },
        nb::arg("abcPath"), nb::arg("bodyName"),
        intern(std::string(doc("findBodyMeshCandidates")) + " None when the file cannot be opened."));
    m.def(
        "findBodyMeshShapeNode",
        [](const ZString& path, const ZString& bodyName) -> std::optional<ZAlembicObject> {
            ZAlembicObject found;
            bool ok;
            {
                const Unlocked unlocked("findBodyMeshShapeNode", {});
                ok = findBodyMeshShapeNode(path, bodyName, &found);
            }
            if (!ok) return std::nullopt;
            return found;
        },
        nb::arg("abcPath"), nb::arg("bodyName"), "The one shape node whose name holds bodyName, or None.");
    m.def(
        "setRefIdxAndInvRotAndCurves",
        [](double frame, const ZAlembicObject& object, const ZFollicles& follicles, ZCurves& curves) {
            // The library refuses a body that is no polygon mesh and strands off its triangles
            // (empty results); it trusts the curves to lie inside their CVs.
            checkCurves(curves, "setRefIdxAndInvRotAndCurves");
            refuseIfViewed(curves, "setRefIdxAndInvRotAndCurves");
            ZIntArray refIdx;
            ZMatrixArray invRot;
            {
                const Unlocked unlocked("setRefIdxAndInvRotAndCurves", {reading(object), reading(follicles), writing(curves)});
                setRefIdxAndInvRotAndCurves(frame, object, follicles, &curves, &refIdx, &invRot);
            }
            return nb::make_tuple(owned(std::move(refIdx)), owned(std::move(invRot)));
        },
        nb::arg("frame"), nb::arg("object"), nb::arg("follicles"), nb::arg("curves"),
        nb::sig("def setRefIdxAndInvRotAndCurves(frame: float, object: ZAlembicObject, follicles: ZFollicles, "
                "curves: ZCurves) -> tuple[numpy.typing.NDArray[numpy.int32], numpy.typing.NDArray[numpy.float32]]"),
        intern(std::string(doc("setRefIdxAndInvRotAndCurves")) +
               " Returns (refIdx, invRot) as new arrays; curves are rewritten in place."));
    m.def(
        "getv012",
        [](nb::handle counts, nb::handle connections) {
            ZIntArray c, v;
            assign(c, counts, "counts");
            assign(v, connections, "connections");
            return owned(getv012(c, v));
        },
        nb::arg("counts"), nb::arg("connections"),
        nb::sig("def getv012(counts: numpy.typing.NDArray[numpy.int32], connections: "
                "numpy.typing.NDArray[numpy.int32]) -> numpy.typing.NDArray[numpy.int32]"),
        doc("getv012"));
    m.def(
        "getuvs",
        [](nb::handle counts, nb::handle uvs, nb::handle uvIndices) {
            ZIntArray c, i;
            ZFloatArray u;
            assign(c, counts, "counts");
            assign(u, uvs, "uvs");
            assign(i, uvIndices, "uvIndices");
            return owned(getuvs(c, u, i));
        },
        nb::arg("counts"), nb::arg("uvs"), nb::arg("uvIndices"),
        nb::sig("def getuvs(counts: numpy.typing.NDArray[numpy.int32], uvs: numpy.typing.NDArray[numpy.float32], "
                "uvIndices: numpy.typing.NDArray[numpy.int32]) -> numpy.typing.NDArray[numpy.float32]"),
        doc("getuvs"));
}

} // namespace gcpy
