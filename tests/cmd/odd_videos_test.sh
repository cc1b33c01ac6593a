#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Videos that are odd: without pictures of their own, with others of another size behind them, from a pipe, with sizes
# in them that cannot be.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

command -v ffmpeg >/dev/null || {
  echo "skipped: there is no ffmpeg"
  exit 77
}
ffmpeg=(ffmpeg -nostdin -loglevel error -y)
make_slide
"${ffmpeg[@]}" -framerate 5 -i slide/%d.png -c:v libx264 -pix_fmt yuv420p small.ts
"${ffmpeg[@]}" -framerate 5 -i slide/%d.png -vf scale=640:480 -c:v libx264 -pix_fmt yuv420p large.ts

# Sound alone, and with a picture on its cover: no video, and no sweep.
"${ffmpeg[@]}" -f lavfi -i sine=d=1 -c:a aac sound.m4a
"${ffmpeg[@]}" -f lavfi -i sine=d=1 -i slide/1.png -map 0 -map 1 -c:a aac -c:v png -disposition:v attached_pic cover.m4a
for file in sound.m4a cover.m4a; do
  expect_error 3 "$file is neither a video nor an image that can be read" $file
done

# Where pictures become of another size the sweep ends, and what was composed until then is kept apart.
cat small.ts large.ts >both.ts
run 3 both.ts
expect_said "frame 9 of both.ts is of 640x480 pixels, the frames before it of 480x360; what was composed until then is in both-panorama-partial.jpg"
expect_said "8 frames, 8 taken"
expect_file both-panorama-partial.jpg
# More than --max-pixels is not decoded, and counts as missing.
run 0 both.ts --max-pixels 200000
expect_said "8 frames of both.ts cannot be decoded and are left out"
run 0 small.ts -o small.jpg
"$media" same small.jpg both-panorama.jpg

# Two that were put together are one sweep, from any moment on.
cat small.ts small.ts >twice.ts
run 0 twice.ts --frames all.csv
expect_said "16 frames, "
run 0 twice.ts --start 1.8 --frames rest.csv
expect_equal "frames and times behind --start" "$(awk -F, 'NR > 1 && $2 >= 1.8 { print $1, $2 }' all.csv)" \
  "$(awk -F, 'NR > 1 { print $1, $2 }' rest.csv)"

# A pipe is read once, and as it comes; standard input is one, or a file, by its name.
"$program" /dev/stdin -o piped.jpg 2>stderr < <(cat small.ts) || fail "a pipe on standard input"
"$media" same small.jpg piped.jpg
"$program" /dev/stdin -o redirected.jpg <small.ts 2>stderr || fail "a file on standard input"
"$media" same small.jpg redirected.jpg

# What a file says of its tables is not believed: no memory is taken for what it has not.
for table in stsz stts stsc stco ctts stss; do
  cp "$samples/parking_pan.mp4" wrong.mp4
  place=$(($(LC_ALL=C grep -obUa $table wrong.mp4 | head -n 1 | cut -d: -f1) + 8))
  [[ $table != stsz ]] || place=$((place + 4))
  printf '\x7f\xff\xff\xff' | dd of=wrong.mp4 bs=1 seek=$place conv=notrunc status=none
  code=0
  "$program" wrong.mp4 -o wrong.jpg --json >summary.json 2>stderr || code=$?
  [[ $code -eq 0 || $code -eq 1 || $code -eq 3 ]] || fail "exit code $code with more entries in $table than the file has"
  (($(grep -oP '"peak_memory_bytes": \K[0-9]+' summary.json) < 1500000000)) || fail "memory for what $table says"
done
expect_nothing_left

echo "passed"
