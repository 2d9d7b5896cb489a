"""One Blender session, headless, for the extension tests: installs the extension zip with
Blender's own extension command into a fresh user folder, makes a UV sphere body, grows a
groom on it through the extension's operator, and does the same job with the groomcore
package alone (the wheel the extension brought), from the body as Blender's API gives it;
both results go to OUT_NPZ for the test to compare.

    python blender_job.py EXTENSION_ZIP OUT_NPZ
(BLENDER_USER_RESOURCES must name an empty folder: the extension is installed there.)"""

from __future__ import annotations

import sys

import bpy
import numpy as np

zip_path, out = sys.argv[1], sys.argv[2]
bpy.ops.wm.read_factory_settings(use_empty=True)
result = bpy.ops.extensions.package_install_files(filepath=zip_path, repo="user_default", enable_on_install=True)
assert result == {"FINISHED"}, result
assert hasattr(bpy.ops, "groomcore") and hasattr(bpy.types.Object, "groomcore")

bpy.ops.mesh.primitive_uv_sphere_add(segments=48, ring_count=24, radius=1.0, location=(0.5, 0, 0.25))
body = bpy.context.active_object
body.rotation_euler = (0.3, 0.0, 0.7)
bpy.context.view_layer.update()
settings = body.groomcore
settings.count, settings.seed, settings.length, settings.cv_count = 2000, 5, 0.4, 6
assert bpy.ops.groomcore.grow() == {"FINISHED"}
groom = bpy.context.active_object
curves = groom.data
positions = np.empty(3 * len(curves.points), np.float32)
curves.position_data.foreach_get("vector", positions)
radii = np.empty(len(curves.points), np.float32)
curves.attributes["radius"].data.foreach_get("value", radii)
sizes = np.array([c.points_length for c in curves.curves], np.int32)

# The same job with the package alone: the body read here with Blender's API on its own,
# in world space, Blender's triangles and the active UV map's value at every corner.
import groomcore as gc  # noqa: E402  (the extension's wheel, installed above)

mesh = body.data
mesh.calc_loop_triangles()
local = np.array([v.co[:] for v in mesh.vertices], np.float64)
world = np.array(body.matrix_world, np.float64)
loops = np.array([t.loops[:] for t in mesh.loop_triangles], np.int32).ravel()
uv = np.array([d.uv[:] for d in mesh.uv_layers.active.data], np.float32)[loops]
alone = gc.ZTriMesh()
alone.points = (local @ world[:3, :3].T + world[:3, 3]).astype(np.float32)
alone.v012 = np.array([t.vertices[:] for t in mesh.loop_triangles], np.int32)
alone.uvs = np.c_[uv, np.zeros(len(uv), np.float32)]
frames = gc.ZBodyFrames()
assert frames.build(alone)
grower = gc.ZRootGrower()
grower.seed = settings.seed
follicles, strands = grower.growStrands(
    alone, frames.compute(alone), settings.count, settings.cv_count, settings.length, settings.length_random
)
# Bad bodies never crash Blender: a mesh without faces is refused with the reason, a mesh
# without UVs grows (at UV (0, 0) everywhere).
points = bpy.data.meshes.new("points")
points.from_pydata([(0, 0, 0), (1, 0, 0)], [(0, 1)], [])
lone = bpy.data.objects.new("points", points)
bpy.context.scene.collection.objects.link(lone)
bpy.context.view_layer.objects.active = lone
try:
    bpy.ops.groomcore.grow()
    refusal = ""
except RuntimeError as e:  # what an operator's error report becomes without a window
    refusal = str(e)
bpy.ops.mesh.primitive_cube_add()
cube = bpy.context.active_object
cube.data.uv_layers.remove(cube.data.uv_layers[0])
cube.groomcore.count = 300
assert bpy.ops.groomcore.grow() == {"FINISHED"}
bare_count = len(bpy.context.active_object.data.curves)

surface_ok = groom.data.surface == body
chosen = (settings.count, settings.cv_count)
widths = (settings.root_width, settings.tip_width)

# Saved with the .blend and opened again: the settings come back on the body, the strands
# as they were, and growing again from the reopened settings gives the same bits.
blend = out.replace(".npz", ".blend")
bpy.ops.wm.save_as_mainfile(filepath=blend)
body_name, groom_name = body.name, groom.name
bpy.ops.wm.open_mainfile(filepath=blend)
reopened = bpy.data.objects[body_name]
kept = np.empty(3 * len(bpy.data.objects[groom_name].data.points), np.float32)
bpy.data.objects[groom_name].data.position_data.foreach_get("vector", kept)
reopened_settings = (reopened.groomcore.count, reopened.groomcore.seed, reopened.groomcore.cv_count)
bpy.context.view_layer.objects.active = reopened
assert bpy.ops.groomcore.grow() == {"FINISHED"}
again = np.empty(3 * len(bpy.context.active_object.data.points), np.float32)
bpy.context.active_object.data.position_data.foreach_get("vector", again)

np.savez(
    out,
    refusal=np.array([refusal]),
    kept=kept,
    again=again,
    reopened_settings=np.array(reopened_settings, np.int64),
    bare_count=np.array([bare_count]),
    positions=positions,
    radii=radii,
    sizes=sizes,
    package_cvs=np.ascontiguousarray(strands.cvs, np.float32).ravel(),
    package_counts=np.asarray(strands.numCVs),
    package_module=np.array([gc.__file__]),
    surface=np.array([surface_ok]),
    settings=np.array(chosen, np.int64),
    widths=np.array(widths, np.float32),
)
