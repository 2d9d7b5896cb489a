// The gallery: renders the built-in groom before and after each of the ten modifiers with
// typical settings, headlessly (Mesa through EGL, offscreen), one PNG per modifier, the
// groom before on the left and after on the right; a feathered groom: the combed and
// bent strands on the left, a feather template placed along each of them with a fold on
// the right; and a groom exported to USD by ZCurvesToUSD on the left, drawn on the right
// from what usd-core reads back from the file (points, curve vertex counts and widths).
//
//   gallery OUTPUT_DIR
//
// Strands are drawn as camera-facing ribbons whose width and opacity run from the root
// values (rwh, rop) to the tip values (twh, top), so the attribute modifiers show as well as
// the shaping ones.

#define GL_GLEXT_PROTOTYPES 1
#include <GL/gl.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "common/BuiltinGroom.h"
#include "common/HeadlessGL.h"
#include "common/Png.h"
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
#include "toolkit/ZBodyFrames.h"
#include "toolkit/ZGuideBinder.h"
#include "usd/ZCurvesToUSD.h"

using namespace Ulmex;

namespace {

const int kPanel = 420;    // output pixels per panel side
const int kSuper = 2;      // supersampling factor per axis
const ZVector kEye(0.f, 1.1f, 3.6f);
const ZVector kLight = ZVector(0.4f, 0.8f, 0.6f).normalized(false);

struct Scene {
    ZTriMesh body;
    ZAxisArray frames;
    ZFollicles groom;
    ZCurves curves;
};

// Column-major look-at matrix for glLoadMatrixf.
void lookAt(const ZVector& eye, const ZVector& center, const ZVector& up, float m[16]) {
    const ZVector f = (center - eye).normalized(false);
    const ZVector s = f.cross(up).normalized(false);
    const ZVector u = s.cross(f);
    const float r[16] = {s.x, u.x, -f.x, 0, s.y, u.y, -f.y, 0, s.z, u.z, -f.z, 0,
                         -s.dot(eye), -u.dot(eye), f.dot(eye), 1};
    for (int i = 0; i < 16; ++i) m[i] = r[i];
}

void setCamera(int x, int width, int height) {
    glViewport(x, 0, width, height);
    glMatrixMode(GL_PROJECTION);
    glLoadIdentity();
    const float nearZ = 0.5f, farZ = 20.f;
    const float top = nearZ * std::tan(0.5f * 46.f * 3.14159265f / 180.f);
    const float right = top * static_cast<float>(width) / static_cast<float>(height);
    glFrustum(-right, right, -top, top, nearZ, farZ);
    glMatrixMode(GL_MODELVIEW);
    float m[16];
    lookAt(kEye, ZVector(0.f, 0.f, 0.f), ZVector(0.f, 1.f, 0.f), m);
    glLoadMatrixf(m);
}

void drawBody(const ZTriMesh& body) {
    glEnable(GL_LIGHTING);
    glEnable(GL_LIGHT0);
    const float pos[4] = {kLight.x, kLight.y, kLight.z, 0.f};
    const float ambient[4] = {0.25f, 0.25f, 0.28f, 1.f};
    glLightfv(GL_LIGHT0, GL_POSITION, pos);
    glLightfv(GL_LIGHT0, GL_AMBIENT, ambient);
    glEnable(GL_COLOR_MATERIAL);
    glColorMaterial(GL_FRONT_AND_BACK, GL_AMBIENT_AND_DIFFUSE);
    glColor3f(0.52f, 0.45f, 0.41f);
    body.drawSurface(true);
    glDisable(GL_LIGHTING);
}

void drawStrandsWithWidths(const ZFollicles& f, const ZCurves& c, const std::vector<float>& perCV);

// Ribbons facing the eye, width and opacity interpolated from root to tip, shaded by a
// simple hair term on the tangent.
void drawStrands(const ZFollicles& f, const ZCurves& c) {
    std::vector<float> perCV;
    for (int i = 0; i < c.numCurves(); ++i)
        for (int j = 0; j < c.numCVs[i]; ++j) {
            const float t = c.numCVs[i] > 1 ? static_cast<float>(j) / static_cast<float>(c.numCVs[i] - 1) : 0.f;
            perCV.push_back((1.f - t) * f.rwh[i] + t * f.twh[i]);
        }
    drawStrandsWithWidths(f, c, perCV);
}

// The same ribbons with a width given for every CV.
void drawStrandsWithWidths(const ZFollicles& f, const ZCurves& c, const std::vector<float>& perCV) {
    glEnable(GL_BLEND);
    glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    glDepthMask(GL_FALSE);
    size_t base = 0;  // perCV runs strand after strand
    for (int i = 0; i < c.numCurves(); base += static_cast<size_t>(std::max(c.numCVs[i], 0)), ++i) {
        const int n = c.numCVs[i];
        if (n < 2) continue;
        const ZVector* p = c.cvs.data() + c.start[i];
        glBegin(GL_TRIANGLE_STRIP);
        for (int j = 0; j < n; ++j) {
            const float t = static_cast<float>(j) / static_cast<float>(n - 1);
            const ZVector tangent = (p[std::min(j + 1, n - 1)] - p[std::max(j - 1, 0)]).normalized(false);
            const ZVector side = tangent.cross(kEye - p[j]).normalized(false);
            const float width = perCV[base + static_cast<size_t>(j)];
            const float alpha = (1.f - t) * f.rop[i] + t * f.top[i];
            const float sinTL = std::sqrt(std::max(0.f, 1.f - tangent.dot(kLight) * tangent.dot(kLight)));
            const float shade = 0.35f + 0.65f * sinTL;
            glColor4f(shade * (0.22f + 0.6f * t), shade * (0.13f + 0.45f * t), shade * (0.07f + 0.25f * t),
                      std::min(1.f, std::max(0.f, alpha)));
            const ZVector a = p[j] + side * (0.5f * width), b = p[j] - side * (0.5f * width);
            glVertex3f(a.x, a.y, a.z);
            glVertex3f(b.x, b.y, b.z);
        }
        glEnd();
    }
    glDepthMask(GL_TRUE);
    glDisable(GL_BLEND);
}

// Every strand carries the feather template, placed along the strand with a fold; the
// vanes are lit, each feather's shade varied a little by its strand's id.
void drawFeathers(const ZFeather& feather, const ZFollicles& f, const ZCurves& c, float fold) {
    glEnable(GL_LIGHTING);
    glEnable(GL_COLOR_MATERIAL);
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, GL_TRUE);
    ZVectorArray placed(feather.mesh.points.size());
    for (int i = 0; i < c.numCurves(); ++i) {
        feather.deform(f, c, i, 1.f, fold, &placed, nullptr, nullptr, false);
        const float shade = 0.75f + 0.5f * ZRandomUnit(static_cast<uint32_t>(f.uid[i]));
        glColor3f(feather.color[0] * shade, feather.color[1] * shade, feather.color[2] * shade);
        glBegin(GL_TRIANGLES);
        for (const auto& t : feather.mesh.v012) {
            const ZVector n = (placed[t[1]] - placed[t[0]]).cross(placed[t[2]] - placed[t[0]]).normalized(false);
            glNormal3fv(&n.x);
            for (int k = 0; k < 3; ++k) glVertex3fv(&placed[t[k]].x);
        }
        glEnd();
    }
    glLightModeli(GL_LIGHT_MODEL_TWO_SIDE, GL_FALSE);
    glDisable(GL_LIGHTING);
}

