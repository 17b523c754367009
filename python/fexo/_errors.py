"""Exceptions: one per status of the C interface, each carrying the error's domain, code and
descriptions (a transport error's platform code, a decoding error's description)."""

from __future__ import annotations

from ._native import Pointer, lib
from ._status import Status

TYPE_CHECKING = False  # as in _native
if TYPE_CHECKING:
    from typing import Callable


class FeXOError(Exception):
    """A failed call. `description` is the English sentence a user may see,
    `debug_description` the developer's form; `domain` and `code` identify the error."""

    status: Status | None = None

    def __init__(self, description: str, domain: str = "FeXOErrorDomain", code: int = 0,
                 debug_description: str = "") -> None:
        super().__init__(description)
        self.description = description
        self.domain = domain
        self.code = code
        self.debug_description = debug_description or description


class InvalidArgumentError(FeXOError, ValueError):
    status = Status.ERROR_INVALID_ARGUMENT


class DecodingError(FeXOError):
    status = Status.ERROR_DECODING


class EncodingError(FeXOError):
    status = Status.ERROR_ENCODING


class TransportError(FeXOError):
    """The request failed; `code` is the platform's URL error code (-1004: cannot connect)."""
    status = Status.ERROR_TRANSPORT


class InternalError(FeXOError):
    status = Status.ERROR_INTERNAL


class UnavailableError(FeXOError):
    """The system refused a resource (the store cannot be watched: no inotify watch left)."""
    status = Status.ERROR_UNAVAILABLE


class StoreError(FeXOError):
    """The store refused a change (no space, no permission, a read-only file system): nothing of
    it was kept. `description` names the store's file and the reason."""
    status = Status.ERROR_STORE


class ConfigurationError(FeXOError):
    """A configuration the library would end the process over: `name` and `reason` of the exception
    it would raise for its file (the reason of a missing file ends with the folder it was looked
    for in), or, for a check of the package's own (a base URL that is no http(s) URL, an unusable
    app group name), `name` None and the check's reason."""
    status = Status.ERROR_CONFIGURATION

    def __init__(self, name: str | None, reason: str) -> None:
        super().__init__(f"{name}: {reason}" if name else reason, code=Status.ERROR_CONFIGURATION)
        self.name = name
        self.reason = reason


_BY_STATUS: dict[int | None, type[FeXOError]] = {
    cls.status: cls for cls in (InvalidArgumentError, DecodingError, EncodingError, TransportError, InternalError,
                                UnavailableError, StoreError)}

# Shown, pickled and named in tracebacks by their public names.
for _public in (FeXOError, ConfigurationError, *_BY_STATUS.values()):
    _public.__module__ = "fexo"


def from_error(status: int, error: int | None) -> Exception:
    """The exception for a failed status and its (borrowed) fexo_error, which may be NULL."""
    if status == Status.ERROR_OUT_OF_MEMORY:
        return MemoryError("the FeXO library ran out of memory")
    cls = _BY_STATUS.get(status, FeXOError)
    if not error:
        name = lib.fexo_status_name(status).decode()
        return cls(name, code=status)
    return cls(lib.fexo_error_description(error).decode("utf-8", "replace"),
               lib.fexo_error_domain(error).decode("utf-8", "replace"),
               lib.fexo_error_code(error),
               lib.fexo_error_debug_description(error).decode("utf-8", "replace"))


def configuration_problem(status: int, name: str | None, reason: str | None) -> Exception:
    """The exception for a failed configuration check: StoreError when the store itself cannot be
    opened or made, else ConfigurationError (`name` None for a check of the library's own)."""
    if status == Status.ERROR_OUT_OF_MEMORY:
        return MemoryError("the FeXO library ran out of memory")
    if status == Status.ERROR_STORE:
        return StoreError(reason or "", "FeXOStoreErrorDomain", 2)
    return ConfigurationError(name or None, reason or "")


def raise_failure(status: int, error: Pointer) -> None:
    """Raises the exception for `status` unless it is FEXO_OK; frees the error either way."""
    if status == Status.OK:
        return
    try:
        raise from_error(status, error.value)
    finally:
        lib.fexo_error_free(error.value)


def check(call: Callable[..., int], *arguments: object) -> None:
    """Calls a C function whose last parameter is a fexo_error**; raises on failure."""
    error = Pointer()
    raise_failure(call(*arguments, error), error)
