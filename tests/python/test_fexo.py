"""The Python package against `fexo serve` and a real store, through the C interface."""

import dataclasses
import inspect
import json
import os
import pathlib
import pydoc
import queue
import re

import pytest

import fexo
from fexo import _library
from conftest import configuration, run_python, write_configuration, write_configuration_file

EXTENSION = str(pathlib.Path(os.environ["FEXO_SOURCE_DIR"]) / "examples" / "python" / "extension.py")
UNREACHABLE = "http://127.0.0.1:9"


def test_records_are_stored_read_changed_and_deleted(service):
    service.write(fexo.Record(fexo.NotificationData("Hello", "Ann"), id="n-1"))
    service.write({"id": "n-2", "data": {"text": "Bye"}, "createdAt": 12.5, "isRead": False})
    assert service.fetch("missing") is None
    first = service.fetch("n-1")
    assert (first.data, first.id, first.is_read) == (fexo.NotificationData("Hello", "Ann"), "n-1", None)
    service.mark_as_read("n-1")
    assert service.fetch("n-1").is_read is True
    # Fields the library keeps to itself survive a round trip through the dataclass.
    second = service.fetch("n-2")
    assert json.loads(second.json)["createdAt"] == 12.5
    service.write(fexo.Record(second.data, second.id, True, second.json))
    assert json.loads(service.fetch("n-2").json) == {"createdAt": 12.5, "data": {"text": "Bye"}, "id": "n-2",
                                                     "isRead": True}
    service.delete("n-1")
    service.delete("n-1")  # absent: silent
    assert [record.id for record in service.fetch_all()] == ["n-2"]
    service.logout()
    assert service.fetch_all() == []


def test_inbox_pages_counts_and_observes_changes(service):
    seen = queue.Queue()
    with service.observe(lambda total, unread: seen.put((total, unread))) as observation:
        for i in range(5):
            service.write({"id": f"n-{i}", "createdAt": float(i), "data": {"text": str(i)}})
        pages = [service.page(2)]
        while pages[-1].next:
            pages.append(service.page(2, pages[-1].next))
        assert [len(page.records) for page in pages] == [2, 2, 1]
        newest_first = [f"n-{i}" for i in reversed(range(5))]
        assert [record.id for page in pages for record in page.records] == newest_first
        assert [record.id for record in service.records(page_size=2)] == newest_first
        assert service.unread_count() == 5
        service.mark_all_as_read()
        assert service.unread_count() == 0
        while seen.get(timeout=10) != (5, 0):
            pass
    # The with block cancelled the observation: no call after it, while a new one is called.
    calls = seen.qsize()
    assert not observation
    later = queue.Queue()
    with service.observe(lambda total, unread: later.put(total)):
        service.delete("n-0")
        while later.get(timeout=10) != 4:
            pass
    assert seen.qsize() == calls
    with pytest.raises(fexo.DecodingError):
        service.page(2, "not a cursor")
    with pytest.raises(ValueError):
        service.records(page_size=0)  # at the call, not at the first record


@pytest.mark.parametrize("text, code", [("not JSON", 4864), ('{"id": 5}', 4864), ('[1]', 4864)])
def test_text_that_is_not_a_record_is_a_decoding_error(service, text, code):
    with pytest.raises(fexo.DecodingError) as raised:
        service.write(text)
    assert (raised.value.domain, raised.value.code) == ("NSCocoaErrorDomain", code)
    assert raised.value.description and raised.value.debug_description


@pytest.mark.parametrize("user_info, domain, code", [("not JSON", "NSCocoaErrorDomain", 3840),
                                                     ("[1]", "FeXOErrorDomain", 3)])
def test_a_push_that_is_not_a_json_object_is_refused(server, user_info, domain, code):
    with fexo.FeXONotificationExtensionHandler() as handler, pytest.raises(fexo.DecodingError) as raised:
        handler.handle_notification(user_info, lambda title, body: None)
    assert (raised.value.domain, raised.value.code) == (domain, code)


def test_deliver_shows_the_record_only_when_it_carries_a_notification(server, service):
    with fexo.FeXONotificationExtensionHandler() as handler:
        delivered = handler.deliver(server.push("device-9"), timeout=30)
        assert (delivered.title, delivered.body, delivered.rewritten) == ("FeXO Post", "Parcel on its way", True)
        assert service.fetch(delivered.record_id).data.sender == "FeXO Post"
        refused = handler.deliver({"recipientId": "nobody", "aps": {"alert": "Plain"}}, timeout=30)
        assert refused == fexo.Delivery("", "Plain", False, refused.record_id)
        assert json.loads(service.fetch(refused.record_id).json)["errorCode"] == 404
        with pytest.raises(ValueError):
            handler.deliver({}, timeout=-1)


