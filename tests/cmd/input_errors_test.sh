#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Inputs that cannot be stitched: one clear line, exit code 3, no output.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

expect_error 3 "there is no file or directory none.mp4" none.mp4
expect_error 3 "there is no file or directory no such dir/none.mp4" "no such dir/none.mp4"
expect_error 3 "there is no file or directory http://localhost/a.mp4" http://localhost/a.mp4

: >empty.mp4
expect_error 3 "empty.mp4 is empty" empty.mp4

echo "This is no video." >text.mp4
expect_error 3 "text.mp4 is neither a video nor an image" text.mp4
expect_error 3 "/dev/null is no camera" /dev/null
# The libraries that look for cameras keep what they find: nothing for a leak checker.
ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0 expect_error 3 "there is no camera:99" camera:99

"$media" noise noise.mp4 300000
expect_error 3 "noise.mp4" noise.mp4

# Cut off within its index, nothing of it can be read.
head -c 1000 "$samples/parking_pan.mp4" >truncated.mp4
expect_error 3 "truncated.mp4" truncated.mp4

echo "This is no image." >text.jpg
expect_error 3 "no frame can be read from text.jpg" text.jpg

# Decoders have words of their own for these, which would be a second line.
"$media" flat flat.png 400 300
head -c 200 flat.png >truncated.png
expect_error 3 "no frame can be read from truncated.png" truncated.png
"$media" slide slide%d.jpg 1 400 300 0 1
head -c 9000 slide1.jpg >truncated.jpg
expect_error 3 "no frame can be read from truncated.jpg" truncated.jpg

mkdir "nothing in it"
expect_error 3 "there are no images in nothing in it" "nothing in it"
echo text >"nothing in it/notes.txt"
expect_error 3 "there are no images in nothing in it" "nothing in it"
expect_error 3 "there are no files nothing in it/frame%04d.png" "nothing in it/frame%04d.png"
expect_error 3 "there is no file or directory nothing in it/frame%s.png" "nothing in it/frame%s.png"
expect_error 3 "nowhere" "nowhere/frame%04d.png"

# A name over two lines is still reported on one.
expect_error 3 "two?lines" $'two\nlines'

mkdir broken
echo "no image" >broken/1.png
echo "no image" >broken/2.png
run 3 broken
expect_said "cannot read broken/1.png; it is left out"
expect_said "no frame can be read from broken"

if [[ $(id -u) -ne 0 ]]; then
  mkdir closed
  chmod 000 closed
  code=0
  "$program" closed 2>stderr || code=$?
  chmod 700 closed
  expect_equal "exit code with a closed directory" 3 $code
  expect_said "cannot read the directory closed: Permission denied"
  cp "$samples/parking_pan.mp4" closed.mp4
  chmod 000 closed.mp4
  expect_error 3 "closed.mp4" closed.mp4
fi

expect_equal "panoramas" "" "$(find . -name '*panorama*')"
echo "passed"
