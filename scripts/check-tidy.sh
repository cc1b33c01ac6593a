#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Static analysis of every source file that is built (.clang-tidy); a finding fails. Arguments: files to look
# at, by default all.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}" clang-tidy-14
command -v clang-tidy-14 >/dev/null || fail "clang-tidy-14 is missing."

java=$(java_option)
configure dev --log-level=WARNING "$java"

if (($# > 0)); then
  files=("$@")
else
  mapfile -t files < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/dev/compile_commands.json | LC_ALL=C sort -u)
fi
((${#files[@]} > 0)) || fail "build/dev/compile_commands.json names no files."

# One process per file; xargs fails when any of them does.
printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$jobs" clang-tidy-14 -p build/dev --quiet --warnings-as-errors='*'
say "Tidy: nothing found in ${#files[@]} files."
