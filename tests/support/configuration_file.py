"""The one writer of the library's configuration file in Python: the Python tests
(tests/python/conftest.py), the C++ tests' support (so that the reader is tested against files it
did not write itself) and the benchmarks (bench/cold_process.py) all write it here."""

import os
import plistlib

FILE_NAME = "FeXOService-Info.plist"


def write_configuration_file(directory, settings, binary=False):
    """Writes FILE_NAME into `directory` (made when missing), replacing any file there, and returns
    `directory`. `settings` is the file's dictionary as it should stand (plistlib sorts its keys):
    the five strings, or whatever a test needs instead (a key left out, another type, an extra
    key). An XML property list unless `binary`."""
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, FILE_NAME), "wb") as out:
        plistlib.dump(settings, out, fmt=plistlib.FMT_BINARY if binary else plistlib.FMT_XML)
    return directory
