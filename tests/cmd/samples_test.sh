#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The samples from end to end: both panoramas upright, every frame accounted for, the same result at any pace.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# check NAME FRAMES HEIGHT: stitches a sample whose frames are HEIGHT pixels high.
check() {
  local name=$1 frames=$2 height=$3 line sum
  run 0 "$samples/$name.mp4" --preview "$name.png"
  expect_file "$name-panorama.jpg"
  expect_file "$name.png"

  # The names' counts add up to the number of frames.
  line=$(tail -n 1 stderr)
  [[ $line =~ ^"tarnstitch: $name-panorama.jpg: "([0-9x]+)"; $frames frames, "[0-9]+" taken (answers: "([^\)]*)"); "[0-9]+" key frames; preview "([0-9x]+)" in "$name.png"; "[0-9.]+" s"$ ]] \
    || fail "summary of $name: $line"
  sum=$(tr ',' '\n' <<<"${BASH_REMATCH[2]}" | awk '{ sum += $1 } END { print sum }')
  expect_equal "frames by code of $name" "$frames" "$sum"
  expect_equal "panorama of $name" "${BASH_REMATCH[1]}" "$("$media" size "$name-panorama.jpg")"
  expect_equal "preview of $name" "${BASH_REMATCH[3]}" "$("$media" size "$name.png")"

  # Upright: the first frame is found in both as it is. In the preview it is scaled from its height to 300.
  "$media" frames "$samples/$name.mp4" first.png 0 1 1
  expect_equal "turn of the panorama of $name" 0 "$("$media" turn first.png "$name-panorama.jpg" 1)"
  expect_equal "turn of the preview of $name" 0 \
    "$("$media" turn first.png "$name.png" "$(awk "BEGIN { print 300 / $height }")")"
}

check parking_pan 150 320
expect_equal "lines on a good panorama" 1 "$(wc -l <stderr)"
check hall_slide 240 540
expect_equal "lines on a good panorama" 1 "$(wc -l <stderr)"
check river_pan 235 320
# This one turned far, and no other way of handing it over would change that.
expect_said "the panorama is a wedge, in which frames differ in size by 2."
expect_said "the camera turned"
! grep -qF "trying once more" stderr || fail "another try"

# The pace changes nothing.
for workers in 1 2 16; do
  run 0 "$samples/parking_pan.mp4" --step 3 -o $workers.jpg --preview $workers.png --workers $workers
  cmp 1.jpg $workers.jpg || fail "another panorama with $workers workers"
  cmp 1.png $workers.png || fail "another preview with $workers workers"
done

# The camera moves to the right here, and to the left there. Against a hint that says otherwise no frame fits, which no
# other turn of the frames would help.
run 0 "$samples/parking_pan.mp4" --step 3 --direction right
expect_equal "wrong way" 0 "$(grep -c "wrong way" stderr || true)"
cmp parking_pan-panorama.jpg 1.jpg || fail "the hint changed the panorama"
run 0 "$samples/river_pan.mp4" --step 5 --direction left
expect_equal "wrong way" 0 "$(grep -c "wrong way" stderr || true)"
expect_against() {
  run 1 "$@" -o against.jpg
  expect_said " wrong way, "
  expect_said "what may help: the camera moved against --direction"
  ! grep -qF "trying once more" stderr || fail "a second try"
}
expect_against "$samples/parking_pan.mp4" --step 5 --direction left
expect_against "$samples/river_pan.mp4" --step 5 --direction right --turn none

# A sweep that rises leaves little to --crop, which is said; one that does not loses a hem.
run 0 "$samples/river_pan.mp4" --step 5 --crop -o cropped.png
said=$(grep -F "cropped.png has no larger rectangle without empty pixels" stderr) || fail "nothing is said of the crop"
[[ $said =~ "--crop takes "([0-9]+)" % of what the panorama shows" ]] || fail "no number: $said"
((BASH_REMATCH[1] > 50 && BASH_REMATCH[1] < 100)) || fail "another number: $said"
"$media" slide level%d.png 8 480 360 30 1
run 0 level%d.png --crop -o cropped.png
! grep -qF -- "--crop takes" stderr || fail "a word on a hem"

echo "passed"
