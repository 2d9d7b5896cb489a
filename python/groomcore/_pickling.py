"""Copying and pickling of the package's data objects, so that grooms, meshes, feathers and
modifier settings can be copied (`copy.copy`, `copy.deepcopy`) and sent to Dask workers.

An object's state is the value of each of its settable fields: numpy arrays (copies),
numbers, strings and nested data objects, recursively; it is rebuilt by assigning them to a
new object, through the same checked setters a script uses. What points at the host's
objects is not data and is left out: a modifier's registered image maps (register them
again on the copy), OpenGL display lists (a copy has none), and the cache classes' and the
exporter's pointers (those classes are not pickled).
"""

from __future__ import annotations

import copyreg
from typing import Any

import numpy as np

from . import _groomcore as _gc

# Fields that are the host's or the process's, never copied.
_LEFT_OUT = {"displayLists", "attributeMaps"}

# Classes whose state is their fields. Modifiers carry their settings and their kept
# results (a copy evaluates again only when something changes, as the original would).
_DATA = [
    "ZVector",
    "ZAxis",
    "ZMatrix",
    "ZBoundingBox",
    "ZCurves",
    "ZTriMesh",
    "ZQuadMesh",
    "ZPolyMesh",
    "ZIntSetArray",
    "ZFloatSetArray",
    "ZFollicles",
    "ZFeather",
    "ZSource",
    "RuvoCacheInfo",
    "ZWidthModifier",
    "ZOpacityModifier",
    "ZScaleModifier",
    "ZCutModifier",
    "ZOffsetModifier",
    "ZDirectionModifier",
    "ZBendModifier",
    "ZClumpModifier",
    "ZKinkModifier",
    "ZFrizzModifier",
]


def _fields(cls: type) -> list[tuple[str, property]]:
    return [
        (name, member)
        for name, member in vars(cls).items()
        if isinstance(member, property) and not name.startswith("_") and name not in _LEFT_OUT
    ]


def _value(value: Any) -> Any:
    if isinstance(value, np.ndarray):
        return value.copy()
    if type(value).__name__ in _DATA and type(value).__module__.startswith("groomcore"):
        return (_rebuild, (type(value).__name__, _state(value)))
    return value


def _state(obj: Any) -> dict[str, Any]:
    state: dict[str, Any] = {}
    for name, member in _fields(type(obj)):
        value = getattr(obj, name)
        if member.fset is None and type(value).__name__ not in _DATA:
            continue  # read-only and not data: derived, nothing to restore
        state[name] = _value(value)
    return state


def _restore(value: Any) -> Any:
    if isinstance(value, tuple) and len(value) == 2 and value[0] is _rebuild:
        return _rebuild(*value[1])
    return value


def _rebuild(name: str, state: dict[str, Any]) -> Any:
    cls = getattr(_gc, name)
    obj = cls()
    fields = dict(_fields(cls))
    for key, value in state.items():
        value = _restore(value)
        if fields[key].fset is not None:
            setattr(obj, key, value)
        else:  # a data object held inside (a follicle set's bindings): filled in place
            inner = getattr(obj, key)
            for k, v in _state(value).items():
                setattr(inner, k, _restore(v))
    return obj


def _reduce(obj: Any) -> tuple[Any, tuple[str, dict[str, Any]]]:
    return _rebuild, (type(obj).__name__, _state(obj))


for _name in _DATA:
    copyreg.pickle(getattr(_gc, _name), _reduce)
