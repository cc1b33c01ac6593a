#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The finishing library's unit tests under AddressSanitizer with UndefinedBehaviorSanitizer. The presets build without
# that library, to keep what is checked of every change short; this builds beside them, in build/finishing-asan-ubsan.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}"

directory=build/finishing-asan-ubsan
say "Building the finishing library's tests with asan-ubsan"
cmake --preset asan-ubsan -B "$directory" -G Ninja --log-level=WARNING -DTARN_BUILD_FINISHING=ON -DTARN_BUILD_APPS=OFF
cmake --build "$directory" --parallel "$jobs" --target tarn_finishing_tests

say "Running them"
export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1
export UBSAN_OPTIONS=print_stacktrace=1
TARN_TEST_SCALE=${TARN_TEST_SCALE:-0.1} "$directory/tests/finishing/tarn_finishing_tests" --gtest_brief=1
