#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Cross-compiles the native half for 64-bit ARM and checks what cannot be checked on the building machine's own
# library: that each part of it which is loaded is aligned to memory pages of 16 KiB. For Debian; fetches OpenCV
# for that architecture into build/arm64-sysroot, and leaves the system's own packages alone.
# The result is not run.
# Arguments go to CMake's configuration.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/../../scripts/lib/common.sh"
# shellcheck source=scripts/lib/arm64.sh
source "$root/scripts/lib/arm64.sh"

need_packages cmake ninja-build g++-aarch64-linux-gnu default-jdk-headless
command -v aarch64-linux-gnu-g++ >/dev/null || fail "aarch64-linux-gnu-g++ is missing."
need_arm64_sysroot

say "Building the native half for 64-bit ARM"
configure_arm64 build/arm64-java -DTARN_BUILD_JAVA=ON -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_APPS=OFF "$@"
cmake --build build/arm64-java --parallel "$jobs" --target tarnstitch_jar

library=build/arm64-java/bindings/java/libtarn_stitch_jni.so
say "Looking at $library"
aarch64-linux-gnu-readelf -hlW "$library" | grep -E 'Class|Machine|Type  |LOAD'
check_page_alignment "$library"
bindings/java/test/exports_test.sh "$library"
