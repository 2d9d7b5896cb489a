"""An Alembic file as the library's reader sees it, and how the body lookup
(findBodyMeshShapeNode) decides: the walk, the shape test and the candidate list are the
library's own."""

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
    mesh: bool  # a polygon mesh, the one shape a body can be


def _node(o: gc.ZAlembicObject) -> Node:
    return Node(
        str(o.fullPath()),
        str(o.name()),
        str(o.schema()),
        o.numSamples(),
        o.numChildren(),
        o.isPolyMesh(),
    )


def _top(path: str) -> gc.ZAlembicObject:
    archive = gc.ZAlembicArchive()
    if not archive.open(path):
        raise OSError(f"{path}: not an Alembic (Ogawa) archive, or it cannot be opened")
    return archive.topObject()


def walk(path: str) -> list[Node]:
    """Every object below the top, depth first, parents before their children."""
    return [_node(o) for o in gc.GetAllDescendantObjects(_top(path), False)]


def shape_nodes(path: str) -> list[Node]:
    """The shape nodes of the library's walk (face sets below a mesh are not shapes)."""
    return [_node(o) for o in gc.GetAllDescendantObjects(_top(path), True)]


@dataclass
class BodyLookup:
    candidates: list[Node]  # findBodyMeshCandidates: polygon meshes whose own name holds the body name
    result: str | None  # what findBodyMeshShapeNode returns
    hint: str


def lookup_body(path: str, body: str) -> BodyLookup:
    nodes = walk(path)
    found_candidates = gc.findBodyMeshCandidates(path, body)
    if found_candidates is None:
        raise OSError(f"{path}: not an Alembic (Ogawa) archive, or it cannot be opened")
    candidates = [_node(o) for o in found_candidates]
    found = gc.findBodyMeshShapeNode(path, body)
    result = str(found.fullPath()) if found is not None else None
    hint = ""
    if not candidates:
        # Blender names a mesh after its data ("Suzanne") under the object's transform.
        meshes = [n for n in nodes if n.mesh]
        under = [n for n in meshes if any(body in part for part in n.path.split("/")[:-1])]
        others = [n for n in nodes if body in n.name and not n.mesh]
        hint = f"no polygon mesh's own name holds '{body}'; the lookup matches mesh names, not their transforms."
        if others:
            hint += " Not meshes: " + ", ".join(f"{n.path} ({n.schema or 'no schema'})" for n in others) + "."
        if under:
            hint += " Shapes below a transform whose name holds it: " + ", ".join(n.path for n in under)
            hint += f" (look the body up as '{under[0].name}')."
    elif len(candidates) > 1:
        hint = f"{len(candidates)} shape nodes hold '{body}': the lookup wants exactly one; use a longer name."
    return BodyLookup(candidates, result, hint)
