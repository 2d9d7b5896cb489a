"""groomcore: strands, modifiers, feathers, caches, Alembic bodies and USD export.

Every class and function of the C++ library, under its C++ name. Per-strand and per-CV
arrays are numpy views of the library's memory (``curves.cvs`` is an (n, 3) float32 view);
assigning a numpy array copies it in. A call that could resize an array while a view of it
is alive raises BufferError instead. The library's report lines go to the `logging`
logger "groomcore". Data objects (strands, meshes, feathers, modifier settings) can be
copied and pickled.
"""

import logging

from . import _pickling  # noqa: F401  (copy, deepcopy and pickle for the data objects)
from ._groomcore import *  # noqa: F403
from ._groomcore import setMessageSink

# The library's report lines ("Error@ZModifier::append(): No file.") go to this logger
# rather than to standard output; setMessageSink(None) gives them back to standard output.
logger = logging.getLogger("groomcore")


def _report(line: str) -> None:
    logger.error(line)


setMessageSink(_report)
