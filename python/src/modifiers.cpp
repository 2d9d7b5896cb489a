// ZExpression and the ten modifiers. Every modifier gets its public members as attributes
// (arrays as views), and evaluate, deform and apply with the checks its C++ code trusts
// its caller for; the maps a modifier registers stay alive while registered.
#include <cctype>

#include <nanobind/stl/pair.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/tuple.h>
#include <nanobind/stl/vector.h>

#include "common.h"
#include "modifiers/ZBendModifier.h"
#include "modifiers/ZClumpModifier.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZExpression.h"
#include "modifiers/ZFrizzModifier.h"
#include "modifiers/ZKinkModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"
#include "validate.h"

using namespace Ulmex;

namespace gcpy {

namespace {

template <typename... A>
void checkEach(size_t n, const char* what, const A&... arrays) {
    (checkLength(arrays, n, what, "a result array of the modifier (evaluate it first)"), ...);
}

// The docstring of a modifier's member: the header's where it has one, otherwise the
// member's part in the protocol every modifier follows (ZModifier.h, ZModifierFrame.h),
// told by its name: a remembered parameter, a result array, or a parameter of an
// expression group (value, seed, rand, freq, expression) or of the mask.
const char* modifierFieldDoc(const char* docKey, bool array) {
    if (const char* text = documented(docKey)) return text;
    const std::string key(docKey), name = key.substr(key.find('.') + 1);
    auto endsWith = [&](const char* tail) {
        const std::string t(tail);
        return name.size() >= t.size() && name.compare(name.size() - t.size(), t.size(), t) == 0;
    };
    const bool mask = name.find("mask") != std::string::npos || name.find("Mask") != std::string::npos;
    std::string text;
    if (array && mask)
        text = "Per strand, 1 where the mask of the last evaluate excludes the strand from deform (a view).";
    else if (array)
        text = "The per-strand results of the last evaluate, which deform applies (a view).";
    else if (name.size() > 4 && name.compare(0, 4, "prev") == 0 && std::isupper(static_cast<unsigned char>(name[4]))) {
        std::string param = name.substr(4);
        param[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(param[0])));
        text = "The " + param + " the results were computed with: evaluate recomputes when " + param +
               " differs (reset() and invalidate() clear it).";
    } else if (mask && endsWith("Expr"))
        text = "The mask: an expression of the registered maps' variables; a strand whose value exceeds its random "
               "draw is left as it is by deform. Empty: no strand is masked.";
    else if (endsWith("Expr") || name == "expr")
        text = "The expression of this parameter group (SeExpr), evaluated per strand with the variables id, u, v, x, "
               "y, z, the group's value, seed, rand and freq, and one variable per registered map; its result is the "
               "strand's value.";
    else if (endsWith("Seed") || name == "seed")
        text = "The group's seed: the expression's variable seed, and the seed of the random offsets of x, y and z.";
    else if (endsWith("Rand") || name == "rand")
        text = "The group's amount of randomness: the expression's variable rand.";
    else if (endsWith("Freq") || name == "freq")
        text = "The group's frequency: the expression's variable freq.";
    else
        text = "The group's value, which the host sets before evaluate: the expression reads it as the variable " +
               name + ".";
    return intern(text);
}

// One attribute per public member: numbers and texts as values, arrays as views.
template <typename C, typename Cls, typename T>
void field(Cls& cls, const char* name, T C::*member, const char* docKey) {
    if constexpr (std::is_same_v<T, ZSimplexNoise>)
        cls.def_ro(name, member, modifierFieldDoc(docKey, false));
    else
        cls.def_rw(name, member, modifierFieldDoc(docKey, false));
}
template <typename C, typename Cls, typename T>
void field(Cls& cls, const char* name, ZArray<T> C::*member, const char* docKey) {
    arrayField(cls, name, member, docKey, modifierFieldDoc(docKey, true));
}

// Every registered map must have pixels of its stated size before a modifier samples it.
void checkMaps(const ZModifier& mod, const char* what) {
    for (const auto& entry : mod.attributeMaps) {
        const ZImageMap* map = entry.second;
        if (!map->pixels || map->width < 1 || map->height < 1 || map->numChannels < 1)
            invalid(what, "map '" + std::string(entry.first) + "' has no pixels");
    }
}

// Requirements of a modifier's deform beyond the groom: its result arrays (n per strand,
// cvs per control vertex).
template <typename C>
using Results = void (*)(const C&, size_t n, size_t cvs, const char* what);

template <typename C>
nb::class_<C> modifier(nb::module_& m, const char* name, unsigned deformArrays, bool deformCurves, bool evalCurves,
                       bool guides, Results<C> results) {
    nb::class_<C> cls(m, name, nb::dynamic_attr(), doc(name));
    auto evaluateChecks = [evalCurves](const C& mod, const ZFollicles& f, const ZCurves& c, const char* what) {
        if (evalCurves)
            checkGroom(f, c, Uid | Uvw | Nmp | Ln0, what);
        else
            checkFollicles(f, Uid | Uvw | Nmp, what);
        checkMaps(mod, what);
    };
    auto deformChecks = [=](const C& mod, const ZFollicles& f, const ZCurves& c, const ZCurves& c0, const char* what) {
        if (deformCurves) checkGroom(f, c, deformArrays, what);
        else checkFollicles(f, deformArrays, what);
        results(mod, f.tgl.size(), c.cvs.size(), what);
        if (guides) {
            checkCurves(c0, what);
            for (size_t i = 0; i < f.bdi.counts.size(); ++i)
                if (f.bdi.counts[i] > 0 && (f.bdi.values[f.bdi.starts[i]] < 0 ||
                                            f.bdi.values[f.bdi.starts[i]] >= c0.numCurves()))
                    invalid(what, "strand " + std::to_string(i) + " is bound to guide " +
                                      std::to_string(f.bdi.values[f.bdi.starts[i]]) + " of " +
                                      std::to_string(c0.numCurves()));
        }
    };
    cls.def(nb::init<>())
        .def(
            "reset",
            [](nb::handle self) {
                C& mod = nb::cast<C&>(self);
                refuseIfViewed(mod, "reset");
                mod.reset();
                nb::setattr(self, "_maps", nb::dict());
            },
            doc("ZModifier.reset"))
        .def("invalidate", &C::invalidate, doc(std::string(name) + ".invalidate"))
        .def(
            "evaluate",
            [evaluateChecks](C& mod, const ZFollicles& f, const ZCurves& c) {
                evaluateChecks(mod, f, c, "evaluate");
                refuseIfViewed(mod, "evaluate");
                const Unlocked unlocked("evaluate", {writing(mod), reading(f), reading(c)});
                mod.evaluate(f, c);
            },
            nb::arg("follicles"), nb::arg("curves"), doc(std::string(name) + ".evaluate"))
        .def(
            "deform",
            [deformChecks](C& mod, ZFollicles& f, ZCurves& c, const ZCurves& c0) {
                deformChecks(mod, f, c, c0, "deform");
                const Unlocked unlocked("deform", {reading(mod), writing(f), writing(c), reading(c0)});
                mod.deform(f, c, c0);
            },
            nb::arg("follicles"), nb::arg("curves"), nb::arg(guides ? "guides" : "curves0"),
            doc(std::string(name) + ".deform"))
        .def(
            "apply",
            [evaluateChecks, deformChecks](C& mod, ZFollicles& f, ZCurves& c, const ZCurves& c0) {
                evaluateChecks(mod, f, c, "apply");
                refuseIfViewed(mod, "apply");
                {
                    const Unlocked unlocked("apply", {writing(mod), reading(f), reading(c)});
                    mod.evaluate(f, c);
                }
                deformChecks(mod, f, c, c0, "apply");
                const Unlocked unlocked("apply", {reading(mod), writing(f), writing(c), reading(c0)});
                mod.deform(f, c, c0);
            },
            nb::arg("follicles"), nb::arg("curves"), nb::arg(guides ? "guides" : "curves0"),
            "evaluate, then deform.")
        .def(
            "append",
            [](nb::handle self, const char* mapName, nb::handle map) {
                C& mod = nb::cast<C&>(self);
                if (!nb::isinstance<ZImageMap>(map))
                    throw nb::type_error(("append: expected ZImageMap, got " + typeName(map)).c_str());
                ZImageMap& image = nb::cast<ZImageMap&>(map);
                const size_t before = mod.attributeMaps.size();
                mod.append(mapName, image);
                if (mod.attributeMaps.size() != before) {
                    // Registered: the modifier holds the image object while it is.
                    if (!nb::hasattr(self, "_maps")) nb::setattr(self, "_maps", nb::dict());
                    nb::cast<nb::dict>(nb::getattr(self, "_maps"))[mapName] = map;
                }
            },
            nb::arg("name"), nb::arg("map"), nb::sig("def append(self, name: str, map: ZImageMap) -> None"),
            doc("ZModifier.append"))
        .def(
            "find",
            [](nb::handle self, const char* mapName) -> nb::object {
                if (!nb::cast<C&>(self).find(mapName) || !nb::hasattr(self, "_maps")) return nb::none();
                return nb::cast<nb::dict>(nb::getattr(self, "_maps"))[mapName];
            },
            nb::arg("name"), nb::sig("def find(self, name: str) -> ZImageMap | None"),
            "The first map registered under name, or None.")
        .def(
            "getAttributeNames",
            [](const C& mod) {
                ZStringArray names;
                mod.getAttributeNames(names);
                return std::vector<std::string>(names.begin(), names.end());
            },
            "The registered names, in order, as a new list.")
        .def_prop_ro(
            "attributeMaps",
            [](nb::handle self) {
                nb::list out;
                if (!nb::hasattr(self, "_maps")) return out;
                nb::dict maps = nb::cast<nb::dict>(nb::getattr(self, "_maps"));
                for (const auto& entry : nb::cast<C&>(self).attributeMaps)
                    out.append(nb::make_tuple(std::string(entry.first), maps[entry.first.c_str()]));
                return out;
            },
            nb::sig("def attributeMaps(self, /) -> list[tuple[str, ZImageMap]]"), doc("ZModifier.attributeMaps"));
    return cls;
}

} // namespace

