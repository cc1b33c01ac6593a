#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Memory does not grow with the length of the input: frames are read as they are needed.
# A fourth argument is the length of the long input, in frames.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

long=${4:-800}
short=200

# peak FRAMES: the peak of memory, in KiB, of a sweep that swings to and fro for so many frames.
peak() {
  "$media" swing "swing$1.avi" "$1" 320 240 16
  # So little that the picture is hardly larger than a frame, and no panorama.
  "$program" -q --json "swing$1.avi" -o "$1.jpg" >summary.json 2>stderr || [[ $? == 1 ]] || fail "$1 frames"
  expect_equal "frames" "$1" "$(grep -oP '"handed_over": \K[0-9]+' summary.json)"
  expect_equal "frames taken" "$1" "$(grep -m 1 -oP '"taken": \K[0-9]+' summary.json)"
  echo $(($(grep -oP '"peak_memory_bytes": \K[0-9]+' summary.json) / 1024))
}

few=$(peak $short)
many=$(peak "$long")
echo "peak memory: $few KiB after $short frames, $many KiB after $long"
# One frame has 225 KiB: if they were kept, the difference would be more than a hundred megabytes.
((many - few < 40000)) || fail "$((many - few)) KiB more for $((long - short)) frames more"

echo "passed"
