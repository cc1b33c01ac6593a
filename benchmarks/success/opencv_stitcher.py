# SPDX-License-Identifier: Apache-2.0
"""OpenCV's stitcher on some pictures, with all its defaults: opencv_stitcher.py PANORAMA|SCANS RESULT PICTURE...

Prints the processor time of the stitching alone, in seconds."""

import sys
import time

import cv2

cv2.setNumThreads(1)  # the same answer each time
mode, result, *names = sys.argv[1:]
stitcher = cv2.Stitcher_create(cv2.Stitcher_PANORAMA if mode == "PANORAMA" else cv2.Stitcher_SCANS)
pictures = [cv2.imread(name) for name in names]
begun = time.process_time()
status, picture = stitcher.stitch(pictures)
print(f"{time.process_time() - begun:.3f}", flush=True)
if status != cv2.Stitcher_OK:
    sys.exit(f"no picture: status {status}")
cv2.imwrite(result, picture)
