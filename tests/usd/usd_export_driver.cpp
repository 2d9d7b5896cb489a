// Runs one export scenario through ZCurvesToUSD, for the comparison with the reference
// writer on usd-core (usd_reference_writer.py), which reads the same two inputs:
//
//   usd_export_driver INPUTS OPS BASEPATH
//   usd_export_driver --curve-prims FILE   (the BasisCurves ZCurvesFromUSD finds, or why not)
//
// INPUTS holds named arrays (see usd_scenarios.py): the strands, the follicle arrays the
// exporter reads, the box, per-strand feather transforms and the feather templates. OPS has
// one call per line:
//   set FIELD VALUE        writeNormals, perFrameFiles, featherMode, hasFrameRange (0/1),
//                          startTime, endTime, exportRatio (float), bindingScheme (int),
//                          name, kind, suffix (text)
//   move DX DY DZ          adds the offset to every CV, root and the box (a new frame)
//   attr HIGH              writeAttributeToUSD
//   geom TIME HIGH SUB     writeGeometryToUSD
// Before every geom call in feather mode with binding scheme 4 or 6 it writes
// BASEPATH.placed.N (N counting geom calls from 0): for every strand, the feather it
// carries placed by ZFeather::deform, mesh points then curve CVs, as raw floats; the
// reference writer takes its deformed feathers from there.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "usd/ZCurvesFromUSD.h"
#include "usd/ZCurvesToUSD.h"

using namespace Ulmex;

namespace {

struct Blob {
    int kind = 0;  // 0 float32, 1 int32, 2 bytes
    std::vector<char> data;
    template <typename T>
    std::vector<T> as() const {
        std::vector<T> v(data.size() / sizeof(T));
        if (!v.empty()) std::memcpy(v.data(), data.data(), v.size() * sizeof(T));
        return v;
    }
    std::string text() const { return std::string(data.begin(), data.end()); }
};

std::map<std::string, Blob> readInputs(const char* path) {
    std::map<std::string, Blob> out;
    std::ifstream in(path, std::ios::binary);
    int32_t len = 0;
    while (in.read(reinterpret_cast<char*>(&len), 4)) {
        std::string name(static_cast<size_t>(len), '\0');
        in.read(&name[0], len);
        int32_t kind = 0, count = 0;
        in.read(reinterpret_cast<char*>(&kind), 4);
        in.read(reinterpret_cast<char*>(&count), 4);
        Blob b;
        b.kind = kind;
        b.data.resize(static_cast<size_t>(count) * (kind == 2 ? 1 : 4));
        in.read(b.data.data(), static_cast<std::streamsize>(b.data.size()));
        out[name] = std::move(b);
    }
    return out;
}

template <typename T>
void put(std::vector<T>& dst, const Blob* b) {
    if (b) dst = b->as<T>();
}

ZVectorArray vectors(const std::vector<float>& f) {
    ZVectorArray v(f.size() / 3);
    for (size_t i = 0; i < v.size(); ++i) v[i] = ZVector(f[3 * i], f[3 * i + 1], f[3 * i + 2]);
    return v;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::string(argv[1]) == "--curve-prims") {
        ZCurvesFromUSD reader;
        for (const std::string& p : reader.curvePrims(argv[2])) std::cout << p << "\n";
        if (!reader.message.empty()) std::cerr << reader.message << "\n";
        return reader.message.empty() ? 0 : 1;
    }
    if (argc != 4) {
        std::cerr << "usage: usd_export_driver INPUTS OPS BASEPATH\n";
        return 2;
    }
    auto in = readInputs(argv[1]);
    auto get = [&](const std::string& k) -> const Blob* {
        auto it = in.find(k);
        return it == in.end() ? nullptr : &it->second;
    };

    ZCurves curves;
    const auto numCVs = get("numCVs")->as<int>();
    curves.numCVs.assign(numCVs.begin(), numCVs.end());
    curves.cvs = vectors(get("cvs")->as<float>());
    for (int i = 0, s = 0; i < curves.numCurves(); s += curves.numCVs[i++]) curves.start.push_back(s);

    ZFollicles f;
    f.reset();
    const auto rtp = get("rtp")->as<int>();
    f.rtp.assign(rtp.begin(), rtp.end());
    f.tgl.assign(rtp.size(), 0);
    f.uvw = vectors(get("uvw")->as<float>());
    const auto rwh = get("rwh")->as<float>(), twh = get("twh")->as<float>(), ln1 = get("ln1")->as<float>();
    f.rwh.assign(rwh.begin(), rwh.end());
    f.twh.assign(twh.begin(), twh.end());
    f.ln1.assign(ln1.begin(), ln1.end());
    const auto rxy = get("rxy")->as<float>(), axs = get("axs")->as<float>();
    for (size_t i = 0; i < rtp.size(); ++i) {
        f.rxy.push_back(ZTuple<2, float>(rxy[2 * i], rxy[2 * i + 1]));
        ZAxis a;
        const float* p = &axs[12 * i];
        a.origin = ZVector(p[0], p[1], p[2]);
        a.xAxis = ZVector(p[3], p[4], p[5]);
        a.yAxis = ZVector(p[6], p[7], p[8]);
        a.zAxis = ZVector(p[9], p[10], p[11]);
        f.axs.push_back(a);
    }
    const auto box = get("box")->as<float>();
    ZBoundingBox bbox(ZVector(box[0], box[1], box[2]), ZVector(box[3], box[4], box[5]));
    ZVectorArray scales = vectors(get("scales")->as<float>()), rotations = vectors(get("rotations")->as<float>());
    const auto foldValues = get("folds")->as<float>();
    ZFloatArray folds(foldValues.begin(), foldValues.end());

