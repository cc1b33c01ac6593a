#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the package costs beside the library: medians over the frames of a sample, 1920 x 1080 px.

Each frame is timed twice over: the whole call of `feed`, and the library's function inside. With the program tarnstitch,
a sample is stitched by both as well, from the video to the panorama's file. usage: benchmark.py [PROGRAM]
"""

from __future__ import annotations

import subprocess
import sys
import tempfile
import time
from collections.abc import Iterator
from pathlib import Path
from statistics import median
from typing import Any

import cv2
import numpy as np

import tarnstitch
from tarnstitch._frames import FrameReader
from tarnstitch._library import library

SAMPLE = Path(__file__).resolve().parents[2] / "samples" / "parking_pan.mp4"
ROUNDS = 5


def frames_of_the_sample(count: int) -> list[tarnstitch.Pixels]:
    """Its first frames, 1920 x 1080."""
    video = cv2.VideoCapture(str(SAMPLE))
    return [np.asarray(cv2.resize(video.read()[1], (1920, 1080)), np.uint8) for _ in range(count)]


def feeding(frames: list[tarnstitch.Pixels], turn: Any) -> tuple[float, float]:
    """ms of the library's function, and of all that is around it."""
    feed: Any = library().tarn_sweep_feed
    inside = 0.0

    def timed(*arguments: Any) -> int:
        nonlocal inside
        begun = time.perf_counter()
        result = feed(*arguments)
        inside = time.perf_counter() - begun
        return int(result)

    setattr(library(), "tarn_sweep_feed", timed)
    within, around = [], []
    try:
        for _ in range(ROUNDS):
            with tarnstitch.Sweep(turn=turn, most_under_way=2) as sweep:
                for frame in frames:
                    sweep.wait_for_room()  # so that the workers are not what is measured
                    begun = time.perf_counter()
                    sweep.feed(frame)
                    whole = time.perf_counter() - begun
                    within.append(inside * 1000)
                    around.append((whole - inside) * 1000)
    finally:
        setattr(library(), "tarn_sweep_feed", feed)
    return median(within), median(around)


def reading(frame: tarnstitch.Pixels, order: Any, quarters: int) -> float:
    """ms to read a frame that has to be packed or turned."""
    reader = FrameReader(order, quarters)
    times = []
    for _ in range(50):
        begun = time.perf_counter()
        reader.give_back(reader.read(frame)[1])
        times.append((time.perf_counter() - begun) * 1000)
    return median(times)


def frames_of_the_video() -> Iterator[tarnstitch.Pixels]:
    video = cv2.VideoCapture(str(SAMPLE))
    while True:
        there_is_one, frame = video.read()
        if not there_is_one:
            return
        yield frame


def stitching(program: str) -> tuple[float, float]:
    """s of the program and of `tarnstitch.stitch`, each the shortest of some runs, in turn."""
    by_program, by_package = [], []
    with tempfile.TemporaryDirectory() as work:
        for _ in range(ROUNDS):
            begun = time.perf_counter()
            subprocess.run([program, str(SAMPLE), "-o", f"{work}/program.jpg", "--quiet", "--no-retry"], check=True)
            by_program.append(time.perf_counter() - begun)
            begun = time.perf_counter()
            tarnstitch.stitch(frames_of_the_video()).panorama.save(f"{work}/package.jpg")
            by_package.append(time.perf_counter() - begun)
    return min(by_program), min(by_package)


def main() -> None:
    frames = frames_of_the_sample(40)
    for turn in ("none", "ccw"):
        within, around = feeding(frames, turn)
        print(f'feed, turn="{turn}": the C function {within:.2f} ms, the package {around:.3f} ms beside it')
    print(f"turning a frame: {reading(frames[0], 'bgr', 3):.2f} ms")
    print(f"a frame in the order R,G,B: {reading(frames[0], 'rgb', 0):.2f} ms")
    times = []
    for _ in range(50):
        begun = time.perf_counter()
        cv2.rotate(frames[0], cv2.ROTATE_90_COUNTERCLOCKWISE)
        times.append((time.perf_counter() - begun) * 1000)
    print(f"beside it, OpenCV turning a frame: {median(times):.2f} ms")
    if len(sys.argv) > 1:
        by_program, by_package = stitching(sys.argv[1])
        print(f"{SAMPLE.name}: {by_program:.2f} s by the program, {by_package:.2f} s by tarnstitch.stitch")


if __name__ == "__main__":
    main()
