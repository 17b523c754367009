"""FeXONotificationExtensionHandler: the notification extension's entry, on the C interface."""

from __future__ import annotations

import ctypes
import json

from . import _callbacks, _checks
from ._errors import check
from ._handle import Handle
from ._native import CONTENT_CALLBACK, Pointer, lib, take_string, text

TYPE_CHECKING = False  # as in _native
if TYPE_CHECKING:
    from typing import Any, Callable


def _deliver_content(title: bytes | None, body: bytes | None, key: int | None) -> None:
    # On the URL session's thread, at most once per push, only on success.
    callback = _callbacks.take(key)
    if callable(callback):
        callback((title or b"").decode("utf-8", "replace"), (body or b"").decode("utf-8", "replace"))


_delivered = CONTENT_CALLBACK(_deliver_content)


class Delivery:
    """What deliver() gives the extension to show: `title` and `body`; `rewritten`, True when they
    are the server's record (which carries a notification), False when they are the push's own
    alert; and `record_id`, the id of the record stored for the push within the time limit (even
    a refusal's), else None."""

    __slots__ = ("title", "body", "rewritten", "record_id")

    def __init__(self, title: str, body: str, rewritten: bool, record_id: str | None) -> None:
        self.title = title
        self.body = body
        self.rewritten = rewritten
        self.record_id = record_id

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Delivery) and all(getattr(self, n) == getattr(other, n) for n in self.__slots__)

    def __repr__(self) -> str:
        return (f"Delivery(title={self.title!r}, body={self.body!r}, rewritten={self.rewritten!r}, "
                f"record_id={self.record_id!r})")


class FeXONotificationExtensionHandler(Handle):
    """Call handle_notification for every push that arrives."""

    closed = "the handler is closed"

    def __init__(self) -> None:
        super().__init__(lib.fexo_extension_handler_new(), lib.fexo_extension_handler_free)
        if not self._handle:
            raise MemoryError("cannot make a FeXO extension handler")

    def handle_notification(self, user_info: str | dict[str, Any],
                            content_handler: Callable[[str, str], object]) -> None:
        """Asks the server for the push's content and stores the record; returns at once.

        `user_info` is the push's user-info, a dict or its JSON text. `content_handler(title,
        body)` runs at most once, on the library's network thread, only when the content arrived
        and was stored. Wait with fexo.wait_until_idle(): once it returns True the handler has
        run or never will, and the push's own alert is yours to deliver.
        """
        handle = self._live()
        _checks.ensure(_checks.SERVER | _checks.STORE)  # the request goes out and the record is stored
        if not isinstance(user_info, str):
            user_info = json.dumps(user_info, ensure_ascii=False)
        key = _callbacks.keep(content_handler)
        try:
            check(lib.fexo_extension_handler_handle_notification, handle, text(user_info), _delivered, key)
        except BaseException:
            _callbacks.take(key)
            raise

    def deliver(self, user_info: str | dict[str, Any], timeout: float = 25.0) -> Delivery:
        """Handles the push as handle_notification does and waits, at most `timeout` seconds, for
        this push's own request; returns the Delivery to show. The push's own alert is shown when
        the library failed, did not deliver in time, or the record carries no notification.
        `user_info` is a dict or its JSON text. Raises DecodingError when it is not a JSON object,
        ValueError for a negative timeout."""
        if timeout < 0:
            raise ValueError("the timeout must not be negative")
        handle = self._live()
        _checks.ensure(_checks.SERVER | _checks.STORE)  # the request goes out and the record is stored
        if not isinstance(user_info, str):
            user_info = json.dumps(user_info, ensure_ascii=False)
        title, body, record_id = Pointer(), Pointer(), Pointer()
        rewritten = ctypes.c_int32()
        check(lib.fexo_extension_handler_deliver, handle, text(user_info), int(timeout * 1000), title, body, rewritten,
              record_id)
        return Delivery(take_string(title.value) or "", take_string(body.value) or "", bool(rewritten.value),
                        take_string(record_id.value))


# Shown, pickled and named in tracebacks by their public names.
for _public in (Delivery, FeXONotificationExtensionHandler):
    _public.__module__ = "fexo"
