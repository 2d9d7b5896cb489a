// Free functions over a cache directory written by ZCacheData or ZCacheData2. They hold
// no state, print nothing and report by their result alone.
#pragma once

#include <utility>
#include <vector>

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "feathers/ZSource.h"
#include "strands/ZFollicles.h"

// The text fields of an `info` record. The caller owns it and gives it its first values:
// the readers neither clear nor initialise it, and a key a record lacks leaves its field.
struct RuvoCacheInfo {
    Ulmex::ZString cacheType;
    Ulmex::ZString nodeName;
    Ulmex::ZString nodeType;
    Ulmex::ZString meshNodeName;
    int bindingScheme;
    int textureType;
    float cacheFormatVersion;
};

// True when `path` exists and so does `path`/`name` (nothing looks inside it).
bool isValidCachePathAndCacheName(const Ulmex::ZString& path, Ulmex::ZString name);

// Reads `cacheDirectory`/info into `info` with the token loop: values end at a blank, a
// colon or a double-quote mark, an empty value reads as the comma behind it, a later key
// overwrites an earlier one, and counts are not read. False, with `info` unchanged, when
// the file cannot be opened; true for a file of any content.
bool readInfoData(const Ulmex::ZString& cacheDirectory, RuvoCacheInfo* info);

// Every key of `cacheDirectory`/info with its value as readInfoData reads it (the same
// token loop, so "NodeName":"ns:hair" gives "ns"), known or not, counts and the system
// lines included, in the order of first appearance, a later value replacing an earlier
// one. False, with `record` unchanged, when the file cannot be opened.
bool readInfoRecord(const Ulmex::ZString& cacheDirectory,
                    std::vector<std::pair<Ulmex::ZString, Ulmex::ZString>>* record);

// Loads one frame: `curves_` plus the frame text ("p1001", "m-5", and "z0" for frame 0,
// a name the bakers never write), then the static `follicles` record and the per-frame
// record behind the curves overlaid on it. False with nothing changed when the curves file
// is missing; false with the curves already filled when `follicles` is missing.
bool readStrandsData(const Ulmex::ZString& cacheDirectory, int frame, Ulmex::ZCurves* curves,
                     ZFollicles* follicles);

// True when the frame's `curves_` file (any frame the bakers write: p1001, p0, p1001.125)
// holds exactly what a bake writes: a curves record and a per-frame follicle record of the
// static record's strand count, nothing cut short and nothing behind. readStrandsData
// reads a record cut short as zeros past its end; this tells such a frame apart.
bool isStrandsFrameWhole(const Ulmex::ZString& cacheDirectory, float frame);

// The frames of the cache: every `curves_` file whose name is one the bakers write
// (curves_p1001, curves_m-5, curves_p1001.125), in increasing order. False, with `frames`
// unchanged, when the directory cannot be listed.
bool readCacheFrames(const Ulmex::ZString& cacheDirectory, std::vector<float>* frames);

// The files a bake writes for the host beside the strands, read back as they were written,
// so that a cache can be read whole. Each returns false, with its outputs unchanged, when
// its file is missing, cut short or damaged.
//
// The feather templates of `feathers` with their renderer attributes from `rmanAttrs` (both
// files are needed; their counts must agree). The templates are as they were baked: call
// initialize() on each before placing it.
bool readFeathersData(const Ulmex::ZString& cacheDirectory, std::vector<ZFeather>* feathers);
// The source templates of `sources`, as readFeathersData reads feathers.
bool readSourcesData(const Ulmex::ZString& cacheDirectory, std::vector<ZSource>* sources);
// The frame's bounds from `bbox_` (six finite numbers: min x, max x, min y, max y, min z,
// max z, to six significant digits, on one line that ends with its newline, as written).
bool readBoundingBoxData(const Ulmex::ZString& cacheDirectory, float frame, Ulmex::ZBoundingBox* box);
// The frame's per-strand feather scales and rotations (degrees) from `xforms_`: two arrays
// of the same length.
bool readFeatherTransformsData(const Ulmex::ZString& cacheDirectory, float frame, Ulmex::ZVectorArray* scales,
                               Ulmex::ZVectorArray* rotations);
// The frame's per-strand feather folds from `folds_`.
bool readFoldsData(const Ulmex::ZString& cacheDirectory, float frame, Ulmex::ZFloatArray* folds);

// ------------------------------------------------------------------ body rebinding

// The polygon mesh shape nodes of the Alembic file whose own name holds `bodyName` anywhere
// (an empty name matches every mesh), in walk order: the meshes findBodyMeshShapeNode
// chooses from. Face sets below a mesh do not matter, and other shapes (a subdivision
// surface, an empty group) are never a body. False, with `candidates` untouched, when the
// file cannot be opened.
bool findBodyMeshCandidates(const Ulmex::ZString& abcPath, const Ulmex::ZString& bodyName,
                            Ulmex::ZAlembicObjectArray* candidates);

// The one candidate of findBodyMeshCandidates. True with a copy in `object`; false, with
// `object` untouched, when the file cannot be opened or none or several meshes match.
bool findBodyMeshShapeNode(const Ulmex::ZString& abcPath, const Ulmex::ZString& bodyName,
                           Ulmex::ZAlembicObject* object);

// Reads the body at sample int(frame + 0.5), reverses its polygons (ReverseConnections),
// fan-triangulates them and places them by the world matrix; then for every strand of
// `curves`: refIdx, the point index of its root triangle's corner farthest from the root
// (axs origin; ties to the earlier corner); invRot, the inverse of the frame (tangent
// towards that corner, binormal, triangle normal) as a general 4 x 4 inverse; and the CVs
// made relative to the root, the root CV set to exactly zero. An object that is not a
// polygon mesh, a body whose triangles name missing points, or a strand whose tgl is not a
// triangle of the body (or follicles with fewer tgl or axs entries than strands) leave
// refIdx and invRot empty and the curves as they were. Runs the strands in parallel; the
// result does not depend on the thread count.
void setRefIdxAndInvRotAndCurves(double frame, const Ulmex::ZAlembicObject& object, const ZFollicles& follicles,
                                 Ulmex::ZCurves* curves, Ulmex::ZIntArray* refIdx, Ulmex::ZMatrixArray* invRot);

// Fan triangles (v0, v1+j, v2+j) of every polygon of three or more vertices; smaller
// polygons add nothing but still advance through `connections`.
Ulmex::ZInt3Array getv012(const Ulmex::ZIntArray& counts, const Ulmex::ZIntArray& connections);

// The UVs of the same fan, three entries per triangle: (uvs[2u], uvs[2u + 1], 0) for the
// corner's index u from `uvIndices`.
Ulmex::ZVectorArray getuvs(const Ulmex::ZIntArray& counts, const Ulmex::ZFloatArray& uvs,
                           const Ulmex::ZIntArray& uvIndices);
