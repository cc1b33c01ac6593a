# SPDX-License-Identifier: Apache-2.0
"""Frames: every kind that is taken gives the same answers, and every other one is refused with a reason."""

from __future__ import annotations

import copy
import pickle
from collections.abc import Callable
from typing import Any

import numpy as np
import numpy.typing as npt
import PIL.Image
import pytest
from material import Pixels, numbers_of, small_frames

import tarnstitch
from tarnstitch._frames import FrameReader


def answers_to(frames: list[Any], **options: Any) -> list[list[float]]:
    """The numbers of each frame's answer, and the preview's digest."""
    with tarnstitch.Sweep(turn="none", **options) as sweep:
        numbers = [numbers_of(sweep.feed(frame)) for frame in frames]
        preview = sweep.preview
        assert preview is not None
        numbers.append([float(preview.pixels.sum()), *map(float, preview.pixels.shape)])
    return numbers


def with_alpha(frame: Pixels) -> Pixels:
    return np.dstack([frame, np.full(frame.shape[:2], 7, np.uint8)])


def spread(frame: Pixels) -> Pixels:
    """The same pixels, every other one of a larger array."""
    large = np.zeros((2 * frame.shape[0], 2 * frame.shape[1], 3), np.uint8)
    large[::2, ::2] = frame
    return large[::2, ::2]


def upside_down(frame: Pixels) -> Pixels:
    return np.ascontiguousarray(frame[::-1])[::-1]


def by_channels(frame: Pixels) -> Pixels:
    """The channels in planes of their own."""
    return np.moveaxis(np.ascontiguousarray(np.moveaxis(frame, 2, 0)), 0, 2)


@pytest.mark.parametrize(
    "kind, order",
    [
        (np.ascontiguousarray, "bgr"),
        (with_alpha, "bgr"),
        (spread, "bgr"),
        (upside_down, "bgr"),
        (by_channels, "bgr"),
        (np.asfortranarray, "bgr"),
        (lambda frame: np.ascontiguousarray(frame[..., ::-1]), "rgb"),
        (lambda frame: frame[..., ::-1], "rgb"),
        (lambda frame: with_alpha(frame[..., ::-1]), "rgb"),
        (lambda frame: spread(frame[..., ::-1]), "rgb"),
        (lambda frame: PIL.Image.fromarray(frame[..., ::-1]), "bgr"),
        (lambda frame: PIL.Image.fromarray(with_alpha(frame[..., ::-1])), "bgr"),
    ],
)
def test_every_kind_of_frame_is_the_same_frame(kind: Callable[[Pixels], Any], order: Any) -> None:
    frames = small_frames(4)
    assert answers_to([kind(frame) for frame in frames], order=order) == answers_to(frames)


def test_order_may_be_said_of_one_frame() -> None:
    frames = small_frames(2)
    expected = answers_to(frames)
    with tarnstitch.Sweep(turn="none") as sweep:
        sweep.feed(frames[0])
        assert numbers_of(sweep.feed(np.ascontiguousarray(frames[1][..., ::-1]), order="rgb")) == expected[1]


def test_gray_frames() -> None:
    frames = [np.ascontiguousarray(frame[..., 1]) for frame in small_frames(4)]
    expected = answers_to([np.dstack([frame] * 3) for frame in frames])
    assert answers_to(frames) == expected
    assert answers_to([PIL.Image.fromarray(frame) for frame in frames]) == expected


def test_views_are_read_where_they_lie() -> None:
    reader = FrameReader("bgr", 0)
    frame = small_frames(1)[0]
    assert not frame.flags.c_contiguous
    for view, order in ((frame, "bgr"), (frame[::2], "bgr"), (frame[..., 1:2].repeat(3, 2), "bgr"),
                        (frame[..., ::-1], "rgb")):
        image, array = reader.read(view, order)  # type: ignore[arg-type]
        assert array is view
        first = view.__array_interface__["data"][0]
        assert image.pixels == (first if order == "bgr" else first - 2)
    copied, array = reader.read(frame[:, ::2])
    assert not np.shares_memory(array, frame)


def test_a_turned_frame_is_copied_once_into_the_same_storage() -> None:
    reader = FrameReader("rgb", 3)
    frame = small_frames(1)[0]
    places = set()
    for _ in range(5):
        image, array = reader.read(frame)
        expected = np.rot90(frame)[..., ::-1]
        assert (image.width, image.height) == expected.shape[1::-1]
        assert np.array_equal(array.reshape(expected.shape), expected)
        places.add(image.pixels)
        reader.give_back(array)
    assert len(places) == 1