void clearPanel(int x, int width, int height) {
    glEnable(GL_SCISSOR_TEST);
    glScissor(x, 0, width, height);
    glClearColor(0.13f, 0.14f, 0.16f, 1.f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
    glEnable(GL_DEPTH_TEST);
    setCamera(x, width, height);
}

void drawPanel(const Scene& s, const ZFollicles& f, const ZCurves& c, int x, int width, int height) {
    clearPanel(x, width, height);
    drawBody(s.body);
    drawStrands(f, c);
}

// Box filter of the supersampled framebuffer down to the output size.
std::vector<uint8_t> downsample(const std::vector<uint8_t>& big, int width, int height) {
    std::vector<uint8_t> out(static_cast<size_t>(width) * height * 4);
    const int W = width * kSuper;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int ch = 0; ch < 4; ++ch) {
                int sum = 0;
                for (int dy = 0; dy < kSuper; ++dy)
                    for (int dx = 0; dx < kSuper; ++dx)
                        sum += big[((static_cast<size_t>(y) * kSuper + dy) * W + (x * kSuper + dx)) * 4 + ch];
                out[(static_cast<size_t>(y) * width + x) * 4 + ch] = static_cast<uint8_t>(sum / (kSuper * kSuper));
            }
    return out;
}

// Binds every strand to the nearest of every `every`-th strand (its guide), with the host
// toolkit: what a host's clump set-up does before it hands bdi to the library.
void bindToNearestGuides(ZFollicles& f, int every) {
    ZIntArray guides;
    for (int g = 0; g < f.numStrands(); g += every) guides.push_back(g);
    ZGuideBinder binder;
    if (!binder.bind(f, guides)) {
        std::cerr << "gallery: " << binder.message << "\n";
        std::exit(1);
    }
}

