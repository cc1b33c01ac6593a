# SPDX-License-Identifier: Apache-2.0
"""Between the caller's orientation and the library's.

The library takes frames as the sensor of a device held upright delivers them, lying on their side, and turns its
panorama by 90 degrees clockwise; the preview it leaves as the frames were. What it is given is turned for it, and what
it says or gives is turned back, so that callers only see the orientation of their own frames.
"""

from __future__ import annotations

from typing import Literal

import numpy as np
import numpy.typing as npt

from ._errors import BadArgumentError

Turn = Literal["ccw", "cw", "none"]
Direction = Literal["any", "right", "left", "up", "down"]
Motion = Literal["none", "right", "left", "up", "down"]
Corners = tuple[tuple[float, float], tuple[float, float], tuple[float, float], tuple[float, float]]
Four = tuple[float, float, float, float]

_QUARTERS: dict[str, int] = {"none": 0, "cw": 1, "ccw": 3}  # clockwise
_ROUND_THE_CLOCK: tuple[Motion, ...] = ("up", "right", "down", "left")
_CODES_ROUND_THE_CLOCK = (2, 3, 1, 4)  # of enum tarn_direction


def one_of(name: str, value: object, values: tuple[str, ...]) -> None:
    """Refuses a value that is none of the few that there are."""
    if value not in values:
        wanted = ", ".join(f'"{each}"' for each in values)
        raise BadArgumentError(f"{name} is {value!r}; it must be one of {wanted}")


def quarters_of(turn: Turn) -> int:
    """Quarter turns, clockwise, by which a frame is turned for the library."""
    one_of("turn", turn, ("ccw", "cw", "none"))
    return _QUARTERS[turn]


def quarters_back(quarters: int) -> int:
    """Quarter turns, clockwise, from the library's orientation back to the caller's."""
    return (4 - quarters) % 4


def hint_for(direction: Direction, quarters: int) -> int:
    """The library's number of a direction, in the frames that it gets."""
    one_of("direction", direction, ("any", "right", "left", "up", "down"))
    if direction == "any":
        return 0
    return _CODES_ROUND_THE_CLOCK[(_ROUND_THE_CLOCK.index(direction) + quarters) % 4]


def motion_of(code: int, quarters: int) -> Motion:
    """The same back."""
    if code not in _CODES_ROUND_THE_CLOCK:
        return "none"
    return _ROUND_THE_CLOCK[(_CODES_ROUND_THE_CLOCK.index(code) + quarters_back(quarters)) % 4]


def four_of(values: list[float], quarters: int) -> Four:
    """Values of a frame's corners, or of its sides, in the caller's order instead of the library's."""
    # Turned clockwise, what was at the top left is at the top right, the next in the order.
    back = quarters_back(quarters)
    first, second, third, fourth = (values[(index - back) % 4] for index in range(4))
    return (first, second, third, fourth)


def corners_of(values: list[float], quarters: int, width: int, height: int) -> Corners:
    """Corners in a picture of the library's, of `width` times `height` px, in that picture turned back."""
    points = [(values[2 * index], values[2 * index + 1]) for index in range(4)]
    back = quarters_back(quarters)
    for _ in range(back):
        points = [(height - 1 - y, x) for x, y in points]
        width, height = height, width
    first, second, third, fourth = (points[(index - back) % 4] for index in range(4))
    return (first, second, third, fourth)


def working_from_frame(
    size: tuple[int, int], quarters: int, working: tuple[int, int]
) -> npt.NDArray[np.float64]:
    """Maps a pixel of a caller's frame to one of the library's working copy of it, 3 x 3.

    Sizes are width and height in px: of the frame as the library has it, and of its working copy.
    """
    width, height = size if quarters % 2 == 0 else (size[1], size[0])  # of the caller's frame
    turned = np.eye(3)
    for _ in range(quarters):
        turned = np.array([[0.0, -1.0, height - 1.0], [1.0, 0.0, 0.0], [0.0, 0.0, 1.0]]) @ turned
        width, height = height, width
    across, down = working[0] / size[0], working[1] / size[1]
    scaled = np.array([[across, 0.0, (across - 1) / 2], [0.0, down, (down - 1) / 2], [0.0, 0.0, 1.0]])
    matrix: npt.NDArray[np.float64] = scaled @ turned
    return matrix