@pytest.mark.parametrize("quarters", [0, 1, 2, 3])
@pytest.mark.parametrize("height, width", [(1, 1), (1, 7), (7, 1), (31, 33), (32, 64), (65, 40)])
@pytest.mark.parametrize("channels", [1, 3, 4])
def test_turning_is_that_of_numpy(quarters: int, height: int, width: int, channels: int) -> None:
    random = np.random.default_rng(height * width + channels)
    shape = (height, width) if channels == 1 else (height, width, channels)
    frame = random.integers(0, 256, shape, np.uint8)
    image, array = FrameReader("bgr", quarters).read(frame, copy=True)
    expected = np.rot90(frame, -quarters)
    assert (image.height, image.width) == expected.shape[:2]
    assert np.array_equal(array.reshape(expected.shape), expected)


@pytest.mark.parametrize(
    "frame, said",
    [
        ([1, 2, 3], "of type list"),
        (None, "of type NoneType"),
        (np.zeros((4, 4, 3), np.float32), "float32"),
        (np.zeros((4, 4, 3), np.uint16), "uint16"),
        (np.zeros((4, 4, 3), bool), "bool"),
        (np.zeros((4, 4, 2), np.uint8), "4 x 4 x 2"),
        (np.zeros((2, 4, 4, 3), np.uint8), "2 x 4 x 4 x 3"),
        (np.zeros(5, np.uint8), "5"),
        (np.zeros((), np.uint8), "()"),
        (np.zeros((0, 4, 3), np.uint8), "4 px wide and 0 px high"),
        (np.zeros((1, 16385), np.uint8), "16385 px wide"),
        (PIL.Image.new("P", (4, 4)), "mode P"),
        (PIL.Image.new("I", (4, 4)), "mode I"),
    ],
)
def test_what_is_no_frame_is_refused(frame: Any, said: str) -> None:
    with tarnstitch.Sweep() as sweep:
        with pytest.raises(tarnstitch.FrameError, match="(?s)must be|a frame is|convert") as refused:
            sweep.feed(frame)
        assert said in str(refused.value)
        if frame is not None:
            with pytest.raises(tarnstitch.FrameError):
                sweep.finish(frame)
        assert sweep.feed(small_frames(1)[0]).code is tarnstitch.Code.NORMAL


@pytest.mark.parametrize(
    "options, said",
    [
        ({"order": "gbr"}, '"bgr", "rgb"'),
        ({"turn": "left"}, '"ccw", "cw", "none"'),
        ({"direction": "north"}, '"any", "right"'),
        ({"most_under_way": -1}, "-1"),
        ({"most_under_way": 2.5}, "2.5; it must be a whole number"),
        ({"on_log": "no function"}, "callable"),
        ({"directory": "/tmp/a\0b"}, "NUL"),
    ],
)
def test_wrong_options_are_refused(options: dict[str, Any], said: str) -> None:
    with tarnstitch.Sweep() as before:
        with pytest.raises(tarnstitch.BadArgumentError, match=said):
            tarnstitch.Sweep(**options)
        assert before.is_current


def test_pil_images_have_the_same_limits() -> None:
    with tarnstitch.Sweep() as sweep:
        for size in ((20000, 2), (0, 0)):
            with pytest.raises(tarnstitch.FrameError, match=f"{size[0]} px wide and {size[1]} px high"):
                sweep.feed(PIL.Image.new("RGB", size))


def test_wrong_arguments_of_calls_are_refused() -> None:
    frame: npt.NDArray[np.uint8] = small_frames(1)[0]
    with tarnstitch.Sweep() as sweep:
        with pytest.raises(tarnstitch.BadArgumentError, match="direction is 'away'"):
            sweep.feed(frame, "away")  # type: ignore[arg-type]
        with pytest.raises(tarnstitch.BadArgumentError, match="order is 'gbr'"):
            sweep.feed(frame, order="gbr")  # type: ignore[arg-type]
        with pytest.raises(tarnstitch.BadArgumentError, match="-1"):
            sweep.wait_for_room(-1)
        with pytest.raises(tarnstitch.BadArgumentError, match="1.5"):
            sweep.wait_for_room(1.5)  # type: ignore[arg-type]
        with pytest.raises(TypeError, match="cannot be copied"):
            copy.copy(sweep)
        with pytest.raises(TypeError, match="cannot be pickled"):
            pickle.dumps(sweep)
        assert sweep.is_current
    with pytest.raises(tarnstitch.BadArgumentError, match="most_under_way is 0"):
        tarnstitch.stitch([frame], most_under_way=0)
