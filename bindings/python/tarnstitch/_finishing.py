# SPDX-License-Identifier: Apache-2.0
"""The finishing stage: from the key frames of a sweep one picture without ghosts, steps and wedges."""

from __future__ import annotations

import ctypes
import math
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field
from typing import Literal

import numpy as np
import numpy.typing as npt

from . import _library
from ._errors import BadArgumentError, FinishingError, OutOfMemoryError
from ._frames import Frame, FrameReader, Pixels, jpeg_of
from ._library import library
from ._results import KeyFrame
from ._turns import one_of
from ._waits import interruptible

Crop = Literal["none", "full", "automatic"]

_CROPS: tuple[Crop, ...] = ("none", "full", "automatic")
_WORKING_WIDTH = 300  # px, of the copies between which placements tell
_OK, _OUT_OF_MEMORY = 0, 4  # of enum status
_BGR = 3


@dataclass(frozen=True, eq=False)
class Finished:
    """A finished picture. In a notebook it shows itself."""

    pixels: Pixels = field(repr=False)
    """H x W x 3, B,G,R; the caller's own"""
    mask: Pixels = field(repr=False)
    """H x W: 255 where the picture shows something"""
    motion: str
    """how the camera moved: "turning", "sliding", "tilting", "projective", or "none" of a single key frame"""
    projection: str
    """what the picture is drawn on: "plane", "cylinder", "turned cylinder" or "sphere\""""
    field_of_view: tuple[float, float] | None
    """degrees, horizontal and vertical; None unless the camera turned"""
    scale: float
    """px of the picture for one of a key frame's, at its centre"""
    residual: float | None
    """how far points of one key frame lie from those of another, median, % of a frame's longer side"""
    left_out: dict[int, str]
    """the key frames that were left out, by their index, and why"""

    def jpeg(self) -> bytes:
        """The picture as a JPEG."""
        return jpeg_of(self.pixels)

    def _repr_jpeg_(self) -> bytes:
        return self.jpeg()


def _placement(key_frame: KeyFrame) -> npt.NDArray[np.float64] | None:
    """Where a key frame lies, in terms of copies that are at most 300 px wide."""
    if key_frame.plane_from_frame is None:
        return None
    scale = min(1.0, _WORKING_WIDTH / key_frame.pixels.shape[1])
    small = np.array([[scale, 0.0, (scale - 1) / 2], [0.0, scale, (scale - 1) / 2], [0.0, 0.0, 1.0]])
    placement: npt.NDArray[np.float64] = small @ key_frame.plane_from_frame @ np.linalg.inv(small)
    return placement


def _copied(address: int, shape: tuple[int, ...], row_stride: int) -> Pixels:
    """Pixels of the library's as an array of the caller's own."""
    pixels = np.empty(shape, np.uint8)
    channels = shape[2] if len(shape) == 3 else 1
    to = pixels.__array_interface__["data"][0]
    library().tarnpy_pack(address, shape[1], shape[0], channels, row_stride, channels, 1, 0, to)
    return pixels


def finish(
    key_frames: Iterable[KeyFrame | Frame],
    *,
    crop: Crop = "full",
    most_megapixels: float = 150.0,
    on_progress: Callable[[str, float], object] | None = None,
) -> Finished:
    """Makes one picture of the key frames of a sweep: placed by all of them at once, equally bright, joined along lines
    that avoid what moves, and cropped. Takes seconds. Ctrl-C ends it; other threads run meanwhile.

    Args:
        key_frames: in the order of the sweep, as `on_key_frame` is given them; or frames alone, upright, B,G,R, which
            are placed by what they have in common.
        crop: "full" is the largest upright rectangle without an empty pixel, "automatic" may have thin empty corners
            filled, "none" is all that was seen.
        most_megapixels: the picture is made smaller when it would have more.
        on_progress: is told the stage and how much of it is done, 0 to 1. False (not None) ends the call.

    Raises:
        FinishingError: the stage is not installed, or no picture can be made; the text says why.
    """
    one_of("crop", crop, _CROPS)
    if not isinstance(most_megapixels, (int, float)) or not (most_megapixels > 0 and math.isfinite(most_megapixels)):
        raise BadArgumentError(f"most_megapixels is {most_megapixels}; it must be more than 0")
    _library.refuse_fork()
    if not hasattr(library(), "tarnpy_finish"):
        raise FinishingError("the finishing stage is not installed: build it where OpenCV's stitching module is found")
    reader = FrameReader("bgr", 0)
    kept: list[Pixels] = []
    frames: list[_library.FinishingFrame] = []
    for key_frame in key_frames:
        placement = None
        pixels: object = key_frame
        if isinstance(key_frame, KeyFrame):
            placement = _placement(key_frame)
            pixels = key_frame.pixels
        image, array = reader.read(pixels)
        if image.format != _BGR:
            raise BadArgumentError("a key frame for the finishing stage has H x W x 3")
        kept.append(array)
        frame = _library.FinishingFrame(image.pixels, image.row_stride or 3 * image.width, image.width, image.height)
        if placement is not None:
            frame.placed = 1
            frame.placement[:] = placement.ravel().tolist()
        frames.append(frame)
    is_ended = False
    raised: list[BaseException] = []

    def end() -> None:
        nonlocal is_ended
        is_ended = True

    def progress(stage: bytes, part: float) -> int:
        try:
            if on_progress is not None and on_progress(stage.decode(), part) is False:
                end()
        except BaseException as error:
            raised.append(error)
            end()
        return 0 if is_ended else 1

    finished = _library.Finished()
    call_back = _library.ON_FINISHING(progress)
    array_of_frames = (_library.FinishingFrame * len(frames))(*frames)

    def run() -> Finished:
        if not library().tarnpy_finish(
            array_of_frames, len(frames), _CROPS.index(crop), most_megapixels, call_back, finished
        ):
            raise OutOfMemoryError("there is no memory for the finished picture")
        try:
            return _finished_of(finished, len(kept))  # which the call holds until it is over, whoever has left
        finally:
            library().tarnpy_free_finished(finished.held)

    try:
        return interruptible(run, end)
    except FinishingError:
        if raised:
            raise raised[0] from None
        raise


def _finished_of(told: _library.Finished, count: int) -> Finished:
    if told.outcome != _OK:
        outcome = library().tarnpy_finishing_outcome(told.outcome).decode()
        explanation = told.explanation.decode("utf-8", "replace")
        text = f"{outcome}: {explanation}" if explanation else outcome
        if told.outcome == _OUT_OF_MEMORY:
            raise OutOfMemoryError(text)
        raise FinishingError(f"there is no finished picture: {text}")
    left_out = {
        index: library().tarnpy_left_out(told.left_out[index]).decode()
        for index in range(count)
        if told.left_out[index] != 0
    }
    fields = (told.horizontal_field_of_view, told.vertical_field_of_view)
    return Finished(
        _copied(told.pixels, (told.height, told.width, 3), told.row_stride),
        _copied(told.mask, (told.height, told.width), told.mask_stride),
        told.motion.decode(),
        told.projection.decode(),
        fields if fields[0] > 0 else None,
        told.scale,
        None if told.residual < 0 else told.residual,
        left_out,
    )
