"""FeXOService: the host app's entry, on the C interface."""

from __future__ import annotations

import ctypes
import enum
import json

from . import _callbacks, _checks
from ._errors import check, from_error, raise_failure
from ._handle import Handle
from ._native import COUNTS_CALLBACK, REGISTRATION_CALLBACK, Pointer, lib, take_string, text
from ._records import Page, Record
from ._status import Status

TYPE_CHECKING = False  # as in _native
if TYPE_CHECKING:
    from concurrent.futures import Future
    from types import TracebackType
    from typing import Any, Callable, Iterator

# The page size of records(): one call into the library per this many records, which then costs
# 2-3% of decoding them, while a loop that stops after the newest few reads at most this many.
RECORDS_PAGE_SIZE = 100


class PushProvider(enum.IntEnum):
    FCM = 1
    APNS = 2
    PUSHWOOSH = 3


def _complete_registration(status: int, answer_json: bytes | None, error: int | None, key: int | None) -> None:
    # On the URL session's thread, exactly once per started registration.
    import concurrent.futures  # already loaded by register_device, which kept the future

    future = _callbacks.take(key)
    if not isinstance(future, concurrent.futures.Future):
        return
    if status == Status.OK and answer_json is not None:
        future.set_result(json.loads(answer_json.decode("utf-8")))
    else:
        future.set_exception(from_error(status, error))


def _count(total: int, unread: int, key: int | None) -> None:
    # On the store observer's thread, one call at a time.
    callback = _callbacks.peek(key)
    if callable(callback):
        callback(total, unread)


_registered = REGISTRATION_CALLBACK(_complete_registration)
_counted = COUNTS_CALLBACK(_count)


def _page_size(limit: int) -> int:
    if isinstance(limit, bool) or not isinstance(limit, int) or limit < 1:
        raise ValueError(f"a page holds at least one record: limit must be an int of 1 or more, not {limit!r}")
    return limit


class Observation(Handle):
    """Keeps an observe() callback running until cancel() or the end of a with block, and true
    until then:

        with service.observe(callback):
            ...  # callback(total, unread) after every change

    Once cancel() returns no callback runs, except when it is called from inside that callback.
    An Observation that is collected is cancelled: keep it while you observe."""

    closed = "the observation is cancelled"

    def __init__(self, handle: int | None, key: int) -> None:
        super().__init__(handle, lib.fexo_observation_free)
        self._key = key

    def cancel(self) -> None:
        if self._handle:
            super().close()
            _callbacks.take(self._key)

    close = cancel

    def __enter__(self) -> Observation:
        return self

    def __exit__(self, exc_type: type[BaseException] | None, exc: BaseException | None,
                 traceback: TracebackType | None) -> None:
        self.cancel()

    def __bool__(self) -> bool:
        return bool(self._handle)


