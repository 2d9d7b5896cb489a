// One sample of an Alembic Curves object (schema "AbcGeom_Curve_v2"), as DCCs hand groom
// guides over: every curve's points one curve after another, how many each has, their
// widths, UVs and ids where the file has them, the curves' type, wrap and basis, and the
// world matrix above them. Read by ZAlembicObject::getCurvesData.
#pragma once

#include "base/ZArray.h"
#include "base/ZMatrix.h"

namespace Ulmex {

struct ZAlembicCurves {
    // The curve type, wrap and basis as the file numbers them (its curveBasisAndType).
    enum Type { kCubic = 0, kLinear = 1, kVariableOrder = 2 };
    enum Wrap { kNonPeriodic = 0, kPeriodic = 1 };
    enum Basis { kNoBasis = 0, kBezier = 1, kBSpline = 2, kCatmullRom = 3, kHermite = 4, kPower = 5 };

    ZVectorArray points;  // every curve's points, one curve after another, in the object's space
    ZIntArray counts;     // points per curve; they add up to the point count
    // Widths, expanded where the file indexes them: one for all, one per curve or one per
    // point; empty where the file has none or their count fits none of these.
    ZFloatArray widths;
    // UVs, two floats per value, expanded where indexed: one per curve or one per point (a
    // root's st); empty where the file has none or their count fits neither.
    ZFloatArray uvs;
    // One id per curve, from an int32 geometry parameter named "id" or "ids" (Houdini and
    // groom tools write one); empty where the file has none.
    ZIntArray ids;
    int type = kCubic;         // kCubic, kLinear or kVariableOrder
    int wrap = kNonPeriodic;   // kNonPeriodic or kPeriodic (closed curves)
    int basis = kNoBasis;      // for cubic curves: kBezier, kBSpline, kCatmullRom, kHermite or kPower
    // The product of the transforms above the curves, as getPolyMeshData gives it for a mesh.
    ZMatrix worldMatrix;

    // Everything empty, the type cubic, the wrap non-periodic, no basis, the identity.
    void clear();
};

} // namespace Ulmex
