#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds everything and runs every test, after installing what is missing. Arguments go to CMake's configuration.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}"

say "Building TarnStitch and its tests"
configure release -DTARN_BUILD_TESTS=ON -DTARN_BUILD_APPS=ON "$@"
build release

say "Running the tests"
ctest --preset release --parallel "$jobs"
