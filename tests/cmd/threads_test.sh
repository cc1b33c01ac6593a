#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --threads: as many as the program was given unless it is said, and the same bytes with any number of them.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

sweep=("$samples/parking_pan.mp4" --step 5)
files=(now.jpg now.png now.txt)
if "$program" "${sweep[@]}" --finish -q -o now.jpg 2>stderr; then
  sweep+=(--finish)
  files+=(now-finished.jpg)
else
  expect_said "finish" # a program built without it says so
fi
for numbers in "1 1" "1 4" "2 2" "3 1" "16 16"; do
  read -r threads workers <<<"$numbers"
  run 0 "${sweep[@]}" -o now.jpg --preview now.png --frames now.csv --threads "$threads" --workers "$workers"
  cut -d , -f 1-18 now.csv >now.txt # without the time that each took
  for file in "${files[@]}"; do
    [[ $numbers != "1 1" ]] || cp "$file" "first${file#now}"
    cmp "first${file#now}" "$file" || fail "another $file with --threads $threads --workers $workers"
  done
done

# Where nobody says, it is the processors that the program may run on.
"$media" flat flat.png 400 300
threads_told() {
  # A single picture is no panorama.
  "$@" flat.png -o flat.jpg --json -q >summary.json 2>stderr || [[ $? == 1 ]] || fail "$*"
  grep -oP '"threads": \K[0-9]+' summary.json
}
expect_equal "threads told" 1 "$(threads_told "$program" --threads 1)"
expect_equal "most threads" "$(threads_told "$program")" "$(threads_told "$program" --threads 256)"
if command -v taskset >/dev/null; then
  processor=$(taskset -cp $$ | grep -oP ': \K[0-9]+')
  expect_equal "threads on one processor" 1 "$(threads_told taskset -c "$processor" "$program")"
fi

echo "passed"