    const int featherCount = get("feather.count") ? get("feather.count")->as<int>()[0] : 0;
    std::vector<ZFeather> feathers(static_cast<size_t>(featherCount));
    for (int k = 0; k < featherCount; ++k) {
        const std::string p = "feather." + std::to_string(k) + ".";
        ZFeather& fe = feathers[static_cast<size_t>(k)];
        fe.name = get(p + "name")->text();
        fe.mesh.points = vectors(get(p + "points")->as<float>());
        const auto tri = get(p + "v012")->as<int>();
        for (size_t t = 0; t + 2 < tri.size(); t += 3) fe.mesh.v012.push_back(ZTuple<3, int>(tri[t], tri[t + 1], tri[t + 2]));
        fe.mesh.uvs = vectors(get(p + "uvs")->as<float>());
        const auto counts = get(p + "numCVs")->as<int>();
        const ZVectorArray cvs = vectors(get(p + "cvs")->as<float>());
        for (size_t c = 0, s = 0; c < counts.size(); s += static_cast<size_t>(counts[c++]))
            fe.curves.push(cvs.data() + s, counts[c]);
        fe.txLayerName = get(p + "txLayerName")->text();
        fe.txBasePath = get(p + "txBasePath")->text();
        fe.MaterialSet = get(p + "MaterialSet")->text();
        fe.txmultiUV = get(p + "txmultiUV")->as<int>()[0];
        fe.latticeResolution = 4;
        fe.initialize();
    }

    ZCurvesToUSD x;
    x.basePath = argv[3];
    x.follicles = &f;
    x.curves = &curves;
    x.boundingBox = &bbox;
    x.scales = &scales;
    x.rotations = &rotations;
    x.folds = &folds;
    for (ZFeather& fe : feathers) x.feathers.push_back(&fe);

    std::ifstream ops(argv[2]);
    std::string line;
    int geomCalls = 0;
    while (std::getline(ops, line)) {
        std::istringstream w(line);
        std::string op;
        w >> op;
        if (op == "set") {
            std::string field, value;
            w >> field;
            std::getline(w >> std::ws, value);
            if (field == "writeNormals") x.writeNormals = value == "1";
            else if (field == "perFrameFiles") x.perFrameFiles = value == "1";
            else if (field == "featherMode") x.featherMode = value == "1";
            else if (field == "hasFrameRange") x.hasFrameRange = value == "1";
            else if (field == "startTime") x.startTime = std::stof(value);
            else if (field == "endTime") x.endTime = std::stof(value);
            else if (field == "exportRatio") x.exportRatio = std::stof(value);
            else if (field == "bindingScheme") x.bindingScheme = std::stoi(value);
            else if (field == "name") x.name = value;
            else if (field == "kind") x.kind = value;
            else if (field == "suffix") x.suffix = value;
        } else if (op == "move") {
            float d[3];
            w >> d[0] >> d[1] >> d[2];
            const ZVector m(d[0], d[1], d[2]);
            for (ZVector& p : curves.cvs) p = p + m;
            for (ZAxis& a : f.axs) a.origin = a.origin + m;
            bbox.minPoint = bbox.minPoint + m;
            bbox.maxPoint = bbox.maxPoint + m;
        } else if (op == "attr") {
            int high = 0;
            w >> high;
            x.writeAttributeToUSD(high != 0);
        } else if (op == "geom") {
            float t = 0;
            int high = 0, sub = 0;
            w >> t >> high >> sub;
            if (x.featherMode && (x.bindingScheme == 4 || x.bindingScheme == 6)) {
                std::ofstream out(std::string(argv[3]) + ".placed." + std::to_string(geomCalls), std::ios::binary);
                for (int i = 0; i < f.numStrands(); ++i) {
                    if (f.rtp[i] < 0 || f.rtp[i] >= featherCount) continue;
                    const ZFeather& fe = feathers[static_cast<size_t>(f.rtp[i])];
                    ZVectorArray mesh(fe.mesh.points.size()), cv(fe.curves.cvs.size());
                    fe.deform(f, curves, i, scales[i].x, folds[i], &mesh, nullptr, &cv, x.bindingScheme == 6);
                    out.write(reinterpret_cast<const char*>(mesh.data()), static_cast<std::streamsize>(mesh.size() * 12));
                    out.write(reinterpret_cast<const char*>(cv.data()), static_cast<std::streamsize>(cv.size() * 12));
                }
            }
            ++geomCalls;
            x.writeGeometryToUSD(t, high != 0, sub != 0);
        }
    }
    return 0;
}
