#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs the tests under AddressSanitizer with UndefinedBehaviorSanitizer, and under ThreadSanitizer.
# Arguments: the presets to check, by default both. Loops of random tests and cancelled sweeps are shortened
# (TARN_TEST_SCALE, a factor), since the programs run many times slower.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}"
java=$(java_option)

export TARN_TEST_SCALE=${TARN_TEST_SCALE:-0.1}

presets=("$@")
if ((${#presets[@]} == 0)); then
  presets=(asan-ubsan tsan)
fi
for preset in "${presets[@]}"; do
  say "Building with $preset"
  configure "$preset" --log-level=WARNING "$java"
  build "$preset"
  say "Running the tests with $preset"
  left_out=()
  if [[ $preset == tsan ]]; then
    # The program's scripts about options, messages, files and other programs meet no other threads than those about
    # whole sweeps, which stay, as do the tests of its parts. Nor does a comparison of processors.
    left_out=(--exclude-regex '^(cmd\.(bad_inputs|bad_outputs|batch_.*|documents|exit_code_.*|input_errors|long_input|options|output_errors|outputs|terminal|usage)|processor_agreement_.*)$')
  fi
  ctest --preset "$preset" --parallel "$jobs" "${left_out[@]}"
done