struct Entry {
    const char* name;
    std::function<void(ZFollicles&, ZCurves&)> apply;
    // Optional: brings the built-in groom into the "before" state this modifier is best seen on.
    std::function<void(ZFollicles&, ZCurves&)> prepare = nullptr;
};

// Lays the strands down along the body (a strong pitch), for modifiers that are hard to
// see on strands standing straight out.
void layDown(ZFollicles& f, ZCurves& c) {
    ZDirectionModifier m;
    m.pitch = 70; m.pitchSeed = 6; m.pitchRand = 0; m.pitchFreq = 1;
    m.pitchExpr = "pitch";
    m.yaw = 0; m.yawSeed = 7; m.yawRand = 0; m.yawFreq = 1;
    m.yawExpr = "";
    m.maskExpr = "";
    m.apply(f, c, c);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: gallery OUTPUT_DIR\n";
        return 2;
    }
    const std::string outDir = argv[1];
    std::error_code ec;
    std::filesystem::create_directories(outDir, ec);

    Scene s;
    examples::buildSphere(1.f, 32, 64, s.body);
    ZBodyFrames bodyFrames;
    if (!bodyFrames.build(s.body) || !bodyFrames.compute(s.body, s.frames)) return 1;
    examples::growStrands(s.body, s.frames, 2500, 16, 0.45f, s.groom, s.curves);
    s.groom.setRootWidth(0.011f, 0.013f, true);
    s.groom.setTipWidth(0.003f, 0.004f, true);
    s.groom.setRootOpacity(1.f, 1.f, true);
    s.groom.setTipOpacity(0.85f, 0.95f, true);

    const std::vector<Entry> entries = {
        {"width", [](ZFollicles& f, ZCurves& c) {
             ZWidthModifier m;
             m.tWidth = 0.012f; m.tSeed = 1; m.tRand = 0; m.tFreq = 2;
             m.tExpr = "tWidth * (0.2 + 0.8 * (0.5 + 0.5 * znoise(freq, x, y, z)))";
             m.rWidth = 0.04f; m.rSeed = 2; m.rRand = 0; m.rFreq = 1;
             m.rExpr = "rWidth * (0.15 + u)";  // thin on one side of the body, thick on the other
             m.apply(f, c, c);
         }},
        {"opacity", [](ZFollicles& f, ZCurves& c) {
             ZOpacityModifier m;
             m.tOpacity = 1; m.tSeed = 1; m.tRand = 0; m.tFreq = 2.5f;
             m.tExpr = "clamp(0.5 + 1.5 * znoise(freq, x, y, z), 0, 1) * tOpacity";
             m.rOpacity = 1; m.rSeed = 1; m.rRand = 0; m.rFreq = 1;
             m.rExpr = "rOpacity * (v > 0.5 ? 1 : 0.35)";
             m.apply(f, c, c);
         }},
        {"scale", [](ZFollicles& f, ZCurves& c) {
             ZScaleModifier m;
             m.scale = 1; m.seed = 3; m.rand = 0.7f; m.freq = 1.5f;
             m.expr = "scale + rand * znoise(freq, x, y, z)";
             m.maskExpr = "";
             m.apply(f, c, c);
         }},
        {"cut", [](ZFollicles& f, ZCurves& c) {
             ZCutModifier m;
             m.cut = 0.45f; m.seed = 4; m.rand = 0.2f; m.freq = 3;
             m.expr = "cut + rand * znoise(freq, x, y, z)";
             m.maskExpr = "0.4";  // four strands in ten keep their length
             m.apply(f, c, c);
         }},
        {"offset", [](ZFollicles& f, ZCurves& c) {
             ZOffsetModifier m;
             m.offset = 0.25f; m.seed = 5; m.rand = 0; m.freq = 1;
             m.expr = "offset * (v > 0.5)";  // the upper half of the coat lifted off the skin
             m.maskExpr = "";
             m.alongStrand = false;
             m.apply(f, c, c);
         }, layDown},
        {"direction", [](ZFollicles& f, ZCurves& c) {
             ZDirectionModifier m;
             m.pitch = 65; m.pitchSeed = 6; m.pitchRand = 0; m.pitchFreq = 2;
             m.pitchExpr = "pitch + 10 * znoise(freq, x, y, z)";
             m.yaw = 0; m.yawSeed = 7; m.yawRand = 0; m.yawFreq = 3;
             m.yawExpr = "25 * znoise(freq, x, y, z)";
             m.maskExpr = "";
             m.apply(f, c, c);
         }},
        {"bend", [](ZFollicles& f, ZCurves& c) {
             ZBendModifier m;
             m.bend = 15; m.bendSeed = 8; m.bendRand = 0; m.bendFreq = 2;
             m.bendExpr = "bend * (0.8 + 0.4 * znoise(freq, x, y, z))";
             m.rate = 1; m.rateSeed = 9; m.rateRand = 0; m.rateFreq = 1;
             m.rateExpr = "rate";
             m.maskExpr = "";
             m.start = 0.1f; m.startExpr = "start";
             m.end = 1; m.endExpr = "end";
             m.tipWeighted = true;
             m.apply(f, c, c);
         }},
        {"clump", [](ZFollicles& f, ZCurves& c) {
             bindToNearestGuides(f, 25);
             const ZCurves guides = c;
             ZClumpModifier m;
             m.clump = 0.9f; m.clumpSeed = 10; m.clumpRand = 0; m.clumpFreq = 1;
             m.clumpExpr = "clump";
             m.rate = 2.f; m.rateSeed = 11; m.rateRand = 0; m.rateFreq = 1;
             m.rateExpr = "rate";
             m.maskExpr = "";
             m.strayRatioExpr = "0.08";
             m.strayAmountExpr = "0.8";
             m.keepLength = false;
             m.rampType = 1;
             m.apply(f, c, guides);
         }},
        {"kink", [](ZFollicles& f, ZCurves& c) {
             ZKinkModifier m;
             m.kink = 0.03f; m.kinkSeed = 12; m.kinkRand = 0; m.kinkFreq = 1;
             m.kinkExpr = "kink";
             m.tWidth = 0.06f; m.tWidthSeed = 13; m.tWidthRand = 0; m.tWidthFreq = 1;
             m.tWidthExpr = "tWidth";
             m.rWidth = 0.01f; m.rWidthSeed = 14; m.rWidthRand = 0; m.rWidthFreq = 1;
             m.rWidthExpr = "rWidth";
             m.maskExpr = "";
             m.tipFade = 0.f;
             m.rootFade = 0.2f;
             m.apply(f, c, c);
         }},
        {"frizz", [](ZFollicles& f, ZCurves& c) {
             ZFrizzModifier m;
             m.frizz = 0.25f; m.frizzSeed = 15; m.frizzRand = 0; m.frizzFreq = 1;
             m.frizzExpr = "frizz";
             m.tWidth = 1; m.tWidthSeed = 16; m.tWidthRand = 0; m.tWidthFreq = 1;
             m.tWidthExpr = "tWidth";
             m.rWidth = 0.1f; m.rWidthSeed = 17; m.rWidthRand = 0; m.rWidthFreq = 1;
             m.rWidthExpr = "rWidth";
             m.maskExpr = "0.5";  // half the strands frizzy
             m.apply(f, c, c);
         }},
    };

    HeadlessGL gl(2 * kPanel * kSuper, kPanel * kSuper);
    if (!gl.ok()) {
        std::cerr << "no headless OpenGL context: " << gl.error() << "\n";
        return 1;
    }
    for (const Entry& e : entries) {
        ZFollicles before = s.groom;
        ZCurves beforeCurves = s.curves;
        if (e.prepare) e.prepare(before, beforeCurves);
        ZFollicles f = before;
        ZCurves c = beforeCurves;
        e.apply(f, c);
        drawPanel(s, before, beforeCurves, 0, kPanel * kSuper, kPanel * kSuper);
        drawPanel(s, f, c, kPanel * kSuper, kPanel * kSuper, kPanel * kSuper);
        glFinish();
        const std::string path = outDir + "/" + e.name + ".png";
        if (!examples::writePng(path, 2 * kPanel, kPanel, downsample(gl.readPixels(), 2 * kPanel, kPanel))) {
            std::cerr << "cannot write " << path << "\n";
            return 1;
        }
        std::cout << "wrote " << path << "\n";
    }

    // The groom in USD: exported as curves, read back by usd-core, drawn from its points,
    // counts and per-vertex widths (the doubled end points the export adds are skipped).
    {
        ZFollicles f = s.groom;
        ZCurves c = s.curves;
        layDown(f, c);
        const std::string usdPath = outDir + "/.usd-readback";
        ZCurvesToUSD x;
        x.name = "gallery:hair";
        x.basePath = usdPath;
        x.follicles = &f;
        x.curves = &c;
        ZBoundingBox box = c.boundingBox(false, true);
        x.boundingBox = &box;
        x.exportRatio = 1.f;
        x.writeAttributeToUSD(true);
        x.writeGeometryToUSD(1.f, true, false);
        const std::string file = usdPath + ".high_geom.usd", raw = usdPath + ".raw";
        const std::string cmd = std::string("'") + GROOMCORE_PYTHON + "' '" + GROOMCORE_EXAMPLES_DIR +
                                "/usd_readback.py' '" + file + "' '" + raw + "'";
        if (std::system(cmd.c_str()) != 0) {
            std::cerr << "usd-core could not read " << file << " back\n";
            return 1;
        }
        std::ifstream in(raw, std::ios::binary);
        ZIntArray counts;
        ZVectorArray points;
        ZFloatArray widths;
        counts.read(in, true);
        points.read(in, true);
        widths.read(in, true);
        std::filesystem::remove(file);
        std::filesystem::remove(raw);
        const int w = kPanel * kSuper;
        drawPanel(s, f, c, 0, w, w);
        clearPanel(w, w, w);
        drawBody(s.body);
        // Rebuild strands and their widths from the file's arrays, without the doubled ends.
        ZCurves back;
        ZFollicles look = f;
        std::vector<float> perCV;
        for (int i = 0, at = 0; i < counts.length(); at += counts[i++]) {
            back.push(points.data() + at + 1, counts[i] - 2);
            perCV.insert(perCV.end(), widths.begin() + at + 1, widths.begin() + at + counts[i] - 1);
        }
        drawStrandsWithWidths(look, back, perCV);
        glFinish();
        const std::string path = outDir + "/usd.png";
        if (!examples::writePng(path, 2 * kPanel, kPanel, downsample(gl.readPixels(), 2 * kPanel, kPanel))) {
            std::cerr << "cannot write " << path << "\n";
            return 1;
        }
        std::cout << "wrote " << path << " (" << back.numCurves() << " curves, " << points.length()
                  << " points read back by usd-core)\n";
    }

    // The feathered groom: fewer, longer strands, combed and bent, lean axes recomputed
    // from the combed strands so that each feather lies across its strand.
    {
        ZFollicles f;
        ZCurves c;
        examples::growStrands(s.body, s.frames, 1600, 12, 0.42f, f, c);
        f.setRootWidth(0.01f, 0.01f, true);
        f.setTipWidth(0.004f, 0.004f, true);
        f.setRootOpacity(1.f, 1.f, true);
        f.setTipOpacity(1.f, 1.f, true);
        layDown(f, c);
        ZBendModifier bend;
        bend.bend = -4; bend.bendSeed = 1; bend.bendRand = 0; bend.bendFreq = 1; bend.bendExpr = "bend";
        bend.rate = 1; bend.rateSeed = 2; bend.rateRand = 0; bend.rateFreq = 1; bend.rateExpr = "rate";
        bend.maskExpr = "";
        bend.start = 0.2f; bend.startExpr = "start";
        bend.end = 1; bend.endExpr = "end";
        bend.tipWeighted = true;
        bend.apply(f, c, c);
        f.calcRxy(c, true);
        ZFeather feather;
        examples::buildFeatherTemplate(40, 9, feather);
        const int w = kPanel * kSuper;
        drawPanel(s, f, c, 0, w, w);
        clearPanel(w, w, w);
        drawBody(s.body);
        drawFeathers(feather, f, c, 0.35f);
        glFinish();
        const std::string path = outDir + "/feathers.png";
        if (!examples::writePng(path, 2 * kPanel, kPanel, downsample(gl.readPixels(), 2 * kPanel, kPanel))) {
            std::cerr << "cannot write " << path << "\n";
            return 1;
        }
        std::cout << "wrote " << path << "\n";
    }
    return 0;
}
