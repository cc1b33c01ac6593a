#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The table of success (docs/success.md): who makes a whole panorama of which sweep, TarnStitch, OpenCV's stitcher or
# Hugin. Builds tarnstitch after installing what is missing, renders the sweeps, runs all, and writes the page of
# thumbnails out/success/index.html. What is there from an earlier run is kept; --again makes it anew.
# usage: success.sh [--data DIR]... [--only NAME]... [--again | --kept] [--ours] [--without-hugin] [--limit SECONDS]
#                   [--write]
#   --data DIR       a folder with further photographs and clips, by the names that benchmarks/success/sweeps.py has
#   --only NAME      that sweep; with --write the other rows of the table stay
#   --kept           makes nothing, tells what is there
#   --ours           makes anew what TarnStitch makes; what others made stays as it is in the table
#   --without-hugin  which takes longer than all others together
#   --write          puts the table into docs/success.md and benchmarks/success/table.json, the thumbnails into
#                    docs/images/success.jpg
set -euo pipefail
here=$PWD
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

arguments=()
while (($# > 0)); do
  case $1 in
    --write)
      arguments+=(--table benchmarks/success/table.json --document docs/success.md --sheet docs/images/success.jpg)
      ;;
    --data)
      [[ -n ${2:-} ]] || fail "--data needs a folder"
      arguments+=(--data "$(cd "$here" && realpath "$2")")
      shift
      ;;
    *) arguments+=("$1") ;;
  esac
  shift
done

need_packages "${build_packages[@]}" "${success_packages[@]}"

say "Building tarnstitch"
configure release -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_BENCHMARKS=OFF --log-level=WARNING
build release --target tarnstitch

python=python3
[[ ! -x /usr/bin/python3 ]] || python=/usr/bin/python3 # the one that the packages are for

say "Stitching the sweeps"
"$python" benchmarks/success/success.py --program build/release/apps/tarnstitch/tarnstitch --samples samples \
  --out out/success "${arguments[@]}"
