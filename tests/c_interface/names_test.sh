#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The functions of tarn_c.h are those that the shared library shows (cmake/exports.map), that the program of the
# interface's names in C uses, and that the library is found to have when it is opened at run time.
# usage: names_test.sh SOURCE_DIRECTORY DLOPEN_HOST LIBRARY
set -euo pipefail

cd "$1"
declared=$(grep -oE '^[a-z][a-z_ *]*[ *](tarn_[a-z_]+)\(' TarnStitchSDK/tarn_c.h | grep -oE 'tarn_[a-z_]+\($' | tr -d '(' | LC_ALL=C sort)
[[ $(wc -l <<<"$declared") -gt 20 ]] || { echo "tarn_c.h declares too little: $declared" && exit 1; }
wrong=0
# same FILE NAMES
same() {
  diff <(echo "$declared") <(LC_ALL=C sort -u <<<"$2") || { echo "$1 has other names than TarnStitchSDK/tarn_c.h" && wrong=1; }
}
same cmake/exports.map "$(grep -oE '^ +tarn_[a-z_]+;' cmake/exports.map | tr -d ' ;' | grep -vx tarn_stitcher)"
same tests/symbols/c_names.c "$(grep -oE '&tarn_[a-z_]+' tests/symbols/c_names.c | tr -d '&')"
((wrong == 0))
mapfile -t names <<<"$declared"
"$2" "$3" "${names[@]}"
