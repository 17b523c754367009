"""FeXOService: the host app's entry, on the C interface."""

import ctypes
import enum
import json

from . import _callbacks, _checks, _native
from .errors import check, from_error
from .records import Record
from .status import Status
from ._native import lib, take_string, text


class PushProvider(enum.IntEnum):
    FCM = 1
    APNS = 2
    PUSHWOOSH = 3


@_native.REGISTRATION_CALLBACK
def _registered(status, answer_json, error, key):
    # On the URL session's thread, exactly once per started registration.
    future = _callbacks.take(key)
    if future is None:
        return
    if status == Status.OK:
        future.set_result(json.loads(answer_json.decode("utf-8")))
    else:
        future.set_exception(from_error(status, error))


@_native.COUNTS_CALLBACK
def _counted(total, unread, key):
    # On the store observer's thread, one call at a time.
    callback = _callbacks.peek(key)
    if callback is not None:
        callback(total, unread)


class Page:
    """One page of records, newest first, and the cursor of the next page ("" after the last)."""

    def __init__(self, records, next):
        self.records = records
        self.next = next

    def __repr__(self):
        return f"Page(records={self.records!r}, next={self.next!r})"


class Observation(_native.NativeHandle):
    """Keeps an observe() callback running until cancel() or the end of a with block. Once cancel()
    returns no callback runs, except when it is called from inside that callback."""

    def __init__(self, handle, key):
        super().__init__(handle, lib.fexo_observation_free)
        self._key = key

    def cancel(self):
        if self._handle:
            super().close()
            _callbacks.take(self._key)

    close = cancel

    def __bool__(self):
        return bool(self._handle)


class FeXOService(_native.NativeHandle):
    """Registers the device and reads and changes the records the extension stored.

    Creating one reads no file; the configuration is read on the first registration or store
    access. Local operations run on the calling thread and may be called from any thread.
    Integration mistakes that end a C or C++ host's process (a missing configuration, a base URL
    that is no URL, an app group that cannot be opened) raise ConfigurationError or StoreError
    here instead: before its first call of each kind the service checks what that kind needs.
    """

    closed = "the service is closed"

    def __init__(self):
        super().__init__(lib.fexo_service_new(), lib.fexo_service_free)
        if not self._handle:
            raise MemoryError("cannot make a FeXO service")

    def _ready(self, parts):
        """The live handle, once the configuration holds what a call needing `parts` needs."""
        handle = self._live()
        _checks.ensure(parts)
        return handle

    def register_device(self, token, device_id, imei1="", imei2="", mobile_number="",
                        provider=PushProvider.FCM):
        """Starts the registration; the Future gets the server's decoded answer as a dict (read its
        "errorMessage" and "errors"), or a TransportError or DecodingError."""
        import concurrent.futures

        future = concurrent.futures.Future()
        future.set_running_or_notify_cancel()
        key = _callbacks.keep(future)
        error = _native.ErrorP()
        status = lib.fexo_service_register_device(
            self._ready(_checks.SERVER), text(token), text(device_id), text(imei1), text(imei2), text(mobile_number),
            int(PushProvider(provider)), _registered, key, ctypes.byref(error))
        if status != Status.OK:
            _callbacks.take(key)
            try:
                raise from_error(status, error)
            finally:
                lib.fexo_error_free(error)
        return future

    def fetch_all(self):
        """Every stored record, in no promised order."""
        out = _native.OwnedString()
        check(lib.fexo_service_fetch_all, self._ready(_checks.STORE), ctypes.byref(out))
        return [Record.from_object(value) for value in json.loads(take_string(out.value))]

    def fetch(self, id):
        """The record stored under `id`, or None."""
        out = _native.OwnedString()
        error = _native.ErrorP()
        status = lib.fexo_service_fetch(self._ready(_checks.STORE), text(id), ctypes.byref(out), ctypes.byref(error))
        if status == Status.ERROR_NOT_FOUND:
            return None
        if status != Status.OK:
            try:
                raise from_error(status, error)
            finally:
                lib.fexo_error_free(error)
        return Record.from_json(take_string(out.value))

    def mark_as_read(self, id):
        check(lib.fexo_service_mark_as_read, self._ready(_checks.STORE), text(id))

    def delete(self, id):
        check(lib.fexo_service_delete, self._ready(_checks.STORE), text(id))

    def delete_all(self):
        check(lib.fexo_service_delete_all, self._ready(_checks.STORE))

    def write(self, record):
        """Stores a Record, a dict or a record's JSON text under its id."""
        if isinstance(record, Record):
            record = record.to_json()
        elif isinstance(record, dict):
            record = json.dumps(record, separators=(",", ":"), ensure_ascii=False)
        check(lib.fexo_service_write, self._ready(_checks.STORE), text(record))

    def logout(self):
        """Deletes every stored record; the device stays registered."""
        check(lib.fexo_service_logout, self._ready(_checks.STORE))

    def page(self, limit, after=None):
        """At most `limit` records after the cursor `after` (None: from the start); a cursor this
        library did not hand out raises DecodingError; a `limit` below 1 raises ValueError."""
        if isinstance(limit, bool) or not isinstance(limit, int) or limit < 1:
            raise ValueError(f"a page holds at least one record: limit must be an int of 1 or more, not {limit!r}")
        records = _native.OwnedString()
        cursor = _native.OwnedString()
        check(lib.fexo_service_fetch_page, self._ready(_checks.STORE), limit, text(after) if after else None,
              ctypes.byref(records), ctypes.byref(cursor))
        next_cursor = take_string(cursor.value)
        return Page([Record.from_object(value) for value in json.loads(take_string(records.value))], next_cursor)

    def unread_count(self):
        count = ctypes.c_uint64()
        check(lib.fexo_service_unread_count, self._ready(_checks.STORE), ctypes.byref(count))
        return count.value

    def mark_all_as_read(self):
        check(lib.fexo_service_mark_all_read, self._ready(_checks.STORE))

    def observe(self, callback):
        """Calls `callback(total, unread)` after the set of records changed in any process sharing the
        store, on the library's observer thread (one call at a time, changes during a call folded
        into the next), until the returned Observation is cancelled. Raises UnavailableError when
        the store cannot be watched."""
        key = _callbacks.keep(callback)
        handle = ctypes.c_void_p()
        try:
            check(lib.fexo_service_observe, self._ready(_checks.STORE), _counted, key, ctypes.byref(handle))
        except BaseException:
            _callbacks.take(key)
            raise
        return Observation(handle.value, key)
