#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Sweeps that break: said where, what there is saved under the partial name, exit code 1.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide

# The last frame shows something else, so it cannot be joined, after the library has answered "normal".
"$media" slide slide/%d0.png 1 480 360 30 2
mv slide/10.png slide/9.png
echo kept >slide-panorama.jpg
echo kept >preview.png
run 1 slide --preview preview.png --no-retry
expect_said "stitching failed at frame 9: key frame"
expect_said "(frame 9) could not be joined to the panorama: too few matches; what was composed until then is in slide-panorama-partial.jpg"
expect_said "9 frames"
expect_equal "earlier panorama" kept "$(cat slide-panorama.jpg)"
expect_equal "earlier preview" kept "$(cat preview.png)"
expect_said "the preview until then is in preview-partial.png"
expect_equal "height of the part" 360 "$("$media" size slide-panorama-partial.jpg | cut -dx -f2)"
expect_equal "turn of the part" 0 "$("$media" turn slide/1.png slide-panorama-partial.jpg 1)"
expect_equal "turn of the preview" 0 "$("$media" turn slide/1.png preview-partial.png "$(awk 'BEGIN { print 300 / 360 }')")"

# A part of an earlier run is replaced, and one that cannot be is said to be so.
cp slide-panorama-partial.jpg part.jpg
echo old >slide-panorama-partial.jpg
run 1 slide
expect_said "the sweep cannot be stitched beyond frame 9; trying once more with the frames turned clockwise"
expect_said "the sweep cannot be stitched beyond frame 9; trying once more with key frames nearer to each other"
! grep -qF "help" stderr || fail "something is advised that nobody has tried"
cmp part.jpg slide-panorama-partial.jpg
rm slide-panorama-partial.jpg
mkdir slide-panorama-partial.jpg
run 1 slide -q
expect_said "cannot write slide-panorama-partial.jpg"
expect_said "stitching failed at frame 9"

# A picture that cannot be read is named in the first try and not again in the second.
cp -rp slide gap
echo "no image" >gap/4.png
run 1 gap
expect_said "trying once more"
expect_equal "times that the picture is named" 1 "$(grep -cF "cannot read gap/4.png; it is left out" stderr)"

# A sweep that outgrows the largest panorama fails in its middle. The frames after that are not read. With four workers
# three key frames more may be on their way before it shows, the last of them near frame 120.
mkdir long
"$media" slide long/%d.jpg 140 3000 200 75 3 # 3000 + 139 * 75 = 13425 pixels in all
for workers in 1 4; do
  run 1 long -o out.jpg --preview long.png --workers $workers --no-retry
  expect_no_file out.jpg
  expect_no_file long.png
  expect_file long-partial.png
  expect_said "stitching failed at frame"
  frame=$(grep -oP 'failed at frame \K[0-9]+' stderr)
  key_frame=$(grep -oP 'key frame [0-9]+ \(frame \K[0-9]+' stderr)
  ((frame > 80 && frame < 140)) || fail "broken at frame $frame"
  ((key_frame < frame)) || fail "key frame $key_frame shows at frame $frame"
  expect_said " could not be joined to the panorama: the panorama would be too large; what was composed"
  expect_said "1 pipeline failed"
  expect_said "$frame frames"
  width=$("$media" size out-partial.jpg | cut -dx -f1)
  ((width > 8000 && width <= 10000)) || fail "the part is $width pixels wide"
done

# The second try, with the frames turned the other way, may do what the first could not. A pipe or a camera cannot be
# read again.
run 1 "$samples/parking_pan.mp4" -o first.jpg --step 24 --no-retry
expect_said "what may help: without --no-retry the sweep is tried in other ways as well"
expect_no_file first.jpg
run 0 "$samples/parking_pan.mp4" -o second.jpg --step 24
expect_said "trying once more with the frames turned clockwise"
expect_said "7 frames, 7 taken"
run 0 "$samples/parking_pan.mp4" -o asked.jpg --step 24 --turn cw
cmp second.jpg asked.jpg
"$media" frames "$samples/parking_pan.mp4" first.png 0 1 1
expect_equal "turn of the second try's panorama" 0 "$("$media" turn first.png second.jpg 1)"

# What is advised has been tried, and can be followed: where frames were left out, all of them.
run 1 "$samples/hall_slide.mp4" -o advised.jpg --step 118
expect_said "trying whether another command line helps: all frames, without --step"
size=$(grep -oP 'what helps: all frames, without --step: tried, a panorama of \K[0-9x]+(?= from 240 frames)' stderr) \
  || fail "no advice"
run 0 "$samples/hall_slide.mp4" -o followed.jpg
expect_equal "size of what was advised" "$size" "$("$media" size followed.jpg)"
# Nothing is advised that does not help either, and nothing is tried for those who do not want it.
run 1 "$samples/river_pan.mp4" -o none.jpg --step 20
expect_said "trying whether another command line helps"
! grep -qE "what (may help|helps)" stderr || fail "something is advised"
run 1 "$samples/hall_slide.mp4" -o advised.jpg --step 118 --no-retry
! grep -qF "trying" stderr || fail "something is tried"

# A second try that cannot be made leaves the first one's part: the input goes while the first one is under way.
cp -p "$samples/parking_pan.mp4" going.mp4 # with its time, which goes into the panorama
start_held "$program" going.mp4 -o gone.jpg --step 24
rm going.mp4
kill -s CONT "$started"
code=0
wait "$started" || code=$?
expect_equal "exit code when the input has gone" 1 $code
expect_said "trying once more"
expect_said "another try could not be made: there is no file or directory going.mp4"
cmp first-partial.jpg gone-partial.jpg
expect_nothing_left

echo "passed"
