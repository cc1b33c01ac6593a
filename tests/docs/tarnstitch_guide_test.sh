#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The commands of the guide to tarnstitch do what it says, one after the other, in a directory with the samples. Those
# that fail on purpose say with which exit code. The options and the tests that it names exist.
# usage: tarnstitch_guide_test.sh PROGRAM SOURCE_DIRECTORY
set -euo pipefail

program=$1
source=$2
guide=$source/docs/tarnstitch.md
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
ln -s "$source"/samples/*.mp4 .
PATH=$(dirname "$program"):$PATH

commands=0
while IFS= read -r line; do
  expected=0
  if [[ $line =~ \#\ exits\ with\ ([0-9]+)$ ]]; then
    expected=${BASH_REMATCH[1]}
  fi
  code=0
  bash -c "$line" 2>stderr || code=$?
  if [[ $code -ne $expected ]]; then
    echo "exit code $code instead of $expected: $line"
    cat stderr
    exit 1
  fi
  commands=$((commands + 1))
done < <(awk '/^```sh$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$guide")
for file in parking_pan-panorama.jpg parking_pan-finished.jpg car-park.png car-park-preview.jpg hall.jpg sparse.jpg river.jpg car-park.csv car-park.html \
  river.json river-sparse-partial.jpg; do
  [[ -s $file ]] || { echo "the guide's commands do not write $file"; exit 1; }
done

help=$(tarnstitch --help) # not through a pipe, which grep may close before all is written
while IFS= read -r option; do
  grep -qF -e "  $option" -e ", $option" <<<"$help" || { echo "there is no option $option"; exit 1; }
done < <(grep -oE '`--[a-z-]+' "$guide" | tr -d '`' | sort -u)
for column in $(head -n 1 car-park.csv | tr ',' ' '); do
  case $column in
    angle_top_right | angle_bottom_right | scale_right | scale_bottom) ;; # between two that are named
    *) grep -qF "\`$column\`" "$guide" || { echo "the guide does not explain the column $column"; exit 1; } ;;
  esac
done
while IFS= read -r name; do
  grep -qF -e "$name" "$source/tests/cmd/CMakeLists.txt" "$source/tests/cmd/exit_codes_test.sh" \
    || { echo "there is no test of the exit code $name"; exit 1; }
done < <(grep -oE 'cmd\.exit_code_[a-z_]+' "$guide" | sed 's/cmd\.exit_code_//')
echo "$commands commands"
((commands > 6))
