"""A random caller of every public callable of groomcore: module functions, methods, static
methods and property setters, each with a mix of good and bad arguments. A call may raise
(that is a refusal); it may not kill the interpreter.

    random_calls.py SEED CALLS WORKDIR     one batch in this process

Each call is written to WORKDIR/calls.log before it runs, so that when a batch dies the last
line names the call that killed it. `run_batches` (used by the test suite and by
scripts/fuzz.sh) starts each batch in a subprocess and reports the seeds that crashed.
"""

from __future__ import annotations

import os
import random
import re
import subprocess
import sys
import time
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path
from typing import Any

import numpy as np

# Calls left out: none so far. (Drawing without a current OpenGL context is a no-op through
# GL's dispatch library, so the drawing and display-list calls are called too.)
SKIPPED = re.compile(r"^$")


@dataclass
class Target:
    name: str
    call: Callable[..., Any]
    arity: int  # arguments after self
    types: list[str]  # their annotations, where the signature gives them


def signature_types(obj: Any) -> list[str] | None:
    """The annotations of the parameters (self excluded) from nanobind's signature."""
    sigs = getattr(obj, "__nb_signature__", None)
    if not sigs:
        return None
    text = sigs[0][0]
    inner = text[text.index("(") + 1 : text.rindex(")")] if "(" in text else ""
    depth, params, current = 0, [], ""
    for ch in inner:
        if ch in "[(":
            depth += 1
        elif ch in "])":
            depth -= 1
        if ch == "," and depth == 0:
            params.append(current.strip())
            current = ""
        else:
            current += ch
    if current.strip():
        params.append(current.strip())
    params = [p for p in params if p not in ("self", "/", "*") and not p.startswith("self")]
    return [p.split(":", 1)[1].split("=")[0].strip() if ":" in p else "" for p in params]


def signature_arity(obj: Any) -> int | None:
    types = signature_types(obj)
    return None if types is None else len(types)


def targets(module: Any) -> list[Target]:
    out: list[Target] = []
    for name in sorted(dir(module)):
        if name.startswith("_"):
            continue
        obj = getattr(module, name)
        if isinstance(obj, type):
            for attr, member in sorted(vars(obj).items()):
                if attr.startswith("_") or SKIPPED.search(f"{name}.{attr}"):
                    continue
                full = f"{name}.{attr}"
                if isinstance(member, property):
                    if member.fset is not None:
                        out.append(Target(full + "=", member.fset, 1, signature_types(member.fset)[-1:] or [""]))
                    out.append(Target(full, member.fget, 0, []))  # type: ignore[arg-type]
                elif isinstance(member, staticmethod):
                    types = signature_types(member.__func__) or []
                    out.append(Target(full, member.__func__, len(types), types))
                elif callable(member):
                    types = signature_types(member) or []
                    out.append(Target(full, member, len(types), types))
            types = signature_types(obj.__init__) or []
            out.append(Target(name + "()", obj, len(types), types))
        elif callable(obj) and not SKIPPED.search(name):
            types = signature_types(obj) or []
            out.append(Target(name, obj, len(types), types))
    return out


