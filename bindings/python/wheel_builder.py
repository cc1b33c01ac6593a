# SPDX-License-Identifier: Apache-2.0
"""Builds the wheel, for `pip install .` in a checkout: CMake makes the native half, the standard library does the rest.

A build backend as PEP 517 has them, in the tree and without requirements, so that pip downloads nothing. The native
half is called by ctypes: one wheel serves every version of Python on one kind of system.

Settings, as pip's --config-settings takes them:
    build-dir=DIRECTORY     a build of CMake's that is there already, of which the native half is taken
    cmake-args=ARGUMENTS    for CMake's configuration, as -DOpenCV_DIR=...
"""

from __future__ import annotations

import base64
import hashlib
import os
import shlex
import shutil
import subprocess
import sysconfig
import tempfile
import zipfile
from collections.abc import Mapping
from pathlib import Path
from typing import Any

SOURCE = Path(__file__).resolve().parents[2]
PACKAGE = Path(__file__).resolve().parent / "tarnstitch"
LIBRARY = "libtarnstitch_python.so"
LICENCES = {
    "LICENSE": SOURCE / "LICENSE",
    # Of what the native half holds beside the library.
    "OPENCV": Path("/usr/share/doc/libopencv-core-dev/copyright"),
}

Settings = Mapping[str, Any]


def _project() -> dict[str, Any]:
    try:
        import tomllib
    except ImportError:
        raise SystemExit("building this package takes Python 3.11 or newer; the wheel is for 3.10, too") from None
    with open(SOURCE / "pyproject.toml", "rb") as file:
        project: dict[str, Any] = tomllib.load(file)["project"]
    return project


def _dist_info() -> str:
    project = _project()
    return f"{project['name']}-{project['version']}.dist-info"


def _tag() -> str:
    platform = sysconfig.get_platform().replace("-", "_").replace(".", "_")
    return f"py3-none-{platform}"


def _metadata() -> dict[str, bytes]:
    """The files of the .dist-info directory but for its list of files, by name."""
    project = _project()
    author = project["authors"][0]
    lines = [
        "Metadata-Version: 2.1",
        f"Name: {project['name']}",
        f"Version: {project['version']}",
        f"Summary: {project['description']}",
        f"Author-email: {author['name']} <{author['email']}>",
        f"License: {project['license']['text']}",
        f"Keywords: {','.join(project['keywords'])}",
        f"Requires-Python: {project['requires-python']}",
        *(f"Requires-Dist: {name}" for name in project["dependencies"]),
        "Description-Content-Type: text/markdown",
        "",
        (SOURCE / "docs" / "python.md").read_text(encoding="utf-8"),
    ]
    wheel = ["Wheel-Version: 1.0", "Generator: tarnstitch", "Root-Is-Purelib: false", f"Tag: {_tag()}", ""]
    files = {"METADATA": "\n".join(lines).encode(), "WHEEL": "\n".join(wheel).encode()}
    files.update({f"licenses/{name}": path.read_bytes() for name, path in LICENCES.items() if path.exists()})
    return files


def _build_library(settings: Settings, to: Path) -> None:
    """Makes the native half, stripped."""
    build = settings.get("build-dir")
    if build is None:
        build = str(SOURCE / "build" / "wheel")
        configure = ["cmake", "-S", str(SOURCE), "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DTARN_BUILD_PYTHON=ON"]
        # The library and its native half, and nothing of the rest.
        configure += ["-DTARN_DEVELOPER=OFF", "-DTARN_INSTALL=OFF", "-DBUILD_SHARED_LIBS=OFF"]
        if shutil.which("ninja") and not (Path(build) / "CMakeCache.txt").exists():
            configure += ["-G", "Ninja"]
        subprocess.run([*configure, *shlex.split(settings.get("cmake-args", ""))], check=True)
    subprocess.run(["cmake", "--build", build, "--target", "tarn_python", "--parallel", str(os.cpu_count() or 2)],
                   check=True)
    built = Path(build) / "bindings" / "python" / LIBRARY
    if shutil.which("strip"):
        subprocess.run(["strip", "--strip-unneeded", "-o", str(to), str(built)], check=True)
    else:
        shutil.copyfile(built, to)


def get_requires_for_build_wheel(config_settings: Settings | None = None) -> list[str]:
    """Nothing: see above."""
    return []


def prepare_metadata_for_build_wheel(metadata_directory: str, config_settings: Settings | None = None) -> str:
    """Writes the wheel's .dist-info directory and returns its name."""
    name = _dist_info()
    for file, content in _metadata().items():
        path = Path(metadata_directory) / name / file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
    return name


def build_wheel(
    wheel_directory: str, config_settings: Settings | None = None, metadata_directory: str | None = None
) -> str:
    """Writes the wheel and returns its name."""
    files = {f"tarnstitch/{path.name}": path.read_bytes() for path in PACKAGE.iterdir()
             if path.suffix == ".py" or path.name == "py.typed"}
    with tempfile.TemporaryDirectory() as work:
        library = Path(work) / LIBRARY
        _build_library(config_settings or {}, library)
        files[f"tarnstitch/{LIBRARY}"] = library.read_bytes()
    dist_info = _dist_info()
    files.update({f"{dist_info}/{name}": content for name, content in _metadata().items()})
    record = ""
    for file, content in sorted(files.items()):
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        record += f"{file},sha256={digest},{len(content)}\n"
    record += f"{dist_info}/RECORD,,\n"
    files[f"{dist_info}/RECORD"] = record.encode()
    name = f"{dist_info.removesuffix('.dist-info')}-{_tag()}.whl"
    with zipfile.ZipFile(Path(wheel_directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:
        for file, content in sorted(files.items()):
            entry = zipfile.ZipInfo(file)  # of a fixed time: the same content makes the same wheel
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o755 if file.endswith(".so") else 0o644) << 16
            wheel.writestr(entry, content)
    return name


def build_sdist(sdist_directory: str, config_settings: Settings | None = None) -> str:
    """Refused: the checkout is the source."""
    raise UnsupportedOperation("there is no source distribution but the checkout itself")


class UnsupportedOperation(Exception):
    """What a front end is told of a hook that there is not."""
