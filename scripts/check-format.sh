#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Checks that every C++ and C file is formatted as .clang-format says; with --fix, formats them.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages clang-format-14
command -v clang-format-14 >/dev/null || fail "clang-format-14 is missing."

mapfile -t files < <(our_files '*.h' '*.cpp' '*.c')
if [[ ${1:-} == --fix ]]; then
  clang-format-14 -i "${files[@]}"
fi
clang-format-14 --dry-run --Werror "${files[@]}"
say "Format: ${#files[@]} files are as they should be."
