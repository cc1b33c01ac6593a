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

# until_said TEXT: waits until the program has said it.
until_said() {
  local round
  for ((round = 0; round < 6000; ++round)); do
    ! grep -qF -e "$1" stderr || return 0
    sleep 0.01
  done
  fail "not said: $1"
}

for signals in TERM HUP INT,INT INT,TERM; do
  start env --default-signal=INT,TERM,HUP "$program" slide --frames frames.csv
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

echo "passed"
