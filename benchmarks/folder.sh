#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# A folder of 40 sweeps, the samples over and over: each alone, one after the other, with all threads; and as many at
# once as there are processors, with one thread each, by GNU parallel. Prints a table in Markdown: the time on the wall
# and of the processors, the lowest of some rounds in which both take turns.
# usage: folder.sh [PROGRAM [ROUNDS]], by default the program of the release build and 3
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../scripts/lib/common.sh"

program=$(realpath "${1:-build/release/apps/tarnstitch/tarnstitch}")
rounds=${2:-3}
[[ -x $program ]] || fail "There is no $program: run scripts/test.sh."
parallel --version 2>/dev/null | grep -q "^GNU parallel" || fail "There is no GNU parallel."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkdir sweeps single batch
videos=("$root"/samples/*.mp4)
for ((number = 0; number < 40; ++number)); do
  ln -s "${videos[number % ${#videos[@]}]}" "sweeps/$(printf %02d $number).mp4"
done

one_by_one() {
  local sweep
  for sweep in sweeps/*.mp4; do
    "$program" "$sweep" --quiet -o "single/$(basename "$sweep" .mp4).jpg"
  done
}
side_by_side() {
  parallel --jobs 100% "$program" {} --quiet --threads 1 -o batch/{/.}.jpg ::: sweeps/*.mp4
}

# lowest NAME: of the times that are in NAME.txt, each on its own.
lowest() {
  awk -v name="$1" 'NR == 1 || $1 < wall { wall = $1 } NR == 1 || $2 + $3 < busy { busy = $2 + $3 }
    END { printf "| %s | %.1f | %.1f |\n", name, wall, busy }' "$1.txt"
}

TIMEFORMAT='%R %U %S'
load=$(cut -d ' ' -f 1-3 /proc/loadavg)
for ((round = 0; round < rounds; ++round)); do
  for way in one_by_one side_by_side; do
    { time $way >/dev/null 2>messages; } 2>>$way.txt
  done
done
for panorama in single/*.jpg; do
  cmp "$panorama" "batch/${panorama#single/}" # or the figures are of something else
done

echo "40 sweeps on $(nproc) processors, the lowest of $rounds rounds; load before them: $load"
echo
echo "| | seconds | seconds of processors |"
echo "| --- | ---: | ---: |"
lowest one_by_one
lowest side_by_side
