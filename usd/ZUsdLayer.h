// One USD file's own layer, read at the Sdf level (no composition, no plug-ins beyond
// Sdf's), as the USD readers ZCurvesFromUSD and ZMeshFromUSD read it: attribute values at
// a time code as USD resolves them, and a prim's world matrix from the xformOps of the
// prim and of every prim above it. That is what a DCC's export or a flattened stage holds;
// a file whose prims come through references or payloads is flattened first (with
// usd-core in Python).
//
// Values are read as USD reads them: the time sample there, a linear blend of the two
// around it (arrays of equal length; otherwise the earlier one), the first before the
// first and the last after the last, and the default value without samples. The xformOps
// understood are translate, scale, rotateX/Y/Z, the six rotateXYZ orders, orient and
// transform, each possibly inverted ("!invert!"), and "!resetXformStack!".
#pragma once

#include <pxr/sdf/layer.h>
#include <pxr/sdf/path.h>
#include <pxr/vt/value.h>

#include <string>
#include <vector>

#include "base/UlmexBase.h"

class ZUsdLayer {
public:
    // Declares the fields the UsdGeom schemas add to Sdf's ("interpolation"), where the
    // OpenUSD in the process stops at Sdf, so that they are written and read back from text
    // layers. Once per process; a process whose OpenUSD has UsdGeom keeps its own.
    static void declareUsdGeomFields();

    // Opens `file`; false, with the reason in `why`, for a file that is no USD layer. A file
    // is first read whole in a process of its own (the verifier, once per version of the
    // file): OpenUSD's parsers, its crate reader above all, do not survive every corrupt
    // file, and one that ends the verifier, or keeps it longer than reading the file could
    // take, is refused here rather than opened in the host's process.
    bool open(const std::string& file, std::string& why);

    // The verifier's command, to which the file's path is added: by default the program
    // groomcore/usd/groomcore-usd-verify beside this library; the Python package names its
    // own interpreter. Empty for the default.
    static void setVerifier(const std::vector<std::string>& command);

    // What the verifier does: opens `file` and reads every value it holds (a crate file
    // unpacks its values only when asked). 0 when it could, 1 when OpenUSD cannot read the
    // file as a layer.
    static int readEveryValue(const std::string& file);

    // What every USD reader offers, for the prims of type `typeName` of `file`: their paths,
    // sorted (empty, with the reason in `why`, for a file that is no layer), and the first
    // and last time code at which the prim at `primPath` or a transform above it is sampled
    // (false for a prim nothing of which is animated, or, with `why`, one that cannot be read).
    static std::vector<std::string> primsOfType(const std::string& file, const std::string& typeName,
                                                std::string& why);
    static bool sampledTimes(const std::string& file, const std::string& primPath, const std::string& typeName,
                             double& first, double& last, std::string& why);

    // The paths of every prim of the layer whose type is `typeName`, sorted.
    std::vector<std::string> primsOfType(const std::string& typeName) const;

    // The prim at the absolute `primPath` if it has the type `typeName`; false, with the
    // reason (naming the file) in `why`, for no such prim or a prim of another type.
    bool findPrim(const std::string& primPath, const std::string& typeName, pxr::SdfPath& prim,
                  std::string& why) const;

    // The value of the prim's attribute `name` at `time` (empty where it has none).
    pxr::VtValue valueAt(const pxr::SdfPath& prim, const std::string& name, double time) const;

    // That value if it holds a T; false, leaving `out` alone, otherwise.
    template <typename T>
    bool get(const pxr::SdfPath& prim, const std::string& name, double time, T& out) const {
        const pxr::VtValue v = valueAt(prim, name, time);
        if (!v.IsHolding<T>()) return false;
        out = v.UncheckedGet<T>();
        return true;
    }

    // A metadata field of the prim's attribute `name` (the interpolation of a primvar, say)
    // as a token's text, or empty.
    std::string attributeToken(const pxr::SdfPath& prim, const std::string& name, const char* field) const;

    // The names of the prim's attributes, in the layer's order.
    std::vector<std::string> attributeNames(const pxr::SdfPath& prim) const;

    // The first and last time code at which the prim's attributes, or those of a prim above
    // it (their transforms), are sampled; false for a prim nothing of which is animated.
    bool sampledTimes(const pxr::SdfPath& prim, double& first, double& last) const;

    // The world matrix of the prim at `time`, for column vectors in single precision:
    // its ops, then each parent's, up to the root or a reset. False, with the reason in
    // `why`, for an xformOp that cannot be read.
    bool worldMatrix(const pxr::SdfPath& prim, double time, Ulmex::ZMatrix& world, std::string& why) const;

private:
    pxr::SdfLayerRefPtr _layer;
    std::string _file;
};
