#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Signals end the program at once and leave nothing behind.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide
# The fourth picture is a pipe: the program is in the middle of the sweep when it opens it, and waits there.
rm slide/4.png
mkfifo slide/4.png
echo kept >slide-panorama.jpg

# start COMMAND...: runs a command in the background until the program in it waits for the picture.
start() {
  "$@" >stdout 2>stderr &
  started=$!
  exec 9>slide/4.png
  [[ $(find "$TMPDIR" -mindepth 1 -maxdepth 1 -type d -name 'tarnstitch-*' -perm 700 | wc -l) -eq 1 ]] \
    || fail "no private working directory"
}

# A shell without job control starts background commands with SIGINT ignored; env undoes that.
for signal in TERM INT HUP; do
  start env --default-signal="$signal" "$program" slide
  kill -s "$signal" $started
  code=0
  { wait $started || code=$?; } 2>/dev/null # the shell tells of a hangup
  exec 9>&-
  expect_equal "exit code after SIG$signal" $((128 + $(kill -l "$signal"))) $code
  expect_nothing_left
  expect_equal "earlier panorama" kept "$(cat slide-panorama.jpg)"
  expect_equal "standard output" 0 "$(wc -c <stdout)"
done

# What the caller wants ignored is ignored.
start env --ignore-signal=HUP "$program" slide
kill -s HUP $started
echo "no image" >&9
exec 9>&-
code=0
wait $started || code=$?
expect_equal "exit code after an ignored signal" 0 $code
expect_nothing_left
expect_said "7 frames, 7 taken, 1 unreadable"

echo "passed"
