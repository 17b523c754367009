"""Python callables behind the C callbacks' user pointer.

The C side gets a key, never a Python object: the trampolines of _service and _extension live as
long as their modules, and each pending call is found again by its key. They run on the
library's threads (the URL session's, the store observer's), holding the GIL only while Python
code runs.
"""

from __future__ import annotations

import _thread
import atexit
import itertools

_lock = _thread.allocate_lock()  # the low-level lock: an extension process stays lean without threading
_pending: dict[int, object] = {}
_keys = itertools.count(1)
_waits_at_exit = False

# At most this long, at exit, for requests still in flight: a callback must not enter an
# interpreter that is being finalized.
EXIT_WAIT_MILLISECONDS = 5000


def _wait_for_requests() -> None:
    from ._native import lib
    lib.fexo_session_wait_until_idle(EXIT_WAIT_MILLISECONDS)


def keep(value: object) -> int:
    global _waits_at_exit
    with _lock:
        key = next(_keys)
        _pending[key] = value
        register, _waits_at_exit = not _waits_at_exit, True
    if register:
        atexit.register(_wait_for_requests)
    return key


def take(key: int | None) -> object:
    """The value kept under `key`, which is forgotten (None when there is none): for callbacks
    called once."""
    with _lock:
        return _pending.pop(key, None) if key is not None else None


def peek(key: int | None) -> object:
    with _lock:
        return _pending.get(key) if key is not None else None
