# SPDX-License-Identifier: Apache-2.0
"""A whole sweep in one call."""

from __future__ import annotations

from collections.abc import Iterator

import numpy as np
from material import Pixels, small_frames

import tarnstitch
from tarnstitch import Code, Extent, Reason


def test_an_array_may_be_used_again_for_the_next_frame() -> None:
    frames = small_frames()

    def same_array() -> Iterator[Pixels]:
        array = np.empty_like(frames[0])
        for frame in frames:
            array[:] = frame
            yield array
            array[:] = 0

    expected = tarnstitch.stitch(frames)
    assert expected.failed is None and expected.panorama.extent is Extent.WHOLE
    for turn in ("ccw", "none"):
        plain = tarnstitch.stitch(frames, turn=turn)  # type: ignore[arg-type]
        stitched = tarnstitch.stitch(same_array(), turn=turn)  # type: ignore[arg-type]
        assert np.array_equal(stitched.panorama.pixels, plain.panorama.pixels)
        assert len(stitched.answers) == len(frames)


def test_nothing_to_stitch() -> None:
    stitched = tarnstitch.stitch([])
    assert not stitched.panorama and stitched.preview is None and stitched.answers == []
    assert stitched.failed is not None and stitched.failed.why is Reason.NO_FRAMES
    assert str(stitched.failed) == f"{Reason.NO_FRAMES.text} ({Reason.NO_FRAMES.advice})"


def test_one_frame_is_its_own_panorama() -> None:
    frame = small_frames(1)[0]
    stitched = tarnstitch.stitch([frame])
    assert stitched.failed is None and len(stitched.answers) == 1 and stitched.preview is None
    height, width = stitched.panorama.pixels.shape[:2]
    assert width > height


def test_what_cannot_be_joined_is_named() -> None:
    frames = small_frames(6)
    random = np.random.default_rng(3)
    elsewhere = np.asarray(random.integers(0, 256, frames[0].shape), np.uint8)
    stitched = tarnstitch.stitch([*frames, elsewhere])
    assert stitched.panorama.extent is Extent.PARTIAL and stitched.panorama
    failed = stitched.failed
    assert failed is not None and failed.why not in (Reason.NONE, Reason.NO_FRAMES)
    assert failed.frame == 6 and failed.key_frame == stitched.panorama.first_failed_key_frame > 0
    assert "at frame 6" in str(failed) and failed.why.text in str(failed)


def test_the_caller_may_end_the_sweep() -> None:
    asked: list[int] = []

    def frames() -> Iterator[Pixels]:
        for number, frame in enumerate(small_frames()):
            asked.append(number)
            yield frame

    seen: list[Code] = []

    def look(answer: tarnstitch.Answer, sweep: tarnstitch.Sweep) -> bool:
        assert sweep.preview is not None
        seen.append(answer.code)
        return len(seen) < 4

    stitched = tarnstitch.stitch(frames(), on_answer=look)
    assert len(stitched.answers) == len(seen) == 4 and len(asked) == 5
    assert stitched.panorama and stitched.failed is None


def test_key_frames_are_handed_out() -> None:
    frames = small_frames()
    key_frames: list[tarnstitch.KeyFrame] = []
    stitched = tarnstitch.stitch(frames, on_key_frame=key_frames.append)
    numbers = [number for number, answer in enumerate(stitched.answers) if answer.key_frame > 0]
    assert len(key_frames) == len(numbers) == stitched.panorama.key_frames
    for number, key_frame in zip(numbers, key_frames):
        assert np.array_equal(key_frame.pixels, frames[number])
