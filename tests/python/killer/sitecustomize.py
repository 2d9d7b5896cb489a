"""The test suite's killed process: put this folder on PYTHONPATH and set
GROOMCORE_TEST_KILL_AT=FRAME:MARKER, and the first process (the command or a Dask worker)
about to publish FRAME's files ends at once, its files staged but not published, and
leaves MARKER behind so that the retry goes through."""

from __future__ import annotations

import os
from pathlib import Path

_spec = os.environ.get("GROOMCORE_TEST_KILL_AT", "")
if ":" in _spec:
    import groomcore.usdexport as _usdexport

    _frame, _marker = _spec.split(":", 1)
    _publish = _usdexport._publish

    def _dying_publish(staged: Path, final: Path) -> None:
        if f".{_frame}." in final.name and not os.path.exists(_marker):
            Path(_marker).touch()
            os._exit(3)
        _publish(staged, final)

    _usdexport._publish = _dying_publish
