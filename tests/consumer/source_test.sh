#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Another project builds TarnStitch as a part of itself, without anything that is for work on TarnStitch. A build
# without optimisation and debug information, for its brevity; as a static library in one way and as a shared one in
# the other.
# usage: source_test.sh SOURCE WAY DIRECTORY
# shellcheck source=tests/consumer/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

kind=static
[[ $2 == subdirectory ]] || kind=shared
rm -rf "$3"
quietly configure -S "$(dirname "${BASH_SOURCE[0]}")/cmake" -B "$3" -DCONSUMER_WAY="$2" -DCONSUMER_SOURCE="$1" \
  -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG= -DBUILD_SHARED_LIBS="$([[ $kind == shared ]] && echo ON || echo OFF)"
quietly "$TARN_CMAKE" --build "$3" --target library_only library_only_c
quietly "$3/library_only"
quietly "$3/library_only_c"
links_library "$3/library_only" "$kind"

# The program, the library, and of the library only the kind that was linked.
built=$(find "$3" -type f \( -name '*.a' -o -name '*.so*' -o -name tarnstitch -perm -u+x \) -printf '%f\n' | LC_ALL=C sort)
echo "built: $built"
case $kind in
  static) [[ $built == libtarnstitch.a ]] ;;
  shared) [[ $built == libtarnstitch.so.* && $built != *$'\n'* ]] ;;
esac
