"""The shared library and the C functions' prototypes (ctypes).

The library is the one named by $FEXO_LIBRARY; else the one at the path, relative to this
package's own folder, that was recorded when the package was installed or built (_location.py),
when a file is there; else the one the dynamic loader finds by its SONAME.

Every pointer the library hands out or takes back (a handle, an error, a string to free) is a
c_void_p here: Python sees an int, or None for NULL. An out-parameter is passed as the ctypes
object itself, and ctypes passes its address, since its prototype declares a pointer to it.
"""

from __future__ import annotations

import ctypes
import os

from ._version import __version__

# typing.TYPE_CHECKING without importing typing, which an extension process has no use for; the
# type checker takes any name TYPE_CHECKING as that constant.
TYPE_CHECKING = False
if TYPE_CHECKING:
    from ._library import Library

# What receives a pointer the library hands out (a handle, an error, a string to free, which
# comes back as a void pointer so that it can be freed after copying): `value` is an int, or None.
Pointer = ctypes.c_void_p

REGISTRATION_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ctypes.c_void_p, ctypes.c_void_p)
CONTENT_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_void_p)
COUNTS_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_uint64, ctypes.c_uint64, ctypes.c_void_p)

# The SONAME carries the major version, and a package of one version speaks its ABI only.
SONAME = "libFeXONotificationService.so." + __version__.split(".")[0]

_status = ctypes.c_int
_pointer = ctypes.c_void_p  # a handle, an error, a string to free
_out = ctypes.POINTER(ctypes.c_void_p)  # where the library puts one of those
_string = ctypes.c_char_p  # a string in, or a constant string out

# Each function's result and parameters; _library.Library gives the same functions their types.
PROTOTYPES = {
    "fexo_status_name": (_string, [_status]),
    "fexo_error_description": (_string, [_pointer]),
    "fexo_error_debug_description": (_string, [_pointer]),
    "fexo_error_domain": (_string, [_pointer]),
    "fexo_error_code": (ctypes.c_int64, [_pointer]),
    "fexo_error_status": (_status, [_pointer]),
    "fexo_error_free": (None, [_pointer]),
    "fexo_free_string": (None, [_pointer]),
    "fexo_version": (_string, []),
    "fexo_resources_directory": (_pointer, []),
    "fexo_set_resources_directory": (_status, [_string]),
    "fexo_check_configuration": (_status, [_out, _out]),
    "fexo_check_configuration_for": (_status, [ctypes.c_uint32, _out, _out]),
    "fexo_session_wait_until_idle": (ctypes.c_int32, [ctypes.c_int64]),
    "fexo_service_new": (_pointer, []),
    "fexo_service_free": (None, [_pointer]),
    "fexo_service_register_device": (
        _status, [_pointer] + [_string] * 5 + [ctypes.c_int, REGISTRATION_CALLBACK, _pointer, _out]),
    "fexo_service_fetch_all": (_status, [_pointer, _out, _out]),
    "fexo_service_fetch": (_status, [_pointer, _string, _out, _out]),
    "fexo_service_mark_as_read": (_status, [_pointer, _string, _out]),
    "fexo_service_delete": (_status, [_pointer, _string, _out]),
    "fexo_service_delete_all": (_status, [_pointer, _out]),
    "fexo_service_write": (_status, [_pointer, _string, _out]),
    "fexo_service_logout": (_status, [_pointer, _out]),
    "fexo_service_fetch_page": (_status, [_pointer, ctypes.c_size_t, _string, _out, _out, _out]),
    "fexo_service_unread_count": (_status, [_pointer, ctypes.POINTER(ctypes.c_uint64), _out]),
    "fexo_service_mark_all_read": (_status, [_pointer, _out]),
    "fexo_service_observe": (_status, [_pointer, COUNTS_CALLBACK, _pointer, _out, _out]),
    "fexo_observation_free": (None, [_pointer]),
    "fexo_extension_handler_new": (_pointer, []),
    "fexo_extension_handler_free": (None, [_pointer]),
    "fexo_extension_handler_deliver": (
        _status, [_pointer, _string, ctypes.c_int64, _out, _out, ctypes.POINTER(ctypes.c_int32), _out, _out]),
    "fexo_extension_handler_handle_notification": (
        _status, [_pointer, _string, CONTENT_CALLBACK, _pointer, _out]),
}


def _library_path() -> str:
    explicit = os.environ.get("FEXO_LIBRARY")
    if explicit:
        return explicit
    try:
        from . import _location
    except ImportError:
        return SONAME
    here = os.path.dirname(os.path.realpath(__file__))
    recorded = os.path.normpath(os.path.join(here, _location.LIBRARY_FROM_PACKAGE))
    return recorded if os.path.exists(recorded) else SONAME


def _load() -> Library:
    library = ctypes.CDLL(_library_path())
    for name, (restype, argtypes) in PROTOTYPES.items():
        function = getattr(library, name)
        function.restype = restype
        function.argtypes = argtypes
    # A CDLL answers any attribute with a C function (its __getattr__), so the type checker takes
    # it as a Library: the protocol's signatures for the prototypes declared above.
    return library


lib = _load()


def take_string(pointer: int | None) -> str | None:
    """The text of a library-allocated string, which is freed; None for NULL."""
    if not pointer:
        return None
    try:
        return ctypes.string_at(pointer).decode("utf-8")
    finally:
        lib.fexo_free_string(pointer)


def text(value: str) -> bytes:
    """A str as the UTF-8 bytes the C interface takes."""
    if not isinstance(value, str):
        raise TypeError(f"expected str, got {type(value).__name__}")
    return value.encode("utf-8")

