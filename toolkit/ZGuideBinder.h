// Guides for a groom the host grew: each strand bound to the guide strand whose root lies
// nearest its own (the roots' noise-space positions, nmp: where they lie on the rest body),
// so that the clump modifier, which pulls a strand towards the first strand it is bound to,
// works on it. The guides are strands of the same groom (every 50th, say, or those grown
// from an artist's guide curves): bdi[i] becomes that guide's index and bdw[i] 1; a guide
// is bound to itself. Ties go to the guide listed first.
#pragma once

#include "base/UlmexBase.h"
#include "strands/ZFollicles.h"

class ZGuideBinder {
public:
    // Why the last bind refused, in one line; empty after one that succeeded.
    Ulmex::ZString message;

    // Sets bdi and bdw of every strand of `follicles`, in parallel. False, with nothing
    // changed and the reason in message, for no guides, a guide index outside the strands,
    // or nmp of another length than the strand count.
    bool bind(ZFollicles& follicles, const Ulmex::ZIntArray& guides);
};
