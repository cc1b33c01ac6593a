# SPDX-License-Identifier: Apache-2.0
"""The sweeps of the table of success, each with a name and its kind.

Filmed ones are read from samples/ and from the folders that are named on the command line, rendered ones are made of
photographs: the arcade comes with the repository, the others lie in those folders. A sweep whose material is missing is
left out.
"""

import dataclasses

from render import Recipe


@dataclasses.dataclass(frozen=True)
class Sweep:
    name: str
    kind: str
    source: str = ""  # a video, or a pattern of still pictures; "" for what is rendered
    recipe: Recipe | None = None
    in_ci: bool = False


FILMED = [
    Sweep("river_pan", "filmed, turning, moving water", "river_pan.mp4"),
    Sweep("parking_pan", "filmed, turning, people", "parking_pan.mp4"),
    Sweep("river_overview_long_sweep", "filmed, down, then left", "river_overview_long_sweep.mp4"),
    Sweep("parking_lot_scan", "filmed, right, left, right", "parking_lot_scan.mp4"),
    Sweep("airplane01", "filmed from an aeroplane, wandering", "airplane01.mjpeg"),
    Sweep("holiday_display_01", "filmed at night, walking past near things", "holiday_display_01.mp4"),
    Sweep("shake", "filmed, shaken, no sweep", "shake.mjpeg"),
    Sweep("kayak", "7 still pictures, turning", "kayak_*.jpg"),
    Sweep("hall_slide", "rendered, sliding", "hall_slide.mp4"),
    Sweep("canyon_pan", "rendered, turning", "canyon_pan.mp4"),
    Sweep("pages_slide", "rendered, sliding along pages, stops", "pages_slide.mp4"),
    Sweep("hall_down_portrait", "rendered, turning down, upright frames", "hall_down_portrait.mp4"),
    Sweep("aerial_left_fast", "rendered, sliding fast, blur", "aerial_left_fast.mp4"),
    Sweep("crowd_there_and_back", "rendered, sliding, there and back", "crowd_there_and_back.mp4"),
]


def rendered(name, kind, size, photo, in_ci=False, **more):
    return Sweep(name, f"rendered, {kind}", recipe=Recipe(photo, size, **more), in_ci=in_ci)


SMALL, MIDDLE, LARGE, FULL, HUGE = (320, 240), (640, 480), (1280, 720), (1920, 1080), (3840, 2160)

# The arcade is five times as wide as high: frames see little of it up and down.
ARCADE_TURN = {"photo": "arcade", "photo_view": 80.0, "view": 16.0, "yaw": (-14.0, 14.0), "frames": 60}
ARCADE_SLIDE = {"photo": "arcade", "motion": "slide", "span": 0.2, "way": (0.13, 0.5, 0.55, 0.5), "frames": 60}
HALL_TURN = {"photo": "loc_great_hall.jpg", "photo_view": 85.0, "view": 34.0, "yaw": (-24.0, 24.0)}
CANYON_TURN = {"photo": "grand_canyon.jpg", "photo_view": 70.0, "view": 28.0, "yaw": (-19.0, 19.0)}
ROCKS_TURN = {"photo": "stream_rocks.jpg", "photo_view": 75.0, "view": 30.0, "yaw": (-21.0, 21.0)}
BEACH_SLIDE = {"photo": "brighton_beach_DJI_0028.jpg", "motion": "slide", "span": 0.3, "way": (0.17, 0.3, 0.83, 0.7)}
CAMP_SLIDE = {"photo": "camp_greenleaf_1917.jpg", "motion": "slide", "span": 0.2, "frames": 60}
PAGES_SLIDE = {"photo": "motograph_pages.jpg", "motion": "slide", "span": 0.14, "way": (0.1, 0.5, 0.4, 0.5)}

