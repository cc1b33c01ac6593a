# SPDX-License-Identifier: Apache-2.0
"""The wheel: what is in it, and that it works where it is installed, without this source tree."""

from __future__ import annotations

import base64
import hashlib
import os
import re
import subprocess
import sys
import zipfile
from pathlib import Path

import pytest
from material import SOURCE

BUILD = os.environ["TARN_PYTHON_BUILD"]
LIBRARY = "tarnstitch/libtarnstitch_python.so"


@pytest.fixture(scope="module")
def environment(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """An environment of its own, with the wheel installed as docs/python.md tells; no index is asked."""
    place = tmp_path_factory.mktemp("wheel")
    own = {name: value for name, value in os.environ.items() if not name.startswith(("PYTHON", "TARN", "PIP"))}
    subprocess.run([sys.executable, "-m", "venv", "--system-site-packages", place / "env"], check=True, env=own)
    pip = [str(place / "env" / "bin" / "pip"), "--no-cache-dir", "--disable-pip-version-check"]
    setting = f"--config-settings=build-dir={BUILD}"
    subprocess.run([*pip, "wheel", "--no-index", "--no-deps", setting, "-w", str(place), str(SOURCE)], check=True, env=own)
    (wheel,) = place.glob("*.whl")
    subprocess.run([*pip, "install", "--no-index", str(wheel)], check=True, env=own)
    return place


def test_one_wheel_for_every_version_of_python(environment: Path) -> None:
    (wheel,) = environment.glob("*.whl")
    assert re.fullmatch(r"tarnstitch-[0-9.]+-py3-none-linux_\w+\.whl", wheel.name)
    assert wheel.stat().st_size < 10e6
    with zipfile.ZipFile(wheel) as archive:
        names = archive.namelist()
        sources = {f"tarnstitch/{path.name}" for path in (SOURCE / "bindings/python/tarnstitch").glob("*.py")}
        assert {name for name in names if name.startswith("tarnstitch/")} == {*sources, "tarnstitch/py.typed", LIBRARY}
        (record,) = (name for name in names if name.endswith("/RECORD"))
        lines = archive.read(record).decode().splitlines()
        assert sorted(line.split(",")[0] for line in lines) == sorted(names)
        for line in lines:
            name, digest, size = line.split(",")
            if name != record:
                content = archive.read(name)
                expected = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
                assert (digest, size) == (f"sha256={expected}", str(len(content)))


def test_the_library_hides_what_it_holds(environment: Path) -> None:
    (library,) = environment.glob("env/lib/python3*/site-packages/" + LIBRARY)
    shown = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True, text=True).stdout
    names = [line.split()[-1] for line in shown.splitlines()]
    assert names and all(re.match(r"tarn_|tarnpy_", name) for name in names), names
    needed = subprocess.run(["objdump", "-p", library], check=True, capture_output=True, text=True).stdout
    assert "libopencv" not in needed and "libtarnstitch.so" not in needed


ELSEWHERE = """
import sys
for name in {order!r}:
    __import__(name)
import numpy, tarnstitch
assert tarnstitch.__file__.startswith(sys.prefix), tarnstitch.__file__
random = numpy.random.default_rng(1)
wall = numpy.kron(random.integers(0, 256, (40, 60, 3), numpy.uint8), numpy.ones((16, 16, 1), numpy.uint8))
stitched = tarnstitch.stitch([wall[:480, x : x + 640] for x in range(0, 240, 30)])
print(stitched.panorama.pixels.shape, hash(stitched.panorama.jpeg()), [int(answer.code) for answer in stitched.answers])
"""


def test_it_works_where_it_is_installed(environment: Path) -> None:
    python = environment / "env" / "bin" / "python"
    outputs = set()
    for order in (["tarnstitch"], ["cv2", "tarnstitch"], ["tarnstitch", "cv2"]):
        done = subprocess.run(
            [python, "-c", ELSEWHERE.format(order=order)],
            capture_output=True,
            text=True,
            cwd=environment,
            env={"PATH": os.environ["PATH"], "PYTHONHASHSEED": "0"},
            check=False,
        )
        assert (done.stderr, done.returncode) == ("", 0)
        outputs.add(done.stdout)
    assert len(outputs) == 1
