#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Where outputs go and what becomes of what was there.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide

# Without -o: the input's name, in the current directory. Without --preview: no other file.
mkdir elsewhere
(
  cd elsewhere
  "$program" ../slide/ 2>../stderr || fail "run elsewhere"
  expect_equal "files" slide-panorama.jpg "$(ls -A)"
)
expect_equal "format" "ffd8ff" "$(head -c 3 elsewhere/slide-panorama.jpg | od -An -tx1 | tr -d ' \n')"

# New files get what the umask leaves, replaced ones keep their permissions, links stay links.
(umask 027 && "$program" slide -o new.jpg --preview new.png) 2>stderr
expect_equal "permissions of a new panorama" 640 "$(stat -c %a new.jpg)"
expect_equal "permissions of a new preview" 640 "$(stat -c %a new.png)"
chmod 604 new.jpg
ln -s new.jpg link.jpg
echo old >new.png
run 0 slide -o link.jpg --preview new.png
expect_equal "permissions of a replaced panorama" 604 "$(stat -c %a new.jpg)"
[[ -L link.jpg ]] || fail "the link is gone"
cmp elsewhere/slide-panorama.jpg new.jpg
expect_equal "size of a replaced preview" 550x300 "$("$media" size new.png)"

# Endings in capitals, and the preview in other formats.
run 0 slide -o CAPITALS.JPEG --preview CAPITALS.PNG
cmp elsewhere/slide-panorama.jpg CAPITALS.JPEG
cmp CAPITALS.PNG new.png
for ending in jpg bmp tif ppm webp; do
  run 0 slide --preview "preview.$ending"
  expect_equal "size of preview.$ending" "$("$media" size new.png)" "$("$media" size "preview.$ending")"
done

# Standard streams may be closed or gone without harm to the files.
"$program" slide -o closed.jpg >&- 2>stderr <&- || fail "closed standard output"
cmp elsewhere/slide-panorama.jpg closed.jpg
"$program" slide -o closed.jpg >&- 2>&- <&- || fail "closed standard streams"
cmp elsewhere/slide-panorama.jpg closed.jpg
"$program" slide -o full.jpg >/dev/full 2>/dev/full || fail "full standard streams"
cmp elsewhere/slide-panorama.jpg full.jpg
{ "$program" slide -o pipe.jpg 2>&1 || echo "$?" >pipe.code; } | :
expect_no_file pipe.code
cmp elsewhere/slide-panorama.jpg pipe.jpg
expect_nothing_left

# The summary needs a standard output, and has it for itself.
code=0
"$program" slide -o summed.jpg --json >&- 2>stderr || code=$?
expect_equal "exit code of --json with a closed standard output" 4 $code
expect_equal "lines on standard error" "tarnstitch: cannot write the summary to standard output: it is closed" "$(cat stderr)"
for option in -o:both.jpg --preview:both.png --frames:both.csv; do
  file=${option#*:}
  code=0
  # shellcheck disable=SC2094 # nothing reads it
  "$program" slide "${option%:*}" "$file" --json >"$file" 2>stderr || code=$?
  expect_equal "exit code of --json with an output in the same file" 2 $code
  expect_said "--json and ${option%:*} cannot both write to $file"
done
for file in slide-panorama.jpg slide-panorama.jpg.json; do # the names that nobody gave
  code=0
  "$program" slide --skip-done --json >$file 2>stderr || code=$?
  expect_equal "exit code of --json in the place of $file" 2 $code
  expect_said "cannot both write to $file"
  rm $file
done
for log in /dev/stdout summary.json; do
  code=0
  "$program" slide -o summed.jpg --json --log $log >summary.json 2>stderr || code=$?
  expect_equal "exit code of --json with the log in the same file" 2 $code
  expect_said "--json and --log cannot both write to $log"
done
expect_equal "lines on standard error" 1 "$(wc -l <stderr)"
expect_no_file summed.jpg
"$program" slide -o summed.jpg --json --log /dev/null >/dev/null 2>stderr || fail "--json and --log to nowhere"

# A temporary directory given by a relative path, with a "/" at its end and a space in it.
mkdir "temporary 2"
TMPDIR="temporary 2/" "$program" slide -o relative.jpg 2>stderr || fail "relative temporary directory"
cmp elsewhere/slide-panorama.jpg relative.jpg
expect_equal "left behind" "" "$(ls -A "temporary 2")"

echo "passed"
