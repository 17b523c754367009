"""The Python package against `fexo serve` and a real store, through the C interface."""

import json
import os
import pathlib
import queue
import signal

import pytest

import fexo
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
    with service.observe(lambda total, unread: seen.put((total, unread))):
        for i in range(5):
            service.write({"id": f"n-{i}", "data": {"text": str(i)}})
        pages = [service.page(2)]
        while pages[-1].next:
            pages.append(service.page(2, pages[-1].next))
        assert [len(page.records) for page in pages] == [2, 2, 1]
        assert sorted(record.id for page in pages for record in page.records) == [f"n-{i}" for i in range(5)]
        assert service.unread_count() == 5
        service.mark_all_as_read()
        assert service.unread_count() == 0
        while seen.get(timeout=10) != (5, 0):
            pass
    with pytest.raises(fexo.DecodingError):
        service.page(2, "not a cursor")


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


def test_registration_completes_with_the_answer(service):
    assert service.register_device("token-1", "device-1", provider=fexo.PushProvider.APNS).result(30) == {}
    with pytest.raises(ValueError):
        service.register_device("token-1", "device-1", provider=7)


def test_a_push_handled_in_another_process_is_listed_here(server, service):
    child = run_python([EXTENSION], stdin=server.push("device-1"))
    assert child.returncode == 0, child.stderr
    assert json.loads(child.stdout.splitlines()[-1]) == {"title": "FeXO Post", "body": "Parcel on its way",
                                                         "rewritten": True}
    [record] = service.fetch_all()
    assert record.data == fexo.NotificationData("Parcel on its way", "FeXO Post") and record.id


def test_an_unreachable_server_fails_registration_and_leaves_the_alert_to_the_extension(server, tmp_path):
    env = {"FEXO_RESOURCES_DIR": str(write_configuration(tmp_path, UNREACHABLE))}
    child = run_python([EXTENSION], stdin='{"aps":{"alert":{"title":"Hi","body":"There"}}}', env=env)
    assert child.returncode == 3, child.stderr
    assert json.loads(child.stdout.splitlines()[-1]) == {"title": "Hi", "body": "There", "rewritten": False}
    registration = ("import fexo\ntry:\n  fexo.FeXOService().register_device('t', 'd').result(30)\n"
                    "except fexo.TransportError as e:\n  print(e.domain, e.code, e.description)\n")
    child = run_python(["-c", registration], env=env)
    assert child.stdout.startswith("NSURLErrorDomain -1004 "), child.stdout + child.stderr


@pytest.mark.parametrize("keys, name, reason", [
    (None, "NSGenericException", " FeXO notifications framework could not find a valid FeXOService-Info.plist"
                                 " in your project."),
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
        assert (raised.value.name, raised.value.reason) == (name, reason)
    finally:
        fexo.set_resources_directory(os.environ["FEXO_RESOURCES_DIR"])
    assert fexo.check_configuration() is None
    assert fexo.resources_directory() == os.environ["FEXO_RESOURCES_DIR"]


@pytest.mark.parametrize("broken, message", [
    ("resources", "what():  NSGenericException:  FeXO notifications framework could not find a valid"),
    ("app-groups", "Fatal error: App Group Not Found group.com.example.python"),
])
def test_integration_mistakes_end_the_process_as_in_cpp(server, tmp_path, broken, message):
    (tmp_path / "file").write_text("")
    variable = {"resources": "FEXO_RESOURCES_DIR", "app-groups": "FEXO_APP_GROUPS_DIR"}[broken]
    child = run_python(["-c", "import fexo; fexo.FeXOService().fetch_all()"],
                       env={variable: str(tmp_path / ("file" if broken == "app-groups" else "none"))})
    assert child.returncode == -signal.SIGABRT and message in child.stderr, child.stderr
