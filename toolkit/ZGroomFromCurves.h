// A groom from curves and a body: what a host does with guides an artist groomed in a DCC
// and handed over as curves (from Alembic, USD or the DCC's own data). Each curve becomes
// a strand: its points in world space become the strand's CVs (a catmull-rom curve pinned
// by doubled end points loses the doubles, which the exporters write again), and its first
// point is projected onto the body for the root (tgl, bcc, uvw, nmp). The follicle set is
// then filled whole, ready for the modifiers, the cache and the exporters: uid from the
// curves' ids where they have them (else the curve's number), rtp 0, ln0 = ln1 the length
// of the strand's polyline, root and tip widths from the curves' widths (else
// defaultWidth), opacities 1, each strand its own guide (bdi, bdw 1) until guides are
// assigned, axs from the body's frames and rxy from the strands' tips.
#pragma once

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

class ZGroomFromCurves {
public:
    // Roots farther than this from the body refuse the groom; a negative value stands for
    // 1% of the diagonal of the body's bounding box.
    float maxRootDistance = -1.f;
    // Root and tip width of curves that carry no widths.
    float defaultWidth = 0.01f;
    // Why the last build refused, in one line; empty after a build that succeeded.
    Ulmex::ZString message;
    // How far the farthest root of the last build lay from the body.
    float farthestRoot = 0.f;

    // Builds `follicles` and `strands` from `curves` (their points taken through their
    // world matrix) on `body`, in world space, with `frames` its per-vertex frames (see
    // ZBodyFrames). False, with both left empty and the reason in `message`, for a body
    // without triangles or per-corner UVs, frames of another count, curves without points, or roots farther
    // than maxRootDistance from the body (how many, and how far the farthest lies).
    bool build(const Ulmex::ZAlembicCurves& curves, const Ulmex::ZTriMesh& body, const Ulmex::ZAxisArray& frames,
               ZFollicles& follicles, Ulmex::ZCurves& strands);
};
