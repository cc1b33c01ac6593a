#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --skip-done: nothing is done again, unless something has changed that matters.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide
asked=(slide -o out/a.jpg --skip-done)
mkdir out

# Each call says whether it did something; --preview and --frames are wanted from some point on.
does() {
  run 0 "${asked[@]}" "$@"
  expect_said "8 frames, 8 taken"
  expect_equal "a record's outcome" 1 "$(grep -cF '"outcome": "done"' out/a.jpg.json)"
}
states() {
  find out -exec stat -c '%n %i %y' {} + | sort
}
does_nothing() {
  local before
  before=$(states)
  run 0 "${asked[@]}" "$@"
  expect_equal "said" "tarnstitch: nothing to do: out/a.jpg has been made of the same input with the same options" \
    "$(cat stderr)"
  expect_equal "outputs" "$before" "$(states)"
}

does
does_nothing
# What changes no pixel changes nothing.
does_nothing --threads 3 --workers 5
# Each output's digest is the file's; a summary on standard output is that of the run that did it.
digest=$(sha256sum <out/a.jpg)
grep -qF "\"sha256\": \"${digest%% *}\"" out/a.jpg.json || fail "the panorama's digest is not in the record"
digest=$(sha256sum <slide/8.png)
grep -qF "\"sha256\": \"${digest%% *}\"" out/a.jpg.json || fail "a picture's digest is not in the record"
"$program" "${asked[@]}" -q --json >summary.json 2>stderr || fail "--json"
expect_equal "difference to the record" '<   "skipped": true,>   "skipped": false,' \
  "$(diff summary.json out/a.jpg.json | grep '^[<>]' | tr -d '\n')"

# Another time of the same pictures is nothing; other pictures, fewer of them, or others of the same time and size are.
touch slide/*.png
does_nothing
printf x >>slide/3.png
does
does_nothing
# So are others with the same size and a time that somebody has set back.
modified=$(stat -c %y slide/3.png)
printf y | dd of=slide/3.png bs=1 seek=$(($(stat -c %s slide/3.png) - 1)) conv=notrunc status=none
touch -d "$modified" slide/3.png
does
does_nothing
cp slide/1.png kept.png
printf x >>slide/1.png
rm slide/1.png
run 0 "${asked[@]}"
expect_said "7 frames, 7 taken"
cp kept.png slide/1.png
does

# Options and outputs that were not asked for before.
does --quality 80
does --quality 81
does
does --preview out/p.png --frames out/f.csv --log out/log --keep-work out/kept
asked+=(--preview out/p.png --frames out/f.csv --log out/log --keep-work out/kept)
does_nothing

# Outputs that are not what they were.
for file in a.jpg p.png f.csv log kept/big_stitch.jpg; do
  printf x >>out/$file
  does
  rm out/$file
  does
done
does_nothing

# No record, one that is none, or another program's.
rm out/a.jpg.json
does
for text in "" "{" "null" "[1]" '{"tarnstitch": 1}'; do
  echo "$text" >out/a.jpg.json
  does
done
sed -i 's/"tarnstitch": ".*"/"tarnstitch": "0.9.0"/' out/a.jpg.json
does
sed -i 's/"ffmpeg": ".*"/"ffmpeg": "0.9.0"/' out/a.jpg.json
does
sed -i 's/"exit_code": 0/"exit_code": 1/' out/a.jpg.json
does

# A run that was ended leaves what it was to do to the next one.
printf x >>slide/3.png
start_held env --default-signal "$program" "${asked[@]}"
kill -s TERM "$started"
kill -s CONT "$started"
code=0
{ wait "$started" || code=$?; } 2>/dev/null # the shell tells of a termination
expect_equal "exit code after SIGTERM" 143 $code
expect_nothing_left
does
does_nothing

# Moved together, outputs and record hold.
mv out elsewhere
asked=(slide -o elsewhere/a.jpg --skip-done --preview elsewhere/p.png --frames elsewhere/f.csv --log elsewhere/log
  --keep-work elsewhere/kept)
run 0 "${asked[@]}"
expect_said "nothing to do"

# Other pictures of the same size and time: archives and memory cards give many files the same.
mkdir one other
for number in 1 2 3 4 5 6 7 8; do
  convert slide/$number.png -strip bmp:one/$number.bmp
  cp one/$number.bmp other/$((9 - number)).bmp
done
touch -d 2026-01-01 one/* other/*
run 0 one -o c.jpg --skip-done
run 0 other -o c.jpg --skip-done
expect_said "8 frames, 8 taken"
run 0 other -o c.jpg --skip-done
expect_said "nothing to do"

# Among the images that it is made of a panorama is known by its record, and no image for another one's.
mkdir inside
cp slide/?.png inside
inside=(inside -o inside/pan.png --preview inside/small.png --skip-done)
run 0 "${inside[@]}"
expect_said "8 frames, 8 taken"
run 0 "${inside[@]}"
expect_said "nothing to do"
run 0 "${inside[@]}" --crop
expect_said "8 frames, 8 taken"
run 0 inside -o inside/pan.png --preview elsewhere.png --skip-done # knows the first preview, too
expect_said "8 frames, 8 taken"
rm inside/small.png
(cd inside && run 0 . -o pan.png --preview ../elsewhere.png --skip-done && expect_said "nothing to do")
run 0 "${inside[@]}"
cp slide/1.png inside/pan.png
expect_error 4 "cannot write inside/pan.png: it is one of the input's files" "${inside[@]}"

# A run that fails leaves no record, and the one of an earlier run as it was.
run 4 slide -o full.jpg --skip-done --log /dev/full
expect_no_file full.jpg.json
"$media" slide slide/9%d.png 1 480 360 30 2 # shows something else
cp elsewhere/a.jpg.json record
run 1 "${asked[@]}" --no-retry
cmp record elsewhere/a.jpg.json

# The record has its place among the outputs.
mkdir b.jpg.json
expect_error 4 "cannot write b.jpg.json: it is a directory" slide -o b.jpg --skip-done
expect_error 2 "the record of --skip-done" slide -o b.jpg --skip-done --log b.jpg.json

echo "passed"
