# SPDX-License-Identifier: Apache-2.0
"""What docs/python.md says, and the examples, work."""

from __future__ import annotations

import json
import os
import re
import subprocess
import sys
from pathlib import Path

import cv2
import pytest
from material import SAMPLES, SOURCE, sample_frames

import tarnstitch

DOCUMENT = SOURCE / "docs" / "python.md"
EXAMPLES = SOURCE / "bindings" / "python" / "examples"


def test_the_code_of_the_document_runs(tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    for sample in SAMPLES.glob("*.mp4"):
        (tmp_path / sample.name).symlink_to(sample)
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"^```python\n(.*?)^```$", DOCUMENT.read_text(), re.MULTILINE | re.DOTALL)
    assert len(blocks) > 5
    names: dict[str, object] = {}
    for block in blocks:
        exec(compile(block, str(DOCUMENT), "exec"), names)
    stitched = names["panorama"]
    assert isinstance(stitched, tarnstitch.Panorama) and stitched
    assert (tmp_path / "panorama.jpg").stat().st_size > 10000
    assert (tmp_path / "again.jpg").read_bytes() == stitched.jpeg()


def test_what_the_document_says_is_printed(tmp_path: Path) -> None:
    text = DOCUMENT.read_text()
    stitched = tarnstitch.stitch(sample_frames("parking_pan.mp4"))
    assert f"print(stitched.panorama)  # {stitched.panorama!r}" in text
    for name in re.findall(r"`(\w+Error)`", text):
        assert name in (*tarnstitch.__all__, "ValueError", "ImportError", "MemoryError"), name
    for name in tarnstitch.__all__:
        error = getattr(tarnstitch, name)
        assert error.__doc__ or not isinstance(error, type), name


def test_everything_public_has_a_docstring() -> None:
    for name in tarnstitch.__all__:
        thing = getattr(tarnstitch, name)
        if not isinstance(thing, type):
            continue
        assert thing.__doc__, name
        for member, value in vars(thing).items():
            if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                assert value.__doc__, f"{name}.{member}"


def run_example(*arguments: object, directory: Path) -> subprocess.CompletedProcess[str]:
    return subprocess.run(
        [sys.executable, *map(str, arguments)], capture_output=True, text=True, cwd=directory, timeout=300, check=False
    )


def test_a_folder_of_stills(tmp_path: Path) -> None:
    folder = tmp_path / "stills"
    folder.mkdir()
    for number, frame in enumerate(sample_frames("parking_pan.mp4", 60)):
        if number % 6 == 0:
            cv2.imwrite(str(folder / f"{number:03}.jpg"), frame)
    (folder / "notes.txt").write_text("not a picture")
    done = run_example(EXAMPLES / "stills.py", folder, "panorama.jpg", directory=tmp_path)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith("10 pictures")
    assert cv2.imread(str(tmp_path / "panorama.jpg")).shape[1] > 500
    assert "usage" in run_example(EXAMPLES / "stills.py", directory=tmp_path).stderr


HEADLESS = """
import runpy, sys
import cv2
shown = []
cv2.imshow = lambda name, pixels: shown.append(pixels.shape)
cv2.waitKey = lambda milliseconds: -1 if len(shown) < 30 else 27
sys.argv[1:] = [{video!r}]
runpy.run_path({example!r}, run_name="__main__")
assert len(shown) == 30, len(shown)
"""


def test_the_webcam(tmp_path: Path) -> None:
    example = EXAMPLES / "webcam.py"
    lines = [line for line in example.read_text().splitlines() if line and not line.startswith("#")]
    assert len(lines) <= 22
    video = str(SAMPLES / "parking_pan.mp4")
    done = run_example("-c", HEADLESS.format(video=video, example=str(example)), directory=tmp_path)
    assert (done.returncode, done.stderr) == (0, "")
    assert (tmp_path / "panorama.jpg").stat().st_size > 10000


def test_the_notebook(monkeypatch: pytest.MonkeyPatch) -> None:
    pytest.importorskip("matplotlib").use("Agg")
    monkeypatch.chdir(EXAMPLES)
    notebook = json.loads((EXAMPLES / "answers.ipynb").read_text())
    names: dict[str, object] = {}
    for cell in notebook["cells"]:
        if cell["cell_type"] == "code":
            assert cell["outputs"] == []
            exec("".join(cell["source"]), names)
    assert isinstance(names["stitched"], tarnstitch.Stitched)
    assert sorted(os.listdir(EXAMPLES)) == ["answers.ipynb", "stills.py", "webcam.py"]
