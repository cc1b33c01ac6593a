#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The C++ code in the README is examples/minimal_host.cpp to the letter, its opening comment left out.
# usage: readme_example_test.sh SOURCE_DIRECTORY
set -euo pipefail

cd "$1"
shown=$(awk '/^```cpp$/ { inside = 1; next } /^```$/ { inside = 0 } inside' README.md)
built=$(awk '/^#include/ { begun = 1 } begun' examples/minimal_host.cpp)
if [[ -z $shown ]]; then
  echo "README.md shows no C++ code"
  exit 1
fi
diff <(printf '%s\n' "$shown") <(printf '%s\n' "$built")
