#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The API reference is made from the headers that are installed, each with a word on what it is about.
# usage: reference_headers_test.sh SOURCE_DIRECTORY
set -euo pipefail

cd "$1"
installed=$(awk '/^set\(tarn_public_headers/ { inside = 1; next } inside && NF { end = /\)/; gsub(/[ )]/, ""); print; if (end) exit }' \
  cmake/TarnInstall.cmake | LC_ALL=C sort)
[[ -n $installed ]] || { echo "cmake/TarnInstall.cmake lists no headers" && exit 1; }
wrong=0
# same FILE NAMES: whether the file tells of exactly the headers that are installed.
same() {
  diff <(echo "$installed") <(LC_ALL=C sort <<<"$2") || { echo "$1 has other headers than cmake/TarnInstall.cmake" && wrong=1; }
}
same docs/api/Doxyfile "$(sed -nE 's/.*TarnStitchSDK\/([a-z_]+\.h).*/\1/p' docs/api/Doxyfile)"
same docs/api/files.dox "$(sed -nE 's/.*@file ([a-z_]+\.h).*/\1/p' docs/api/files.dox)"
((wrong == 0))
