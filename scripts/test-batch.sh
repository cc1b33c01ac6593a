#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The recipes of docs/batch.md for one machine, after installing what they need: GNU parallel and Snakemake, which is
# large.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}" snakemake
command -v snakemake >/dev/null || fail "snakemake is missing."

say "Building the program and the tests' media tool"
configure release -DTARN_BUILD_TESTS=ON -DTARN_BUILD_APPS=ON --log-level=WARNING
build release --target tarnstitch tarn_test_media
ctest --preset release --tests-regex '^cmd\.batch_'
