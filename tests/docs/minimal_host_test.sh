#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The example host makes a panorama wider than a frame from a real sweep, leaves nothing else behind, and
# refuses a missing input.
# usage: minimal_host_test.sh PROGRAM SAMPLES
set -euo pipefail

program=$1
samples=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$program" "$samples/parking_pan.mp4" "$work/panorama.jpg" >"$work/log"
left=$(ls "$work")
if [[ $left != $'log\npanorama.jpg' ]]; then
  echo "unexpected files: $left"
  exit 1
fi
# A JPEG begins with these two bytes.
[[ $(head -c 2 "$work/panorama.jpg" | od -An -tx1 | tr -d ' \n') == ffd8 ]]

if "$program" "$work/no_such_video.mp4" "$work/other.jpg" 2>"$work/said"; then
  echo "a missing input was accepted"
  exit 1
fi
grep -qE "cannot be (opened|read)" "$work/said" || { echo "a missing input is not named:"; cat "$work/said"; exit 1; }
[[ ! -e $work/other.jpg && ! -e $work/other.jpg.work ]]
