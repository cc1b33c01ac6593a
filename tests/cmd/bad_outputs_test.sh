#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Outputs that fail after the sweep, when there is something to lose: a full disk, a directory that has gone.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_waiting_slide

# The output's directory goes while the program waits for the fourth picture.
mkdir gone
start "$program" slide -o gone/a.jpg --preview b.png --frames gone/f.csv
rm -r gone
let_go 4
expect_said "cannot write gone/a.jpg: No such file or directory"
expect_said "cannot write gone/f.csv: No such file or directory"
expect_file b.png
rm slide/4.png

# Outputs that are no pictures are checked beforehand, too.
expect_error 4 "there is no directory none" slide --frames none/a.csv
expect_error 4 "cannot write none/a.log" slide --log none/a.log
echo text >file
expect_error 4 "cannot keep working files in file: it is not a directory" slide --keep-work file
expect_error 4 "there is no directory none" slide --keep-work none/kept
expect_error 4 "the input's files are there" slide --keep-work slide
expect_no_file none

# A log that cannot be written to its end.
run 4 slide -o logged.jpg --log /dev/full
expect_said "cannot write /dev/full to its end"
expect_file logged.jpg

# A full disk: what was there stays, and nothing is left behind.
mkdir full
if [[ $(id -u) -ne 0 ]] || ! mount -t tmpfs -o size=64k tmpfs full 2>/dev/null; then
  echo "passed, but for the full disk: no file system can be mounted"
  exit 0
fi
trap 'rc=$?; umount "$work/full"; rm -rf "$work"; exit $rc' EXIT
echo kept >full/a.jpg
run 4 slide -o full/a.jpg --preview outside.png
expect_said "cannot write full/a.jpg: No space left on device"
expect_equal "panorama that could not be replaced" kept "$(cat full/a.jpg)"
expect_equal "left on the full disk" a.jpg "$(ls -A full)"
expect_file outside.png
run 4 slide -o b.jpg --keep-work full/kept
expect_said "No space left on device"
expect_file b.jpg
rm -rf full/kept

# Where the temporary directory is full the panorama comes from memory.
head -c 60000 /dev/zero >full/filler
TMPDIR=$work/full "$program" slide -o from-memory.jpg 2>stderr || fail "full temporary directory"
run 0 slide -o from-disk.jpg
"$media" same from-memory.jpg from-disk.jpg

# Working files that could not be written there cannot be kept, and that is said.
code=0
TMPDIR=$work/full "$program" slide -o from-memory.jpg --keep-work none-kept 2>stderr || code=$?
expect_equal "exit code without working files" 4 $code
expect_said "none-kept is without "
expect_said "which could not be written in the temporary directory"
"$media" same from-memory.jpg from-disk.jpg

echo "passed"
