# SPDX-License-Identifier: Apache-2.0
"""TarnStitch: panoramas from the frames of a moving camera.

    with tarnstitch.Sweep(direction="right") as sweep:
        for frame in camera:
            answer = sweep.feed(frame)
            print(answer.code.text, answer.advice)
        sweep.finish().save("panorama.jpg")

or, for frames that can wait, `tarnstitch.stitch(frames)`.

Frames are arrays of uint8, H x W x 3 in the order B,G,R unless told otherwise; pictures that come back are H x W x 3,
B,G,R. Coordinates: x is the column, y the row, y grows downward; (0, 0) is the centre of the top-left pixel.
"""

from ._errors import (
    BadArgumentError,
    DirectoryNotEmptyError,
    DirectoryUnusableError,
    DiskError,
    Error,
    FinishingError,
    ForkedError,
    FrameError,
    InCallbackError,
    LibraryError,
    NoPanoramaError,
    OutOfMemoryError,
    ProcessEndsError,
    SweepOverError,
    UnexpectedError,
)
from ._finishing import Crop, Finished, finish
from ._frames import Frame, Order, Pixels
from ._library import library as _library_loaded
from ._results import Answer, KeyFrame, Panorama, Preview, Status
from ._stitch import Failure, Stitched, stitch
from ._sweep import Sweep
from ._turns import Corners, Direction, Four, Motion, Turn
from ._words import Code, Extent, Pipeline, Reason

__version__ = "1.0.0"

__all__ = [
    "Answer",
    "BadArgumentError",
    "Code",
    "Corners",
    "Crop",
    "Direction",
    "DirectoryNotEmptyError",
    "DirectoryUnusableError",
    "DiskError",
    "Error",
    "Extent",
    "Failure",
    "Finished",
    "FinishingError",
    "ForkedError",
    "Four",
    "Frame",
    "FrameError",
    "InCallbackError",
    "KeyFrame",
    "LibraryError",
    "Motion",
    "NoPanoramaError",
    "Order",
    "OutOfMemoryError",
    "Panorama",
    "Pipeline",
    "Pixels",
    "Preview",
    "ProcessEndsError",
    "Reason",
    "Status",
    "Stitched",
    "Sweep",
    "SweepOverError",
    "Turn",
    "UnexpectedError",
    "finish",
    "library_version",
    "stitch",
]


def library_version() -> str:
    """The version of the native library, as "1.0.0"."""
    return str(_library_loaded().tarn_version().decode("utf-8"))
