"""One `fexo serve` on loopback and one configuration for the whole session: the library reads
its configuration once per process, so each test that needs another one runs a child process."""

import os
import subprocess
import sys
import urllib.request

import pytest

CLIENT_ID = "python-client"
CLIENT_SECRET = "python-client-secret-0001"
PLIST = """<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>APP_GROUP</key><string>group.com.example.python</string>
<key>BUNDLE_ID</key><string>com.example.python</string>
<key>CLIENT_ID</key><string>{client_id}</string>
<key>CLIENT_SECRET</key><string>{client_secret}</string>
<key>FEXO_BASE_URL</key><string>{base_url}</string>
</dict></plist>
"""


def write_configuration(directory, base_url):
    directory.mkdir(parents=True, exist_ok=True)
    (directory / "FeXOService-Info.plist").write_text(
        PLIST.format(client_id=CLIENT_ID, client_secret=CLIENT_SECRET, base_url=base_url))
    return directory


class Server:
    def __init__(self, tool):
        self.process = subprocess.Popen([tool, "serve", "--port", "0", "--client-id", CLIENT_ID,
                                         "--client-secret", CLIENT_SECRET], stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.base_url = self.process.stdout.readline().strip()
        assert self.base_url.startswith("http://127.0.0.1:"), self.base_url

    def push(self, recipient, text="Parcel on its way", sender="FeXO Post"):
        """The user-info of a push the server sends to `recipient`, as JSON text."""
        body = f'{{"recipientId":"{recipient}","text":"{text}","sender":"{sender}"}}'.encode()
        request = urllib.request.Request(self.base_url + "/dev/notifications", data=body, headers={
            "client_id": CLIENT_ID, "client_secret": CLIENT_SECRET, "Content-Type": "application/json"})
        with urllib.request.urlopen(request, timeout=10) as answer:
            return answer.read().decode()


@pytest.fixture(scope="session")
def server(tmp_path_factory):
    server = Server(os.environ["FEXO_TOOL"])
    root = tmp_path_factory.mktemp("fexo")
    os.environ["FEXO_RESOURCES_DIR"] = str(write_configuration(root / "resources", server.base_url))
    os.environ["FEXO_APP_GROUPS_DIR"] = str(root / "app-groups")
    yield server
    server.process.kill()
    server.process.wait()


@pytest.fixture
def service(server):
    import fexo
    with fexo.FeXOService() as service:
        service.delete_all()
        yield service


def run_python(arguments, stdin="", env=None):
    """A child Python with this environment (and `env` on top), its output captured."""
    return subprocess.run([sys.executable] + arguments, input=stdin, capture_output=True, text=True, timeout=60,
                          env={**os.environ, **(env or {})})


class SmallDisk:
    """A 2 MiB tmpfs mounted on a fresh folder, remountable read-only."""

    def __init__(self, path):
        self.path = path

    def remount(self, read_only):
        subprocess.run(["mount", "-o", "remount," + ("ro" if read_only else "rw"), str(self.path)], check=True)


@pytest.fixture
def small_disk(tmp_path):
    """Skips without the privilege to mount."""
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=2m,mode=0700", "tmpfs", str(tmp_path)],
                             capture_output=True, text=True)
    if mounted.returncode != 0:
        pytest.skip(f"cannot mount a tmpfs ({mounted.stderr.strip()}): run as root")
    yield SmallDisk(tmp_path)
    subprocess.run(["umount", "-l", str(tmp_path)], check=False)
