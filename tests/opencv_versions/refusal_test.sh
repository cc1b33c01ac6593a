#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# usage: refusal_test.sh CMAKE SOURCE_DIRECTORY DIRECTORY
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
unset OpenCV_DIR
for version in honest obliging; do
  rm -rf "$3"
  # The system's own version is not to be found: it would be taken instead of one that says it is no version 4.
  if output=$("$1" -S "$2" -B "$3" -DOpenCV_DIR="$here/$version" \
    -DCMAKE_PROJECT_INCLUDE="$here/nothing_else.cmake" 2>&1); then
    echo "the $version version 5 was accepted"
    exit 1
  fi
  sentence=$(tr -s ' \n' ' ' <<<"$output" | grep -o 'TarnStitch works with OpenCV 4 only[^;]*;[^;]*moved\.') || {
    echo "$output"
    exit 1
  }
  echo "$version: $sentence"
done