def test_statuses_are_named_as_the_library_and_its_header_name_them():
    header = (pathlib.Path(os.environ["FEXO_SOURCE_DIR"]) / "include" / "FeXONotificationService" / "fexo.h")
    declared = {name: int(value) for name, value in re.findall(r"\b(FEXO_(?:OK|ERROR_\w+)) = (\d+)", header.read_text())}
    assert {f"FEXO_{status.name}": int(status) for status in fexo.Status} == declared
    for status in fexo.Status:
        assert fexo._native.lib.fexo_status_name(status).decode() == f"FEXO_{status.name}"


LEAN = "import sys, fexo; fexo.FeXONotificationExtensionHandler(); print(sorted(set(sys.argv[1:]) & set(sys.modules)))"


def test_the_namespace_is_the_public_names_and_an_extension_loads_no_more():
    """dir() and help() show every public name, those loaded on first use included, under the
    package's own name, and nothing else; a record has its four public fields only."""
    assert dir(fexo) == sorted(fexo.__all__ + ["__version__"])
    documentation = pydoc.render_doc(fexo, renderer=pydoc.plaintext)
    assert set(re.findall(r"^    (?:class )?(\w+)\(", documentation, re.MULTILINE)) == set(fexo.__all__)
    assert {getattr(fexo, name).__module__ for name in fexo.__all__} == {"fexo"}
    assert [field.name for field in dataclasses.fields(fexo.Record)] == ["data", "id", "is_read", "json"]
    host_side = ["typing", "dataclasses", "concurrent.futures", "fexo._service", "fexo._records"]
    assert run_python(["-c", LEAN] + host_side).stdout == "[]\n"


def test_every_c_function_declared_has_its_typed_signature():
    typed = {name: len(inspect.signature(function).parameters) - 1
             for name, function in vars(_library.Library).items() if name.startswith("fexo_")}
    assert typed == {name: len(argtypes) for name, (_, argtypes) in fexo._native.PROTOTYPES.items()}


def test_a_change_the_store_refuses_raises_store_error_and_keeps_nothing(server, small_disk):
    env = {"FEXO_APP_GROUPS_DIR": str(small_disk.path)}
    assert run_python(["-c", "import fexo; fexo.FeXOService().write({'id': '1', 'data': {'text': 'kept'}})"],
                      env=env).returncode == 0
    small_disk.remount(True)
    change = ("import fexo\ns = fexo.FeXOService()\nfor c in (s.logout, s.delete_all, lambda: s.delete('1'),\n"
              "          lambda: s.mark_as_read('1'), s.mark_all_as_read, lambda: s.write({'id': '2'})):\n"
              "  try:\n    c()\n  except fexo.StoreError as e:\n    print(e.domain, e.code, e.description)\n"
              "print(len(s.fetch_all()))\n")
    child = run_python(["-c", change], env=env)
    lines = child.stdout.splitlines()
    assert len(lines) == 7 and lines[-1] == "1", child.stdout + child.stderr
    assert all(line.startswith("FeXOStoreErrorDomain 1 The app group store ") and
               line.endswith("(attempt to write a readonly database); the change was not kept.") for line in lines[:6])
    small_disk.remount(False)


def test_registration_completes_with_the_answer(service):
    assert service.register_device("token-1", "device-1", provider=fexo.PushProvider.APNS).result(30) == {}
    with pytest.raises(ValueError):
        service.register_device("token-1", "device-1", provider=7)


def test_a_push_handled_in_another_process_is_listed_here(server, service):
    child = run_python([EXTENSION], stdin=server.push("device-1"))
    assert child.returncode == 0, child.stderr
    line = json.loads(child.stdout.splitlines()[-1])
    [record] = service.fetch_all()
    assert line == {"title": "FeXO Post", "body": "Parcel on its way", "rewritten": True, "id": record.id}
    assert record.data == fexo.NotificationData("Parcel on its way", "FeXO Post")


def test_an_unreachable_server_fails_registration_and_leaves_the_alert_to_the_extension(server, tmp_path):
    env = {"FEXO_RESOURCES_DIR": str(write_configuration(tmp_path, UNREACHABLE))}
    child = run_python([EXTENSION], stdin='{"aps":{"alert":{"title":"Hi","body":"There"}}}', env=env)
    assert child.returncode == 3, child.stderr
    assert json.loads(child.stdout.splitlines()[-1]) == {"title": "Hi", "body": "There", "rewritten": False,
                                                         "id": None}
    registration = ("import fexo\ntry:\n  fexo.FeXOService().register_device('t', 'd').result(30)\n"
                    "except fexo.TransportError as e:\n  print(e.domain, e.code, e.description)\n")
    child = run_python(["-c", registration], env=env)
    assert child.stdout.startswith("NSURLErrorDomain -1004 "), child.stdout + child.stderr


