"""The test suite's killed and frozen processes: put this folder on PYTHONPATH and set
GROOMCORE_TEST_KILL_AT=FRAME:MARKER, and the first process (the command or a Dask worker)
about to publish FRAME's files ends at once, its files staged but not published, and
leaves MARKER behind so that the retry goes through; with GROOMCORE_TEST_FREEZE_AT=FRAME,
every process about to publish FRAME stops there for good."""

from __future__ import annotations

import os
from pathlib import Path

_spec = os.environ.get("GROOMCORE_TEST_KILL_AT", "")
_freeze = os.environ.get("GROOMCORE_TEST_FREEZE_AT", "")
if ":" in _spec or _freeze:
    import groomcore.farm as _farm

    _frame, _marker = _spec.split(":", 1) if ":" in _spec else ("", "")
    _publish = _farm.publish

    def _dying_publish(staged: Path, final: Path) -> None:
        if _frame and f".{_frame}." in final.name and not os.path.exists(_marker):
            Path(_marker).touch()
            os._exit(3)
        if _freeze and f".{_freeze}." in final.name:
            import time

            while True:
                time.sleep(60)
        _publish(staged, final)

    _farm.publish = _dying_publish
