#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The first frame of a stretch that begins ten minutes into recordings of an hour at 1920x1080, which differ in how they
# can be searched: how often a key picture comes, and whether the file has an index. It is the last one before a key
# picture, for which all behind the one before are decoded. An hour is the same ten seconds over and over, so the frame's
# number, time and pixels are known from these; with "whole" each file is read from its beginning as well, some minutes
# each, and must give the same. ffmpeg goes to the same frame in turn: it need not know its number, nor has it to make
# colours of it. Prints the lowest times of some rounds in Markdown. Files that have just been written lie in memory: a
# disk's own time comes on top.
# usage: seek.sh [BUILD [ROUNDS [whole]]], by default build/bench, as scripts/bench.sh --build-only makes it, and 5
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib/common.sh"

build=$(realpath "${1:-build/bench}")
rounds=${2:-5}
look=$build/benchmarks/first_frame
[[ -x $look ]] || fail "There is no $look: run scripts/bench.sh --build-only."
command -v ffmpeg >/dev/null || fail "There is no ffmpeg."
whole=${3:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

quiet_ffmpeg() {
  ffmpeg -nostdin -v error -y "$@"
}
# frame_by_ffmpeg FILE SECONDS: the digest of the first frame from then on.
frame_by_ffmpeg() {
  ffmpeg -nostdin -v error -ss "$2" -i "$1" -frames:v 1 -f framemd5 - | awk -F ', *' '/^0,/ { print $NF }'
}
# Ten seconds of a sweep, with a key picture every second or only at the beginning, at a phone's rate of bits.
for group in 30 300; do
  quiet_ffmpeg -stream_loop 1 -i "$root/samples/hall_slide.mp4" -t 10 -r 30 -vf scale=1920:1080,setsar=1 \
    -c:v libx264 -preset veryfast -b:v 10M -maxrate 12M -bufsize 12M -bf 0 -g $group -keyint_min $group -sc_threshold 0 \
    -pix_fmt yuv420p ten_seconds_$group.mp4
  read -r number seconds sum _ < <("$look" ten_seconds_$group.mp4 9.95 from-the-beginning)
  awk -v number="$number" -v seconds="$seconds" -v sum="$sum" \
    'BEGIN { printf "%d %.6f %s\n", number + 60 * 300, seconds + 60 * 10, sum }' >expected_$group
  frame_by_ffmpeg ten_seconds_$group.mp4 9.95 >expected_of_ffmpeg_$group
done

hour() {
  local group=$1 file=$2
  shift 2
  quiet_ffmpeg -stream_loop 359 -i ten_seconds_"$group".mp4 -c copy "$@" "$file"
}

echo "$(nproc) processors, the lowest of $rounds rounds; load before them: $(cut -d ' ' -f 1-3 /proc/loadavg)"
echo
echo "| an hour of 1920x1080 | size, GB | frame | to its picture, s | processor s | ffmpeg, s |"
echo "| --- | ---: | ---: | ---: | ---: | ---: |"
while IFS='|' read -r what group file options; do
  read -r -a with <<<"$options"
  hour "$group" "$file" "${with[@]}"
  read -r expected <expected_"$group"
  # expect_expected [from-the-beginning]: the frame that is known, or the figure is of something else. Tells how long it
  # took, on the wall and of processors. Some formats round times to milliseconds.
  expect_expected() {
    local number seconds sum took busy
    read -r number seconds sum took busy < <("$look" "$file" 609.95 "$@")
    awk -v found="$number $seconds $sum" -v expected="$expected" 'BEGIN {
        split(found, a)
        split(expected, b)
        exit !(a[1] == b[1] && a[3] == b[3] && a[2] - b[2] < 0.001 && b[2] - a[2] < 0.001)
      }' || fail "$file: $number $seconds $sum, not $expected"
    echo "$took $busy"
  }
  [[ -z $whole ]] || expect_expected from-the-beginning >/dev/null
  for ((round = 0; round < rounds; ++round)); do
    own=$(expect_expected)
    begun=${EPOCHREALTIME/./}
    found=$(frame_by_ffmpeg "$file" 609.95)
    took=$((${EPOCHREALTIME/./} - begun)) # microseconds
    [[ $found == "$(<expected_of_ffmpeg_"$group")" ]] || took=0
    echo "$own $took"
  done >times.txt
  awk -v what="$what" -v bytes="$(stat -c %s "$file")" -v number="${expected%% *}" \
    'NR == 1 || $1 < wall { wall = $1 } NR == 1 || $2 < busy { busy = $2 } NR == 1 || $3 < rival { rival = $3 }
      END {
        printf "| %s | %.1f | %d | %.2f | %.2f | ", what, bytes / 1e9, number, wall, busy
        printf "%s |\n", (rival > 0 ? sprintf("%.2f", rival / 1e6) : "another frame")
      }' times.txt
  rm "$file"
done <<'KINDS'
MP4, a key picture every second|30|second.mp4|
MP4, a key picture every ten seconds|300|ten.mp4|
MP4 in fragments, every second|30|fragments.mp4|-movflags frag_keyframe+empty_moov+default_base_moof
Matroska, every second|30|second.mkv|
MPEG transport stream, every second|30|second.ts|
MPEG transport stream, every ten seconds|300|ten.ts|
KINDS
