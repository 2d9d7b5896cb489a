// One groom through every stage that runs in parallel, writing everything it produces:
//   determinism_run OUT_DIR BODY_ABC
// All ten modifiers (evaluate and deform), feather placement, rebinding to a body, a cache
// bake of two frames and a USD export of curves and feathers. check_determinism.sh runs it
// at several thread counts and processor sets and requires every file to be the same.
#include <fstream>
#include <iostream>
#include <string>

#include "cache/RuvoMisc.h"
#include "cache/ZCacheData.h"
#include "common/AnimatedGroom.h"
#include "common/BuiltinGroom.h"
#include "modifiers/ZBendModifier.h"
#include "modifiers/ZClumpModifier.h"
#include "modifiers/ZCutModifier.h"
#include "modifiers/ZDirectionModifier.h"
#include "modifiers/ZFrizzModifier.h"
#include "modifiers/ZKinkModifier.h"
#include "modifiers/ZOffsetModifier.h"
#include "modifiers/ZOpacityModifier.h"
#include "modifiers/ZScaleModifier.h"
#include "modifiers/ZWidthModifier.h"
#include "usd/ZCurvesToUSD.h"

using namespace Ulmex;

namespace {

template <typename T>
void dump(const std::string& path, const ZArray<T>& a) {
    std::ofstream out(path, std::ios::binary);
    a.write(out, true);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    const std::string out = argv[1];
    examples::AnimatedGroom shot(4001, 12);
    ZFollicles& f = shot.follicles;
    f.setTipWidth(0.002f, 0.004f, true);
    f.setRootWidth(0.01f, 0.02f, true);
    f.setTipOpacity(0.3f, 0.6f, true);
    f.setRootOpacity(0.9f, 1.f, true);
    ZCurves& c = shot.restCurves;
    const ZCurves rest = c;
    const char* noise = " * (1 + 0.5 * znoise(freq, x, y, z))";

    ZWidthModifier width;
    width.tWidth = 0.003f; width.tSeed = 1; width.tRand = 0.2f; width.tFreq = 3; width.tExpr = std::string("tWidth") + noise;
    width.rWidth = 0.01f; width.rSeed = 2; width.rRand = 0; width.rFreq = 1; width.rExpr = "rWidth * (0.5 + u)";
    ZOpacityModifier opacity;
    opacity.tOpacity = 0.5f; opacity.tSeed = 1; opacity.tRand = 0; opacity.tFreq = 2; opacity.tExpr = std::string("tOpacity") + noise;
    opacity.rOpacity = 1; opacity.rSeed = 1; opacity.rRand = 0; opacity.rFreq = 1; opacity.rExpr = "rOpacity";
    ZDirectionModifier direction;
    direction.pitch = 50; direction.pitchSeed = 3; direction.pitchRand = 0; direction.pitchFreq = 2;
    direction.pitchExpr = std::string("pitch") + noise;
    direction.yaw = 10; direction.yawSeed = 4; direction.yawRand = 0; direction.yawFreq = 4; direction.yawExpr = "yaw * v";
    direction.maskExpr = "0.1";
    ZScaleModifier scale;
    scale.scale = 1; scale.seed = 5; scale.rand = 0.25f; scale.freq = 1; scale.expr = "scale + rand * znoise(6, x, y, z)";
    scale.maskExpr = "";
    ZCutModifier cut;
    cut.cut = 0.8f; cut.seed = 6; cut.rand = 0.1f; cut.freq = 1; cut.expr = "cut + rand * znoise(9, x, y, z)";
    cut.maskExpr = "0.7";
    ZOffsetModifier offset;
    offset.offset = 0.001f; offset.seed = 7; offset.rand = 0; offset.freq = 1; offset.expr = "offset * u";
    offset.maskExpr = ""; offset.alongStrand = false;
    ZBendModifier bend;
    bend.bend = 15; bend.bendSeed = 1; bend.bendRand = 0; bend.bendFreq = 1; bend.bendExpr = std::string("bend") + noise;
    bend.rate = 1; bend.rateSeed = 2; bend.rateRand = 0; bend.rateFreq = 1; bend.rateExpr = "rate";
    bend.maskExpr = ""; bend.start = 0.2f; bend.startExpr = "start"; bend.end = 1; bend.endExpr = "end";
    bend.tipWeighted = true;
    ZClumpModifier clump;
    clump.clump = 0.6f; clump.clumpSeed = 1; clump.clumpRand = 0; clump.clumpFreq = 1; clump.clumpExpr = "clump";
    clump.rate = 1; clump.rateSeed = 2; clump.rateRand = 0; clump.rateFreq = 1; clump.rateExpr = "rate";
    clump.maskExpr = ""; clump.strayRatioExpr = "0.1"; clump.strayAmountExpr = "0.5"; clump.keepLength = true;
    clump.rampType = 0;
    ZKinkModifier kink;
    kink.kink = 0.5f; kink.kinkSeed = 1; kink.kinkRand = 0; kink.kinkFreq = 1; kink.kinkExpr = "kink";
    kink.tWidth = 0.02f; kink.tWidthSeed = 2; kink.tWidthRand = 0; kink.tWidthFreq = 1; kink.tWidthExpr = "tWidth";
    kink.rWidth = 0; kink.rWidthSeed = 3; kink.rWidthRand = 0; kink.rWidthFreq = 1; kink.rWidthExpr = "rWidth";
    kink.maskExpr = ""; kink.tipFade = 0.2f; kink.rootFade = 0.3f;
    ZFrizzModifier frizz;
    frizz.frizz = 0.05f; frizz.frizzSeed = 1; frizz.frizzRand = 0; frizz.frizzFreq = 1; frizz.frizzExpr = "frizz";
    frizz.tWidth = 0.5f; frizz.tWidthSeed = 2; frizz.tWidthRand = 0; frizz.tWidthFreq = 1; frizz.tWidthExpr = "tWidth";
    frizz.rWidth = 0.1f; frizz.rWidthSeed = 3; frizz.rWidthRand = 0; frizz.rWidthFreq = 1; frizz.rWidthExpr = "rWidth";
    frizz.maskExpr = "0.2";

    width.apply(f, c, rest);
    opacity.apply(f, c, rest);
    direction.apply(f, c, rest);
    scale.apply(f, c, rest);
    cut.apply(f, c, rest);
    offset.apply(f, c, rest);
    bend.apply(f, c, rest);
    const ZCurves guides = c;
    clump.apply(f, c, guides);
    kink.apply(f, c, rest);
    frizz.apply(f, c, rest);
    f.calcRxy(c, true);
    dump(out + "/modified.cvs", c.cvs);
    dump(out + "/modified.twh", f.twh);
    dump(out + "/modified.top", f.top);
    dump(out + "/modified.rxy", f.rxy);
    dump(out + "/kink.cos", kink.kinkCos);
    dump(out + "/frizz.jitter", frizz.frizzJitter);

    ZFeather feather;
    examples::buildFeatherTemplate(20, 5, feather);
    ZVectorArray placed, one(feather.mesh.points.size());
    for (int i = 0; i < f.numStrands(); ++i) {
        feather.deform(f, c, i, 1.f, 0.25f, &one, nullptr, nullptr, i % 2 == 0);
        placed.insert(placed.end(), one.begin(), one.end());
    }
    dump(out + "/feathers.placed", placed);

    // Every strand bound to one of the body's 18 triangles.
    ZAlembicObject body;
    if (!findBodyMeshShapeNode(argv[2], "BodyShape", &body)) return 1;
    ZFollicles bound = f;
    for (int i = 0; i < bound.numStrands(); ++i) bound.tgl[i] = i % 18;
    ZCurves rebound = c;
    ZIntArray refIdx;
    ZMatrixArray invRot;
    setRefIdxAndInvRotAndCurves(1.0, body, bound, &rebound, &refIdx, &invRot);
    if (refIdx.length() != bound.numStrands()) return 1;
    dump(out + "/rebound.cvs", rebound.cvs);
    dump(out + "/rebound.refIdx", refIdx);
    dump(out + "/rebound.invRot", invRot);

    // The cache: two frames of the shot as posed; the info record's machine lines differ
    // between machines and runs and are left out of the comparison by the script.
    shot.restCurves = c;
    ZCacheData cache;
    cache.nodeName = "hair";
    cache.follicles = &f;
    cache.curves = &shot.curves;
    cache.boundingBox = &shot.box;
    cache.feathers = {&feather};
    for (float frame : {1.f, 2.f}) {
        shot.setFrame(frame);
        if (frame == 1.f && !cache.bakeStaticData(out)) return 1;
        if (!cache.bakePerFrameData(out, frame)) return 1;
    }

    ZCurvesToUSD usd;
    usd.name = "det:hair";
    usd.basePath = out + "/hair";
    usd.follicles = &f;
    usd.curves = &shot.curves;
    usd.boundingBox = &shot.box;
    usd.exportRatio = 1.f;
    usd.writeNormals = true;
    usd.perFrameFiles = true;
    usd.writeAttributeToUSD(true);
    usd.writeGeometryToUSD(2.f, true, false);
    ZVectorArray scales(f.numStrands(), ZVector(1, 1, 1)), rotations(f.numStrands(), ZVector(0, 30, 0));
    ZFloatArray folds(f.numStrands(), 0.2f);
    ZCurvesToUSD plumes = usd;
    plumes.name = "det:plumage";
    plumes.basePath = out + "/plumage";
    plumes.featherMode = true;
    plumes.bindingScheme = 6;
    plumes.feathers = {&feather};
    plumes.scales = &scales;
    plumes.rotations = &rotations;
    plumes.folds = &folds;
    f.rtp.assign(f.rtp.size(), 0);
    plumes.writeAttributeToUSD(true);
    plumes.writeGeometryToUSD(2.f, true, false);
    std::cout << "wrote " << out << "\n";
    return 0;
}
