#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Progress on a terminal, which script(1) makes.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

if [[ $(script --version 2>/dev/null) != *util-linux* ]]; then
  echo "skipped: there is no script(1) of util-linux"
  exit 77
fi
if ! script --quiet --return --command true typescript >/dev/null 2>&1 </dev/null; then
  echo "skipped: there is no pseudo-terminal"
  exit 77
fi

# on_terminal COLUMNS ARGUMENT...: runs the program on a terminal of that width. What it shows is in "shown"; in "parts"
# with a line for each part between one return to the margin and the next, without the codes that clear the line.
on_terminal() {
  local columns=$1 code=0
  shift
  printf '#!/bin/sh\nstty cols %s rows 24\nexec %s\n' "$columns" "$(printf '%q ' "$program" "$@")" >run-it
  chmod +x run-it
  script --quiet --return --command ./run-it typescript >shown 2>&1 </dev/null || code=$?
  expect_equal "exit code on a terminal" 0 $code
  expect_nothing_left
  tr '\r' '\n' <shown | sed $'s/\e\\[K//' >parts
}

on_terminal 100 "$samples/parking_pan.mp4" -o a.jpg
grep -qE '^\[=*>? *\] +[0-9]+ %  frame [0-9]+ of 150  ' parts || fail "no bar: $(cat -v shown)"
grep -qE 'key frames?' parts || fail "no key frames: $(cat -v shown)"
awk 'length > 99 && !/^tarnstitch: / { exit 1 }' parts || fail "wider than the terminal"
# The bar goes, and the summary stands alone at the end.
[[ $(grep -v '^$' parts | tail -n 1) == "tarnstitch: a.jpg: 954x420; 150 frames, "* ]] || fail "the end: $(cat -v shown)"

on_terminal 30 "$samples/parking_pan.mp4" -o a.jpg
awk 'length > 29 && !/^tarnstitch: / { exit 1 }' parts || fail "wider than a narrow terminal"

# Advice is shown in words, and messages stand on lines of their own above the bar.
mkdir fast
"$media" slide fast/%d.png 30 480 360 24 1
echo "no image" >fast/3.png
on_terminal 120 fast -o b.jpg
grep -q '  slower' parts || fail "no advice: $(cat -v shown)"
grep -qx 'tarnstitch: cannot read fast/3.png; it is left out' parts || fail "no message: $(cat -v shown)"

on_terminal 100 "$samples/parking_pan.mp4" -o a.jpg -q
expect_equal "shown with --quiet" "" "$(tr -d '\r\n' <shown)"

echo "passed"
