#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --help, --version and mistakes on the command line.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Help and version go to standard output, and nothing else goes anywhere.
for option in --help -h; do
  "$program" $option >help 2>stderr || fail "$option"
  [[ ! -s stderr ]] || fail "$option on standard error"
  for text in "usage: tarnstitch" "-o, --output" --preview --turn --direction --workers --version "Examples:" \
    "Exit codes:"; do
    grep -qF -e "$text" help || fail "$option does not mention $text"
  done
done
"$program" --version >version 2>stderr || fail "--version"
[[ ! -s stderr ]] || fail "--version on standard error"
grep -qE '^tarnstitch [0-9]+\.[0-9]+\.[0-9]+$' version || fail "--version: $(cat version)"
grep -qE '^TarnStitch library [0-9]+\.[0-9]+\.[0-9]+$' version || fail "--version: $(cat version)"
grep -qE '^OpenCV 4\.[0-9.]+$' version || fail "--version: $(cat version)"

# Help counts even beside other mistakes.
"$program" --help --none >/dev/null 2>stderr || fail "--help --none"

# A full standard output is an error.
code=0
"$program" --help >/dev/full 2>stderr || code=$?
expect_equal "exit code with a full standard output" 4 $code

expect_error 2 "INPUT" # without an input
expect_error 2 "--none" "$samples/parking_pan.mp4" --none
expect_error 2 "--output" "$samples/parking_pan.mp4" -o
expect_error 2 "--output: it needs a name" "$samples/parking_pan.mp4" -o ""
expect_error 2 "--preview: it needs a name" "$samples/parking_pan.mp4" --preview ""
expect_error 2 "INPUT: it needs a name" ""
expect_error 2 "--direction: it is right, left, up, down or none, not sideways" \
  "$samples/parking_pan.mp4" --direction sideways
expect_error 2 "--direction" "$samples/parking_pan.mp4" --direction 1
expect_error 2 "--turn: it is auto, ccw, cw or none, not up" "$samples/parking_pan.mp4" --turn up
expect_error 2 "--start: soon is no time" "$samples/parking_pan.mp4" --start soon
expect_error 2 "--end: it must be later than --start" "$samples/parking_pan.mp4" --start 2 --end 1
expect_error 2 "--step" "$samples/parking_pan.mp4" --step 0
expect_error 2 "--fps" "$samples/parking_pan.mp4" --fps 0
expect_error 2 "--fps: it is 0.001 to 1000, not nan" "$samples/parking_pan.mp4" --fps nan
expect_error 2 "--quality" "$samples/parking_pan.mp4" --quality 101
expect_error 2 "--quality: it is for JPEG" "$samples/parking_pan.mp4" --quality 90 -o a.png
expect_error 2 "--workers" "$samples/parking_pan.mp4" --workers 0
expect_error 2 "--workers" "$samples/parking_pan.mp4" --workers 17
expect_error 2 "--workers" "$samples/parking_pan.mp4" --workers many
expect_error 2 "different names" "$samples/parking_pan.mp4" -o a.jpg --preview ./a.jpg
expect_error 2 "different names" "$samples/parking_pan.mp4" -o a.jpg --preview a-partial.jpg
expect_error 2 "different names" "$samples/parking_pan.mp4" -o a-partial.jpg --preview a.jpg
expect_error 2 "different names" "$samples/parking_pan.mp4" -o a.jpg --frames f.csv --log ./f.csv
expect_no_file a.jpg

# An output must not be where a working file of the same name goes.
mkdir kept
ln -s kept/big_frame2.jpg link.jpg
for name in kept/big_stitch.jpg ./kept/../kept/big_frame12.jpg; do
  expect_error 2 "is a working file's name" "$samples/parking_pan.mp4" -o "$name" --keep-work kept/
  expect_error 2 "is a working file's name" "$samples/parking_pan.mp4" --preview "$name" --keep-work kept
done
expect_error 2 "is a working file's name" "$samples/parking_pan.mp4" -o link.jpg --keep-work kept
expect_error 2 "is a working file's name" "$samples/parking_pan.mp4" -o new/big_stitch.jpg --keep-work new/
expect_equal "kept" "" "$(ls -A kept)"

# Images have no times.
"$media" flat 1.png 40 30
for option in --start --end --fps; do
  expect_error 2 "images have no times" 1.png $option 2
done
expect_error 2 "images have no times" 1.png --realtime

echo "passed"
