"""What each kind of call needs of the configuration, checked once per process and kind before the
first such call, so that a mistake raises here instead of ending the interpreter in the library.

The file and its keys are always checked; the store (app group name, store that can be opened or
made) before store operations; the base URL before a registration or a push's request. A check
that passes is not made again in this process; one that fails is made again next time.
"""

from __future__ import annotations

import _thread

from ._errors import configuration_problem
from ._native import Pointer, lib, take_string
from ._status import Status

SERVER = 1  # FEXO_CHECK_SERVER
STORE = 2  # FEXO_CHECK_STORE

_lock = _thread.allocate_lock()
_passed: int | None = None  # the parts checked so far, once the file itself has passed


def ensure(parts: int) -> None:
    """Raises ConfigurationError or StoreError when what `parts` needs would end the process."""
    global _passed
    with _lock:
        if _passed is not None and parts & ~_passed == 0:
            return
        name, reason = Pointer(), Pointer()
        status = lib.fexo_check_configuration_for(parts, name, reason)
        name_text, reason_text = take_string(name.value), take_string(reason.value)
        if status != Status.OK:
            raise configuration_problem(status, name_text, reason_text)
        _passed = (_passed or 0) | parts
