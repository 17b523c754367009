"""Python callables behind the C callbacks' user pointer.

The C side gets a key, never a Python object: the trampolines below live as long as the module,
and each pending call is found again by its key. They run on the library's threads (the URL
session's), holding the GIL only while Python code runs.
"""

import _thread
import atexit
import itertools

# The low-level lock: an extension process stays lean without the threading module.
_lock = _thread.allocate_lock()
_pending = {}
_keys = itertools.count(1)
_waits_at_exit = False

# At most this long, at exit, for requests still in flight: a callback must not enter an
# interpreter that is being finalized.
EXIT_WAIT_MILLISECONDS = 5000


def _wait_for_requests():
    from ._native import lib
    lib.fexo_session_wait_until_idle(EXIT_WAIT_MILLISECONDS)


def keep(value):
    global _waits_at_exit
    with _lock:
        key = next(_keys)
        _pending[key] = value
        register, _waits_at_exit = not _waits_at_exit, True
    if register:
        atexit.register(_wait_for_requests)
    return key


def take(key):
    """The value kept under `key`, which is forgotten: for callbacks called once."""
    with _lock:
        return _pending.pop(key, None)


def peek(key):
    with _lock:
        return _pending.get(key)
