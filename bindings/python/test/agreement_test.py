# SPDX-License-Identifier: Apache-2.0
"""The same answers and bytes as a host in C++, and as the program."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path

import cv2
import numpy as np
import pytest
from material import SAMPLES, decoded, numbers_of, run_cpp_host, sample_frames

import tarnstitch


@pytest.mark.parametrize("sample, most", [("parking_pan.mp4", None), ("river_pan.mp4", 60), ("hall_slide.mp4", 40)])
def test_answers_and_bytes_of_the_cpp_host(sample: str, most: int | None, tmp_path: Path) -> None:
    frames = [np.ascontiguousarray(np.rot90(frame)) for frame in sample_frames(sample, most)]
    expected = run_cpp_host(frames, tmp_path)
    stitched = tarnstitch.stitch(frames, turn="none", most_under_way=2)
    assert len(stitched.answers) == len(expected.answers) == len(frames)
    for number, (answer, numbers) in enumerate(zip(stitched.answers, expected.answers)):
        assert numbers_of(answer) == numbers, f"frame {number}"
    # Of turn="none" the panorama lies as the frames do, the library's is turned.
    assert np.array_equal(decoded(expected.jpeg).shape[:2], stitched.panorama.pixels.shape[1::-1])
    assert stitched.preview is not None
    assert np.array_equal(stitched.preview.pixels, expected.preview)


def test_turned_frames_come_back_as_they_were(tmp_path: Path) -> None:
    frames = list(sample_frames("parking_pan.mp4", 80))
    expected = run_cpp_host([np.rot90(frame) for frame in frames], tmp_path)
    stitched = tarnstitch.stitch(frames)
    assert [answer.code for answer in stitched.answers] == [numbers[0] for numbers in expected.answers]
    assert stitched.panorama.jpeg() == expected.jpeg
    assert stitched.preview is not None
    assert np.array_equal(stitched.preview.pixels, np.rot90(expected.preview, -1))
    for turn, quarters in (("none", 1), ("ccw", 0)):
        with tarnstitch.Sweep(turn=turn, most_under_way=2) as sweep:  # type: ignore[arg-type]
            for frame in frames[:-1]:
                sweep.feed(frame if turn == "ccw" else np.rot90(frame))
            panorama = sweep.finish(frames[-1] if turn == "ccw" else np.rot90(frames[-1]))
            assert np.array_equal(np.rot90(panorama.pixels, -quarters), stitched.panorama.pixels)


@pytest.mark.skipif(not os.environ.get("TARN_PYTHON_PROGRAM"), reason="the program is not built")
def test_picture_of_the_program(tmp_path: Path) -> None:
    file = tmp_path / "panorama.png"
    program = os.environ["TARN_PYTHON_PROGRAM"]
    command = [program, str(SAMPLES / "parking_pan.mp4"), "-o", str(file), "--quiet", "--no-retry"]
    subprocess.run(command, check=True)
    stitched = tarnstitch.stitch(sample_frames("parking_pan.mp4"))
    assert stitched.failed is None
    picture = cv2.imread(str(file))
    # The program decodes the video by itself, and perhaps writes what it had as a JPEG before.
    assert picture.shape == stitched.panorama.pixels.shape
    assert np.abs(picture.astype(int) - decoded(stitched.panorama.jpeg())).mean() < 3
