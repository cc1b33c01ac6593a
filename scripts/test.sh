#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds everything and runs every test, after installing what is missing. Arguments go to CMake's configuration.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}"
if [[ " $* " == *" -DTARN_BUILD_BENCHMARKS=ON "* ]]; then
  need_packages "${benchmark_packages[@]}"
fi
java=$(java_option)
python=$(python_option)

say "Building TarnStitch and its tests"
configure release -DTARN_BUILD_TESTS=ON -DTARN_BUILD_APPS=ON "$java" "$python" "$@"
build release

say "Running the tests"
status=0
ctest --preset release --parallel "$jobs" || status=$?

# ctest shows what a test writes only if it fails.
junit=build/release/bindings/java/test/junit.txt
if [[ $java == *ON && -s $junit ]]; then
  say "The Java tests, by their own runner"
  sed -n '/^Test run finished/,$p' "$junit"
fi
exit "$status"