RENDERED = [
    rendered("arcade_turn", "turning", SMALL, in_ci=True, **ARCADE_TURN),
    rendered("arcade_turn_left", "turning left", MIDDLE, **{**ARCADE_TURN, "yaw": (24.0, -24.0)}),
    rendered("arcade_turn_back", "turning, there and half of the way back", MIDDLE, pace="back", **ARCADE_TURN),
    rendered("arcade_turn_shake", "turning, strong shake", MIDDLE, shake=0.02, **ARCADE_TURN),
    rendered("arcade_turn_roll", "turning, held more and more aslant", MIDDLE, roll=(-4.0, 5.0), **ARCADE_TURN),
    rendered("arcade_turn_gain", "turning, exposure 0.6 to 1.3", MIDDLE, gain=(0.6, 1.3, 0.9), **ARCADE_TURN),
    rendered("arcade_turn_dim", "turning, low light", MIDDLE, gain=(0.2,), noise=6.0, blur=0.5, **ARCADE_TURN),
    rendered("arcade_turn_walker", "turning, somebody walks through", MIDDLE, walkers=1, **ARCADE_TURN),
    rendered("arcade_turn_fast", "turning fast, blur", MIDDLE, blur=0.8, **{**ARCADE_TURN, "frames": 20}),
    rendered("arcade_slide", "sliding", SMALL, in_ci=True, **ARCADE_SLIDE),
    rendered("arcade_slide_stops", "sliding, stops", MIDDLE, pace="stops", **ARCADE_SLIDE),
    rendered("arcade_slide_tilt", "sliding, not quite facing it", MIDDLE, lean=0.12, **ARCADE_SLIDE),
    rendered(
        "arcade_slide_dim", "sliding, low light, shake", SMALL, gain=(0.12,), noise=7.0, shake=0.01, **ARCADE_SLIDE
    ),
    rendered("arcade_slide_walkers", "sliding, three people walk through", SMALL, walkers=3, **ARCADE_SLIDE),
    rendered("arcade_slide_gain", "sliding, exposure 1 to 0.35", SMALL, gain=(1.0, 0.35), **ARCADE_SLIDE),
    rendered(
        "arcade_slide_jumps", "sliding, 12 frames a sweep", MIDDLE, **{**ARCADE_SLIDE, "frames": 12}
    ),
    rendered("hall_turn_large", "turning", LARGE, **HALL_TURN),
    rendered("hall_turn_full", "turning", FULL, frames=50, **HALL_TURN),
    rendered("hall_turn_huge", "turning", HUGE, frames=40, **HALL_TURN),
    rendered("hall_turn_up", "turning up", MIDDLE, pitch=(-24.0, 24.0), **{**HALL_TURN, "yaw": (0.0, 0.0)}),
    rendered(
        "hall_turn_wide", "turning, frames 60 degrees wide", MIDDLE, **{**HALL_TURN, "photo_view": 120.0, "view": 60.0}
    ),
    rendered("hall_turn_slanting", "turning, rising", MIDDLE, pitch=(-10.0, 12.0), **HALL_TURN),
    rendered("hall_turn_upright", "turning, upright frames", (480, 854), **{**HALL_TURN, "view": 24.0}),
    rendered("canyon_turn_large", "turning", LARGE, **CANYON_TURN),
    rendered("canyon_turn_dim", "turning, low light", MIDDLE, gain=(0.15,), noise=7.0, **CANYON_TURN),
    rendered("canyon_turn_shake", "turning, strong shake, blur", MIDDLE, shake=0.02, blur=0.6, **CANYON_TURN),
    rendered("rocks_turn", "turning", FULL, frames=50, **ROCKS_TURN),
    rendered("rocks_turn_walker", "turning, two people walk through", MIDDLE, walkers=2, **ROCKS_TURN),
    rendered("rocks_turn_small", "turning, exposure, blur", SMALL, gain=(0.8, 1.2), blur=0.6, **ROCKS_TURN),
    rendered("beach_slide", "sliding, from above", LARGE, **BEACH_SLIDE),
    rendered(
        "beach_slide_huge", "sliding, from above", HUGE, **{**BEACH_SLIDE, "span": 0.4, "way": (0.22, 0.5, 0.78, 0.5), "frames": 40}
    ),
    rendered("beach_slide_turning", "sliding, turning about its axis", MIDDLE, roll=(-12.0, 12.0), **BEACH_SLIDE),
    rendered("camp_slide", "sliding along a crowd", MIDDLE, way=(0.13, 0.5, 0.55, 0.5), **CAMP_SLIDE),
    rendered(
        "camp_slide_shake", "sliding along a crowd, shake", SMALL, way=(0.87, 0.5, 0.45, 0.5), shake=0.01, **CAMP_SLIDE
    ),
    rendered("pages_slide_tilt", "sliding along pages, not quite facing them", LARGE, lean=0.1, **PAGES_SLIDE),
    rendered("pages_slide_full", "sliding along pages", FULL, frames=60, **PAGES_SLIDE),
]

SWEEPS = FILMED + RENDERED
