"""The FeXO notification service for Python, on the library's C interface.

    import fexo
    fexo.check_configuration()          # raises fexo.ConfigurationError(name, reason)
    with fexo.FeXOService() as service:
        for record in service.records():  # newest first, a page at a time
            print(record.id, record.data and record.data.text)

The package is typed (py.typed). A notification extension needs only
FeXONotificationExtensionHandler: what a host app uses (FeXOService and the records) is imported
on first use, so that an extension process stays lean.
"""

from __future__ import annotations

from . import _native
from ._errors import (ConfigurationError, DecodingError, EncodingError, FeXOError, InternalError, InvalidArgumentError,
                      StoreError, TransportError, UnavailableError, configuration_problem as _configuration_problem)
from ._extension import Delivery, FeXONotificationExtensionHandler
from ._status import Status
from ._version import __version__

TYPE_CHECKING = False  # as in _native
if TYPE_CHECKING:
    import os

    from ._records import NotificationData, Page, Record
    from ._service import FeXOService, Observation, PushProvider

__all__ = [
    "ConfigurationError", "DecodingError", "Delivery", "EncodingError", "FeXOError", "FeXONotificationExtensionHandler",
    "FeXOService", "InternalError", "InvalidArgumentError", "NotificationData", "Observation", "Page", "PushProvider",
    "Record", "Status", "StoreError", "TransportError", "UnavailableError", "check_configuration",
    "resources_directory", "set_resources_directory", "version", "wait_until_idle",
]

# The host app's side (dataclasses, futures) is imported on first use, so that an extension
# process, which must stay within a few tens of MiB, never loads it.
_LAZY = {"FeXOService": "_service", "Observation": "_service", "PushProvider": "_service",
         "NotificationData": "_records", "Page": "_records", "Record": "_records"}


def __getattr__(name: str) -> object:
    module = _LAZY.get(name)
    if module is None:
        raise AttributeError(f"module 'fexo' has no attribute {name!r}")
    import importlib
    value = getattr(importlib.import_module(f".{module}", __name__), name)
    globals()[name] = value
    return value


def __dir__() -> list[str]:
    """The public names, those imported on first use included, and __version__."""
    return sorted(__all__ + ["__version__"])


def version() -> str:
    """The library's version, "MAJOR.MINOR.PATCH"."""
    return _native.lib.fexo_version().decode()


def check_configuration() -> None:
    """Loads FeXOService-Info.plist as the library will and checks what would later end the
    process: raises ConfigurationError with the name and reason of the exception the library
    would raise (name None for a check of its own: a base URL that is no http(s) URL, an unusable
    app group name), or StoreError when the store cannot be opened or made. Creates and changes
    nothing. Every call of the package that would otherwise end the process makes the part of
    this check it needs first, once per process."""
    name, reason = _native.Pointer(), _native.Pointer()
    status = _native.lib.fexo_check_configuration(name, reason)
    name_text, reason_text = _native.take_string(name.value), _native.take_string(reason.value)
    if status != Status.OK:
        raise _configuration_problem(status, name_text, reason_text)


def resources_directory() -> str:
    """Where FeXOService-Info.plist is looked up; "" when there is none."""
    return _native.take_string(_native.lib.fexo_resources_directory()) or ""


def set_resources_directory(path: str | os.PathLike[str]) -> None:
    """Where FeXOService-Info.plist is looked up from now on, in place of $FEXO_RESOURCES_DIR."""
    if _native.lib.fexo_set_resources_directory(_native.text(str(path))) != Status.OK:
        raise MemoryError("the FeXO library ran out of memory")


def wait_until_idle(timeout: float = 25.0) -> bool:
    """Waits until no request of the library is in flight, at most `timeout` seconds; True when idle."""
    return bool(_native.lib.fexo_session_wait_until_idle(int(timeout * 1000)))
