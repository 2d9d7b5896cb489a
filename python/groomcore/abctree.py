"""An Alembic file as the library's reader sees it, and how the body lookup
(findBodyMeshShapeNode) decides."""

from __future__ import annotations

from dataclasses import dataclass

from . import _groomcore as gc


@dataclass
class Node:
    path: str
    name: str
    schema: str
    samples: int
    children: int


def walk(path: str) -> list[Node]:
    """Every object below the top, depth first, parents before their children."""
    archive = gc.ZAlembicArchive()
    if not archive.open(path):
        raise OSError(f"{path}: not an Alembic (Ogawa) archive, or it cannot be opened")
    top = archive.topObject()
    nodes = []
    for o in gc.GetAllDescendantObjects(top, False):
        nodes.append(Node(str(o.fullPath()), str(o.name()), str(o.schema()), o.numSamples(), o.numChildren()))
    return nodes


@dataclass
class BodyLookup:
    candidates: list[Node]  # polygon meshes whose own name holds the body name
    result: str | None  # what findBodyMeshShapeNode returns
    hint: str


def lookup_body(path: str, body: str) -> BodyLookup:
    nodes = walk(path)
    # The lookup considers polygon meshes only (face sets below them do not matter).
    meshes = [n for n in nodes if n.schema == "AbcGeom_PolyMesh_v1"]
    candidates = [n for n in meshes if body in n.name]
    found = gc.findBodyMeshShapeNode(path, body)
    result = str(found.fullPath()) if found is not None else None
    hint = ""
    if not candidates:
        # Blender names a mesh after its data ("Suzanne") under the object's transform.
        under = [n for n in meshes if any(body in part for part in n.path.split("/")[:-1])]
        others = [n for n in nodes if body in n.name and n.schema != "AbcGeom_PolyMesh_v1"]
        hint = f"no polygon mesh's own name holds '{body}'; the lookup matches mesh names, not their transforms."
        if others:
            hint += " Not meshes: " + ", ".join(f"{n.path} ({n.schema or 'no schema'})" for n in others) + "."
        if under:
            hint += " Shapes below a transform whose name holds it: " + ", ".join(n.path for n in under)
            hint += f" (look the body up as '{under[0].name}')."
    elif len(candidates) > 1:
        hint = f"{len(candidates)} shape nodes hold '{body}': the lookup wants exactly one; use a longer name."
    elif result is None:
        hint = "the one candidate was not accepted by the lookup."
    return BodyLookup(candidates, result, hint)
