#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Whole sweeps of a camera that turns: the live path on every frame (stitching_alone.cpp, pictures in memory), and
# OpenCV's stitcher in its two modes on the key frames that the live path chose (success/opencv_stitcher.py). Takes
# turns; prints the lowest processor time of each in Markdown.
# usage: turning.sh BUILD ROUNDS VIDEO..., BUILD as scripts/bench.sh --build-only makes it, build/bench
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib/common.sh"

build=$(realpath "$1")
rounds=$2
shift 2
program=$build/apps/tarnstitch/tarnstitch
stitching=$build/benchmarks/stitching_alone
[[ -x $program && -x $stitching ]] || fail "There is no $program or $stitching: run scripts/bench.sh --build-only."
python=python3
[[ ! -x /usr/bin/python3 ]] || python=/usr/bin/python3 # the one that the packages are for

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
lowest() {
  sort -n "$work/$1" | head -n 1
}

echo "The lowest of $rounds rounds; load before them: $(cut -d ' ' -f 1-3 /proc/loadavg)"
echo
echo "| sweep | frames | key frames | live path, s | PANORAMA, s | SCANS, s | PANORAMA, times | SCANS, times |"
echo "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: |"
for video in "$@"; do
  rm -f "$work"/*
  "$program" "$video" --no-retry --quiet -o "$work/panorama.jpg" --frames "$work/frames.csv"
  # Numbers of the key frames, from 0, as a condition of ffmpeg's.
  chosen=$(awk -F , 'NR == 1 { for (i = 1; i <= NF; ++i) column[$i] = i; next }
    $column["key_frame"] ~ /1|true/ { printf "%seq(n\\,%d)", (found++ ? "+" : ""), $column["frame"] - 1 }' "$work/frames.csv")
  ffmpeg -v error -i "$video" -vf "select=$chosen" -fps_mode passthrough "$work/key-%04d.png"
  for ((round = 0; round < rounds; ++round)); do
    "$stitching" "$video" 2 | cut -d ' ' -f 2 >>"$work/live"
    for mode in PANORAMA SCANS; do
      "$python" benchmarks/success/opencv_stitcher.py $mode "$work/$mode.png" "$work"/key-*.png >>"$work/$mode" || true
    done
  done
  name=$(basename "$video")
  frames=$(($(wc -l <"$work/frames.csv") - 1))
  key_frames=$(printf '%s\n' "$work"/key-*.png | wc -l)
  awk -v name="${name%.*}" -v frames="$frames" -v keys="$key_frames" -v live="$(lowest live)" \
    -v panorama="$(lowest PANORAMA)" -v scans="$(lowest SCANS)" 'BEGIN {
      printf "| %s | %d | %d | %.2f | %.2f | %.2f | %.1f | %.1f |\n", name, frames, keys, live, panorama, scans, panorama / live, scans / live }'
done
