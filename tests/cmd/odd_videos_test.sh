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

# put FILE PLACE NUMBER...: writes numbers of 32 bits into a file.
put() {
  local file=$1 place=$2 number
  shift 2
  for number in "$@"; do
    # shellcheck disable=SC2059 # the format is the bytes
    printf "$(printf '\\x%02x' $((number >> 24 & 255)) $((number >> 16 & 255)) $((number >> 8 & 255)) $((number & 255)))"
  done | dd of="$file" bs=1 seek="$place" conv=notrunc status=none
}

# places FILE BOX: where the content of each box of that name begins.
places() {
  LC_ALL=C grep -obUa "$2" "$1" | while IFS=: read -r place _; do echo $((place + 4)); done
}

# expect_little_memory WHAT COMMAND...: the program ends in an ordinary way, and took no more than some tables.
expect_little_memory() {
  local what=$1 code=0 peak
  shift
  "$@" -o wrong.jpg --json >summary.json 2>stderr || code=$?
  [[ $code -eq 0 || $code -eq 1 || $code -eq 3 ]] || fail "exit code $code with $what"
  peak=$(grep -oP '"peak_memory_bytes": \K[0-9]+' summary.json)
  ((peak < most_memory)) || fail "$((peak >> 20)) MiB for $what"
}
most_memory=400000000 # bytes; sanitizers need more, and are not what is asked here
! grep -qa -e __asan_init -e __tsan_init "$program" || most_memory=1500000000

for table in stsz stts stsc stco ctts stss; do
  cp "$samples/parking_pan.mp4" wrong.mp4
  place=$(($(places wrong.mp4 $table | head -n 1) + 4))
  [[ $table != stsz ]] || place=$((place + 4))
  put wrong.mp4 $place 0x7fffffff
  expect_little_memory "more entries in $table than the file has" "$program" wrong.mp4
done

# Tables that agree with each other: samples of one byte each, all in one chunk, all shown equally long.
claim() {
  local file=$1 count=$2 place
  for place in $(places "$file" stsz); do put "$file" $((place + 4)) 1 "$count"; done
  for place in $(places "$file" stsc); do put "$file" $((place + 12)) "$count"; done
  for place in $(places "$file" stts); do put "$file" $((place + 8)) "$count"; done
}
cp "$samples/parking_pan.mp4" agreed.mp4
claim agreed.mp4 40000000
expect_little_memory "tables that agree" "$program" agreed.mp4
tracks=()
for ((i = 0; i < 20; ++i)); do tracks+=(-map 0:v); done
"${ffmpeg[@]}" -i "$samples/parking_pan.mp4" "${tracks[@]}" -c copy -frames:v 8 tracks.mp4
claim tracks.mp4 2000000
expect_little_memory "tables of 20 tracks" "$program" tracks.mp4

# Fragments whose samples are all alike need no field for each of them. A file is looked through when it is opened, and
# refused; from a pipe what comes before is read.
"${ffmpeg[@]}" -framerate 5 -i slide/%d.png -c:v libx264 -g 4 -pix_fmt yuv420p -movflags frag_keyframe+empty_moov \
  fragments.mp4
put fragments.mp4 "$(places fragments.mp4 trun | tail -n 1)" 0 40000000
expect_error 3 "fragments.mp4 claims more tracks or pictures than are believed of a file of its size" fragments.mp4
expect_little_memory "a fragment of a file" "$program" fragments.mp4
# shellcheck disable=SC2016 # for the other shell
expect_little_memory "a fragment from a pipe" bash -c 'cat fragments.mp4 | "$0" /dev/stdin "$@"' "$program"
expect_said "4 frames, 4 taken"
expect_nothing_left

echo "passed"
