# SPDX-License-Identifier: Apache-2.0
"""A whole sweep in one call."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterable
from dataclasses import dataclass, field

from ._errors import BadArgumentError
from ._frames import Frame, Order
from ._results import Answer, KeyFrame, Panorama, Preview
from ._sweep import Sweep
from ._turns import Direction, Turn
from ._words import Code, Extent, Reason


@dataclass(frozen=True)
class Failure:
    """What kept the panorama from being whole."""

    why: Reason
    """in the library's words"""
    frame: int | None
    """number of the frame, from 0, that could not be joined, or at which the sweep came apart; None if it is unknown"""
    key_frame: int
    """its number among the key frames, from 1; 0 if it is none"""

    def __str__(self) -> str:
        where = "" if self.frame is None else f" at frame {self.frame}"
        advice = f" ({self.why.advice})" if self.why.advice else ""
        return f"{self.why.text}{where}{advice}"


@dataclass(frozen=True, eq=False)
class Stitched:
    """What became of a sweep."""

    panorama: Panorama
    """the picture, as far as there is one"""
    preview: Preview | None
    """the preview at the end; None if no frame was taken before the last one"""
    answers: list[Answer] = field(repr=False)
    """one for each frame that was handed over, in order"""
    failed: Failure | None
    """what kept the panorama from being whole; None if nothing did"""

    def _repr_jpeg_(self) -> bytes | None:
        return self.panorama._repr_jpeg_()


def stitch(
    frames: Iterable[Frame],
    *,
    direction: Direction = "any",
    order: Order = "bgr",
    turn: Turn = "ccw",
    most_under_way: int | None = None,
    on_answer: Callable[[Answer, Sweep], object] | None = None,
    on_key_frame: Callable[[KeyFrame], object] | None = None,
) -> Stitched:
    """Stitches the frames of a file, a list or a generator.

    The last frame is composed wherever it lies, the others as they fit. When the panorama has failed for good, no more
    frames are asked for. Ctrl-C ends the sweep.

    Args:
        frames: arrays of H x W x 3, H x W x 4 or H x W, uint8, or PIL images, as `Sweep.feed` takes them. An array may
            be used again for the frame after it.
        direction: where the camera moves, as one sees it who watches the frames.
        order: of the channels of frames that are arrays.
        turn: how frames are turned before the library gets them: "ccw" for upright ones.
        most_under_way: key frames that may be under way at once, 1 or more; None: 2, or more on many processors.
        on_answer: is told of each answer, with the sweep, whose preview it may ask for. False (not None) makes that
            frame the last one that is taken.
        on_key_frame: is given each key frame.

    Returns:
        The panorama, the answers, and what failed. A panorama that is partial or missing is no exception.
    """
    if most_under_way is None:
        most_under_way = max(2, (os.cpu_count() or 2) // 2)
    elif most_under_way < 1:
        raise BadArgumentError(f"most_under_way is {most_under_way}; it must be 1 or more: these frames can wait")
    answers: list[Answer] = []
    frame_of_key_frame: dict[int, int] = {}

    def note(answer: Answer) -> None:
        if answer.key_frame > 0:
            frame_of_key_frame[answer.key_frame] = len(answers)
        answers.append(answer)

    with Sweep(
        direction=direction, order=order, turn=turn, most_under_way=most_under_way, on_key_frame=on_key_frame
    ) as sweep:
        goes_on = True
        reader = sweep._reader
        held = None  # the frame before, which may be the last one
        for frame in frames:
            # The caller may use its array again before it is known whether this frame is the last one.
            image = reader.read(frame, copy=True)
            if held is not None:
                answer = sweep._feed(held, sweep._hint)
                held = None
                note(answer)
                goes_on = answer.code is not Code.PIPELINE_FAILED
                if on_answer is not None and on_answer(answer, sweep) is False:
                    goes_on = False
                if not goes_on:
                    break
            held = image
        panorama = sweep._finish(held, None)
        if panorama.last_answer is not None:
            note(panorama.last_answer)
            if on_answer is not None:
                on_answer(panorama.last_answer, sweep)
        preview = sweep.preview
        status = sweep.status
    failed = None
    if panorama.extent is not Extent.WHOLE:
        key_frame = panorama.first_failed_key_frame
        at = frame_of_key_frame.get(key_frame)
        if at is None and answers and answers[-1].code is Code.PIPELINE_FAILED:
            at = len(answers) - 1
        why = status.why if status.why is not Reason.NONE else panorama.why
        failed = Failure(why, at, key_frame)
    return Stitched(panorama, preview, answers, failed)
