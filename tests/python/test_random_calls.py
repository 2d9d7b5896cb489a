"""Every public callable of the package, called at random with good and bad arguments, in
subprocesses so that a crash is seen: every refusal must be a Python exception. The same
caller runs for as long as asked in scripts/fuzz.sh."""

from __future__ import annotations

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parent))

import random_calls  # noqa: E402


def test_random_calls_never_kill_the_interpreter(tmp_path: Path) -> None:
    crashed = random_calls.run_batches(range(1, 9), 4000, tmp_path)
    assert not crashed, crashed


def test_the_caller_reaches_every_public_callable() -> None:
    import groomcore._groomcore as module

    names = {t.name for t in random_calls.targets(module)}
    for expected in (
        "ZFollicles.from_",
        "ZCacheData2.bakePerFrameData",
        "ZCurvesToUSD.writeGeometryToFeather",
        "readStrandsData",
        "ZExpression()",
        "ZCurves.cvs=",
    ):
        assert expected in names
