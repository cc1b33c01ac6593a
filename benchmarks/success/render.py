# SPDX-License-Identifier: Apache-2.0
"""Renders a sweep of a camera from one photograph: the same frames each time, and where each of them lies.

The photograph is taken for a plane. A camera that turns sees it through the rotations of a pinhole camera, one that
slides goes along it. What a hand, a shutter, a sensor and the world add is put on top: shake, blur, changes of gain,
noise in low light, somebody who walks through.
"""

import dataclasses
import pathlib
import subprocess

import cv2
import numpy as np

FRAMES_PER_SECOND = 30
EXPOSURES = 3  # of which a blurred frame is the mean


@dataclasses.dataclass(frozen=True)
class Recipe:
    """What a rendered sweep is made of. Angles are degrees, parts are of the photograph, lengths of a frame's width."""

    photo: str
    size: tuple[int, int]
    frames: int = 60
    motion: str = "turn"  # or "slide"
    pace: str = "even"  # or "stops", "back": there, and half of the way back
    # A camera that turns.
    photo_view: float = 80.0  # how wide the photograph is seen
    view: float = 30.0  # how wide a frame is
    yaw: tuple[float, float] = (-20.0, 20.0)
    pitch: tuple[float, float] = (0.0, 0.0)
    roll: tuple[float, float] = (0.0, 0.0)
    # A camera that slides: the way of the frame's centre, and how much of the photograph's width a frame shows.
    way: tuple[float, float, float, float] = (0.15, 0.5, 0.85, 0.5)
    span: float = 0.25
    lean: float = 0.0  # how much nearer the right edge of the frame is than the left one
    # What is put on top.
    shake: float = 0.003  # of a frame's width, root mean square
    blur: float = 0.2  # part of the time between two frames in which the shutter is open
    gain: tuple[float, ...] = (1.0,)  # evenly over the sweep, straight in between
    noise: float = 1.5  # gray levels
    walkers: int = 0
    seed: int = 1


def hand(count, rng, share):
    """A hand's shake at each moment: slow waves and faster, weaker ones; root mean square `share`."""
    moments = np.arange(count) / (FRAMES_PER_SECOND * EXPOSURES)
    wave = np.zeros(count)
    for hertz, weight in ((0.7, 1.0), (1.9, 0.8), (4.3, 0.5), (8.1, 0.25)):
        wave += weight * np.sin(2 * np.pi * (hertz * moments + rng.random()))
    return wave / np.sqrt(np.mean(wave**2)) * share


def progress(pace, part):
    """How much of the way is behind at a part of the time."""
    if pace == "stops":
        return float(np.interp(part, (0, 0.35, 0.55, 0.9, 1), (0, 0.5, 0.5, 1, 1)))
    if pace == "back":
        return float(np.interp(part, (0, 0.65, 1), (0, 1, 0.5)))
    return part + 0.05 * np.sin(4 * np.pi * part)  # nobody is quite even


def shift(x, y):
    return np.array([[1, 0, x], [0, 1, y], [0, 0, 1.0]])


def turned(recipe, photo_size, part, shake):
    """From a frame's pixels to the photograph's, of a camera that turns."""
    width, height = recipe.size
    photo_focal = photo_size[0] / 2 / np.tan(np.radians(recipe.photo_view / 2))
    focal = width / 2 / np.tan(np.radians(recipe.view / 2))
    between = lambda ends: np.radians(ends[0] + (ends[1] - ends[0]) * part)
    yaw = between(recipe.yaw) + shake[0] * np.radians(recipe.view)
    pitch = between(recipe.pitch) + shake[1] * np.radians(recipe.view)
    roll = between(recipe.roll) + shake[2]
    about_y = cv2.Rodrigues(np.array([0, yaw, 0]))[0]
    about_x = cv2.Rodrigues(np.array([-pitch, 0, 0]))[0]
    about_z = cv2.Rodrigues(np.array([0, 0, roll]))[0]
    ray_from_pixel = np.diag([1 / focal, 1 / focal, 1]) @ shift(-width / 2, -height / 2)
    photo_from_ray = shift(photo_size[0] / 2, photo_size[1] / 2) @ np.diag([photo_focal, photo_focal, 1])
    return photo_from_ray @ about_y @ about_x @ about_z @ ray_from_pixel


