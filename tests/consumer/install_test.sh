#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs the built project, and finds each kind of file where it belongs. The tree stays for the consumers' tests.
# usage: install_test.sh CMAKE BUILD_DIRECTORY PREFIX VERSION LIBRARY_DIRECTORY
# shellcheck source=tests/consumer/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

cmake=$1
source=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
prefix=$3
version=$4
library_directory=$prefix/${5:-lib}

rm -rf "$prefix" "$prefix.first"
# Moved after its installation: nothing in the tree may know where it lies.
quietly "$cmake" --install "$2" --prefix "$prefix.first"
mv "$prefix.first" "$prefix"
cd "$prefix"
find . -not -type d | LC_ALL=C sort

missing=0
for file in "$library_directory/libtarnstitch.so.$version" "$library_directory/libtarnstitch.a" bin/tarnstitch \
  "$library_directory/pkgconfig/tarn_stitch.pc" "$library_directory/cmake/TarnStitch/TarnStitchConfig.cmake" \
  include/TarnStitchSDK/tarn_stitch_jni.h include/TarnStitchSDK/tarn_stitcher.h \
  include/TarnStitchSDK/tarn_sweep.h include/TarnStitchSDK/tarn_c.h share/man/man1/tarnstitch.1 \
  share/bash-completion/completions/tarnstitch share/zsh/site-functions/_tarnstitch; do
  [[ -f $file ]] || { echo "missing: $file" && missing=1; }
done
((missing == 0))

[[ $(readlink "$library_directory/libtarnstitch.so") == libtarnstitch.so.1 ]]
[[ $(readlink "$library_directory/libtarnstitch.so.1") == "libtarnstitch.so.$version" ]]
readelf --dynamic --wide "$library_directory/libtarnstitch.so" | grep 'SONAME.*\[libtarnstitch\.so\.1\]'

# Nothing names a directory of the build.
if grep -rIl -e "$2" -e "$prefix" .; then
  echo "these files name the directory of the build or of the installation"
  exit 1
fi

# The hosts' interfaces and all that they include; the library's own headers stay at home.
wanted=$(printf '%s\n' tarn_c.h tarn_stitch_jni.h tarn_sweep.h)
while :; do
  mapfile -t headers <<<"$wanted"
  included=$({ echo "$wanted" && sed -n 's/^#include "\(.*\)"$/\1/p' "${headers[@]/#/$source/TarnStitchSDK/}"; } | LC_ALL=C sort -u)
  [[ $included != "$wanted" ]] || break
  wanted=$included
done
diff <(echo "$wanted") <(cd include/TarnStitchSDK && LC_ALL=C ls) || { echo "other headers are installed" && exit 1; }

bin/tarnstitch --version | grep -F "$version"