class Values:
    """A pool of arguments: well-formed objects of the library, and everything else."""

    def __init__(self, gc: Any, rng: random.Random, workdir: Path) -> None:
        self.gc, self.rng, self.workdir = gc, rng, workdir
        self.instances: dict[str, list[Any]] = {}
        self.paths = [str(workdir / "f"), str(workdir), str(workdir / "no" / "such"), "", "/dev/zero", "/dev/null"]

    def instance(self, cls: type) -> Any:
        pool = self.instances.setdefault(cls.__name__, [])
        if not pool or self.rng.random() < 0.2:
            try:
                pool.append(self.populated(cls))
            except Exception:
                try:
                    pool.append(cls())
                except Exception:
                    return None
        return self.rng.choice(pool)

    def populated(self, cls: type) -> Any:
        gc, n = self.gc, self.rng.choice([0, 1, 3, 17])
        obj = cls()
        if cls is gc.ZCurves:
            for _ in range(n):
                obj.push(
                    np.random.default_rng(self.rng.randrange(1 << 30)).random(
                        (self.rng.choice([1, 2, 5]), 3), np.float32
                    )
                )
        elif cls is gc.ZFollicles:
            obj.tgl, obj.uid = np.zeros(n, np.int32), np.arange(n, dtype=np.int32)
            obj.rtp = np.zeros(n, np.int32)
            for field, shape in (("uvw", (n, 3)), ("nmp", (n, 3)), ("rxy", (n, 2)), ("axs", (n, 4, 3))):
                setattr(obj, field, np.random.default_rng(n).random(shape, dtype=np.float32))
            for field in ("ln0", "ln1", "twh", "rwh", "top", "rop"):
                setattr(obj, field, np.ones(n, np.float32))
        elif cls is gc.ZPolyMesh:
            obj.points = np.random.default_rng(n).random((4, 3), dtype=np.float32)
            obj.vCounts, obj.vConnects = np.array([3, 3], np.int32), np.array([0, 1, 2, 1, 3, 2], np.int32)
        elif cls is gc.ZTriMesh:
            obj.points = np.random.default_rng(n).random((3, 3), dtype=np.float32)
            obj.v012 = np.array([[0, 1, 2]], np.int32)
        return obj

    def array(self) -> Any:
        r = self.rng
        shape = r.choice([(0,), (1,), (3,), (5,), (0, 3), (2, 3), (3, 3), (4, 4), (2, 4, 3), (2, 2), (3, 2), (1, 4, 4)])
        dtype = r.choice([np.float32, np.float64, np.int32, np.int64, np.int8, np.uint8, np.bool_])
        a = np.asarray(np.random.default_rng(r.randrange(1 << 30)).integers(-3, 20, size=shape)).astype(dtype)
        kind = r.random()
        if kind < 0.1 and a.ndim and a.size:
            return a[::-1]
        if kind < 0.2:
            a.flags.writeable = False
        return a

    def typed(self, annotation: str, classes: list[type]) -> Any:
        """Mostly a value of the annotated type, edge values included; else anything."""
        r = self.rng
        if r.random() < 0.25 or not annotation:
            return self.any(classes)
        for cls in classes:
            if re.search(rf"\b{cls.__name__}\b", annotation) and "Sequence" not in annotation:
                return self.instance(cls)
        if "Sequence" in annotation:
            cls = next((c for c in classes if c.__name__ in annotation), None)
            return [self.instance(cls) for _ in range(r.randint(0, 3))] if cls else []
        if "NDArray" in annotation:
            dtype = np.int32 if "int32" in annotation else np.int8 if "int8" in annotation else np.float32
            n = r.choice([0, 1, 2, 3, 4, 17])
            shape = r.choice([(n,), (n, 3), (n, 2), (n, 4, 3), (n, 4, 4)])
            return np.random.default_rng(r.randrange(1 << 30)).integers(-2, n + 2, size=shape).astype(dtype)
        if annotation.startswith("int"):
            return r.choice([0, 1, 2, 3, -1, 5, 16, 1000, 2**31 - 1, -(2**31)])
        if annotation.startswith("float"):
            return r.choice([0.0, 1.0, 0.5, -1.0, 1001.0, 1e-30, 1e30, float("nan"), float("inf")])
        if annotation.startswith("bool"):
            return r.random() < 0.5
        if annotation.startswith("str"):
            return r.choice([*self.paths, "x", "fur.001", "ns:", "u * 2", "1 +", "hair", "/root/bodyShape"])
        return self.any(classes)

    def any(self, classes: list[type]) -> Any:
        r = self.rng.random()
        if r < 0.3:
            return self.instance(self.rng.choice(classes))
        if r < 0.5:
            return self.array()
        return self.rng.choice(
            [
                0,
                1,
                -1,
                2,
                7,
                2**31,
                -(2**31) - 1,
                2**63,
                0.0,
                0.5,
                -1.5,
                1e30,
                float("nan"),
                float("inf"),
                True,
                False,
                None,
                "",
                "x",
                "fur.001",
                "ns:hair",
                "u * 2 + znoise(1, x, y, z)",
                "1 +",
                "d",
                self.rng.choice(self.paths),
                [],
                [1, 2, 3],
                (0.0, 1.0),
                {},
                object(),
            ]
        )


