// Writes a groomed node to USD for lighting and rendering, in two halves: the attribute
// half (topology, widths, primvars: what stands still) once, and the geometry half
// (points, normals, extents: what moves) for each time. Plain strands become one
// BasisCurves prim; in feather mode every feather kind becomes one Mesh holding all its
// placed copies and all feather curves one BasisCurves prim, under an Xform.
//
// Files are named basePath.{high|low}_kind[.time]suffix. Without perFrameFiles both
// halves share one file: write the attribute half first (it clears the file), then the
// geometry for each time, which gathers as time samples when hasFrameRange is set and
// overwrites a single default value when it is not.
//
// The layers are authored through OpenUSD's Sdf layer API with the prims, attributes,
// metadata, values and time samples that UsdStage and UsdGeom calls would author (the
// test suite compares every file with what the real UsdGeom API writes from the same
// data). `stage` holds the layer of the last call, which keeps it alive in USD's layer
// registry so that later calls on the same file find it and add to it.
//
// The object holds pointers to the host's data, which must outlive the calls. One object
// per node, used from one thread; two objects must not write one file at once.
#pragma once

#include <pxr/sdf/layer.h>
#include <pxr/vt/types.h>

#include <memory>
#include <string>
#include <vector>

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "strands/ZFollicles.h"

class ZCurvesToUSD {
public:
    Ulmex::ZString name;          // the node; its namespace is stripped by every writer
    Ulmex::ZString reservedText;  // not read
    Ulmex::ZString suffix;        // ".usd"
    Ulmex::ZString basePath;      // file path up to the first dot
    Ulmex::ZString kind;          // "geom"
    ZFollicles* follicles;             // the strands' roots and per-strand data
    Ulmex::ZCurves* curves;            // the strands' CVs at the time being written
    Ulmex::ZBoundingBox* boundingBox;  // the frame's bounds: the curves' extent
    int bindingScheme;                 // feathers: 4 and 6 follow the strand, others are rigid
    std::vector<ZFeather*> feathers;   // feather kinds, indexed by the follicles' rtp
    Ulmex::ZVectorArray* scales;       // per strand, feathers only
    Ulmex::ZVectorArray* rotations;    // per strand, degrees, feathers only
    Ulmex::ZFloatArray* folds;         // per strand, feathers only
    bool writeNormals;                 // curves: also the root normal of each strand
    bool perFrameFiles;                // one file per time
    bool featherMode;                  // the feather writers instead of the curve writers
    float time;                        // time of the call in progress
    bool high;                         // detail of the call in progress
    bool hasFrameRange;                // one file gathering samples over startTime..endTime
    float startTime;
    float endTime;
    float exportRatio;                 // divides the strand step; in (0, 1]
    pxr::SdfLayerRefPtr stage;         // the layer of the last call
    // Why the last entry call wrote no file, empty when it wrote its file whole. A file the
    // disk could not take whole (a full disk, a quota, an I/O error) is removed rather than
    // left cut short under its name; the call reports "Error@ZCurvesToUSD::writeGeometryToUSD():
    // cannot write PATH (why)" (or writeAttributeToUSD) through the message sink.
    Ulmex::ZString failure;

    // Strings as documented, flags false; the fields a call reads that have no natural
    // default (bindingScheme, time, high, hasFrameRange, startTime, endTime,
    // exportRatio) start as 0, false and 1 and must still be set by the host.
    ZCurvesToUSD();

    // Clears follicles, curves and boundingBox, and nothing else.
    void reset();

    // The name without its first namespace level: "ns:hair" gives "hair", "a:b:c" gives
    // "b", a name without a colon is returned as it is.
    Ulmex::ZString removeNamespace(Ulmex::ZString& name);

    // The prim name a node or feather name is written under (after removeNamespace), made
    // a valid USD identifier as USD's own exporters make one (TfMakeValidIdentifier): every
    // character but an ASCII letter, digit or underscore, and a leading digit, becomes an
    // underscore, and an empty name is "_". "fur.001" gives "fur_001", "my fur" "my_fur",
    // "1fur" "_fur". Names that are valid already are kept as they are.
    static Ulmex::ZString primName(const Ulmex::ZString& name);

    // The file writeGeometryToUSD(time, high, subFrame) writes, and the one
    // writeAttributeToUSD(high) writes, from basePath, kind, suffix and perFrameFiles:
    // "hair.high_geom.1001.usd", "hair.high_geom.1001.50.usd", "hair.high_geom.0000.usd";
    // without perFrameFiles both are "hair.high_geom.usd".
    std::string geometryFile(float time, bool high, bool subFrame) const;
    std::string attributeFile(bool high) const;

    // The geometry half at `time`: with perFrameFiles into a cleared file of its own (a
    // fractional or subFrame time keeps two decimals in "high" file names), otherwise
    // into the shared file, as time samples with hasFrameRange or as the default value
    // without.
    void writeGeometryToUSD(float time, bool high, bool subFrame);
    // The attribute half, at the default time, into a cleared file (named .0000 with
    // perFrameFiles).
    void writeAttributeToUSD(bool high);

    // The curves the curve writers author at level `h` from follicles and curves (every
    // strand, or every few at the low level and below an exportRatio of 1), for hosts that
    // write the same curves in another format (groomcore export-abc): points, each curve's
    // first and last CV written twice; counts, its CVs plus 2; widths, one per point, a
    // straight run from the root width (rwh) to the tip width (twh); strands, the number of
    // each strand written (the "uids" primvar); st, its root's (u, v). Any pointer may be
    // null.
    void curveArrays(bool h, pxr::VtVec3fArray* points, pxr::VtIntArray* counts, pxr::VtFloatArray* widths,
                     pxr::VtIntArray* strands, pxr::VtVec2fArray* st) const;

    // The four writers the two entry operations call; `stage` must hold a layer.
    void writeGeometryToCurve();
    void writeAttributeToCurve();
    void writeGeometryToFeather();
    void writeAttributeToFeather();

private:
    // The curve writer's point and normal arrays, kept from call to call: once the layer of
    // the last frame has let go of them, the next frame of the same size fills them in place
    // instead of taking (and faulting in) hundreds of MB of fresh memory. A copy of the
    // exporter starts without them.
    struct Scratch;
    struct ScratchHolder {
        std::unique_ptr<Scratch> p;
        ScratchHolder();
        ScratchHolder(const ScratchHolder&);
        ScratchHolder& operator=(const ScratchHolder&);
        ~ScratchHolder();
    };
    ScratchHolder _scratch;
};
