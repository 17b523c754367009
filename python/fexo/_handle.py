"""The owner of one handle of the C interface."""

from __future__ import annotations

TYPE_CHECKING = False  # as in _native
if TYPE_CHECKING:
    from types import TracebackType
    from typing import Callable, TypeVar

    _Handle = TypeVar("_Handle", bound="Handle")


class Handle:
    """Owns one handle of the C interface and frees it once: by close(), at the end of a with block,
    or when collected. `closed` is the message of the ValueError that a use after close raises."""

    closed = "the handle is closed"

    def __init__(self, handle: int | None, free: Callable[[int | None], None]) -> None:
        self._handle = handle
        self._free = free

    def close(self) -> None:
        handle, self._handle = self._handle, None
        if handle:
            self._free(handle)

    def _live(self) -> int:
        if not self._handle:
            raise ValueError(self.closed)
        return self._handle

    def __enter__(self: _Handle) -> _Handle:
        return self

    def __exit__(self, exc_type: type[BaseException] | None, exc: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()
