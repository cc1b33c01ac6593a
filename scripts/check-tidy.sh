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
python=$(python_option)
configure dev --log-level=WARNING "$java" "$python"

if (($# > 0)); then
  files=("$@")
else
  # What the build makes does not exist yet, and is not written by anybody.
  mapfile -t files < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/dev/compile_commands.json \
    | grep -v "^$root/build/" | LC_ALL=C sort -u)
fi
((${#files[@]} > 0)) || fail "build/dev/compile_commands.json names no files."

# Clang does not know every option of GCC's.
mkdir -p build/dev/tidy
sed 's/ -fno-gnu-unique//g' build/dev/compile_commands.json >build/dev/tidy/compile_commands.json

# One process per file; xargs fails when any of them does. The path-sensitive analyzer looks at what ships and at
# its hosts; for tests and benchmarks, whose macros take it four times as long as all other checks together, the
# sanitizers do its work. Nor are there reserved names looked for: in the macros of a test that takes a quarter of
# the time, and nobody else's program is at risk.
tidy() {
  xargs -0 -r -n 1 -P "$jobs" clang-tidy-14 -p build/dev/tidy --quiet --warnings-as-errors='*' "$@"
}
shipped=()
around=()
for file in "${files[@]}"; do
  case ${file#"$root"/} in
    tests/* | benchmarks/* | fuzz/* | bindings/*/test/*) around+=("$file") ;;
    *) shipped+=("$file") ;;
  esac
done
status=0
((${#shipped[@]} == 0)) || printf '%s\0' "${shipped[@]}" | tidy || status=$?
((${#around[@]} == 0)) || printf '%s\0' "${around[@]}" | tidy --checks='-clang-analyzer-*,-bugprone-reserved-identifier' \
  || status=$?
((status == 0)) || exit "$status"
say "Tidy: nothing found in ${#files[@]} files."
