#include "toolkit/ZGuideBinder.h"

#include <string>

using namespace Ulmex;

bool ZGuideBinder::bind(ZFollicles& f, const ZIntArray& guides) {
    message.clear();
    const int n = f.numStrands();
    if (guides.empty()) return message = "no guides", false;
    if (f.nmp.length() != n)
        return message = "nmp has " + std::to_string(f.nmp.length()) + " roots for " + std::to_string(n) + " strands",
               false;
    ZVectorArray roots(guides.size());
    for (size_t g = 0; g < guides.size(); ++g) {
        if (guides[g] < 0 || guides[g] >= n)
            return message = "guide " + std::to_string(guides[g]) + " is outside the " + std::to_string(n) + " strands",
                   false;
        roots[g] = f.nmp[guides[g]];
    }
    const ZPointsDistTree tree(roots);
    ZIntArray nearest;
    nearest.setLengthForOverwrite(n);
    #pragma omp parallel for schedule(dynamic, 1024)
    for (int i = 0; i < n; ++i) {
        int g = -1;
        float d = 0.f;
        tree.findClosestPoint(f.nmp[i], g, d);
        nearest[i] = g < 0 ? guides[0] : guides[g];  // a root that is not a number: the first guide
    }
    // A guide binds to itself, even where another guide's root lies at the same place.
    for (int g : guides) nearest[g] = g;
    ZIntSetArray bdi;
    ZFloatSetArray bdw;
    const float one = 1.f;
    for (int i = 0; i < n; ++i) {
        bdi.push(&nearest[i], 1);
        bdw.push(&one, 1);
    }
    f.bdi = bdi;
    f.bdw = bdw;
    return true;
}
