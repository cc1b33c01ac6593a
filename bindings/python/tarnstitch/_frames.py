# SPDX-License-Identifier: Apache-2.0
"""Arrays and images as the C interface's pictures, and its pictures as arrays."""

from __future__ import annotations

import ctypes
import sys
from typing import Any, Literal, Protocol, Union

import numpy as np
import numpy.typing as npt

from ._errors import FrameError, OutOfMemoryError
from ._library import Image, check, library
from ._turns import one_of

Order = Literal["bgr", "rgb"]
Pixels = npt.NDArray[np.uint8]
Frame = Union[Pixels, "PilImage"]
ReadFrame = tuple[Image, Pixels]  # as the C interface takes it; the array that it lies in


class PilImage(Protocol):
    """What type checkers are told of PIL's images, whose types they may not have."""

    @property
    def mode(self) -> str:
        """As "RGB"."""

    @property
    def size(self) -> tuple[int, int]:
        """Width and height, px."""


GREATEST_SIDE = 16384  # px
_RGBA, _BGRA, _BGR, _GRAY = 1, 2, 3, 4  # of enum tarn_format
_WANTED = "a frame is an array of uint8 of H x W x 3, H x W x 4 or H x W, or a PIL image of mode RGB, RGBA or L"


def check_order(order: Order) -> None:
    """Refuses an order of channels that there is not."""
    one_of("order", order, ("bgr", "rgb"))


def _array_of(frame: object, order: Order) -> tuple[Pixels, Order]:
    if type(frame) is not np.ndarray:
        pil = sys.modules.get("PIL.Image")
        if pil is not None and isinstance(frame, pil.Image):
            if frame.mode not in ("RGB", "RGBA", "L"):
                raise FrameError(f'the frame is a PIL image of mode {frame.mode}; convert it to "RGB"')
            frame, order = np.asarray(frame), "rgb"
        if not isinstance(frame, np.ndarray):
            raise FrameError(f"the frame is of type {type(frame).__name__}; {_WANTED}")
    array: npt.NDArray[Any] = frame
    if array.dtype != np.uint8:
        raise FrameError(f"the frame's dtype is {array.dtype}; it must be uint8, with values of 0 to 255")
    if array.ndim not in (2, 3) or (array.ndim == 3 and array.shape[2] not in (3, 4)):
        raise FrameError(f"the frame's shape is {' x '.join(map(str, array.shape)) or '()'}; {_WANTED}")
    height, width = array.shape[:2]
    if not (1 <= height <= GREATEST_SIDE and 1 <= width <= GREATEST_SIDE):
        raise FrameError(f"the frame is {width} px wide and {height} px high; both must be 1 to {GREATEST_SIDE}")
    return array, order


class FrameReader:
    """Reads frames for one sweep: where they lie if the C interface can, from a turned or packed copy if not.

    Any thread; copies go to storage that is used again.
    """

    def __init__(self, order: Order, quarters: int) -> None:
        check_order(order)
        self.order = order
        self.quarters = quarters
        self._spare: list[Pixels] = []

    def read(self, frame: object, order: Order | None = None, copy: bool = False) -> ReadFrame:
        """A frame as the C interface takes it, and the array that it lies in, to be given back.

        `copy` has it copied in any case, so that the caller's array may change.
        """
        if order is not None:
            check_order(order)
        array, order = _array_of(frame, order or self.order)
        height, width = array.shape[:2]
        first = array.__array_interface__["data"][0]
        row, pixel = array.strides[:2]
        channels, channel = (1, 1) if array.ndim == 2 else (array.shape[2], array.strides[2])
        format = _GRAY if channels == 1 else _BGR
        if channels == 4:
            format = _BGRA if order == "bgr" else _RGBA
        elif channels == 3 and order == "rgb":
            # The other way round it is what the interface takes; a view that is turned round lies right already.
            first += 2 * channel
            channel = -channel
        if height == 1:
            row = width * channels
        if width == 1:
            pixel = channels
        lies_right = channel == 1 and pixel == channels and row >= width * channels
        if lies_right and self.quarters == 0 and not copy:
            return Image(ctypes.sizeof(Image), first, width, height, row, format), array
        packed = self._room(width * height * channels)
        to = packed.__array_interface__["data"][0]
        library().tarnpy_pack(first, width, height, channels, row, pixel, channel, self.quarters, to)
        if self.quarters % 2 == 1:
            width, height = height, width
        return Image(ctypes.sizeof(Image), to, width, height, 0, format), packed

    def _room(self, size: int) -> Pixels:
        try:
            while True:
                room = self._spare.pop()
                if room.size == size:
                    return room
        except IndexError:
            return np.empty(size, np.uint8)

    def give_back(self, array: Pixels) -> None:
        """The frame that `read` gave with this array is not needed any more."""
        # Of the caller's arrays none is one-dimensional; two are as many as a sweep has at once.
        if array.ndim == 1 and len(self._spare) < 2:
            self._spare.append(array)


def pixels_of(image: Image, quarters: int) -> Pixels:
    """A copy of a B,G,R picture of the library's, turned by quarters, clockwise."""
    width, height = (image.width, image.height) if quarters % 2 == 0 else (image.height, image.width)
    try:
        pixels = np.empty((height, width, 3), np.uint8)
    except MemoryError as error:
        raise OutOfMemoryError(f"there is no memory for a picture of {width} x {height} px") from error
    to = pixels.__array_interface__["data"][0]
    library().tarnpy_pack(image.pixels, image.width, image.height, 3, image.row_stride, 3, 1, quarters, to)
    return pixels


def view_of_picture(picture: int | None) -> Image:
    """Where a picture's pixels lie; they stay with the picture."""
    image = Image(size=ctypes.sizeof(Image))
    check(library().tarn_picture_view(picture, image))
    return image


def jpeg_of(pixels: Pixels) -> bytes:
    """A B,G,R array of H x W x 3 as a JPEG, encoded as the library encodes its panoramas."""
    packed = np.ascontiguousarray(pixels)
    encoded = ctypes.c_void_p()
    height, width = packed.shape[:2]
    count = library().tarnpy_jpeg(packed.__array_interface__["data"][0], width, height, encoded)
    if count == 0:
        raise OutOfMemoryError(f"a picture of {width} x {height} px cannot be encoded as a JPEG")
    try:
        return ctypes.string_at(encoded, count)
    finally:
        library().tarnpy_free_bytes(encoded)
