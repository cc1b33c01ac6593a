#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The first frame of a stretch that begins at minute ten, in recordings of an hour at 1920x1080 that differ in how they
# can be searched: how often a key picture comes, and whether the file has an index. Each is first read from its
# beginning, which must give the same frame, number and time. Prints the lowest time of some rounds in Markdown. Files
# that have just been read lie in memory: a disk's own time comes on top.
# usage: seek.sh [BUILD [ROUNDS]], by default build/bench, as scripts/bench.sh --build-only makes it, and 5
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib/common.sh"

build=$(realpath "${1:-build/bench}")
rounds=${2:-5}
look=$build/benchmarks/first_frame
[[ -x $look ]] || fail "There is no $look: run scripts/bench.sh --build-only."
command -v ffmpeg >/dev/null || fail "There is no ffmpeg."
minute_ten=599.98 # s; the frame behind it is the last before a key picture: all of them are decoded

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

quiet_ffmpeg() {
  ffmpeg -nostdin -v error -y "$@"
}
# Ten seconds of a sweep, with a key picture every second or only at the beginning, at a phone's rate of bits.
for group in 30 300; do
  quiet_ffmpeg -stream_loop 1 -i "$root/samples/hall_slide.mp4" -t 10 -r 30 -vf scale=1920:1080,setsar=1 \
    -c:v libx264 -preset veryfast -b:v 10M -maxrate 12M -bufsize 12M -bf 0 -g $group -keyint_min $group -sc_threshold 0 \
    -pix_fmt yuv420p ten_seconds_$group.mp4
done

hour() {
  local group=$1 file=$2
  shift 2
  quiet_ffmpeg -stream_loop 359 -i ten_seconds_"$group".mp4 -c copy "$@" "$file"
}

echo "$(nproc) processors, the lowest of $rounds rounds; load before them: $(cut -d ' ' -f 1-3 /proc/loadavg)"
echo
echo "| an hour of 1920x1080 | size, GB | frame | to its picture, s | from the beginning, s |"
echo "| --- | ---: | ---: | ---: | ---: |"
while IFS='|' read -r what group file options; do
  read -r -a with <<<"$options"
  hour "$group" "$file" "${with[@]}"
  read -r number seconds sum whole < <("$look" "$file" $minute_ten from-the-beginning)
  [[ -n ${whole:-} ]] || fail "$file has no minute ten"
  : >times.txt
  for ((round = 0; round < rounds; ++round)); do
    read -r found at pixels took < <("$look" "$file" $minute_ten)
    # The same frame, or the figure is of something else.
    [[ "$found $at $pixels" == "$number $seconds $sum" ]] || fail "$file: $found $at $pixels, not $number $seconds $sum"
    echo "$took" >>times.txt
  done
  printf '| %s | %.1f | %d | %.2f | %.1f |\n' "$what" "$(stat -c %s "$file" | awk '{ print $1 / 1e9 }')" "$number" \
    "$(sort -n times.txt | head -n 1)" "$whole"
  rm "$file"
done <<'KINDS'
MP4, a key picture every second|30|second.mp4|
MP4, a key picture every ten seconds|300|ten.mp4|
MP4 in fragments, every second|30|fragments.mp4|-movflags frag_keyframe+empty_moov+default_base_moof
Matroska, every second|30|second.mkv|
MPEG transport stream, every second|30|second.ts|
MPEG transport stream, every ten seconds|300|ten.ts|
KINDS