class FeXOService(Handle):
    """Registers the device and reads and changes the records the extension stored.

    Creating one reads no file; the configuration is read on the first registration or store
    access. Local operations run on the calling thread and may be called from any thread.
    Integration mistakes that end a C or C++ host's process (a missing configuration, a base URL
    that is no URL, an app group that cannot be opened) raise ConfigurationError or StoreError
    here instead: before its first call of each kind the service checks what that kind needs.
    """

    closed = "the service is closed"

    def __init__(self) -> None:
        super().__init__(lib.fexo_service_new(), lib.fexo_service_free)
        if not self._handle:
            raise MemoryError("cannot make a FeXO service")

    def _ready(self, parts: int) -> int:
        """The live handle, once the configuration holds what a call needing `parts` needs."""
        handle = self._live()
        _checks.ensure(parts)
        return handle

    def register_device(self, token: str, device_id: str, imei1: str = "", imei2: str = "", mobile_number: str = "",
                        provider: PushProvider | int = PushProvider.FCM) -> Future[dict[str, Any]]:
        """Starts the registration; the Future gets the server's decoded answer as a dict (read its
        "errorMessage" and "errors"), or a TransportError or DecodingError. It completes on the
        library's network thread: wait with result(timeout), or await asyncio.wrap_future(it)."""
        import concurrent.futures

        future: Future[dict[str, Any]] = concurrent.futures.Future()
        future.set_running_or_notify_cancel()
        key = _callbacks.keep(future)
        error = Pointer()
        status = lib.fexo_service_register_device(
            self._ready(_checks.SERVER), text(token), text(device_id), text(imei1), text(imei2), text(mobile_number),
            int(PushProvider(provider)), _registered, key, error)
        if status != Status.OK:
            _callbacks.take(key)
            raise_failure(status, error)
        return future

    def fetch_all(self) -> list[Record]:
        """Every stored record, in no promised order."""
        out = Pointer()
        check(lib.fexo_service_fetch_all, self._ready(_checks.STORE), out)
        return [Record.from_object(value) for value in json.loads(take_string(out.value) or "")]

    def fetch(self, id: str) -> Record | None:
        """The record stored under `id`, or None."""
        out, error = Pointer(), Pointer()
        status = lib.fexo_service_fetch(self._ready(_checks.STORE), text(id), out, error)
        if status == Status.ERROR_NOT_FOUND:
            return None
        raise_failure(status, error)
        return Record.from_json(take_string(out.value) or "")

    def mark_as_read(self, id: str) -> None:
        check(lib.fexo_service_mark_as_read, self._ready(_checks.STORE), text(id))

    def delete(self, id: str) -> None:
        check(lib.fexo_service_delete, self._ready(_checks.STORE), text(id))

    def delete_all(self) -> None:
        check(lib.fexo_service_delete_all, self._ready(_checks.STORE))

    def write(self, record: Record | dict[str, Any] | str) -> None:
        """Stores a Record, a dict or a record's JSON text under its id."""
        if isinstance(record, Record):
            record = record.to_json()
        elif isinstance(record, dict):
            record = json.dumps(record, separators=(",", ":"), ensure_ascii=False)
        check(lib.fexo_service_write, self._ready(_checks.STORE), text(record))

    def logout(self) -> None:
        """Deletes every stored record; the device stays registered."""
        check(lib.fexo_service_logout, self._ready(_checks.STORE))

    def page(self, limit: int, after: str | None = None) -> Page:
        """At most `limit` records after the cursor `after` (None: from the start), newest first; a
        cursor this library did not hand out raises DecodingError; a `limit` below 1 raises
        ValueError."""
        _page_size(limit)
        records, cursor = Pointer(), Pointer()
        check(lib.fexo_service_fetch_page, self._ready(_checks.STORE), limit, text(after) if after else None, records,
              cursor)
        records_json, next_cursor = take_string(records.value), take_string(cursor.value)
        return Page([Record.from_object(value) for value in json.loads(records_json or "")], next_cursor or "")

    def records(self, page_size: int = RECORDS_PAGE_SIZE) -> Iterator[Record]:
        """Every stored record, newest first, read a page of `page_size` at a time as the loop
        goes on (so a loop that stops early reads little). Paging is by position: a record
        written or deleted meanwhile neither repeats nor shifts a later one. A `page_size` below
        1 raises ValueError here, at the call."""
        return self._pages(_page_size(page_size))

    def _pages(self, page_size: int) -> Iterator[Record]:
        page = self.page(page_size)
        yield from page.records
        while page.next:
            page = self.page(page_size, page.next)
            yield from page.records

    def unread_count(self) -> int:
        count = ctypes.c_uint64()
        check(lib.fexo_service_unread_count, self._ready(_checks.STORE), count)
        return count.value

    def mark_all_as_read(self) -> None:
        check(lib.fexo_service_mark_all_read, self._ready(_checks.STORE))

    def observe(self, callback: Callable[[int, int], object]) -> Observation:
        """Calls `callback(total, unread)` after the set of records changed in any process sharing the
        store, on the library's observer thread (one call at a time, changes during a call folded
        into the next), until the returned Observation is cancelled or its with block ends.
        Raises UnavailableError when the store cannot be watched."""
        key = _callbacks.keep(callback)
        handle = Pointer()
        try:
            check(lib.fexo_service_observe, self._ready(_checks.STORE), _counted, key, handle)
        except BaseException:
            _callbacks.take(key)
            raise
        return Observation(handle.value, key)


# Shown, pickled and named in tracebacks by their public names.
for _public in (PushProvider, Observation, FeXOService):
    _public.__module__ = "fexo"
