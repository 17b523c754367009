"""Which library the package loads, and its version: $FEXO_LIBRARY first, then the path recorded
relative to the package's own folder, then the loader by SONAME; never a path of the tree it was
built or installed in."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

import fexo

PACKAGE = pathlib.Path(fexo.__file__).resolve().parent
LIBRARY = pathlib.Path(fexo._native._library_path()).resolve()  # the build's, found by its recorded path
SONAME = "libFeXONotificationService.so.0"
LOADED = ("import fexo; fexo.version(); "
          "print(next(line.split()[-1] for line in open('/proc/self/maps') if 'libFeXONotificationService' in line))")


def project_version():
    cmake = pathlib.Path(os.environ["FEXO_SOURCE_DIR"], "CMakeLists.txt").read_text()
    return re.search(r"project\(FeXONotificationService VERSION ([0-9.]+)", cmake).group(1)


def copied_prefix(root):
    """The package and the library copied into a prefix of their own, as an installation lays
    them out, with the library recorded relative to the package."""
    package = root / "lib" / "python3" / "site-packages" / "fexo"
    shutil.copytree(PACKAGE, package, ignore=shutil.ignore_patterns("__pycache__"))
    (package / "_location.py").write_text(f'LIBRARY_FROM_PACKAGE = "../../../{SONAME}"\n')
    shutil.copyfile(LIBRARY, root / "lib" / SONAME)
    return package.parent


def load(site_packages, **environment):
    """The file of the library that importing the package maps, in a fresh interpreter."""
    env = {"PATH": os.environ["PATH"], "PYTHONPATH": str(site_packages), **environment}
    result = subprocess.run([sys.executable, "-c", LOADED], env=env, capture_output=True, text=True)
    return result.stdout.strip() if result.returncode == 0 else result.stderr


def test_the_version_is_the_projects_and_the_librarys():
    assert fexo.__version__ == project_version()
    assert fexo.version() == fexo.__version__


def test_a_moved_prefix_loads_its_own_library_and_fexo_library_comes_before_it(tmp_path):
    site_packages = copied_prefix(tmp_path / "first")
    moved = tmp_path / "moved"
    (tmp_path / "first").rename(moved)
    assert load(moved / "lib" / "python3" / "site-packages") == str(moved / "lib" / SONAME)
    (tmp_path / "elsewhere").mkdir()
    other = tmp_path / "elsewhere" / "libFeXONotificationService.so.0.other"
    shutil.copyfile(LIBRARY, other)
    assert load(moved / "lib" / "python3" / "site-packages", FEXO_LIBRARY=str(other)) == str(other)
    assert not site_packages.exists()


def test_without_the_recorded_library_the_loader_finds_it_by_its_soname(tmp_path):
    site_packages = copied_prefix(tmp_path / "prefix")
    (tmp_path / "prefix" / "lib" / SONAME).unlink()
    loader_dir = tmp_path / "loader"
    loader_dir.mkdir()
    shutil.copyfile(LIBRARY, loader_dir / SONAME)
    assert load(site_packages, LD_LIBRARY_PATH=str(loader_dir)) == str(loader_dir / SONAME)
    # With none on the loader's path the import fails naming the SONAME: no build's path is tried.
    failure = load(site_packages)
    assert "OSError" in failure and SONAME in failure and str(LIBRARY.parent) not in failure
