#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The shared library shows the names in the list and no others. Tells the size of the stripped library, too.
# usage: exported_symbols_test.sh LIBRARY LIST STRIPPED_COPY
set -euo pipefail

library=$1
"${STRIP:-strip}" --strip-unneeded -o "$3" "$library"
echo "size: $(wc -c <"$3") bytes stripped, $(wc -c <"$library") as built"

found=$("${NM:-nm}" --dynamic --demangle --defined-only "$library" | sed -E 's/^[0-9a-f]+ . //' | LC_ALL=C sort -u)
expected=$(grep -v -e '^#' -e '^$' "$2" | LC_ALL=C sort -u)
if ! diff <(printf '%s\n' "$expected") <(printf '%s\n' "$found"); then
  echo "< should be shown and is not; > is shown and should not be (cmake/exports.map, $2)"
  exit 1
fi
echo "$(wc -l <<<"$found") names"
