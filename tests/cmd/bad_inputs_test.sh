#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Damaged videos and inputs that may not be read: what can be saved is, and what is missing is counted and said.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

"$media" slide f%d.png 12 480 360 24 1
"$media" video whole.avi f%d.png 12 10

run 0 whole.avi
expect_said "12 frames, 12 taken"
expect_equal "lines" 1 "$(wc -l <stderr)"

# Frames in the middle that cannot be decoded are left out, and the others keep their numbers.
"$media" spoil whole.avi one.avi 5
run 0 one.avi --frames one.csv
expect_said "1 frame of one.avi cannot be decoded and is left out"
expect_said "11 frames, 11 taken, 1 unreadable"
expect_equal "frames" "1 2 3 4 6 7 8 9 10 11 12" "$(tail -n +2 one.csv | cut -d, -f1 | xargs)"
"$media" spoil one.avi two.avi 6
run 0 two.avi
expect_said "2 frames of two.avi cannot be decoded and are left out"
expect_said "10 frames, 10 taken, 2 unreadable"

# At a frame without data nothing changes: that is no damage, nor is it when the video ends so. Damage is told from it.
"$media" repeat whole.avi repeat.avi 5
run 0 repeat.avi --frames repeat.csv
expect_equal "lines" 1 "$(wc -l <stderr)"
expect_said "11 frames, 11 taken ("
expect_equal "frames" "1 2 3 4 6 7 8 9 10 11 12" "$(tail -n +2 repeat.csv | cut -d, -f1 | xargs)"
expect_equal "time of frame 6" 0.5 "$(sed -n 6p repeat.csv | cut -d, -f2 | sed 's/0*$//')"
"$media" spoil repeat.avi both.avi 6
run 0 both.avi
expect_said "1 frame of both.avi cannot be decoded and is left out"
expect_said "10 frames, 10 taken, 1 unreadable"
for frame in 10 11 12; do
  "$media" repeat repeat.avi repeat.avi $frame
done
run 0 repeat.avi
expect_equal "lines" 1 "$(wc -l <stderr)"
expect_said "8 frames, 8 taken ("

# Where the rate varies a longer wait is no damage; and damage is still told from it.
"$media" vary "$samples/parking_pan.mp4" varying.mp4 3
run 0 varying.mp4 --frames varying.csv
expect_equal "lines" 1 "$(wc -l <stderr)"
expect_said "150 frames, 150 taken ("
expect_equal "last frame" 150 "$(tail -n 1 varying.csv | cut -d, -f1)"
awk -F, 'NR > 2 && $2 - before > 0.1 { ++waits } { before = $2 } END { exit waits != 2 }' varying.csv \
  || fail "the rate of the video does not vary"
for video in "$samples/parking_pan.mp4" varying.mp4; do
  "$media" void "$video" void.mp4 40
  run 0 void.mp4 --frames void.csv
  expect_said "1 frame of void.mp4 cannot be decoded and is left out"
  expect_said "149 frames, 149 taken, 1 unreadable"
  expect_equal "last frame" 150 "$(tail -n 1 void.csv | cut -d, -f1)"
done

# A trim leaves all frames in the file: those that it does not show are not missing. Damage is still told from it.
picture=512 first=1024 # length of a picture, and when the first is shown, in the sample's units
"$media" edit "$samples/parking_pan.mp4" trimmed.mp4 2000 $((first + 30 * picture))
"$media" edit "$samples/parking_pan.mp4" late.mp4 500 -1 2000 $((first + 30 * picture))
for video in trimmed.mp4 late.mp4; do
  run 0 $video --turn cw --frames trimmed.csv
  expect_equal "lines of $video" 1 "$(wc -l <stderr)"
  expect_said "50 frames, 50 taken ("
  expect_equal "last frame of $video" "50,1.96" "$(tail -n 1 trimmed.csv | cut -d, -f1,2 | sed 's/0*$//')"
done
"$media" void trimmed.mp4 void.mp4 40
run 0 void.mp4 --turn cw --frames void.csv
expect_said "1 frame of void.mp4 cannot be decoded and is left out"
expect_said "49 frames, 49 taken, 1 unreadable"
expect_equal "last frame" 50 "$(tail -n 1 void.csv | cut -d, -f1)"
head -c 200000 trimmed.mp4 >cut.mp4
run 0 cut.mp4 --turn cw
expect_said " of 50; it may have been cut short"
"$media" edit varying.mp4 trimmed.mp4 2400 $((first + 15 * picture))
run 0 trimmed.mp4 --turn cw
expect_equal "lines" 1 "$(wc -l <stderr)"
expect_said "58 frames, 58 taken ("
# Of several pieces it is not known what is shown, so nothing is missing.
"$media" edit "$samples/parking_pan.mp4" pieces.mp4 1200 $first 800 $((first + 25 * picture))
run 0 pieces.mp4 --turn cw
expect_equal "lines" 1 "$(wc -l <stderr)"
expect_said "50 frames, "

# Cut short, in the index and in the frames.
head -c $(($(stat -c %s whole.avi) * 6 / 10)) whole.avi >cut.avi
code=0
"$program" cut.avi --json >summary.json 2>stderr || code=$?
expect_equal "exit code with a video cut short" 0 $code
expect_said "it may have been cut short"
grep -qF '"cut_short": true' summary.json || fail "the summary does not say that the video was cut short"
expect_file cut-panorama.jpg

# A picture that was cut short would be gray from there on. One with something behind its end is whole.
mkdir pictures
"$media" slide pictures/%d.jpg 6 480 360 24 1
cp pictures/3.jpg third.jpg
for part in 100 $(($(stat -c %s third.jpg) / 2)) $(($(stat -c %s third.jpg) - 1)); do
  head -c "$part" third.jpg >pictures/3.jpg
  run 0 pictures -o pictures.jpg
  expect_said "cannot read pictures/3.jpg; it is left out"
  expect_said "5 frames, 5 taken, 1 unreadable"
done
{ cat third.jpg; echo "more"; } >pictures/3.jpg
run 0 pictures -o pictures.jpg
expect_said "6 frames, 6 taken ("

# A container without a frame.
head -c 200 whole.avi >header.avi
expect_error 3 "header.avi" header.avi

# What this user may not read. Root may read everything, so it becomes somebody else for this.
as_somebody=()
if [[ $(id -u) -eq 0 ]]; then
  command -v setpriv >/dev/null || { echo "passed, but for permissions: there is no setpriv"; exit 0; }
  as_somebody=(setpriv --reuid=65534 --regid=65534 --clear-groups)
  chmod 755 "$work"
  chmod 777 "$TMPDIR"
  if ! "${as_somebody[@]}" test -x "$program"; then
    echo "passed, but for permissions: somebody else may not run $program"
    exit 0
  fi
fi
mkdir closed
cp f1.png closed/
chmod 000 closed
chmod 000 whole.avi
mkdir -m 777 open
for input in closed whole.avi; do
  code=0
  (cd open && "${as_somebody[@]}" "$program" "../$input") 2>stderr || code=$?
  expect_equal "exit code with $input" 3 $code
  expect_said "Permission denied"
  expect_equal "lines" 1 "$(wc -l <stderr)"
done
chmod 500 closed
chmod 644 f*.png
code=0
"${as_somebody[@]}" "$program" "f%d.png" -o closed/a.jpg 2>stderr || code=$?
expect_equal "exit code with a protected directory" 4 $code
expect_said "cannot write closed/a.jpg: Permission denied"
expect_nothing_left

echo "passed"