void bindModifiers(nb::module_& m) {
    // The variables of an expression by name; a name is created by its first assignment.
    struct Variables {
        ZExpression* e;
    };
    nb::class_<Variables>(m, "ZExpressionVariables", "The variables of a ZExpression by name.")
        .def("__getitem__",
             [](const Variables& v, const std::string& k) {
                 auto it = v.e->variables.find(k);
                 if (it == v.e->variables.end()) throw nb::key_error(k.c_str());
                 return it->second.value;
             })
        .def("__setitem__", [](Variables& v, const std::string& k, float x) { v.e->variables[k].value = x; })
        .def("__contains__", [](const Variables& v, const std::string& k) { return v.e->variables.count(k) > 0; })
        .def("__len__", [](const Variables& v) { return v.e->variables.size(); })
        .def("keys", [](const Variables& v) {
            std::vector<std::string> out;
            for (const auto& entry : v.e->variables) out.push_back(entry.first);
            return out;
        }, "The variable names, in sorted order.");

    nb::class_<ZExpression>(m, "ZExpression", doc("ZExpression"))
        .def(nb::init<>())
        .def(nb::init<const std::string&>(), nb::arg("expr"), doc("ZExpression.ZExpression"))
        .def_rw("ready", &ZExpression::ready)
        .def_prop_ro(
            "variables", [](ZExpression& e) { return Variables{&e}; }, nb::keep_alive<0, 1>(),
            doc("ZExpression.variables"))
        .def("setWantVec", &ZExpression::setWantVec, nb::arg("wantVec"), doc("ZExpression.setWantVec"))
        .def("setExpr", &ZExpression::setExpr, nb::arg("expr"), doc("ZExpression.setExpr"))
        .def("message", &ZExpression::message, doc("ZExpression.message"))
        .def(
            "evaluate",
            [](const ZExpression& e) {
                const KSeExpr::Vec3d v = e.evaluate();
                return std::make_tuple(v[0], v[1], v[2]);
            },
            doc("ZExpression.evaluate"))
        .def_static("znoiseFuncHelper", &ZExpression::znoiseFuncHelper, nb::arg("freq"), nb::arg("x"), nb::arg("y"),
                    nb::arg("z"), doc("ZExpression.znoiseFuncHelper"));

#define F(n) field(cls, #n, &C::n, intern(std::string(kName) + "." #n));

    {
        using C = ZWidthModifier;
        const char* kName = "ZWidthModifier";
        auto cls = modifier<C>(m, kName, Twh | Rwh, false, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.tWidths, m.rWidths);
                                   (void)cvs;
                               });
        F(prevNum) F(prevTWidth) F(prevTSeed) F(prevTRand) F(prevTFreq) F(prevTExpr) F(tWidths) F(prevRWidth)
        F(prevRSeed) F(prevRRand) F(prevRFreq) F(prevRExpr) F(rWidths) F(tWidth) F(tSeed) F(tRand) F(tFreq) F(tExpr)
        F(rWidth) F(rSeed) F(rRand) F(rFreq) F(rExpr)
    }
    {
        using C = ZOpacityModifier;
        const char* kName = "ZOpacityModifier";
        auto cls = modifier<C>(m, kName, Top | Rop, false, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.tOpacities, m.rOpacities);
                                   (void)cvs;
                               });
        F(prevNum) F(prevTOpacity) F(prevTSeed) F(prevTRand) F(prevTFreq) F(prevTExpr) F(tOpacities) F(prevROpacity)
        F(prevRSeed) F(prevRRand) F(prevRFreq) F(prevRExpr) F(rOpacities) F(tOpacity) F(tSeed) F(tRand) F(tFreq)
        F(tExpr) F(rOpacity) F(rSeed) F(rRand) F(rFreq) F(rExpr)
    }
    {
        using C = ZScaleModifier;
        const char* kName = "ZScaleModifier";
        auto cls = modifier<C>(m, kName, Axs, true, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.scales, m.maskFlags);
                                   (void)cvs;
                               });
        F(prevNum) F(prevScale) F(prevSeed) F(prevRand) F(prevFreq) F(prevExpr) F(scales) F(prevMaskExpr)
        F(maskFlags) F(scale) F(seed) F(rand) F(freq) F(expr) F(maskExpr)
    }
    {
        using C = ZCutModifier;
        const char* kName = "ZCutModifier";
        auto cls = modifier<C>(m, kName, 0, true, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.cuts, m.maskFlags);
                                   (void)cvs;
                               });
        F(prevNum) F(prevCut) F(prevSeed) F(prevRand) F(prevFreq) F(prevExpr) F(cuts) F(prevMaskExpr) F(maskFlags)
        F(cut) F(seed) F(rand) F(freq) F(expr) F(maskExpr)
    }
    {
        using C = ZOffsetModifier;
        const char* kName = "ZOffsetModifier";
        auto cls = modifier<C>(m, kName, Axs, true, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.offsets, m.maskFlags);
                                   (void)cvs;
                               });
        F(prevNum) F(prevOffset) F(prevSeed) F(prevRand) F(prevFreq) F(prevExpr) F(offsets) F(prevMaskExpr)
        F(maskFlags) F(offset) F(seed) F(rand) F(freq) F(expr) F(maskExpr) F(alongStrand)
    }
    {
        using C = ZDirectionModifier;
        const char* kName = "ZDirectionModifier";
        auto cls = modifier<C>(m, kName, Axs | Rxy, true, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.pitchValues, m.yawValues, m.maskFlags);
                                   (void)cvs;
                               });
        F(prevNum) F(prevPitch) F(prevPitchSeed) F(prevPitchRand) F(prevPitchFreq) F(prevPitchExpr) F(pitchValues)
        F(prevYaw) F(prevYawSeed) F(prevYawRand) F(prevYawFreq) F(prevYawExpr) F(yawValues) F(prevMaskExpr)
        F(maskFlags) F(pitch) F(pitchSeed) F(pitchRand) F(pitchFreq) F(pitchExpr) F(yaw) F(yawSeed) F(yawRand)
        F(yawFreq) F(yawExpr) F(maskExpr)
    }
    {
        using C = ZBendModifier;
        const char* kName = "ZBendModifier";
        auto cls = modifier<C>(m, kName, Axs | Rxy, true, false, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.bendValues, m.rateValues, m.maskFlags, m.startValues, m.endValues);
                                   (void)cvs;
                               });
        F(prevNum) F(prevBend) F(prevBendSeed) F(prevBendRand) F(prevBendFreq) F(prevBendExpr) F(bendValues)
        F(prevRate) F(prevRateSeed) F(prevRateRand) F(prevRateFreq) F(prevRateExpr) F(rateValues) F(prevMaskExpr)
        F(maskFlags) F(prevStart) F(prevStartExpr) F(startValues) F(prevEnd) F(prevEndExpr) F(endValues) F(bend)
        F(bendSeed) F(bendRand) F(bendFreq) F(bendExpr) F(rate) F(rateSeed) F(rateRand) F(rateFreq) F(rateExpr)
        F(maskExpr) F(start) F(startExpr) F(end) F(endExpr) F(tipWeighted)
    }
    {
        using C = ZClumpModifier;
        const char* kName = "ZClumpModifier";
        auto cls = modifier<C>(m, kName, Axs | Bdi, true, false, true,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.clumpValues, m.rateValues, m.maskFlags, m.strayFlags, m.strayAmounts);
                                   (void)cvs;
                               });
        F(prevNum) F(prevClump) F(prevClumpSeed) F(prevClumpRand) F(prevClumpFreq) F(prevClumpExpr) F(clumpValues)
        F(prevRate) F(prevRateSeed) F(prevRateRand) F(prevRateFreq) F(prevRateExpr) F(rateValues) F(prevMaskExpr)
        F(maskFlags) F(prevStrayRatioExpr) F(strayFlags) F(prevStrayAmountExpr) F(strayAmounts) F(clump)
        F(clumpSeed) F(clumpRand) F(clumpFreq) F(clumpExpr) F(rate) F(rateSeed) F(rateRand) F(rateFreq) F(rateExpr)
        F(maskExpr) F(strayRatioExpr) F(strayAmountExpr) F(keepLength) F(rampType)
    }
    {
        using C = ZKinkModifier;
        const char* kName = "ZKinkModifier";
        auto cls = modifier<C>(m, kName, Uid | Ln0 | Axs, true, true, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.kinkValues, m.tWidthValues, m.rWidthValues, m.maskFlags);
                                   checkEach(cvs, what, m.kinkCos, m.kinkSin);
                               });
        F(prevNum) F(prevNumCVs) F(prevKink) F(prevKinkSeed) F(prevKinkRand) F(prevKinkFreq) F(prevKinkExpr)
        F(kinkValues) F(prevTWidth) F(prevTWidthSeed) F(prevTWidthRand) F(prevTWidthFreq) F(prevTWidthExpr)
        F(tWidthValues) F(prevRWidth) F(prevRWidthSeed) F(prevRWidthRand) F(prevRWidthFreq) F(prevRWidthExpr)
        F(rWidthValues) F(prevMaskExpr) F(maskFlags) F(kinkNoise) F(kinkCos) F(kinkSin) F(kink) F(kinkSeed)
        F(kinkRand) F(kinkFreq) F(kinkExpr) F(tWidth) F(tWidthSeed) F(tWidthRand) F(tWidthFreq) F(tWidthExpr)
        F(rWidth) F(rWidthSeed) F(rWidthRand) F(rWidthFreq) F(rWidthExpr) F(maskExpr) F(tipFade) F(rootFade)
    }
    {
        using C = ZFrizzModifier;
        const char* kName = "ZFrizzModifier";
        auto cls = modifier<C>(m, kName, Ln0, true, true, false,
                               [](const C& m, size_t n, size_t cvs, const char* what) {
                                   checkEach(n, what, m.frizzValues, m.tWidthValues, m.rWidthValues, m.maskFlags);
                                   checkEach(cvs, what, m.frizzJitter);
                               });
        F(prevNum) F(prevFrizz) F(prevFrizzSeed) F(prevFrizzRand) F(prevFrizzFreq) F(prevFrizzExpr) F(frizzValues)
        F(prevTWidth) F(prevTWidthSeed) F(prevTWidthRand) F(prevTWidthFreq) F(prevTWidthExpr) F(tWidthValues)
        F(prevRWidth) F(prevRWidthSeed) F(prevRWidthRand) F(prevRWidthFreq) F(prevRWidthExpr) F(rWidthValues)
        F(prevMaskExpr) F(maskFlags) F(frizzJitter) F(frizz) F(frizzSeed) F(frizzRand) F(frizzFreq) F(frizzExpr)
        F(tWidth) F(tWidthSeed) F(tWidthRand) F(tWidthFreq) F(tWidthExpr) F(rWidth) F(rWidthSeed) F(rWidthRand)
        F(rWidthFreq) F(rWidthExpr) F(maskExpr)
    }
#undef F
}

} // namespace gcpy
