#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# A CMake project builds against the installed package and stitches a sample.
# usage: cmake_test.sh PREFIX KIND DIRECTORY
# shellcheck source=tests/consumer/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

rm -rf "$3"
quietly configure -S "$(dirname "${BASH_SOURCE[0]}")/cmake" -B "$3" -DCMAKE_PREFIX_PATH="$1" -DCONSUMER_WAY=package \
  -DCONSUMER_KIND="$2" -DCMAKE_BUILD_TYPE=Release
quietly "$TARN_CMAKE" --build "$3"
quietly "$3/library_only"
quietly "$3/library_only_c"
links_library "$3/library_only_c" "$2"
links_library "$3/library_only" "$2"
links_library "$3/sweep" "$2"
stitches "$3/sweep" "$3"
