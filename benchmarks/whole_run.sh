#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# A whole run of tarnstitch beside its parts: decoding alone (ffmpeg into nothing) and stitching alone (pictures that
# are in memory, stitching_alone.cpp), of one sweep at 1280x720, 1920x1080 and 3840x2160. No run can take less than the
# largest of decoding, stitching, and the processors' time of both spread over all processors; the table says how many
# times that it takes. Takes turns; prints the lowest of each in Markdown.
# usage: whole_run.sh [BUILD [ROUNDS]], by default build/bench, as scripts/bench.sh --build-only makes it, and 3
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib/common.sh"

build=$(realpath "${1:-build/bench}")
rounds=${2:-3}
program=$build/apps/tarnstitch/tarnstitch
stitching=$build/benchmarks/stitching_alone
[[ -x $program && -x $stitching ]] || fail "There is no $program or $stitching: run scripts/bench.sh --build-only."
command -v ffmpeg >/dev/null || fail "There is no ffmpeg."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
cores=$(nproc)
under_way=$((cores > 1 ? cores : 2))

TIMEFORMAT='%R %U %S'
# timed FILE COMMAND…: appends seconds on the wall and of processors.
timed() {
  local file=$1
  shift
  { time "$@" >/dev/null 2>messages; } 2>>"$file.raw"
  awk 'END { printf "%.3f %.3f\n", $1, $2 + $3 }' "$file.raw" >>"$file"
}
# lowest FILE: of both columns, each on its own.
lowest() {
  awk 'NR == 1 || $1 < wall { wall = $1 } NR == 1 || $2 < busy { busy = $2 } END { print wall, busy }' "$1"
}

echo "$cores processors, the lowest of $rounds rounds; load before them: $(cut -d ' ' -f 1-3 /proc/loadavg)"
echo
echo "| frames | decoding, s | processor s | stitching, s | processor s | the whole run, s | processor s | least, s | times |"
echo "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |"
for size in 1280x720 1920x1080 3840x2160; do
  ffmpeg -v error -i "$root/samples/hall_slide.mp4" -vf "scale=${size/x/:},setsar=1" -c:v libx264 -preset fast -crf 20 \
    -pix_fmt yuv420p "$size.mp4"
  for ((round = 0; round < rounds; ++round)); do
    timed "decoding.$size" ffmpeg -v error -i "$size.mp4" -f null -
    # Not by <(…), whose time would be told of the next command.
    figures=$("$stitching" "$size.mp4" "$under_way")
    read -r wall busy extent <<<"$figures"
    echo "$wall $busy" >>"stitching.$size"
    timed "run.$size" "$program" "$size.mp4" --quiet --workers "$under_way" -o panorama.jpg
    # The same sweep, or the figures are of something else; the program turns its panorama back.
    found=$(identify -format '%wx%h' panorama.jpg)
    [[ $found == "$extent" || $found == "${extent#*x}x${extent%x*}" ]] || fail "$size: $found by the run, $extent alone"
  done
  read -r decoding_wall decoding_busy < <(lowest "decoding.$size")
  read -r stitching_wall stitching_busy < <(lowest "stitching.$size")
  read -r run_wall run_busy < <(lowest "run.$size")
  awk -v size="$size" -v dw="$decoding_wall" -v db="$decoding_busy" -v sw="$stitching_wall" -v sb="$stitching_busy" \
    -v rw="$run_wall" -v rb="$run_busy" -v cores="$cores" 'BEGIN {
      least = (db + sb) / cores
      if (dw > least) least = dw
      if (sw > least) least = sw
      printf "| %s | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |\n", size, dw, db, sw, sb, rw, rb, least, rw / least
    }'
done
