// The whole base library.
#pragma once

#include "base/ZArray.h"
#include "base/ZAxis.h"
#include "base/ZBoundingBox.h"
#include "base/ZCurves.h"
#include "base/ZDataUnit.h"
#include "base/ZImageMap.h"
#include "base/ZMatrix.h"
#include "base/ZRandom.h"
#include "base/ZSetArray.h"
#include "base/ZSimplexNoise.h"
#include "base/ZStream.h"
#include "base/ZString.h"
#include "base/ZSystem.h"
#include "base/ZTriMesh.h"
#include "base/ZTuple.h"
#include "base/ZVector.h"
