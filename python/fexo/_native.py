"""The shared library and the C functions' prototypes (ctypes).

The library is the one named by $FEXO_LIBRARY; else the one at the path, relative to this
package's own folder, that was recorded when the package was installed or built (_location.py),
when a file is there; else the one the dynamic loader finds by its SONAME.
"""

import ctypes
import os

from ._version import __version__

c_char_pp = ctypes.POINTER(ctypes.c_char_p)


class Error(ctypes.Structure):
    """Opaque fexo_error."""


ErrorP = ctypes.POINTER(Error)
ErrorPP = ctypes.POINTER(ErrorP)

# Owned strings come back as void pointers, so that their memory can be freed after copying.
OwnedString = ctypes.c_void_p
OwnedStringP = ctypes.POINTER(ctypes.c_void_p)

REGISTRATION_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_char_p, ErrorP, ctypes.c_void_p)
CONTENT_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_void_p)
COUNTS_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_uint64, ctypes.c_uint64, ctypes.c_void_p)


# The SONAME carries the major version, and a package of one version speaks its ABI only.
SONAME = "libFeXONotificationService.so." + __version__.split(".")[0]


def _library_path():
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


def _declare(lib):
    status = ctypes.c_int
    handle = ctypes.c_void_p
    prototypes = {
        "fexo_status_name": (ctypes.c_char_p, [status]),
        "fexo_error_description": (ctypes.c_char_p, [ErrorP]),
        "fexo_error_debug_description": (ctypes.c_char_p, [ErrorP]),
        "fexo_error_domain": (ctypes.c_char_p, [ErrorP]),
        "fexo_error_code": (ctypes.c_int64, [ErrorP]),
        "fexo_error_status": (status, [ErrorP]),
        "fexo_error_free": (None, [ErrorP]),
        "fexo_free_string": (None, [OwnedString]),
        "fexo_version": (ctypes.c_char_p, []),
        "fexo_resources_directory": (OwnedString, []),
        "fexo_set_resources_directory": (status, [ctypes.c_char_p]),
        "fexo_check_configuration": (status, [OwnedStringP, OwnedStringP]),
        "fexo_check_configuration_for": (status, [ctypes.c_uint32, OwnedStringP, OwnedStringP]),
        "fexo_session_wait_until_idle": (ctypes.c_int32, [ctypes.c_int64]),
        "fexo_service_new": (handle, []),
        "fexo_service_free": (None, [handle]),
        "fexo_service_register_device": (
            status, [handle] + [ctypes.c_char_p] * 5 + [ctypes.c_int, REGISTRATION_CALLBACK, ctypes.c_void_p, ErrorPP]),
        "fexo_service_fetch_all": (status, [handle, OwnedStringP, ErrorPP]),
        "fexo_service_fetch": (status, [handle, ctypes.c_char_p, OwnedStringP, ErrorPP]),
        "fexo_service_mark_as_read": (status, [handle, ctypes.c_char_p, ErrorPP]),
        "fexo_service_delete": (status, [handle, ctypes.c_char_p, ErrorPP]),
        "fexo_service_delete_all": (status, [handle, ErrorPP]),
        "fexo_service_write": (status, [handle, ctypes.c_char_p, ErrorPP]),
        "fexo_service_logout": (status, [handle, ErrorPP]),
        "fexo_service_fetch_page": (status, [handle, ctypes.c_size_t, ctypes.c_char_p, OwnedStringP, OwnedStringP, ErrorPP]),
        "fexo_service_unread_count": (status, [handle, ctypes.POINTER(ctypes.c_uint64), ErrorPP]),
        "fexo_service_mark_all_read": (status, [handle, ErrorPP]),
        "fexo_service_observe": (status, [handle, COUNTS_CALLBACK, ctypes.c_void_p, ctypes.POINTER(handle), ErrorPP]),
        "fexo_observation_free": (None, [handle]),
        "fexo_extension_handler_new": (handle, []),
        "fexo_extension_handler_free": (None, [handle]),
        "fexo_extension_handler_deliver": (
            status, [handle, ctypes.c_char_p, ctypes.c_int64, OwnedStringP, OwnedStringP, ctypes.POINTER(ctypes.c_int32),
                     OwnedStringP, ErrorPP]),
        "fexo_extension_handler_handle_notification": (
            status, [handle, ctypes.c_char_p, CONTENT_CALLBACK, ctypes.c_void_p, ErrorPP]),
    }
    for name, (restype, argtypes) in prototypes.items():
        function = getattr(lib, name)
        function.restype = restype
        function.argtypes = argtypes
    return lib


lib = _declare(ctypes.CDLL(_library_path()))


def take_string(pointer):
    """The text of a library-allocated string, which is freed; None for NULL."""
    if not pointer:
        return None
    try:
        return ctypes.string_at(pointer).decode("utf-8")
    finally:
        lib.fexo_free_string(pointer)


def text(value):
    """A str as the UTF-8 bytes the C interface takes."""
    if not isinstance(value, str):
        raise TypeError(f"expected str, got {type(value).__name__}")
    return value.encode("utf-8")


class NativeHandle:
    """Owns one handle of the C interface and frees it once: by close(), at the end of a with block,
    or when collected. `closed` is the message of the ValueError that a use after close raises."""

    closed = "the handle is closed"

    def __init__(self, handle, free):
        self._handle = handle
        self._free = free

    def close(self):
        handle, self._handle = self._handle, None
        if handle:
            self._free(handle)

    def _live(self):
        if not self._handle:
            raise ValueError(self.closed)
        return self._handle

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        self.close()
