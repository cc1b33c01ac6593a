#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A panorama by webcam: move it slowly to one side, press any key to end. usage: webcam.py [CAMERA OR VIDEO]"""

import sys

import cv2

import tarnstitch

source = sys.argv[1] if len(sys.argv) > 1 else "0"
camera = cv2.VideoCapture(int(source) if source.isdigit() else source)
with tarnstitch.Sweep() as sweep:
    while camera.isOpened() and cv2.waitKey(1) < 0:
        there_is_one, frame = camera.read()
        if not there_is_one:
            break
        answer = sweep.feed(frame)
        preview = sweep.preview
        if preview is not None:
            cv2.imshow("TarnStitch", preview.pixels)
        if answer.advice:
            print(answer.code.text, "-", answer.advice)
    sweep.finish().save("panorama.jpg")
