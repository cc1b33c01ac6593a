#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Each installed header compiles alone, with warnings as errors; that of the C interface as strict C99, too, without
# any other library's headers.
# usage: headers_test.sh PREFIX
# shellcheck source=tests/consumer/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$1" -name tarn_stitch.pc)")
# In the shell's own syntax: a path may have spaces.
eval "flags=($(pkg-config --cflags tarn_stitch))"
# A host's own warnings do not concern OpenCV's headers.
for i in "${!flags[@]}"; do
  case ${flags[i]} in
    "-I$1"/*) ;;
    -I*) flags[i]=-isystem${flags[i]#-I} ;;
  esac
done
headers=0
for header in "$1"/include/TarnStitchSDK/*.h; do
  printf '#include <TarnStitchSDK/%s>\n' "$(basename "$header")" \
    | "${CXX:-c++}" -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only "${flags[@]}" -x c++ -
  headers=$((headers + 1))
done
printf '#include <TarnStitchSDK/tarn_c.h>\n' \
  | "${CC:-cc}" -std=c99 -pedantic-errors -Wall -Wextra -Werror -fsyntax-only -I"$1/include" -x c -
echo "$headers headers"
((headers > 0))
