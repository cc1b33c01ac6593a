#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# CONTRIBUTING.md's map names every file of the library, every directory of tests and every directory at the top, and
# nothing that does not exist; each script is told of there or in the README; the README's table has every option.
# usage: map_test.sh SOURCE_DIRECTORY
set -euo pipefail

cd "$1"
wrong=0
# differ WHAT EXISTING NAMED: two sorted lists that should be the same.
differ() {
  diff <(echo "$2") <(echo "$3") || { echo "$1: < is not named, > does not exist" && wrong=1; }
}
sorted() {
  LC_ALL=C sort -u
}

map=$(awk '/^```/ { if (inside) exit; inside = 1; next } inside' CONTRIBUTING.md)
# section DIRECTORY: the names at the beginning of the lines that are indented below it, one per line. A name is
# followed by a comma and another one, or by its description.
section() {
  awk -v directory="$1/" '/^[^ ]/ { inside = ($1 == directory); next } inside && /^  [^ ]/' <<<"$map" \
    | while read -r line; do
      while [[ $line =~ ^([^ ,]+),\ (.*)$ ]]; do
        echo "${BASH_REMATCH[1]}"
        line=${BASH_REMATCH[2]}
      done
      echo "${line%% *}"
    done
}

# Without their endings: a header and its source are one topic.
library=$(cd TarnStitchSDK && printf '%s\n' *.h *.cpp internal/ && cd internal && printf '%s\n' *.h)
differ "files of TarnStitchSDK" "$(sed -E 's/\.(h|cpp)$//' <<<"$library" | sorted)" \
  "$(section TarnStitchSDK | sed -E 's/\.h$//' | sorted)"
tests=$(cd tests && printf '%s\n' */)
differ "directories of tests" "$(sorted <<<"$tests")" "$(section tests | grep '/$' | sorted)"
directories=$(printf '%s\n' */ | grep -vxE '(build|out)/')
differ "directories" "$(sorted <<<"$directories")" "$(grep -oE '^[A-Za-z]+/' <<<"$map" | sorted)"

for script in scripts/*.sh bindings/*/*.sh; do
  grep -qF "$script" CONTRIBUTING.md README.md || { echo "neither document tells of $script" && wrong=1; }
done
options=$(sed -nE 's/^option\((TARN_[A-Z_]+).*/\1/p' CMakeLists.txt apps/tarnstitch/CMakeLists.txt)
differ "options" "$(sorted <<<"$options")" "$(sed -nE 's/^\| .(TARN_[A-Z_]+).*/\1/p' README.md | sorted)"
((wrong == 0))
