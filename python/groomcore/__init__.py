"""groomcore: strands, modifiers, feathers, caches, Alembic bodies and USD export.

Every class and function of the C++ library, under its C++ name. Per-strand and per-CV
arrays are numpy views of the library's memory (``curves.cvs`` is an (n, 3) float32 view);
assigning a numpy array copies it in. A call that could resize an array while a view of it
is alive raises BufferError instead.
"""

from ._groomcore import *  # noqa: F403
