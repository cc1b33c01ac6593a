#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --show: without a display, and on one that Xvfb makes.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

unset DISPLAY WAYLAND_DISPLAY
if [[ -n ${ASAN_OPTIONS:-}${TSAN_OPTIONS:-} ]]; then
  echo "skipped: sanitizers find much in window systems' libraries"
  exit 77
fi
video=$samples/parking_pan.mp4
code=0
"$program" "$video" --show 2>stderr || code=$?
expect_equal "exit code without a display" 2 $code
if grep -qF "built without windows" stderr; then
  echo "skipped: a build without windows"
  exit 77
fi
expect_said "--show: there is no display to show a window on"
expect_equal "lines" 1 "$(wc -l <stderr)"
"$program" "$video" --show --json >summary.json 2>stderr || true
grep -qF '"outcome": "usage"' summary.json || fail "no summary without a display"
DISPLAY=:12345 expect_error 2 "no display to show a window on, though the environment names one" "$video" --show

if ! command -v Xvfb >/dev/null || ! command -v xdotool >/dev/null; then
  echo "skipped: there is no Xvfb, or no xdotool"
  exit 77
fi

exec 8<> <(:)
# Without -noreset a server begins anew whenever its last client has gone, and throws out whoever connects meanwhile.
Xvfb -displayfd 8 -noreset -screen 0 1280x800x24 8>display.number >/dev/null 2>&1 &
server=$!
trap 'kill $server 2>/dev/null || true; rm -rf "$work"' EXIT
until [[ -s display.number ]]; do
  kill -0 $server || fail "Xvfb has ended"
  sleep 0.05
done
DISPLAY=:$(tr -d '\n' <display.number)
export DISPLAY
# Window systems' libraries keep things there.
export XDG_RUNTIME_DIR=$work/runtime
mkdir -m 700 "$XDG_RUNTIME_DIR"

# A display that takes connections and never answers: the process that tries it heeds signals, and ends with the
# program. look_at_it NAME TEXT: waits until a line of that name in its status ends so.
look_at_it() {
  local round
  for ((round = 0; round < 6000; ++round)); do
    ! grep -q "^$1:.*$2\$" "/proc/$child/status" 2>/dev/null || return 0
    sleep 0.01
  done
  fail "a window is tried with other signals than usual: $(cat "/proc/$child/status")"
}
# try_a_window: starts the program, and waits until its child tries the display.
try_a_window() {
  env --default-signal=INT "$program" "$video" --show -o hung.jpg 2>stderr &
  started=$!
  child=
  until [[ -n $child ]]; do
    kill -0 $started 2>/dev/null || fail "no process for the window"
    { read -r child _ <"/proc/$started/task/$started/children" || true; } 2>/dev/null
  done
  look_at_it SigBlk 0000000000000000
  look_at_it SigCgt '[014589cd][0-9a-f]' # not SIGABRT, whose bit is 0x20
}
kill -s STOP $server
try_a_window
kill -s INT "$child"
code=0
wait $started || code=$?
expect_equal "exit code after SIGINT without an answer" 130 $code
expect_said "stopped before the first frame; nothing is written"
try_a_window
kill -s KILL $started
{ wait $started || true; } 2>/dev/null # the shell tells of a termination
for ((round = 0; round < 6000; ++round)); do
  grep -q '^State:[[:space:]]*[^ZX[:space:]]' "/proc/$child/status" 2>/dev/null || break
  sleep 0.01
done
((round < 6000)) || fail "left behind: process $child"
kill -s CONT $server
expect_nothing_left

# Long enough for a key to arrive on the busiest machine: half a minute.
"$media" swing swing.avi 800 320 240 16

# press KEY: runs the program at the video's own pace, and presses the key until that ends it.
press() {
  : >summary.json # an earlier one must not be taken for this run's, which may begin later than the loop below
  "$program" swing.avi --show --realtime -o "$1.jpg" --json >summary.json 2>stderr &
  local started=$!
  until grep -qF '"outcome"' summary.json; do
    xdotool search --onlyvisible --name '^tarnstitch$' >windows 2>/dev/null || true
    while IFS= read -r window; do
      xdotool windowfocus "$window" 2>/dev/null || true
      xdotool key --window "$window" "$1" 2>/dev/null || true
    done <windows
    kill -0 $started 2>/dev/null || break
    sleep 0.05
  done
  code=0
  wait $started || code=$?
}

# The window shows the preview, with the green outline of the current frame. A screenshot can be taken where there is
# import(1) of ImageMagick; SCREENSHOT names a file for it, to be looked at.
if command -v import >/dev/null; then
  "$program" swing.avi --show --realtime -o shown.jpg 2>stderr &
  started=$!
  outline=0
  until ((outline > 500)); do
    kill -0 $started 2>/dev/null || fail "no outline on the screen, $outline pixels"
    import -silent -window root screen.png
    outline=$("$media" coloured screen.png 80 220 80)
  done
  kill -s TERM $started
  wait $started 2>/dev/null || true
  expect_nothing_left
  if [[ -n ${SCREENSHOT:-} ]]; then
    cp screen.png "$SCREENSHOT"
  fi
fi

# What there is by then is no panorama where the camera has hardly moved.
press q
case $code in
  0) expect_file q.jpg ;;
  1) expect_file q-partial.jpg ;;
  *) fail "exit code after q: $code" ;;
esac
frames=$(grep -oP '"frames_met": \K[0-9]+' summary.json)
((frames < 800)) || fail "q did not end the sweep"

press Escape
expect_equal "exit code after Esc" 130 $code
expect_no_file Escape.jpg
expect_said "given up; nothing is written"
expect_nothing_left

# When the display goes away the library for windows ends the process. The first window to be seen may be that of the
# check whether there is a display, and while a window opens that library may crash: a line on progress tells that
# frames are being shown.
: >stderr
"$program" swing.avi --show --realtime -o gone.jpg 2>stderr &
started=$!
until_said "tarnstitch: frame "
kill $server
wait $server 2>/dev/null || true
code=0
{ wait $started || code=$?; } 2>/dev/null # the shell tells of an abortion
((code != 0)) || fail "exit code 0 without the display"
expect_nothing_left

echo "passed"
