"""groomcore in Blender: grows a groom on a mesh object with groomcore's host toolkit and
shows its strands as a Blender hair Curves object that renders in Cycles as it is.

A thin host over the groomcore package: the mesh goes in as a world-space triangle mesh with
per-corner UVs, the toolkit grows the strands, and their points and radii come back out."""

from __future__ import annotations

from typing import Any

import bpy

from . import host


class GroomcoreSettings(bpy.types.PropertyGroup):  # type: ignore[misc]
    """What a groom is grown with, stored on the body's object (and so in the .blend)."""

    count: bpy.props.IntProperty(name="Strands", default=1000, min=0, soft_max=1000000)  # type: ignore[valid-type]
    seed: bpy.props.IntProperty(name="Seed", default=1)  # type: ignore[valid-type]
    length: bpy.props.FloatProperty(name="Length", default=0.3, min=0.0, subtype="DISTANCE")  # type: ignore[valid-type]
    length_random: bpy.props.FloatProperty(name="Length Random", default=0.6, min=0.0, max=2.0)  # type: ignore[valid-type]
    cv_count: bpy.props.IntProperty(name="Points", default=8, min=2, max=64)  # type: ignore[valid-type]
    root_width: bpy.props.FloatProperty(name="Root Width", default=0.01, min=0.0, subtype="DISTANCE")  # type: ignore[valid-type]
    tip_width: bpy.props.FloatProperty(name="Tip Width", default=0.002, min=0.0, subtype="DISTANCE")  # type: ignore[valid-type]


class GROOMCORE_OT_grow(bpy.types.Operator):  # type: ignore[misc]
    """Grow groomcore strands on the active mesh object into a hair Curves object"""

    bl_idname = "groomcore.grow"
    bl_label = "Grow Groom"
    bl_options = {"REGISTER", "UNDO"}

    @classmethod
    def poll(cls, context: Any) -> bool:
        return context.active_object is not None and context.active_object.type == "MESH"

    def execute(self, context: Any) -> set[str]:
        body_object = context.active_object
        settings = body_object.groomcore
        try:
            body = host.body_from_object(body_object, context.evaluated_depsgraph_get())
            follicles, strands = host.grow(body, settings)
        except ValueError as e:
            self.report({"ERROR"}, str(e))
            return {"CANCELLED"}
        curves_object = host.curves_object(body_object, follicles, strands)
        context.view_layer.objects.active = curves_object
        self.report({"INFO"}, f"grew {follicles.numStrands()} strands on {body_object.name}")
        return {"FINISHED"}


class GROOMCORE_PT_groom(bpy.types.Panel):  # type: ignore[misc]
    bl_label = "groomcore"
    bl_space_type = "PROPERTIES"
    bl_region_type = "WINDOW"
    bl_context = "object"

    @classmethod
    def poll(cls, context: Any) -> bool:
        return context.active_object is not None and context.active_object.type == "MESH"

    def draw(self, context: Any) -> None:
        settings = context.active_object.groomcore
        for name in ("count", "seed", "length", "length_random", "cv_count", "root_width", "tip_width"):
            self.layout.prop(settings, name)
        self.layout.operator(GROOMCORE_OT_grow.bl_idname)


CLASSES = (GroomcoreSettings, GROOMCORE_OT_grow, GROOMCORE_PT_groom)


def register() -> None:
    for cls in CLASSES:
        bpy.utils.register_class(cls)
    bpy.types.Object.groomcore = bpy.props.PointerProperty(type=GroomcoreSettings)


def unregister() -> None:
    del bpy.types.Object.groomcore
    for cls in reversed(CLASSES):
        bpy.utils.unregister_class(cls)
