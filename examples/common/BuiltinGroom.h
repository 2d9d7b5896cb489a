// The built-in data of the example hosts: a sphere body with per-corner surface
// coordinates and per-vertex frames, and strands grown on it.
#pragma once

#include "base/UlmexBase.h"
#include "feathers/ZFeather.h"
#include "strands/ZFollicles.h"

namespace examples {

// A UV sphere: rings of latitude, segments of longitude, a vertex frame per point (z the
// outward normal, x along increasing longitude) and three surface coordinates per
// triangle, so the seam and the poles get the coordinates of their own triangles.
void buildSphere(float radius, int rings, int segments, Ulmex::ZTriMesh& mesh, Ulmex::ZAxisArray& frames);

// Grows `count` strands of `cvCount` CVs and about `length` long (+-30%) at random points
// of the body, straight along the surface normal, and fills every follicle array a record
// needs: ids, roots, surface and noise positions, lengths, one guide binding per 50
// strands, root frames (updateAxes) and lean axes (calcRxy). Randomness comes from the
// system hash: the groom is the same on every run and machine.
void growStrands(const Ulmex::ZTriMesh& mesh, const Ulmex::ZAxisArray& frames, int count, int cvCount, float length,
                 ZFollicles& f, Ulmex::ZCurves& curves);

// A feather template in local space (Y along the strand, X across, Z out of the plane):
// a vane `rows` x `columns` points, 1 tall and 0.36 wide at most, tapering to the tip and
// curving slightly out of the plane, with a shaft curve of `rows` CVs. Initialised.
void buildFeatherTemplate(int rows, int columns, ZFeather& feather);

} // namespace examples
