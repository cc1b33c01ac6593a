# SPDX-License-Identifier: Apache-2.0
"""What a sweep answers and gives: plain values, of the caller's orientation, which need no sweep any more."""

from __future__ import annotations

import os
import secrets
import struct
import zlib
from dataclasses import dataclass, field
from pathlib import Path

import numpy as np
import numpy.typing as npt

from . import _library
from ._errors import BadArgumentError, DiskError, NoPanoramaError
from ._frames import Pixels, jpeg_of
from ._turns import Corners, Four, Motion, corners_of, four_of, motion_of
from ._words import Code, Extent, Pipeline, Reason


@dataclass(frozen=True)
class Answer:
    """What became of one frame. Corners are the top-left, top-right, bottom-right and bottom-left one."""

    code: Code
    """the verdict; `code.advice` is what to tell the user"""
    why: Reason
    """why the frame was not taken"""
    taken: bool
    """registered, or composed: the panorama and the sweep go on from it"""
    key_frame: int
    """its number among the key frames, from 1, if it became one; else 0"""
    key_frames: int
    """so far"""
    registered: bool
    """compared with the frame taken before, so that what follows was measured"""
    direction: Motion
    """of the camera, when the frame taken last was taken, as one sees it who watches the frames"""
    move_distance: float
    """px of a frame scaled to a width of 300 (turned frames: to a height of 300), from the frame taken before"""
    corners_found: int
    """in this frame"""
    corners_tracked: int
    """of those of the frame before, found again"""
    inliers: int
    """of these, that agree on one motion"""
    overlap: float
    """with the last key frame, 0 to 1; below 0.7 a frame becomes one"""
    placed: bool
    """the frame was taken and lies in the preview"""
    outline: Corners
    """x, y in px of the preview, of the frame taken last; may reach beyond it until the next key frame"""
    angles: Four
    """degrees, at the corners of the frame measured last, mapped into the last key frame"""
    scales: Four
    """its sides, top first, clockwise, over a frame's own"""
    milliseconds: float
    """spent in the library on it, waits for room not included"""
    detail: str
    """what OpenCV said of an unusable frame; else \"\""""

    @property
    def advice(self) -> str:
        """What to tell the user; "" where there is nothing to do."""
        return self.code.advice


def answer_of(told: _library.Answer, quarters: int, preview_size: tuple[int, int]) -> Answer:
    """An answer of the C interface; the size is that of the library's preview, width and height in px."""
    return Answer(
        Code(told.code),
        Reason(told.why),
        told.taken != 0,
        told.key_frame,
        told.key_frames,
        told.registered != 0,
        motion_of(told.direction, quarters),
        told.move_distance,
        told.corners_found,
        told.corners_tracked,
        told.inliers,
        told.overlap,
        told.placed != 0,
        corners_of(told.outline[:], quarters, *preview_size),
        four_of(told.angles[:], quarters),
        four_of(told.scales[:], quarters),
        told.milliseconds,
        told.detail.decode("utf-8", "replace"),
    )


def png_of(pixels: Pixels) -> bytes:
    """A B,G,R array of H x W x 3 as a PNG."""
    height, width = pixels.shape[:2]
    rows = np.zeros((height, 1 + 3 * width), np.uint8)  # each begins with the number of its filter: none
    rows[:, 1:] = pixels[:, :, ::-1].reshape(height, 3 * width)

    def chunk(name: bytes, content: bytes) -> bytes:
        return struct.pack(">I", len(content)) + name + content + struct.pack(">I", zlib.crc32(name + content))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)  # 8 bits, colours
    fast = 1
    content = zlib.compress(rows.tobytes(), fast)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", content) + chunk(b"IEND", b"")


@dataclass(frozen=True, eq=False)
class Preview:
    """The preview panorama as it was at one moment. In a notebook it shows itself."""

    pixels: Pixels = field(repr=False)
    """H x W x 3, B,G,R; the caller's own"""
    outline: Corners | None
    """of the frame taken last, x, y in px of the preview; may reach beyond it. None before a frame was taken"""
    frozen: bool
    """has reached its greatest size: the sweep goes on, it does not grow"""

    @property
    def shape(self) -> tuple[int, int]:
        """Height and width, px."""
        return (int(self.pixels.shape[0]), int(self.pixels.shape[1]))

    def _repr_png_(self) -> bytes:
        return png_of(self.pixels)


