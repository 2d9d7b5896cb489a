// Bakes one groomed node to a cache directory, `path`/`nodeName`: what stands still over a
// shot once (`info`, `follicles`, and for a feathered groom `feathers`, `rmanAttrs`,
// `featherRManAttrs`), and one set of files per frame (`curves_`, `bbox_`, and when given
// `xforms_` and `folds_`, each ending in the frame tag: p1001, m-5, p0, p1.5).
//
// The object owns no strand data: the host points its fields at its own follicles,
// curves, bounds and feathers, which must outlive the bake calls. Failures print one
// "Error@ZCacheData::bakeStaticData(): ..." line (from either bake) and return false;
// files written before the failure stay.
#pragma once

#include <ostream>
#include <vector>

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "strands/ZFollicles.h"

class ZCacheData {
public:
    Ulmex::ZString cacheType;     // filled by getInfo; baking derives the type itself
    Ulmex::ZString nodeName;      // names the cache directory
    Ulmex::ZString nodeType;      // the host node's type, recorded in the info file
    Ulmex::ZString meshNodeName;  // the body the groom is bound to, recorded in the info file
    int bindingScheme;             // how feathers follow their strands, recorded in the info file
    int textureType;               // the host's texture type, recorded in the info file
    float cacheFormatVersion;     // printed only: every bake writes version 1
    ZFollicles* follicles;         // roots and per-strand data: the follicles file, each frame's record
    Ulmex::ZCurves* curves;       // the strands' CVs of the frame being baked
    Ulmex::ZBoundingBox* boundingBox;  // bounds of the frame being baked
    std::vector<ZFeather*> feathers;   // kept by reset()
    Ulmex::ZVectorArray* scales;       // per strand, with rotations: the xforms_ file
    Ulmex::ZVectorArray* rotations;    // Euler angles in degrees
    Ulmex::ZFloatArray* folds;         // per strand fold angle: the folds_ file

    ZCacheData();

    // Texts empty, both ints -1, version 1.0, every pointer null; feathers untouched.
    void reset();

    // Creates the directory (mode 0755; an existing one will do) and writes `info`,
    // `follicles` and, with feathers, the three feather files. Needs follicles and curves.
    bool bakeStaticData(const Ulmex::ZString& path) const;
    // Writes one frame's files into the existing directory. follicles, curves and
    // boundingBox must be set; xforms_ needs both scales and rotations, folds_ needs folds.
    // Refused before any file is written, with "No data." when a pointer (or a feather) is
    // null, and with "Wrong data: ..." when the curves are not one per strand inside their
    // CVs or the per-strand arrays it writes are not one element per strand.
    bool bakePerFrameData(const Ulmex::ZString& path, float frame) const;

    // Reads the full path of an `info` file into the head fields, after clearing them
    // (version 0 when the record has none). False only when the file cannot be opened.
    bool getInfo(const char* file);
};

std::ostream& operator<<(std::ostream& os, const ZCacheData& data);
