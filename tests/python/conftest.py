"""One `fexo serve` on loopback and one configuration for the whole session: the library reads
its configuration once per process, so each test that needs another one runs a child process."""

import os
import pathlib
import subprocess
import sys
import urllib.request

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "support"))
from configuration_file import write_configuration_file  # noqa: E402

CLIENT_ID = "python-client"
CLIENT_SECRET = "python-client-secret-0001"


def configuration(base_url):
    """The five settings of the tests' configuration file."""
    return {"APP_GROUP": "group.com.example.python", "BUNDLE_ID": "com.example.python", "CLIENT_ID": CLIENT_ID,
            "CLIENT_SECRET": CLIENT_SECRET, "FEXO_BASE_URL": base_url}


def write_configuration(directory, base_url):
    return write_configuration_file(directory, configuration(base_url))


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
