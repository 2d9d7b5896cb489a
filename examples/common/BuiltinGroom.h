// The built-in data of the example hosts: a sphere body with per-corner surface
// coordinates, and strands grown on it with the host toolkit.
#pragma once

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "strands/ZFollicles.h"

namespace examples {

// A UV sphere: rings of latitude, segments of longitude, and three surface coordinates
// per triangle, so the seam and the poles get the coordinates of their own triangles.
void buildSphere(float radius, int rings, int segments, Ulmex::ZTriMesh& mesh);

// The sphere's analytic frame at every point of buildSphere's mesh (z the outward normal,
// x along increasing longitude): what the toolkit's body frames are checked against.
Ulmex::ZAxisArray sphereFrames(float radius, int rings, int segments);

// Grows `count` strands of `cvCount` CVs and about `length` long (+-30%) on the body, as a
// host does with the toolkit: ZRootGrower::growStrands (seed 1; root frames from `frames`,
// the body's ZBodyFrames; each strand straight along its root's normal; every follicle
// array filled, widths and opacities zero), then every 50th strand a guide and every strand
// bound to the nearest (ZGuideBinder). The groom is the same on every run, machine and
// thread count.
void growStrands(const Ulmex::ZTriMesh& mesh, const Ulmex::ZAxisArray& frames, int count, int cvCount, float length,
                 ZFollicles& f, Ulmex::ZCurves& curves);

// A feather template in local space (Y along the strand, X across, Z out of the plane):
// a vane `rows` x `columns` points, 1 tall and 0.36 wide at most, tapering to the tip and
// curving slightly out of the plane, with a shaft curve of `rows` CVs. Initialised.
void buildFeatherTemplate(int rows, int columns, ZFeather& feather);

} // namespace examples
