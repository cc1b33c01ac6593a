#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Cross-compiles the native half for 64-bit ARM and checks what cannot be checked on the building machine's own
# library: that each part of it which is loaded is aligned to memory pages of 16 KiB. For Debian; fetches OpenCV
# for that architecture (some 50 packages) into build/arm64-sysroot, and leaves the system's own packages alone.
# The result is not run.
# Arguments go to CMake's configuration.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib/common.sh"

need_packages cmake ninja-build g++-aarch64-linux-gnu default-jdk-headless
command -v aarch64-linux-gnu-g++ >/dev/null || fail "aarch64-linux-gnu-g++ is missing."

sysroot=$root/build/arm64-sysroot
if [[ ! -e $sysroot/complete ]]; then
  say "Fetching OpenCV for 64-bit ARM"
  command -v apt-get >/dev/null || fail "There is no apt here to fetch OpenCV for another architecture with."
  rm -rf "$sysroot"
  mkdir -p "$sysroot/apt/state/lists/partial" "$sysroot/apt/cache/archives/partial" "$sysroot/packages"
  touch "$sysroot/apt/status"
  # A package manager of its own: the system's neither sees the other architecture nor is changed.
  options=(--quiet --quiet -o APT::Architecture=arm64 -o APT::Architectures=arm64
    -o "APT::Sandbox::User=$(id -un)" -o "Dir::State=$sysroot/apt/state"
    -o "Dir::State::status=$sysroot/apt/status" -o "Dir::Cache=$sysroot/apt/cache")
  apt-get "${options[@]}" update
  # OpenCV's description of itself wants to see all its modules, though not what those need in turn.
  mapfile -t names < <(apt-cache "${options[@]}" depends --recurse --no-recommends --no-suggests --no-conflicts \
    --no-breaks --no-replaces --no-enhances libopencv-dev | grep -E '^libopencv-[a-z0-9]+(-dev|406)?$' | sort -u)
  (cd "$sysroot/packages" && apt-get "${options[@]}" download "${names[@]}")
  for package in "$sysroot"/packages/*.deb; do
    dpkg-deb --extract "$package" "$sysroot"
  done
  touch "$sysroot/complete"
fi

say "Building the native half for 64-bit ARM"
cmake -S . -B build/arm64 -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARN_BUILD_JAVA=ON -DTARN_BUILD_TESTS=OFF \
  -DTARN_BUILD_APPS=OFF -DCMAKE_TOOLCHAIN_FILE="$root/bindings/java/arm64-toolchain.cmake" \
  -DTARN_ARM64_SYSROOT="$sysroot" "$@"
cmake --build build/arm64 --parallel "$jobs" --target tarnstitch_jar

library=build/arm64/bindings/java/libtarn_stitch_jni.so
say "Looking at $library"
aarch64-linux-gnu-readelf -hlW "$library" | grep -E 'Class|Machine|Type  |LOAD'
mapfile -t alignments < <(aarch64-linux-gnu-readelf -lW "$library" | awk '$1 == "LOAD" { print $NF }')
((${#alignments[@]} > 0)) || fail "It has nothing to load."
for alignment in "${alignments[@]}"; do
  ((alignment == 16384)) || fail "A part of it is aligned to $alignment instead of 0x4000."
done
bindings/java/test/exports_test.sh "$library"
say "Page size: all ${#alignments[@]} parts that are loaded are aligned to 16 KiB."