@pytest.mark.parametrize("keys, name, reason", [
    (None, "NSGenericException", " FeXO notifications framework could not find a valid FeXOService-Info.plist"
                                 " in your project. (FeXOService-Info.plist was looked for in {folder};"
                                 " set FEXO_RESOURCES_DIR to look elsewhere)"),
    ({"CLIENT_ID"}, "NSObjectNotAvailableException", "CLIENT_ID is not found in FeXOService-Info.plist"),
])
def test_configuration_check_raises_what_the_library_would(server, tmp_path, keys, name, reason):
    if keys is not None:
        settings = configuration(UNREACHABLE)
        for key in keys:
            settings["OTHER"] = settings.pop(key)
        write_configuration_file(tmp_path, settings)
    fexo.set_resources_directory(tmp_path)
    try:
        with pytest.raises(fexo.ConfigurationError) as raised:
            fexo.check_configuration()
        assert (raised.value.name, raised.value.reason) == (name, reason.format(folder=tmp_path))
    finally:
        fexo.set_resources_directory(os.environ["FEXO_RESOURCES_DIR"])
    assert fexo.check_configuration() is None
    assert fexo.resources_directory() == os.environ["FEXO_RESOURCES_DIR"]


MISTAKE = """
import fexo, sys
try:
    {call}
except {error} as e:
    print(type(e).__name__, e.name if isinstance(e, fexo.ConfigurationError) else getattr(e, "domain", None),
          getattr(e, "description", e))
finally:
    print("lives on")
"""


@pytest.mark.parametrize("settings, call, error, expected", [
    ({"FEXO_RESOURCES_DIR": "/nonexistent"}, "fexo.FeXOService().fetch_all()", "fexo.ConfigurationError",
     "ConfigurationError NSGenericException NSGenericException:  FeXO notifications framework could not find a valid "
     "FeXOService-Info.plist in your project. (FeXOService-Info.plist was looked for in /nonexistent;"),
    ({"FEXO_BASE_URL": "not a url"}, "fexo.FeXOService().register_device('t', 'd')", "fexo.ConfigurationError",
     'ConfigurationError None FEXO_BASE_URL "not a url" does not form a URL'),
    ({"FEXO_BASE_URL": "file:///tmp"}, "fexo.FeXONotificationExtensionHandler().deliver({})",
     "fexo.ConfigurationError", 'ConfigurationError None FEXO_BASE_URL "file:///tmp" is not an http or https URL'),
    ({"APP_GROUP": "../../escape"}, "fexo.FeXOService().unread_count()", "fexo.ConfigurationError",
     'ConfigurationError None APP_GROUP: the app group\'s store cannot be opened or made: "../../escape" is not'),
    ({"FEXO_APP_GROUPS_DIR": "FILE"}, "fexo.FeXOService().logout()", "fexo.StoreError",
     "StoreError FeXOStoreErrorDomain APP_GROUP: the app group's store cannot be opened or made: "),
    ({}, "fexo.FeXOService().page(0)", "ValueError", None),
    ({}, "fexo.FeXOService().page(-1)", "ValueError", None),
])
def test_integration_mistakes_raise_and_the_interpreter_lives_on(server, tmp_path, settings, call, error, expected):
    """Each of these used to end the interpreter (SIGABRT) with no except or finally run."""
    (tmp_path / "file").write_text("")
    env = {key: value.replace("FILE", str(tmp_path / "file")) for key, value in settings.items()
           if key.startswith("FEXO_")}
    keys = {key: value for key, value in settings.items() if not key.startswith("FEXO_") or key == "FEXO_BASE_URL"}
    if keys:
        plist = write_configuration(tmp_path / "resources", keys.get("FEXO_BASE_URL", server.base_url))
        if "APP_GROUP" in keys:
            text = (plist / "FeXOService-Info.plist").read_text()
            (plist / "FeXOService-Info.plist").write_text(
                text.replace("group.com.example.python", keys["APP_GROUP"]))
        env["FEXO_RESOURCES_DIR"] = str(plist)
    child = run_python(["-c", MISTAKE.format(call=call, error=error)], env=env)
    assert child.returncode == 0, child.stderr
    lines = child.stdout.splitlines()
    assert lines[-1] == "lives on", child.stdout
    if expected is not None:
        assert lines[0].startswith(expected), lines[0]
