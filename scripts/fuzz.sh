#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Fuzzes with clang's libFuzzer, one target after the other. Usage: scripts/fuzz.sh [SECONDS [TARGET…]], by default 1800
# seconds for each target. The corpus grows in build/fuzz/corpus; findings and logs lie in build/fuzz/findings. Fails if
# there is a finding.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

seconds=${1:-1800}
[[ $seconds =~ ^[0-9]+$ ]] || fail "usage: scripts/fuzz.sh [SECONDS [TARGET…]]"
targets=("${@:2}")
((${#targets[@]} > 0)) || targets=(host_calls c_calls geometry pixels directories program_input video_input)

need_packages "${build_packages[@]}" "${test_packages[@]}" clang-14 libclang-rt-14-dev
command -v clang++-14 >/dev/null || fail "clang-14 is missing."
configure fuzz --log-level=WARNING
build fuzz

findings=$root/build/fuzz/findings
mkdir -p "$findings"
failed=()
for target in "${targets[@]}"; do
  corpus=$root/build/fuzz/corpus/$target
  mkdir -p "$corpus"
  longest=1500 # bytes; a video needs some for what is around its pictures
  memory=3000 # MB
  if [[ $target == video_input ]]; then
    longest=10000
    memory=1000 # small files, and pictures of a quarter of a million pixels at most
  fi
  say "Fuzzing $target for $seconds s"
  if ! nice build/fuzz/fuzz/fuzz_"$target" -max_total_time="$seconds" -max_len="$longest" -timeout=120 -rss_limit_mb="$memory" \
    -print_final_stats=1 -artifact_prefix="$findings/$target-" "$corpus" "fuzz/corpus/$target" \
    >"$findings/$target.log" 2>&1; then
    failed+=("$target")
    grep -E 'oracle|runtime error|ERROR|SUMMARY' "$findings/$target.log" || true
  fi
  grep -E '^#[0-9]+' "$findings/$target.log" | tail -n 1 || say "$target has not begun; see $findings/$target.log"
done
((${#failed[@]} == 0)) || fail "findings in ${failed[*]}; the inputs and logs are in build/fuzz/findings"
say "Fuzzing: no finding."
