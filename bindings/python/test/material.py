# SPDX-License-Identifier: Apache-2.0
"""What the tests share: the samples' frames, a small sweep that takes no time, the host in C++."""

from __future__ import annotations

import os
import subprocess
import sys
from collections.abc import Iterable, Iterator
from dataclasses import dataclass
from functools import lru_cache
from pathlib import Path
from typing import Any

import cv2
import numpy as np
import numpy.typing as npt

Pixels = npt.NDArray[np.uint8]

SOURCE = Path(__file__).resolve().parents[3]
SAMPLES = SOURCE / "samples"


def sample_frames(name: str, most: int | None = None) -> Iterator[Pixels]:
    """The frames of a sample, as OpenCV reads them."""
    video = cv2.VideoCapture(str(SAMPLES / name))
    count = 0
    while most is None or count < most:
        there_is_one, frame = video.read()
        if not there_is_one:
            break
        yield frame
        count += 1
    assert count > 0, f"{name} cannot be read"


@lru_cache(maxsize=1)
def _wall() -> Pixels:
    """Something with corners everywhere."""
    random = np.random.default_rng(7)
    coarse = random.integers(0, 256, (40, 120, 3), np.uint8)
    return np.asarray(cv2.resize(coarse, (1920, 640), interpolation=cv2.INTER_CUBIC), np.uint8)


def small_frames(count: int = 12, step: int = 24) -> list[Pixels]:
    """Frames of 320 x 240 px of a camera that moves to the right, `step` px at a time. Views of one array."""
    wall = _wall()
    return [wall[200:440, 100 + step * index : 420 + step * index] for index in range(count)]


@dataclass
class HostResult:
    """What the host in C++ says: lines of numbers, and the bytes of its pictures."""

    answers: list[list[float]]
    jpeg: bytes
    preview: Pixels


def run_cpp_host(frames: Iterable[Pixels], directory: Path) -> HostResult:
    """Feeds frames, as they are, to the host in C++."""
    first, *others = frames
    height, width = first.shape[:2]
    command = [os.environ["TARN_PYTHON_REFERENCE_HOST"], str(width), str(height), str(directory)]
    with subprocess.Popen(command, stdin=subprocess.PIPE) as host:
        assert host.stdin is not None
        for frame in (first, *others):
            host.stdin.write(np.ascontiguousarray(frame).data)
        host.stdin.close()
    assert host.returncode == 0
    lines = (directory / "answers.txt").read_text().splitlines()
    preview_width, preview_height = map(int, (directory / "preview.txt").read_text().split())
    preview = np.fromfile(directory / "preview.bgr", np.uint8).reshape(preview_height, preview_width, 3)
    return HostResult(
        [[float(number) for number in line.split()] for line in lines],
        (directory / "panorama.jpg").read_bytes(),
        preview,
    )


def run_python(code: str, **environment: str) -> subprocess.CompletedProcess[str]:
    """Runs code in an interpreter of its own, with this one's environment."""
    return subprocess.run(
        [sys.executable, "-c", code],
        capture_output=True,
        text=True,
        timeout=300,
        env={**os.environ, **environment, "PYTHONPATH": f"{os.environ['PYTHONPATH']}:{Path(__file__).parent}"},
        check=False,
    )


def decoded(jpeg: bytes) -> Pixels:
    """The pixels of a JPEG."""
    return np.asarray(cv2.imdecode(np.frombuffer(jpeg, np.uint8), cv2.IMREAD_COLOR), np.uint8)


def numbers_of(answer: Any) -> list[float]:
    """An answer of turn="none" as the numbers of a line of the host in C++."""
    directions = {"none": 0, "down": 1, "up": 2, "right": 3, "left": 4}
    return [
        answer.code,
        answer.why,
        answer.taken,
        answer.key_frame,
        answer.key_frames,
        answer.registered,
        directions[answer.direction],
        answer.move_distance,
        answer.corners_found,
        answer.corners_tracked,
        answer.inliers,
        answer.overlap,
        answer.placed,
        *(coordinate for corner in answer.outline for coordinate in corner),
        *answer.angles,
        *answer.scales,
    ]
