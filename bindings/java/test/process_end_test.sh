#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# A process ends well, many times, while another of its threads is inside the library.
# usage: process_end_test.sh PROGRAM
set -euo pipefail

# A worker may write its file after the program has removed the directory.
TMPDIR=$(mktemp -d)
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT

for inside in frames last; do
  for ((i = 1; i <= 15; ++i)); do
    status=0
    "$1" "$inside" >"$TMPDIR/log" || status=$?
    if ((status != 0)); then
      echo "$inside: run $i ended with $status"
      exit 1
    fi
  done
  echo "$inside: 15 runs ended well"
done
