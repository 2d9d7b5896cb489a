"""Scene data in and out: a Blender mesh as groomcore's body, and groomcore's strands as a
Blender hair Curves object. No groom logic lives here: growing is the host toolkit's."""

from __future__ import annotations

from typing import Any

import bpy
import numpy as np

import groomcore as gc


def body_from_object(obj: Any, depsgraph: Any) -> gc.ZTriMesh:
    """The evaluated mesh of `obj` in world space: its triangles (Blender's own
    triangulation) and a UV per triangle corner from the active UV map ((0, 0) without one).
    Raises ValueError for a mesh without faces."""
    evaluated = obj.evaluated_get(depsgraph)
    mesh = evaluated.to_mesh()
    try:
        mesh.calc_loop_triangles()
        if len(mesh.loop_triangles) == 0:
            raise ValueError(f"{obj.name} has no faces to grow on")
        points = np.empty(3 * len(mesh.vertices), np.float32)
        mesh.vertices.foreach_get("co", points)
        world = np.array(obj.matrix_world, np.float64)
        local = points.reshape(-1, 3).astype(np.float64)
        points = (local @ world[:3, :3].T + world[:3, 3]).astype(np.float32)
        triangles = np.empty(3 * len(mesh.loop_triangles), np.int32)
        mesh.loop_triangles.foreach_get("vertices", triangles)
        corners = np.empty(3 * len(mesh.loop_triangles), np.int32)
        mesh.loop_triangles.foreach_get("loops", corners)
        uvs = np.zeros((len(corners), 3), np.float32)
        if mesh.uv_layers.active is not None:
            per_loop = np.empty(2 * len(mesh.loops), np.float32)
            mesh.uv_layers.active.uv.foreach_get("vector", per_loop)
            uvs[:, :2] = per_loop.reshape(-1, 2)[corners]
    finally:
        evaluated.to_mesh_clear()
    body = gc.ZTriMesh()
    body.points = points
    body.v012 = triangles.reshape(-1, 3)
    body.uvs = uvs
    return body


def grow(body: gc.ZTriMesh, settings: Any) -> tuple[gc.ZFollicles, gc.ZCurves]:
    """The groom of `settings` grown on `body` by the host toolkit, with its widths."""
    frames = gc.ZBodyFrames()
    if not frames.build(body):
        raise ValueError("the body has a triangle naming a missing point")
    grower = gc.ZRootGrower()
    grower.seed = settings.seed
    follicles, strands = grower.growStrands(
        body, frames.compute(body), settings.count, settings.cv_count, settings.length, settings.length_random
    )
    n = follicles.numStrands()
    follicles.rwh = np.full(n, settings.root_width, np.float32)
    follicles.twh = np.full(n, settings.tip_width, np.float32)
    return follicles, strands


def radii(follicles: gc.ZFollicles, strands: gc.ZCurves) -> np.ndarray:
    """Half the width at every point, from the root's width to the tip's along the strand."""
    counts = np.asarray(strands.numCVs)
    t = np.concatenate([np.linspace(0.0, 1.0, m, dtype=np.float32) for m in counts]) if len(counts) else np.zeros(0)
    root = np.repeat(np.asarray(follicles.rwh), counts)
    tip = np.repeat(np.asarray(follicles.twh), counts)
    return ((root * (1 - t) + tip * t) * 0.5).astype(np.float32)


def curves_object(body_object: Any, follicles: gc.ZFollicles, strands: gc.ZCurves) -> Any:
    """A hair Curves object holding the strands (world-space points, radii from the widths),
    linked beside the body and attached to it as its surface."""
    name = f"{body_object.name}_groom"
    data = bpy.data.hair_curves.new(name)
    data.add_curves(np.asarray(strands.numCVs).tolist())
    data.position_data.foreach_set("vector", np.ascontiguousarray(strands.cvs, np.float32).ravel())
    radius = data.attributes.get("radius") or data.attributes.new("radius", "FLOAT", "POINT")
    radius.data.foreach_set("value", radii(follicles, strands))
    data.surface = body_object
    obj = bpy.data.objects.new(name, data)
    for collection in body_object.users_collection:
        collection.objects.link(obj)
    return obj
