# SPDX-License-Identifier: Apache-2.0
"""Judges a panorama by its picture alone, whoever made it.

Some frames of the sweep, evenly over all of it, are looked for in the picture. A frame is shown where its features are
found in one place, and at least half of its area lies in the picture and is not empty. A picture is

    whole    where every one of these frames is shown, none of them much larger or more stretched than another, and two
             that overlap lie to each other as they do in the sweep
    askew    where every one is shown, but not so
    N of M   where N of M frames are shown
    none     where there is no picture, or no frame is found in it
"""

import dataclasses

import cv2
import numpy as np

LOOKED_FOR = 9  # frames of a sweep
LEAST_SHOWN = 0.5  # of a frame's area
FEWEST = 15  # features of a frame that agree
WIDEST_FRAME = 640
LONGEST_SIDE = 4000
TOLERANCE = 0.02  # of a frame's width: a cylinder is no plane
LARGEST_RATIO = 2.0  # of two frames' sizes
LARGEST_STRETCH = 2.0  # of a frame, one way against the other
LARGEST_STEP = 0.12  # of a frame's width, between where two pictures have a neighbour


@dataclasses.dataclass
class Verdict:
    word: str
    shown: int = 0
    of: int = 0
    size_ratio: float = 0.0
    stretch: float = 0.0
    step: float = 0.0


def smaller(picture, longest):
    scale = min(1.0, longest / max(picture.shape[:2]))
    return cv2.resize(picture, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA) if scale < 1 else picture


def described(picture, most):
    gray = cv2.cvtColor(picture, cv2.COLOR_BGR2GRAY)
    gray = cv2.createCLAHE(2.0, (8, 8)).apply(gray)  # the dark is looked at, too
    points, descriptors = cv2.SIFT_create(most, contrastThreshold=0.02).detectAndCompute(gray, None)
    places = np.array([point.pt for point in points], np.float32).reshape(-1, 2)
    return places, descriptors


def homography_between(one, other, tolerance):
    """From the other's pixels to the one's, whose pixels the tolerance is in; None where they share too little."""
    if one[1] is None or other[1] is None or len(one[1]) < FEWEST or len(other[1]) < FEWEST:
        return None
    pairs = [
        (first.queryIdx, first.trainIdx)
        for first, second in cv2.BFMatcher(cv2.NORM_L2).knnMatch(one[1], other[1], 2)
        if first.distance < 0.8 * second.distance
    ]
    if len(pairs) < FEWEST:
        return None
    here = one[0][[pair[0] for pair in pairs]]
    there = other[0][[pair[1] for pair in pairs]]
    homography, inliers = cv2.findHomography(there, here, cv2.RANSAC, tolerance, maxIters=5000)
    # Points that agree by chance lie close together, or are many times the same one.
    if homography is None or len(np.unique(there[inliers.ravel() == 1].round(), axis=0)) < FEWEST:
        return None
    return homography


def mapped(homography, points):
    return cv2.perspectiveTransform(np.array([points], float), homography)[0]


def sizes(homography, width, height):
    """How large the middle of a frame is in the picture, and how much longer one way than the other."""
    x, y, reach = width / 2, height / 2, width / 16
    right = mapped(homography, [(x + reach, y), (x - reach, y)])
    down = mapped(homography, [(x, y + reach), (x, y - reach)])
    jacobian = np.stack([right[0] - right[1], down[0] - down[1]], 1) / (2 * reach)
    if np.linalg.det(jacobian) <= 0:
        return None  # mirrored
    large, small = np.linalg.svd(jacobian, compute_uv=False)
    return np.sqrt(large * small), large / small


class Judge:
    """Knows a sweep's frames; told a picture, it gives a verdict."""

    def __init__(self, frames, truth=None):
        """frames  some of a sweep, in its order; truth  of these, from a frame's pixels to the scene's, or None"""
        self.width = min(WIDEST_FRAME, frames[0].shape[1])
        scale = self.width / frames[0].shape[1]
        self.frames = [cv2.resize(frame, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA) for frame in frames]
        self.height = self.frames[0].shape[0]
        self.described = [described(frame, 1000) for frame in self.frames]
        tolerance = TOLERANCE * self.width
        self.steps = []  # from a frame's pixels to those of the one before
        for index in range(1, len(frames)):
            if truth is not None:
                full = np.linalg.inv(truth[index - 1]) @ truth[index]
                zoom = np.diag([scale, scale, 1])
                self.steps.append(zoom @ full @ np.linalg.inv(zoom))
            else:
                self.steps.append(homography_between(self.described[index - 1], self.described[index], tolerance))

    def look(self, picture):
        if picture is None:
            return Verdict("none", of=len(self.frames))
        picture = smaller(picture, LONGEST_SIDE)
        not_empty = (picture.max(axis=2) > 0).astype(np.uint8)
        filled = cv2.morphologyEx(not_empty, cv2.MORPH_CLOSE, np.ones((9, 9), np.uint8))
        in_picture = described(picture, 12000)
        return self.verdict([self.place_of(frame, in_picture, filled) for frame in self.described])

    def place_of(self, frame, in_picture, filled):
        """From the frame's pixels to the picture's; None where it is not shown."""
        frame_from_picture = homography_between(frame, in_picture, TOLERANCE * self.width)
        if frame_from_picture is None or abs(np.linalg.det(frame_from_picture)) < 1e-12:
            return None
        place = np.linalg.inv(frame_from_picture)
        seen = cv2.warpPerspective(filled, frame_from_picture, (self.width, self.height), flags=cv2.INTER_NEAREST)
        if sizes(place, self.width, self.height) is None or seen.mean() < LEAST_SHOWN:
            return None
        return place

    def verdict(self, places):
        shown = sum(place is not None for place in places)
        result = Verdict("none", shown, len(places))
        if shown == 0:
            return result
        figures = [sizes(place, self.width, self.height) for place in places if place is not None]
        result.size_ratio = float(max(figure[0] for figure in figures) / min(figure[0] for figure in figures))
        result.stretch = float(max(figure[1] for figure in figures))
        centre = (self.width / 2, self.height / 2)
        for before, after, step in zip(places, places[1:], self.steps):
            if before is None or after is None or step is None:
                continue
            expected = mapped(step, [centre])[0]
            if np.abs(expected - centre).max() < 0.5 * self.width:  # both see it
                found = mapped(np.linalg.inv(before) @ after, [centre])[0]
                result.step = max(result.step, float(np.linalg.norm(found - expected) / self.width))
        if shown < len(places):
            result.word = f"{shown} of {len(places)}"
        elif result.size_ratio > LARGEST_RATIO or result.stretch > LARGEST_STRETCH or result.step > LARGEST_STEP:
            result.word = "askew"
        else:
            result.word = "whole"
        return result
