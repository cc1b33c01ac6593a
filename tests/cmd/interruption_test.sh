#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The first Ctrl-C ends the sweep and writes what there is; the second, and other signals, end the program at once
# and leave nothing behind.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_waiting_slide
echo kept >slide-panorama.jpg

ulimit -c 0 # some of these leave the process's memory behind
for signals in TERM HUP QUIT XCPU ALRM VTALRM PROF USR1 USR2 IO PWR STKFLT RTMIN RTMAX INT,INT INT,TERM; do
  start env --default-signal "$program" slide --frames frames.csv
  first=${signals%,*}
  last=${signals#*,}
  kill -s "$first" "$started"
  if [[ $signals == *,* ]]; then
    until_said "stopping"
    kill -s "$last" "$started"
  fi
  code=0
  { wait "$started" || code=$?; } 2>/dev/null # the shell tells of a hangup
  exec 9>&-
  expect_equal "exit code after SIG$signals" $((128 + $(kill -l "$last"))) $code
  expect_nothing_left
  expect_no_file frames.csv
  expect_equal "earlier panorama" kept "$(cat slide-panorama.jpg)"
  expect_equal "standard output" 0 "$(wc -c <stdout)"
done

# SIGKILL leaves what was there before, no part of an output, and what the guide names.
start "$program" slide --frames frames.csv
kill -s KILL "$started"
code=0
{ wait "$started" || code=$?; } 2>/dev/null # the shell tells of a kill
exec 9>&-
expect_equal "exit code after SIGKILL" $((128 + $(kill -l KILL))) $code
expect_no_file frames.csv
expect_equal "earlier panorama" kept "$(cat slide-panorama.jpg)"
expect_equal "left in $TMPDIR" "" "$(find "$TMPDIR" -mindepth 1 -maxdepth 1 ! -name 'tarnstitch-??????')"
expect_equal "left beside the outputs" "" "$(find . -maxdepth 1 -name '.*' ! -name . ! -name '.tarnstitch-????????')"
rm -rf "$TMPDIR"/tarnstitch-* .tarnstitch-*

# until_ended: waits until the program started has ended, but not for ever.
until_ended() {
  local round state
  for ((round = 0; round < 6000; ++round)); do
    read -r _ _ state _ 2>/dev/null <"/proc/$started/stat" || return 0
    [[ $state != Z ]] || return 0
    sleep 0.01
  done
  kill -s KILL "$started"
  fail "still there"
}

# Where nobody reads the messages, and a pipe takes no more of them, signals count all the same.
mkfifo unread
exec 7<>unread
dd if=/dev/zero of=unread bs=4096 oflag=nonblock 2>/dev/null || true # until it is full
env --default-signal=INT "$program" slide -o unread.jpg >stdout 2>unread &
started=$!
exec 9>slide/4.png
kill -s INT "$started"
kill -s TERM "$started"
until_ended
code=0
{ wait "$started" || code=$?; } 2>/dev/null # the shell tells of a termination
exec 7>&- 9>&-
expect_equal "exit code with a full standard error" $((128 + $(kill -l TERM))) $code
expect_nothing_left
expect_no_file unread.jpg

# After the first Ctrl-C the next frame is the last one, and what there is becomes the panorama.
start env --default-signal=INT "$program" slide -o stopped.jpg --frames stopped.csv --json
kill -s INT "$started"
until_said "stopping: the panorama is being finished"
let_go 130
expect_file stopped.jpg
expect_equal "lines on frames" 4 "$(wc -l <stopped.csv)"
expect_said "3 frames, 3 taken, 1 unreadable"
grep -qF '"outcome": "stopped"' stdout || fail "no outcome in the summary"
expect_equal "earlier panorama" kept "$(cat slide-panorama.jpg)"

# What the caller wants ignored is ignored.
start env --ignore-signal=HUP "$program" slide
kill -s HUP "$started"
let_go 0
expect_said "7 frames, 7 taken, 1 unreadable"

# A sweep that cannot be stitched even as far as the first Ctrl-C has failed all the same.
mv slide/3.png third.png
"$media" slide other%d.png 1 480 360 30 2 # shows something else
cp other1.png slide/3.png
start env --default-signal=INT "$program" slide -o failed.jpg
kill -s INT "$started"
until_said "stopping: the panorama is being finished"
let_go 1
expect_said "stitching failed at frame 3: "
expect_file failed-partial.jpg

# A first Ctrl-C in the second try, which then gets less far than the first: the first one's part is kept, but it was
# the user who ended it.
rm slide/4.png
mv third.png slide/3.png
mv other1.png slide/9.png
mkfifo pipe
start_held env --default-signal=INT "$program" slide -o second.jpg --json
mv pipe slide/1.png
kill -s CONT "$started"
exec 9>slide/1.png
expect_said "trying once more"
kill -s INT "$started"
until_said "stopping: the panorama is being finished"
let_go 130
expect_said "what was composed until then is in second-partial.jpg"
expect_file second-partial.jpg
expect_no_file second.jpg
grep -qF '"outcome": "stopped"' stdout || fail "no outcome in the summary"
grep -qF '"tries": 2' stdout || fail "not two tries in the summary"

echo "passed"
