#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Names and places that are odd, two runs that write the same, and disks that are full or cannot be written.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide

# Names of any bytes, also in the record of --skip-done, whose text is UTF-8.
for name in "with space" $'two\nlines' $'no\xffutf8' "--help" "%d" "*"; do
  cp -r slide "./$name"
  run 0 --skip-done -- "./$name"
  expect_said "8 frames, 8 taken"
  expect_file "./$name-panorama.jpg"
  run 0 --skip-done -- "./$name"
  expect_said "nothing to do"
done
run 0 slide -o --odd.jpg
"$media" same ./--odd.jpg "./with space-panorama.jpg"

# Two that write the same at once: both are done, and what stands there is whole and known.
pids=()
for run in 1 2; do
  "$program" slide -q -o same.jpg --preview same.png --frames same.csv --skip-done 2>"stderr.$run" &
  pids+=($!)
done
for pid in "${pids[@]}"; do
  wait "$pid" || fail "one of two runs at once: $(cat stderr.1 stderr.2)"
done
expect_nothing_left
"$media" same same.jpg "./with space-panorama.jpg"
expect_equal "lines on frames" 9 "$(wc -l <same.csv)"

# A working directory that is no more.
mkdir gone
(
  cd gone
  rmdir ../gone
  "$program" "$work/slide" -o "$work/from-gone.jpg" 2>"$work/stderr" || fail "in a directory that is no more"
  code=0
  "$program" "$work/slide" 2>"$work/stderr" || code=$?
  expect_equal "exit code" 4 $code
  expect_said "cannot write slide-panorama.jpg: No such file or directory"
)
# Links that lead nowhere.
ln -s nowhere/a.jpg nowhere.jpg
expect_error 4 "cannot write nowhere.jpg: there is no directory nowhere" slide -o nowhere.jpg
ln -s round.jpg round.jpg
expect_error 4 "cannot write round.jpg: Too many levels of symbolic links" slide -o round.jpg
ln -s around around
expect_error 3 "cannot read around: Too many levels of symbolic links" around
expect_nothing_left

mkdir small
if [[ $(id -u) -ne 0 ]] || ! mount -t tmpfs -o size=48k tmpfs small 2>/dev/null; then
  echo "passed, but for disks: no file system can be mounted"
  exit 0
fi
trap 'rc=$?; umount "$work/small"; rm -rf "$work"; exit $rc' EXIT
head -c 45056 /dev/zero >small/filler
# One output that finds no room keeps none of the others from its place.
run 4 slide -o a.jpg --report small/r.html --frames a.csv --preview a.png
expect_said "cannot write small/r.html: No space left on device"
for file in a.jpg a.csv a.png; do
  expect_file $file
done
rm a.*
run 4 slide -o a.jpg --frames a.csv --preview small/p.bmp
expect_said "cannot write small/p.bmp: No space left on device"
"$media" same a.jpg same.jpg
expect_equal "lines on frames" 9 "$(wc -l <a.csv)"
expect_equal "left on the full disk" filler "$(ls -A small)"
# One that cannot be written at all is found out before the work begins.
mount -o remount,ro "$work/small"
expect_error 4 "cannot write small/a.jpg: Read-only file system" slide -o small/a.jpg
expect_error 4 "cannot write small/f.csv: Read-only file system" slide --frames small/f.csv
(cd small && "$program" ../slide -o ../from-there.jpg 2>../stderr) || fail "in a directory that cannot be written"
"$media" same from-there.jpg same.jpg

echo "passed"
