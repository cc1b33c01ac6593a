# SPDX-License-Identifier: Apache-2.0
"""The words of an answer: codes, directions, states and reasons, with the library's names and advice for them."""

from __future__ import annotations

from enum import IntEnum

from ._library import text_of


class Code(IntEnum):
    """What a frame is answered."""

    PIPELINE_FAILED = -1
    """the high-resolution pipeline has failed; the frame was dropped"""
    LOST = 0
    """ten frames in a row were rejected, or another call is still inside"""
    NORMAL = 1
    """taken; or rejected, but not for long yet"""
    FEW_DETAILS = 2
    """taken with 20 to 49 inliers"""
    VERY_FEW_DETAILS = 3
    """taken with fewer than 20 inliers"""
    WRONG_WAY = 4
    """rejected: motion against the direction asked for"""
    TOO_FAST = 5
    """taken; mean motion above 10 px of a frame 300 px wide"""
    SKEWED = 6
    """taken, but skewed"""

    @property
    def text(self) -> str:
        """The library's name, in lower case, as "few details"."""
        return text_of("tarn_code_name", self.value)

    @property
    def advice(self) -> str:
        """What to tell the user, as "hold the device level"; "" where there is nothing to do."""
        return text_of("tarn_code_advice", self.value)


class Reason(IntEnum):
    """Why a frame was not taken, a key frame could not be joined, or a panorama is not whole."""

    NONE = 0
    """there is nothing to explain"""
    BUSY = 1
    """another call was inside"""
    PIPELINE_FAILED = 2
    """the panorama had failed before"""
    TOO_FEW_CORNERS = 3
    """the frame shows too few corners"""
    TOO_FEW_TRACKED = 4
    """too few of the corners of the frame before were found again"""
    IMPLAUSIBLE_SHAPE = 5
    """the frame, mapped, is no plausible view"""
    TOO_FEW_INLIERS = 6
    """too small a share of the points agrees on one motion"""
    AGAINST_THE_HINT = 7
    """the camera goes the other way"""
    NOT_CONVEX = 8
    """the frame, mapped into the preview, is no convex quadrilateral"""
    OUT_OF_SCALE = 9
    """a side of it is shorter than 2 px or longer than 4000 px"""
    UNUSABLE_FRAME = 10
    """an error of OpenCV: Answer.detail"""
    TOO_FEW_MATCHES = 11
    """a key frame has fewer than 20 matches with the one before"""
    NO_HOMOGRAPHY = 12
    """its matches agree on no motion"""
    SHAPE_REFUSED = 13
    """mapped into the panorama, it is no convex quadrilateral"""
    TOO_LARGE = 14
    """the panorama would exceed 10000 px"""
    TIMED_OUT = 15
    """a turn did not come in time"""
    NO_MEMORY = 16
    """memory was short"""
    NO_THREAD = 17
    """no thread could be started"""
    DISK = 18
    """a file or directory could not be written"""
    CANCELLED = 19
    """the sweep was cancelled, or a callback ended the wait"""
    PROCESS_ENDS = 20
    """the process is ending"""
    NO_FRAMES = 21
    """nothing was handed over that a panorama could be made of"""

    @property
    def text(self) -> str:
        """A short clause, as "too few matches"."""
        return text_of("tarn_reason_name", self.value)

    @property
    def advice(self) -> str:
        """What would help against it, as "more texture, more light"; "" where nothing does."""
        return text_of("tarn_reason_advice", self.value)


class Pipeline(IntEnum):
    """What the high-resolution pipeline is at."""

    EMPTY = 0
    """no panorama yet"""
    BUSY = 2
    """a worker holds its turn"""
    READY = 3
    """the last turn ended well"""
    FAILED = 4
    """the last turn failed, or a frame or a wait for its turn did"""

    @property
    def text(self) -> str:
        """The library's name, as "busy"."""
        return text_of("tarn_pipeline_name", self.value)


class Extent(IntEnum):
    """How much of the sweep a panorama holds."""

    MISSING = 0
    """there is none"""
    PARTIAL = 1
    """it ends where a key frame could not be joined, or the wait was ended"""
    WHOLE = 2
    """it reaches to the end of the sweep"""
