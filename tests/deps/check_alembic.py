"""Writes a reference .abc with the helper and lists it back through alembic3d."""
import os
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import make_abc  # noqa: E402
from alembic3d import Abc, AbcGeom  # noqa: E402


def listing(obj, depth=0, out=None):
    out = [] if out is None else out
    out.append((depth, obj.getFullName(), obj.getMetaData().get("schema")))
    for i in range(obj.getNumChildren()):
        listing(obj.getChild(i), depth + 1, out)
    return out


def main():
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "body.abc")
        make_abc.write_body(path)
        with open(path, "rb") as f:
            assert f.read(5) == b"Ogawa", "not an Ogawa archive"
        archive = Abc.IArchive(path)
        got = listing(archive.getTop())
        assert got == [(0, "/", ""), (1, "/body", "AbcGeom_Xform_v3"),
                       (2, "/body/bodyShape", "AbcGeom_PolyMesh_v1")], got
        shape = AbcGeom.IPolyMesh(archive.getTop().getChild(0).getChild(0), Abc.WrapExistingFlag.kWrapExisting)
        schema = shape.getSchema()
        assert schema.getNumSamples() == 2
        for k in range(2):
            s = schema.getValue(Abc.ISampleSelector(k))
            pts = [tuple(p) for p in s.getPositions()]
            assert pts == [tuple(p) for p in make_abc.sample_points(k)], pts
            assert list(s.getFaceCounts()) == [4]
        xf = AbcGeom.IXform(archive.getTop().getChild(0), Abc.WrapExistingFlag.kWrapExisting)
        assert xf.getSchema().getNumSamples() == 2
        assert tuple(xf.getSchema().getValue(Abc.ISampleSelector(1)).getTranslation()) == (0.0, 1.0, 0.0)
        for depth, name, schema_name in got:
            print("  " * depth + name, schema_name)
    print("alembic listing: ok")


if __name__ == "__main__":
    main()
