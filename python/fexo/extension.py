"""FeXONotificationExtensionHandler: the notification extension's entry, on the C interface."""

import json

from . import _callbacks, _native
from .errors import check
from ._native import lib, text


@_native.CONTENT_CALLBACK
def _delivered(title, body, key):
    # On the URL session's thread, at most once per push, only on success.
    callback = _callbacks.take(key)
    if callback is not None:
        callback(title.decode("utf-8", "replace"), body.decode("utf-8", "replace"))


class FeXONotificationExtensionHandler(_native.NativeHandle):
    """Call handle_notification for every push that arrives."""

    closed = "the handler is closed"

    def __init__(self):
        super().__init__(lib.fexo_extension_handler_new(), lib.fexo_extension_handler_free)
        if not self._handle:
            raise MemoryError("cannot make a FeXO extension handler")

    def handle_notification(self, user_info, content_handler):
        """Asks the server for the push's content and stores the record; returns at once.

        `user_info` is the push's user-info, a dict or its JSON text. `content_handler(title,
        body)` runs at most once, on the library's network thread, only when the content arrived
        and was stored. Wait with fexo.wait_until_idle(): once it returns True the handler has
        run or never will, and the push's own alert is yours to deliver.
        """
        handle = self._live()
        if not isinstance(user_info, str):
            user_info = json.dumps(user_info, ensure_ascii=False)
        key = _callbacks.keep(content_handler)
        try:
            check(lib.fexo_extension_handler_handle_notification, handle, text(user_info), _delivered, key)
        except BaseException:
            _callbacks.take(key)
            raise
