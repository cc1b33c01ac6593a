# SPDX-License-Identifier: Apache-2.0
"""The finishing stage."""

from __future__ import annotations

import os
import signal
import threading
from typing import Any

import numpy as np
import pytest
from material import Pixels, sample_frames, small_frames

import tarnstitch
from tarnstitch import _finishing
from tarnstitch._finishing import _placement
from tarnstitch._library import library

needs_finishing = pytest.mark.skipif(not hasattr(library(), "tarnpy_finish"), reason="built without it")


@pytest.fixture(scope="module", name="key_frames")
def key_frames_of_a_sample() -> list[tarnstitch.KeyFrame]:
    found: list[tarnstitch.KeyFrame] = []
    tarnstitch.stitch(sample_frames("parking_pan.mp4", 100), on_key_frame=found.append)
    return found


@needs_finishing
def test_one_picture_of_all_key_frames(key_frames: list[tarnstitch.KeyFrame]) -> None:
    stages: list[str] = []

    def note(stage: str, part: float) -> None:
        assert 0 <= part <= 1
        if stage not in stages:
            stages.append(stage)

    finished = tarnstitch.finish(key_frames, on_progress=note)
    height, width = key_frames[0].pixels.shape[:2]
    assert finished.pixels.shape[1] > 1.3 * width and finished.pixels.shape[0] > height / 2
    assert finished.mask.shape == finished.pixels.shape[:2] and finished.mask.min() == 255
    assert finished.pixels.flags.owndata
    assert finished.left_out == {} or set(finished.left_out.values()) == {"adds nothing"}
    assert finished.motion in ("turning", "sliding", "tilting", "projective")
    assert stages[0] == "reading" and stages[-1] == "blending"
    assert finished._repr_jpeg_() == finished.jpeg()
    assert "plane" in repr(finished) or "cylinder" in repr(finished)
    whole = tarnstitch.finish(key_frames, crop="none", most_megapixels=0.05)
    assert whole.pixels.shape[0] * whole.pixels.shape[1] <= 55000
    assert whole.mask.min() == 0


@needs_finishing
def test_placements_are_those_of_small_copies(key_frames: list[tarnstitch.KeyFrame]) -> None:
    scale = 300 / key_frames[0].pixels.shape[1]
    for key_frame in key_frames[:-1]:
        placement, plane_from_frame = _placement(key_frame), key_frame.plane_from_frame
        assert placement is not None and plane_from_frame is not None
        for x, y in ((-0.5, -0.5), (200.0, 100.0)):
            large = plane_from_frame @ [x, y, 1]
            small = placement @ [(x + 0.5) * scale - 0.5, (y + 0.5) * scale - 0.5, 1]
            assert np.allclose(small[:2] / small[2] + 0.5, (large[:2] / large[2] + 0.5) * scale)


@needs_finishing
def test_frames_alone() -> None:
    frames: list[Pixels] = small_frames(6, 60)
    finished = tarnstitch.finish(frames)
    assert finished.left_out == {} or "unplaced" not in finished.left_out.values()
    assert finished.pixels.shape[1] > 500


@needs_finishing
def test_what_goes_wrong_is_told(key_frames: list[tarnstitch.KeyFrame]) -> None:
    with pytest.raises(tarnstitch.FinishingError, match="no key frames"):
        tarnstitch.finish([])
    with pytest.raises(tarnstitch.FinishingError, match="cancelled"):
        tarnstitch.finish(key_frames, on_progress=lambda stage, part: False)

    class Oops(Exception):
        pass

    def fail(stage: str, part: float) -> None:
        raise Oops

    with pytest.raises(Oops):
        tarnstitch.finish(key_frames, on_progress=fail)
    with pytest.raises(tarnstitch.BadArgumentError, match='"none", "full", "automatic"'):
        tarnstitch.finish(key_frames, crop="some")  # type: ignore[arg-type]
    with pytest.raises(tarnstitch.BadArgumentError, match="most_megapixels"):
        tarnstitch.finish(key_frames, most_megapixels=0)
    with pytest.raises(tarnstitch.FrameError):
        tarnstitch.finish([np.zeros((4, 4))])  # type: ignore[list-item]
    with pytest.raises(tarnstitch.BadArgumentError, match="H x W x 3"):
        tarnstitch.finish([np.zeros((40, 40), np.uint8)])


@needs_finishing
def test_ctrl_c_ends_it(key_frames: list[tarnstitch.KeyFrame]) -> None:
    heeded = threading.Event()

    def interrupt(stage: str, part: float) -> None:
        if not heeded.is_set():
            os.kill(os.getpid(), signal.SIGINT)
            heeded.wait()

    before = signal.getsignal(signal.SIGINT)

    def handler(number: int, frame: Any) -> None:
        heeded.set()
        raise KeyboardInterrupt

    signal.signal(signal.SIGINT, handler)
    try:
        with pytest.raises(KeyboardInterrupt):
            tarnstitch.finish(key_frames, on_progress=interrupt)
    finally:
        signal.signal(signal.SIGINT, before)


def test_where_it_is_not_installed_it_says_so(monkeypatch: pytest.MonkeyPatch) -> None:
    class Library:
        pass

    monkeypatch.setattr(_finishing, "library", Library)
    with pytest.raises(tarnstitch.FinishingError, match="not installed"):
        tarnstitch.finish(small_frames(2))