def describe(value: Any) -> str:
    if isinstance(value, np.ndarray):
        return f"ndarray{value.shape}{value.dtype}"
    text = (
        repr(value)
        if not hasattr(value, "__module__") or "groomcore" not in type(value).__module__
        else type(value).__name__
    )
    return text[:60]


def batch(seed: int, calls: int, workdir: Path) -> int:
    import groomcore as gc

    rng = random.Random(seed)
    module = gc._groomcore
    all_targets = targets(module)
    classes = [getattr(module, n) for n in dir(module) if isinstance(getattr(module, n), type)]
    values = Values(gc, rng, workdir)
    log = open(workdir / "calls.log", "w", buffering=1)
    refused = 0
    # Half the calls go to methods and functions, which the many plain fields would drown.
    operations = [t for t in all_targets if not t.name.endswith("=") and t.arity > 0]
    for i in range(calls):
        t = rng.choice(operations if rng.random() < 0.5 else all_targets)
        owner = None
        if "." in t.name and not t.name.endswith("()"):
            cls = getattr(module, t.name.split(".")[0])
            owner = values.instance(cls)
        if rng.random() < 0.9:
            args = [values.typed(a, classes) for a in t.types]
        else:
            args = [values.any(classes) for _ in range(rng.randint(0, 4))]
        log.write(f"{i} {t.name}({', '.join(describe(a) for a in args)})\n")
        try:
            if owner is not None and not isinstance(t.call, staticmethod):
                result = t.call(owner, *args)
            else:
                result = t.call(*args)
            if isinstance(result, tuple(classes)) and rng.random() < 0.5:
                values.instances.setdefault(type(result).__name__, []).append(result)
        except Exception:
            refused += 1
    log.close()
    return refused


def run_batches(seeds: Iterator[int] | list[int], calls: int, workdir: Path, timeout: float = 120) -> dict[int, str]:
    """Runs each seed's batch in a subprocess; the seeds whose process died, with its last call."""
    crashed: dict[int, str] = {}
    for seed in seeds:
        d = workdir / f"seed{seed}"
        d.mkdir(parents=True, exist_ok=True)
        # In the batch's own folder: a name drawn as a path ("x", "fur.001") is written there.
        done = subprocess.run(
            [sys.executable, str(Path(__file__).resolve()), str(seed), str(calls), str(d.resolve())],
            capture_output=True,
            text=True,
            timeout=timeout,
            cwd=d,
            env={**os.environ, "OMP_NUM_THREADS": "2"},
        )
        if done.returncode != 0:
            log = (d / "calls.log").read_text().splitlines() if (d / "calls.log").exists() else ["(no log)"]
            crashed[seed] = f"exit {done.returncode}; last call: {log[-1] if log else '?'}; {done.stderr[-300:]}"
    return crashed


def main(argv: list[str]) -> int:
    if len(argv) == 4 and argv[1] != "--seconds":
        refused = batch(int(argv[1]), int(argv[2]), Path(argv[3]))
        print(f"{argv[2]} calls, {refused} refused")
        return 0
    # random_calls.py --seconds S WORKDIR: batches until the time is up (scripts/fuzz.sh).
    seconds, workdir = float(argv[2]), Path(argv[3])
    t0, seed, calls, per_batch = time.time(), int(time.time()), 0, 2000
    while time.time() - t0 < seconds:
        crashed = run_batches([seed], per_batch, workdir)
        if crashed:
            print(f"random calls: CRASH with seed {seed}: {crashed[seed]}")
            return 1
        calls += per_batch
        seed += 1
    elapsed = time.time() - t0
    print(f"random calls: {calls} calls in {elapsed:.0f} s ({calls / elapsed:.0f} per second), no crash")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
