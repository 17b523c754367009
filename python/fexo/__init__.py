"""The FeXO notification service for Python, on the library's C interface (ctypes).

    import fexo
    fexo.check_configuration()          # raises fexo.ConfigurationError(name, reason)
    with fexo.FeXOService() as service:
        for record in service.fetch_all():
            print(record.id, record.data and record.data.text)
"""

import ctypes

from . import _native
from . import errors as _errors
from ._version import __version__
from ._native import lib, take_string, text
from .errors import (ConfigurationError, DecodingError, EncodingError, FeXOError, InternalError,
                     InvalidArgumentError, StoreError, TransportError, UnavailableError)
from .extension import Delivery, FeXONotificationExtensionHandler
from .status import Status

__all__ = [
    "ConfigurationError", "DecodingError", "Delivery", "EncodingError", "FeXOError", "InternalError", "InvalidArgumentError",
    "StoreError", "TransportError", "UnavailableError", "FeXONotificationExtensionHandler", "FeXOService", "NotificationData", "PushProvider",
    "Record", "Status", "check_configuration", "resources_directory", "set_resources_directory", "version",
    "wait_until_idle",
]


# The host app's side (dataclasses, futures) is imported on first use, so that an extension
# process, which must stay within a few tens of MiB, never loads it.
_LAZY = {"FeXOService": "service", "PushProvider": "service", "NotificationData": "records", "Record": "records"}


def __getattr__(name):
    module = _LAZY.get(name)
    if module is None:
        raise AttributeError(f"module 'fexo' has no attribute {name!r}")
    import importlib
    value = getattr(importlib.import_module(f".{module}", __name__), name)
    globals()[name] = value
    return value


def version():
    """The library's version, "MAJOR.MINOR.PATCH"."""
    return lib.fexo_version().decode()


def check_configuration():
    """Loads FeXOService-Info.plist as the library will and checks what would later end the
    process: raises ConfigurationError with the name and reason of the exception the library
    would raise (name None for a check of its own: a base URL that is no http(s) URL, an unusable
    app group name), or StoreError when the store cannot be opened or made. Creates and changes
    nothing. Every call of the package that would otherwise end the process makes the part of
    this check it needs first, once per process."""
    name = _native.OwnedString()
    reason = _native.OwnedString()
    status = lib.fexo_check_configuration(ctypes.byref(name), ctypes.byref(reason))
    name_text, reason_text = take_string(name.value), take_string(reason.value)
    if status != Status.OK:
        raise _errors.configuration_problem(status, name_text, reason_text)


def resources_directory():
    """Where FeXOService-Info.plist is looked up; "" when there is none."""
    return take_string(lib.fexo_resources_directory()) or ""


def set_resources_directory(path):
    if lib.fexo_set_resources_directory(text(str(path))) != Status.OK:
        raise MemoryError("the FeXO library ran out of memory")


def wait_until_idle(timeout=25.0):
    """Waits until no request of the library is in flight, at most `timeout` seconds; True when idle."""
    return bool(lib.fexo_session_wait_until_idle(int(timeout * 1000)))