def slid(recipe, photo_size, part, shake):
    """From a frame's pixels to the photograph's, of a camera that goes along it."""
    width, height = recipe.size
    from_x, from_y, to_x, to_y = recipe.way
    seen = recipe.span * photo_size[0]  # pixels of the photograph in a frame's width
    x = (from_x + (to_x - from_x) * part) * photo_size[0] + shake[0] * seen
    y = (from_y + (to_y - from_y) * part) * photo_size[1] + shake[1] * seen
    leaning = np.array([[1, 0, 0], [0, 1, 0], [recipe.lean / width, 0, 1.0]])
    roll = shake[2] + np.radians(recipe.roll[0] + (recipe.roll[1] - recipe.roll[0]) * part)
    about_z = cv2.Rodrigues(np.array([0, 0, roll]))[0]
    scale = seen / width
    return shift(x, y) @ np.diag([scale, scale, 1]) @ about_z @ leaning @ shift(-width / 2, -height / 2)


def walk(frame, part, which, rng_seed):
    """Draws somebody who walks through the picture, in a checked shirt."""
    height, width = frame.shape[:2]
    rng = np.random.default_rng(rng_seed + which)
    tall = height * (0.55 + 0.1 * which)
    speed = (1.6, -1.3, 1.0)[which % 3]
    x = (0.5 + speed * (part - 0.35 - 0.3 * which)) * width
    foot = height * 0.98
    head = foot - tall
    step = np.sin(part * 60) * tall * 0.12
    skin, dark = (120, 160, 205), (45, 40, 38)
    for side in (-1, 1):
        hip, toe = (int(x), int(foot - tall * 0.45)), (int(x + side * step), int(foot))
        cv2.line(frame, hip, toe, dark, max(2, int(tall * 0.08)))
    left, right = int(x - tall * 0.13), int(x + tall * 0.13)
    top, bottom = int(head + tall * 0.16), int(foot - tall * 0.42)
    checks = rng.integers(30, 230, (8, 4, 3), dtype=np.uint8)
    shirt = cv2.resize(checks, (max(1, right - left), max(1, bottom - top)), interpolation=cv2.INTER_NEAREST)
    from_x, to_x = max(0, left), min(width, right)
    if from_x < to_x:
        frame[top:bottom, from_x:to_x] = shirt[:, from_x - left : to_x - left]
    cv2.circle(frame, (int(x), int(head + tall * 0.08)), max(2, int(tall * 0.08)), skin, -1)


def frames_of(recipe, photo):
    """Yields each frame and its homography, from the frame's pixels to the photograph's."""
    rng = np.random.default_rng(recipe.seed)
    size = (photo.shape[1], photo.shape[0])
    count = recipe.frames * EXPOSURES
    shakes = np.stack([hand(count, rng, recipe.shake * weight) for weight in (1.0, 1.0, 0.7)], 1)
    place = turned if recipe.motion == "turn" else slid
    homography = lambda moment: place(
        recipe,
        size,
        progress(recipe.pace, min(1.0, moment / (recipe.frames - 1))),
        shakes[min(count - 1, int(moment * EXPOSURES))],
    )
    # The photograph is made smaller first: where a frame has fewer pixels, sampling it would alias.
    middle = homography((recipe.frames - 1) / 2)
    x, y = recipe.size[0] / 2, recipe.size[1] / 2
    ends = cv2.perspectiveTransform(np.array([[[x - 8, y], [x + 8, y]]]), middle)[0]
    scale = min(1.0, 1.2 * 16.0 / np.linalg.norm(ends[1] - ends[0]))
    small = cv2.resize(photo, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA)
    small_from_photo = np.diag([small.shape[1] / size[0], small.shape[0] / size[1], 1])
    exposures = EXPOSURES if recipe.blur > 0 else 1
    gains = np.interp(np.linspace(0, 1, recipe.frames), np.linspace(0, 1, len(recipe.gain)), recipe.gain)
    for number in range(recipe.frames):
        light = np.zeros((recipe.size[1], recipe.size[0], 3), np.float32)
        for exposure in range(exposures):
            moment = number + (recipe.blur * exposure / (exposures - 1) if exposures > 1 else 0)
            seen = cv2.warpPerspective(
                small,
                small_from_photo @ homography(moment),
                recipe.size,
                flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                borderMode=cv2.BORDER_REFLECT_101,
            )
            for which in range(recipe.walkers):
                walk(seen, (number + recipe.blur * exposure / EXPOSURES) / recipe.frames, which, recipe.seed)
            light += seen
        light *= gains[number] / exposures
        if recipe.noise > 0:
            grain = rng.standard_normal(light.shape[:2], np.float32)
            light += recipe.noise * (grain[:, :, None] + 0.4 * rng.standard_normal(light.shape, np.float32))
        truth = homography(number + recipe.blur / 2)
        yield np.clip(light + 0.5, 0, 255).astype(np.uint8), truth / truth[2, 2]


