// The per-strand half of a groom: one record of root and attribute data for every
// strand, as parallel arrays. Strand i here and strand i of the matching ZCurves are the
// same strand. The strand count is tgl.length().
#pragma once

#include <fstream>

#include "base/UlmexBase.h"

class ZFollicles {
public:
    Ulmex::ZIntArray uid;          // unique strand id: seed of all per-strand randomness
    Ulmex::ZIntArray rtp;          // root type: the prototype grown from the root
    Ulmex::ZIntArray tgl;          // body triangle holding the root; its length is the strand count
    Ulmex::ZFloat3Array bcc;       // barycentric coordinates of the root in tgl[i]
    Ulmex::ZVectorArray uvw;       // surface coordinates of the root (x = u, y = v)
    Ulmex::ZVectorArray nmp;       // noise-space position of the root
    Ulmex::ZFloatArray ln0;        // static strand length
    Ulmex::ZFloatArray ln1;        // strand length of the current frame
    Ulmex::ZFloat2Array rxy;       // tip-lean axis in the root's local xy plane
    Ulmex::ZFloatArray twh;        // tip width
    Ulmex::ZFloatArray rwh;        // root width
    Ulmex::ZFloatArray top;        // tip opacity
    Ulmex::ZFloatArray rop;        // root opacity
    Ulmex::ZIntSetArray bdi;       // bound strand indices; the first entry is the guide
    Ulmex::ZFloatSetArray bdw;     // matching binding weights (carried, not read)
    Ulmex::ZAxisArray axs;         // root frame of the current frame
    float maxLn0;                  // largest ln0 as stored, never recomputed
    float maxLn1;                  // largest ln1 as stored, never recomputed
    Ulmex::ZIntArray auxInt0, auxInt1;                               // host's spare arrays:
    Ulmex::ZFloatArray auxFloat0, auxFloat1, auxFloat2, auxFloat3;   // never written to files

    // Default-constructs every array. maxLn0 and maxLn1 have no value until reset, read,
    // from or assignment gives them one.
    ZFollicles() {}
    ~ZFollicles() {}
    ZFollicles(const ZFollicles& other) = default;

    int numStrands() const { return tgl.length(); }

    // Empties every array, keeping capacity, and zeroes both maxima.
    void reset();

    // rxy from the tips of `curves` and the root frames; false, with nothing changed, when
    // the curve count differs from the strand count. Needs axs filled and rxy sized.
    bool calcRxy(const Ulmex::ZCurves& curves, bool useOpenMP);

    // axs[i] from the frames at the three corners of triangle tgl[i], blended by bcc[i].
    // Needs tgl and bcc filled and axs sized. Bad input prints
    // "Error@ZFollicles::setLocalAxes(): Invalid input data." and returns false.
    bool updateAxes(const Ulmex::ZTriMesh& mesh, const Ulmex::ZAxisArray& vertexAxes, bool useOpenMP);

    // (max - min) * ZRandomUnit(uid[i]) + min into the target array, which must already
    // have the strand count as length. All four draw the same number for a strand.
    void setTipWidth(float min, float max, bool useOpenMP);
    void setRootWidth(float min, float max, bool useOpenMP);
    void setTipOpacity(float min, float max, bool useOpenMP);
    void setRootOpacity(float min, float max, bool useOpenMP);

    void getRootPositions(Ulmex::ZVectorArray& out) const;
    void getRootNormals(Ulmex::ZVectorArray& out) const;

    // One record: static (14 sections) or per-frame (ln1 and axs).
    void write(std::ofstream& file, bool isStatic) const;
    // One record of either kind, merged into this object (an empty record clears it).
    void read(std::ifstream& file);

    // Becomes the strands of `source` whose keep byte is nonzero. `source` may be this
    // object, for both: it is then taken as a copy.
    void from(const ZFollicles& source, const Ulmex::ZCharArray& keep);
    // The strands of `other` behind this set's own; without bindings both sets' bdi and
    // bdw are dropped.
    void append(const ZFollicles& other, bool withBindings);
    ZFollicles& operator=(const ZFollicles& other);

    // Bytes of the thirteen plain attribute arrays and the two set arrays in `unit`
    // (axs and the spare arrays are left out).
    double usedMemorySize(Ulmex::ZDataUnit::DataUnit unit) const;

private:
    void setRandom(Ulmex::ZFloatArray& target, float min, float max, bool useOpenMP) const;
};
