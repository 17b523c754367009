"""The package's version is the project's, written once in ../CMakeLists.txt: read from there
(from PKG-INFO when building from a source distribution) and written into the built package as
fexo/_version.py. Everything else is in pyproject.toml.

The library itself is not part of the package: install it (the Debian package or a build of the
project), and the package finds it by its SONAME, or point FEXO_LIBRARY at it.
"""

import base64
import hashlib
import os
import pathlib
import re
import shutil
import zipfile

from setuptools import Command, setup
from setuptools.command.build_py import build_py

HERE = pathlib.Path(__file__).resolve().parent


def project_version():
    cmake = HERE.parent / "CMakeLists.txt"
    if cmake.is_file():
        match = re.search(r"project\(FeXONotificationService VERSION (\d+\.\d+\.\d+)", cmake.read_text())
        if match is None:
            raise RuntimeError(f"no project(FeXONotificationService VERSION x.y.z) in {cmake}")
        return match.group(1)
    pkg_info = HERE / "PKG-INFO"
    if pkg_info.is_file():
        match = re.search(r"^Version: (\S+)$", pkg_info.read_text(), re.MULTILINE)
        if match is not None:
            return match.group(1)
    raise RuntimeError(f"neither {cmake} nor a source distribution's PKG-INFO gives the version")


VERSION = project_version()


class BuildWithVersion(build_py):
    def run(self):
        # pip builds in this folder and leaves build/ behind: start from no package there, so that
        # a module renamed or removed since the last build is not packaged again.
        shutil.rmtree(pathlib.Path(self.build_lib) / "fexo", ignore_errors=True)
        super().run()
        target = pathlib.Path(self.build_lib) / "fexo" / "_version.py"
        target.write_text(f'__version__ = "{VERSION}"\n')


class PurePythonWheel(Command):
    """bdist_wheel for a setuptools without the wheel package, as in a fresh venv of Debian 12's
    Python (its ensurepip brings pip and setuptools only), so that `pip install
    --no-build-isolation` works offline there. A pure-Python wheel (py3-none-any): the built
    package, its metadata and their RECORD."""

    description = "build a pure-Python wheel"
    user_options = [("dist-dir=", "d", "directory for the wheel")]

    def initialize_options(self):
        self.dist_dir = None

    def finalize_options(self):
        self.dist_dir = self.dist_dir or "dist"

    def egg2dist(self, egg_info_dir, dist_info_dir):
        """The dist-info of an egg-info, as setuptools' dist_info command asks of bdist_wheel."""
        os.makedirs(dist_info_dir, exist_ok=True)
        shutil.copyfile(os.path.join(egg_info_dir, "PKG-INFO"), os.path.join(dist_info_dir, "METADATA"))
        top_level = os.path.join(egg_info_dir, "top_level.txt")
        if os.path.exists(top_level):
            shutil.copyfile(top_level, os.path.join(dist_info_dir, "top_level.txt"))

    def run(self):
        self.run_command("build_py")
        self.run_command("egg_info")
        build_lib = pathlib.Path(self.get_finalized_command("build_py").build_lib)
        egg_info = pathlib.Path(self.get_finalized_command("egg_info").egg_info)
        name = self.distribution.get_name()
        dist_info = f"{name}-{VERSION}.dist-info"
        files = {path.relative_to(build_lib).as_posix(): path.read_bytes()
                 for path in sorted(build_lib.rglob("*")) if path.is_file() and "__pycache__" not in path.parts}
        files[f"{dist_info}/METADATA"] = (egg_info / "PKG-INFO").read_bytes()
        files[f"{dist_info}/WHEEL"] = (b"Wheel-Version: 1.0\nGenerator: fexo setup.py\nRoot-Is-Purelib: true\n"
                                       b"Tag: py3-none-any\n")
        files[f"{dist_info}/top_level.txt"] = (egg_info / "top_level.txt").read_bytes()
        record = []
        for path, data in files.items():
            digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
            record.append(f"{path},sha256={digest},{len(data)}")
        record.append(f"{dist_info}/RECORD,,")
        files[f"{dist_info}/RECORD"] = ("\n".join(record) + "\n").encode()
        os.makedirs(self.dist_dir, exist_ok=True)
        wheel = os.path.join(self.dist_dir, f"{name}-{VERSION}-py3-none-any.whl")
        with zipfile.ZipFile(wheel, "w", zipfile.ZIP_DEFLATED) as archive:
            for path, data in files.items():
                archive.writestr(path, data)


commands = {"build_py": BuildWithVersion}
try:
    import wheel.bdist_wheel  # noqa: F401 (setuptools takes its bdist_wheel when it is there)
except ImportError:
    commands["bdist_wheel"] = PurePythonWheel

setup(version=VERSION, cmdclass=commands)
