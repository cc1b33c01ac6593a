#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A panorama of the pictures in a folder, in the order of their names. usage: stills.py FOLDER PANORAMA.jpg"""

from __future__ import annotations

import sys
from collections.abc import Iterator
from pathlib import Path

from PIL import Image, ImageOps

import tarnstitch


def pictures_of(folder: Path) -> Iterator[tarnstitch.Frame]:
    """The pictures, upright, one at a time."""
    for file in sorted(folder.iterdir()):
        if file.suffix.lower() in (".jpg", ".jpeg", ".png"):
            with Image.open(file) as picture:
                yield ImageOps.exif_transpose(picture).convert("RGB")


def main(folder: str, panorama: str) -> int:
    stitched = tarnstitch.stitch(pictures_of(Path(folder)))
    if stitched.failed is not None:
        print(f"not whole: {stitched.failed}", file=sys.stderr)
    if not stitched.panorama:
        return 1
    stitched.panorama.save(panorama)
    print(f"{len(stitched.answers)} pictures, {stitched.panorama}")
    return 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(str(__doc__))
    sys.exit(main(sys.argv[1], sys.argv[2]))