@dataclass(frozen=True)
class Status:
    """Where a sweep stands."""

    key_frames: int
    """so far"""
    under_way: int
    """of these, those that are not in the panorama yet"""
    pipeline: Pipeline
    """what the workers are at"""
    first_failed_key_frame: int
    """that could not be joined, from 1; 0 if all could"""
    why: Reason
    """why it could not"""


@dataclass(frozen=True, eq=False)
class KeyFrame:
    """A frame that grows the panorama."""

    pixels: Pixels = field(repr=False)
    """H x W x 3, B,G,R, as the frame was given; the caller's own"""
    number: int
    """1, 2, 3, ... in the sweep"""
    plane_from_frame: npt.NDArray[np.float64] | None = field(repr=False)
    """3 x 3: maps a pixel (x, y, 1) of the frame into the plane of the sweep's first frame, in px of full-size frames.
    Fixed for the whole sweep. None of a last frame, which is composed without being registered"""


class Panorama:
    """The end of a sweep: the picture, and how much of the sweep it holds. In a notebook it shows itself.

    True where there is a picture.
    """

    def __init__(
        self,
        pixels: Pixels | None,
        extent: Extent,
        why: Reason,
        first_failed_key_frame: int,
        key_frames: int,
        last_answer: Answer | None,
    ) -> None:
        self._pixels = pixels
        self.extent = extent
        """how much of the sweep it holds"""
        self.why = why
        """why it is not whole"""
        self.first_failed_key_frame = first_failed_key_frame
        """that could not be joined, from 1; 0 if all could. May be set though the panorama goes on behind it"""
        self.key_frames = key_frames
        """in the sweep"""
        self.last_answer = last_answer
        """for the frame that `Sweep.finish` was given; None if there was none"""

    def __bool__(self) -> bool:
        return self._pixels is not None

    def __repr__(self) -> str:
        size = "no picture" if self._pixels is None else f"{self._pixels.shape[1]} x {self._pixels.shape[0]} px"
        why = "" if self.why is Reason.NONE else f", {self.why.text}"
        return f"<Panorama: {size}, {self.extent.name.lower()}{why}, {self.key_frames} key frames>"

    @property
    def pixels(self) -> Pixels:
        """H x W x 3, B,G,R, upright as the frames were; the caller's own. Raises NoPanoramaError if there is none."""
        if self._pixels is None:
            raise NoPanoramaError(f"there is no panorama: {self.why.text}")
        return self._pixels

    def jpeg(self) -> bytes:
        """The picture as a JPEG, encoded as the library encodes it. Raises NoPanoramaError if there is none."""
        return jpeg_of(self.pixels)

    def save(self, path: str | os.PathLike[str]) -> None:
        """Writes that JPEG to a file, which appears whole or not at all and replaces one that is there.

        The name ends in .jpg or .jpeg. Raises NoPanoramaError, DiskError.
        """
        target = Path(path)
        if target.suffix.lower() not in (".jpg", ".jpeg"):
            raise BadArgumentError(f"a panorama is written as a JPEG: {str(target)!r} should end in .jpg or .jpeg")
        write_whole(target, self.jpeg())

    def _repr_jpeg_(self) -> bytes | None:
        return None if self._pixels is None else self.jpeg()


def write_whole(path: Path, content: bytes) -> None:
    """Writes a file with the mode that the process's umask gives, under another name first."""
    beside = f"{path}.{secrets.token_hex(8)}"
    try:
        descriptor = os.open(beside, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC, 0o666)
        try:
            with open(descriptor, "wb") as file:
                file.write(content)
            os.replace(beside, path)
        except BaseException:
            os.unlink(beside)
            raise
    except (OSError, ValueError) as error:
        text = error.strerror or error if isinstance(error, OSError) else error
        raise DiskError(f"{str(path)!r} cannot be written: {text}") from error
