# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
#
# What the tests of docs/batch.md share: a folder of sweeps, one of which keeps its job waiting, and what has to hold of
# the panoramas. Sourced like lib.sh, which it sources.

# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

batch_source=$(dirname "$samples")
PATH=$(dirname "$program"):$PATH
ln -s "$batch_source/examples" examples

# recipe TITLE [NUMBER]: the first, or another, piece of commands under a title of docs/batch.md.
recipe() {
  awk -v title="## $1" -v number="${2:-1}" '/^## / { there = $0 == title } /^```$/ { inside = 0 }
    there && inside && pieces == number
    /^```sh$/ { inside = 1; pieces += there }' "$batch_source/docs/batch.md"
}

# make_folder: sweeps/sweep1 to sweep5, of tiny pictures. A pipe is sweep3's fourth.
make_folder() {
  local number
  for number in 1 2 3 4 5; do
    mkdir -p sweeps/sweep$number
    "$media" slide sweeps/sweep$number/%d.png 6 320 240 30 $number
  done
  mv sweeps/sweep3/4.png fourth.png
  mkfifo sweeps/sweep3/4.png
}

# wait_in_the_middle: until sweep3's job waits, and the two before it have left their records.
wait_in_the_middle() {
  local round
  exec 9>sweeps/sweep3/4.png # opens when the other end is
  for ((round = 0; round < 6000; ++round)); do
    [[ ! -e panoramas/sweep1.jpg.json || ! -e panoramas/sweep2.jpg.json ]] || return 0
    sleep 0.01
  done
  fail "the first sweeps are not stitched"
}

# release_the_middle: the picture comes.
release_the_middle() {
  exec 9>&-
  rm sweeps/sweep3/4.png
  mv fourth.png sweeps/sweep3/4.png
}

made() {
  find panoramas \( -name '*.jpg' -o -name '*.csv' -o -name '*.jpg.json' \) -printf '%p %i %t\n'
}

# keep_state: what has its record by now must stay as it is.
keep_state() {
  local record
  : >kept
  for record in panoramas/*.jpg.json; do
    made | grep -F "${record%.jpg.json}." >>kept
  done
  [[ -s kept ]] || fail "nothing was made"
}

# expect_panoramas: one of each sweep with its record, and none made again that was kept.
expect_panoramas() {
  local number missing
  for number in 1 2 3 4 5; do
    expect_file panoramas/sweep$number.jpg
    expect_file panoramas/sweep$number.jpg.json
  done
  missing=$(grep -vxF -f <(made) kept || true)
  [[ -z $missing ]] || fail "made twice: $missing"
}

# expect_all_made: the panoramas, and the tables of frames.
expect_all_made() {
  local number
  expect_panoramas
  for number in 1 2 3 4 5; do
    expect_equal "frames of sweep$number" 7 "$(wc -l <panoramas/sweep$number.csv)"
  done
}
