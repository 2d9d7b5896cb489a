// Roots grown on a body: spread over its triangles by area, or by area and a density (a
// weight per body point, blended over each triangle, or an image map read through the
// body's UVs the way the modifiers read maps), each at a point of its triangle. Root k is
// drawn from hashes of the seed and k alone: the same seed gives the same roots, bit for
// bit, at any thread count, and growing more roots keeps the first ones where they were.
// A root gets tgl, bcc, uvw (blended from the body's per-corner UVs; zero without them),
// nmp (its point on the body) and uid (its number k).
#pragma once

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

class ZRootGrower {
public:
    int seed = 0;  // which roots: another seed gives another, independent spread
    // A density weight per body point (not negative), blended over each triangle by the
    // root's barycentric coordinates; empty for none.
    Ulmex::ZFloatArray pointDensity;
    // A density map (first channel, not negative) read at the root's UVs; null for none.
    // Both may be given: the density is then their product.
    const Ulmex::ZImageMap* densityMap = nullptr;
    // Why the last call refused, in one line; empty after a call that succeeded.
    Ulmex::ZString message;

    // `count` roots on `body`, in parallel: tgl, bcc, uvw, nmp and uid of `follicles` are
    // sized to the count and filled (its other arrays are left alone). A triangle is drawn
    // by its area times the most density it can have, a uniform point in it, and the point
    // kept with the probability of its density against that most; after kMaxDraws refused
    // draws (a map dark almost everywhere) a root stays at its last draw, and message says
    // how many did. False, changing nothing, for a body without triangles, a triangle
    // naming a missing point, a negative count or one whose roots would not fit in the
    // machine's memory, pointDensity of another length or with a
    // negative or non-finite weight, a map without pixels, or a density zero everywhere.
    bool grow(const Ulmex::ZTriMesh& body, int count, ZFollicles& follicles);
    static constexpr int kMaxDraws = 256;

    // A groom to start from, as a host grows one on a body: `count` roots placed as grow()
    // places them (by area and density), and on each a straight strand of `cvCount` CVs
    // (2 or more) along its root frame's normal, the frame blended from `frames` (the body's
    // per-vertex frames, ZBodyFrames). Strand k is `length` long times
    // (1 - lengthRandom / 2 + lengthRandom * u), u a unit draw from the hash of its uid. Every
    // follicle array is filled: rtp 0, ln0 = ln1, widths and opacities zero, each strand its
    // own guide (bdi k, bdw 1), axs and rxy. In parallel, the same bits at any thread count.
    // False, with both left as they were and the reason in message, where grow() refuses, for
    // frames of another count than the body's points, fewer than 2 CVs, or a length that is
    // negative or not a number.
    bool growStrands(const Ulmex::ZTriMesh& body, const Ulmex::ZAxisArray& frames, int count, int cvCount,
                     float length, float lengthRandom, ZFollicles& follicles, Ulmex::ZCurves& strands);

    // About `rootsPerUnitArea` roots per unit of the body's area, weighted by the density
    // (a map's at each triangle's middle UV), rounded to the nearest whole root.
    bool growByDensity(const Ulmex::ZTriMesh& body, float rootsPerUnitArea, ZFollicles& follicles);
};