def beyond(recipe, photo_size, homographies):
    """How many frames look past the photograph's edge."""
    width, height = recipe.size
    corners = np.array([[[0, 0], [width, 0], [width, height], [0, height]]], float)
    count = 0
    for homography in homographies:
        seen = cv2.perspectiveTransform(corners, homography)[0]
        slack = 0.02 * photo_size[0]
        count += bool((seen < -slack).any() or (seen > np.array(photo_size) + slack).any())
    return count


def render(recipe, photo, path: pathlib.Path):
    """Writes the sweep as an H.264 video; gives its homographies, frame's pixels to photograph's."""
    width, height = recipe.size
    encoder = subprocess.Popen(
        ["ffmpeg", "-v", "error", "-y", "-f", "rawvideo", "-pix_fmt", "bgr24", "-s", f"{width}x{height}"]
        + ["-r", str(FRAMES_PER_SECOND), "-i", "-", "-c:v", "libx264", "-threads", "1", "-preset", "fast", "-crf", "20"]
        + ["-pix_fmt", "yuv420p", str(path)],
        stdin=subprocess.PIPE,
    )
    truth = []
    for frame, homography in frames_of(recipe, photo):
        encoder.stdin.write(frame.tobytes())
        truth.append(homography)
    encoder.stdin.close()
    if encoder.wait() != 0:
        raise RuntimeError(f"ffmpeg cannot write {path}")
    return truth


def read_truth(path):
    """From a rendered video's ground truth, by frame: from its pixels to those of the photograph, and its gain."""
    rows = [[float(value) for value in line.split(",")] for line in path.read_text().splitlines()[1:]]
    return [np.array(row[1:10]).reshape(3, 3) for row in rows], [row[10] for row in rows]


def arcade(samples: pathlib.Path):
    """The one photograph that comes with the repository: the arcade that hall_slide.mp4 goes along, put together by its
    ground truth."""
    truth, gains = read_truth(samples / "hall_slide.gt.csv")
    video = cv2.VideoCapture(str(samples / "hall_slide.mp4"))
    frames = []
    while True:
        read, frame = video.read()
        if not read:
            break
        frames.append(frame)
    height, width = frames[0].shape[:2]
    corners = np.array([[[0, 0], [width, 0], [width, height], [0, height]]], float)
    seen = np.concatenate([cv2.perspectiveTransform(corners, one)[0] for one in truth])
    # One pixel of a frame for one of the picture; rows that every frame has.
    first = cv2.perspectiveTransform(corners, truth[0])[0]
    scale = width / np.linalg.norm(first[1] - first[0])
    low = max(cv2.perspectiveTransform(corners, one)[0][:2, 1].max() for one in truth)
    high = min(cv2.perspectiveTransform(corners, one)[0][2:, 1].min() for one in truth)
    picture_from_photo = np.diag([scale, scale, 1]) @ shift(-seen[:, 0].min(), -low)
    size = (int((seen[:, 0].max() - seen[:, 0].min()) * scale), int((high - low) * scale))
    picture = np.zeros((size[1], size[0], 3), np.uint8)
    for number in range(0, len(frames), 10):
        homography = picture_from_photo @ truth[number]
        even = np.clip(frames[number] / gains[number], 0, 255).astype(np.uint8)
        mask = np.zeros((height, width), np.uint8)
        mask[2:-2, 2:-2] = 255
        own = cv2.warpPerspective(even, homography, size, flags=cv2.INTER_CUBIC)
        where = cv2.warpPerspective(mask, homography, size, flags=cv2.INTER_NEAREST) == 255
        picture[where] = own[where]
    return picture
