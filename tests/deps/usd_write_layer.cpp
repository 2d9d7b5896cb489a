// Writes a small layer through OpenUSD's C++ API (the sdf module from the pxr wheels): a
// prim with a time-sampled attribute and a default-time attribute. check_usd.py reads it
// back with the usd-core Python bindings.
#include <pxr/sdf/attributeSpec.h>
#include <pxr/sdf/layer.h>
#include <pxr/sdf/primSpec.h>
#include <pxr/sdf/types.h>
#include <pxr/vt/array.h>

#include <iostream>

using namespace pxr;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: usd_write_layer out.usd\n";
        return 2;
    }
    SdfLayerRefPtr layer = SdfLayer::CreateNew(argv[1]);
    if (!layer) return 1;
    SdfPrimSpecHandle groom = SdfPrimSpec::New(layer, "groom", SdfSpecifierDef, "Xform");
    SdfPrimSpecHandle curves = SdfPrimSpec::New(groom, "curves", SdfSpecifierDef, "BasisCurves");

    SdfAttributeSpecHandle counts =
        SdfAttributeSpec::New(curves, "curveVertexCounts", SdfValueTypeNames->IntArray);
    counts->SetDefaultValue(VtValue(VtIntArray{4, 4}));
    SdfAttributeSpecHandle basis =
        SdfAttributeSpec::New(curves, "basis", SdfValueTypeNames->Token, SdfVariabilityUniform);
    basis->SetDefaultValue(VtValue(TfToken("catmullRom")));

    SdfAttributeSpecHandle points = SdfAttributeSpec::New(curves, "points", SdfValueTypeNames->Point3fArray);
    for (int frame = 1; frame <= 2; ++frame) {
        VtVec3fArray p(8);
        for (int i = 0; i < 8; ++i) p[i] = GfVec3f(float(i % 4), float(i / 4), 0.5f * float(frame));
        layer->SetTimeSample(points->GetPath(), double(frame), VtValue(p));
    }
    layer->SetStartTimeCode(1);
    layer->SetEndTimeCode(2);
    layer->SetDefaultPrim(TfToken("groom"));
    if (!layer->Save()) return 1;
    std::cout << "wrote " << argv[1] << "\n";
    return 0;
}
