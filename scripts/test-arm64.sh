#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# TarnStitch on 64-bit ARM, the processor of phones, on a machine of another architecture: builds with Debian's cross
# compiler, runs the unit tests and stitches a sample under QEMU, and compares with what this machine computes. The
# kernels and helpers must agree to the last bit, given equal arc tangents, and the sample's frames must get the same
# answers; how far apart OpenCV's results and the pictures are is reported.
# Everything goes into build/arm64 and out/arm64; takes about half an hour on two cores. Arguments go to the tests'
# program; a --gtest_filter of one's own takes the place of the list of tests that are left out below.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
# shellcheck source=scripts/lib/arm64.sh
source "$root/scripts/lib/arm64.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}" g++-aarch64-linux-gnu qemu-user-static
for program in aarch64-linux-gnu-g++ qemu-aarch64-static; do
  command -v "$program" >/dev/null || fail "$program is missing."
done
need_arm64_sysroot

targets=(tarnstitch processor_agreement)
say "Building for this machine"
configure release -DTARN_BUILD_TESTS=ON -DTARN_BUILD_APPS=ON
build release --target "${targets[@]}"
say "Building for 64-bit ARM"
configure_arm64 build/arm64 -DTARN_BUILD_TESTS=ON -DTARN_BUILD_APPS=ON
cmake --build build/arm64 --parallel "$jobs" \
  --target "${targets[@]}" tarn_tests tarn_stitch_shared interface_names link_order_shared_library link_order_hidden_host

# on_arm PROGRAM ARGUMENT…: runs a program of build/arm64.
mapfile -t -d ';' emulator < <(sed -n 's/^CMAKE_CROSSCOMPILING_EMULATOR:[A-Z]*=//p' build/arm64/CMakeCache.txt | tr -d '\n')
on_arm() {
  "${emulator[@]}" "$@"
}

say "Looking at the shared library"
check_page_alignment build/arm64/libtarnstitch.so
NM=aarch64-linux-gnu-nm STRIP=aarch64-linux-gnu-strip tests/symbols/exported_symbols_test.sh \
  build/arm64/libtarnstitch.so tests/symbols/exported_symbols.txt build/arm64/stripped.so
on_arm build/arm64/tests/symbols/interface_names
on_arm build/arm64/tests/link_order/link_order_shared_library library-first
on_arm build/arm64/tests/link_order/link_order_hidden_host library-first

rm -rf out/arm64
mkdir -p out/arm64/frames
failed=()

say "Comparing kernels and stages"
agreement=tests/agreement/processor_agreement
build/release/$agreement frames out/arm64/frames
build/release/$agreement record out/arm64/frames >out/arm64/here.txt
on_arm build/arm64/$agreement record out/arm64/frames >out/arm64/arm64.txt
build/release/$agreement compare out/arm64/here.txt out/arm64/arm64.txt \
  | tee out/arm64/report.txt || failed+=("the kernels")

say "Comparing a sweep"
sweep() {
  "$@" out/arm64/frames --workers 1 -o "out/arm64/$name.jpg" --preview "out/arm64/$name-preview.png" \
    --frames "out/arm64/$name.csv"
}
# answers FILE: the number and the code of each frame.
answers() {
  cut -d , -f 1,3 "$1"
}
# compare_answers FILE FILE: reports whether both give each frame the same code.
compare_answers() {
  local differences
  [[ $(answers "$1" | head -n 1) == frame,code ]] || { echo "answers: $1 has other columns" && return 1; }
  if differences=$(diff <(answers "$1") <(answers "$2")); then
    echo "answers: $(($(wc -l <"$1") - 1)) frames have the same codes"
  else
    printf 'answers: DIFFER\n%s\n' "$differences"
    return 1
  fi
}
name=here sweep build/release/apps/tarnstitch/tarnstitch
name=arm64 sweep on_arm build/arm64/apps/tarnstitch/tarnstitch
compare_answers out/arm64/here.csv out/arm64/arm64.csv | tee -a out/arm64/report.txt || failed+=("the sweep's answers")
for ending in -preview.png .jpg; do
  printf '%s: ' "${ending#-}"
  build/release/$agreement images "out/arm64/here$ending" "out/arm64/arm64$ending" 8 \
    | tee -a out/arm64/report.txt || failed+=("the sweep's $ending")
done

# Emulated, everything takes some twenty times as long, so random tests are shortened. Left out are the tests that
# start their program anew, which this machine's kernel would have to do; the one that limits the process's memory, of
# which the emulator needs some for itself; and sweeps of large frames, whose workers would be waited for longer than
# the library waits.
left_out='StitcherStateAtLoad.EverythingHasItsInitialValue:VideoStitchFirstCall.*'
left_out+=':WorkerLaunch.SystemWithoutRoomForAThread*:*HighResSlide.FramesWiderThan1000PixelsAreShrunkFirst*'
say "Running the unit tests under QEMU"
export TARN_TEST_SCALE=${TARN_TEST_SCALE:-0.1} GTEST_TOTAL_SHARDS=$jobs
workers=()
for ((shard = 0; shard < jobs; ++shard)); do
  GTEST_SHARD_INDEX=$shard on_arm build/arm64/tests/tarn_tests --gtest_brief=1 --gtest_filter="-$left_out" "$@" \
    >"out/arm64/tests-$shard.log" 2>&1 &
  workers+=($!)
done
for shard in "${!workers[@]}"; do
  wait "${workers[shard]}" || failed+=("unit tests, part $shard")
  grep -E '^\[  (FAILED|PASSED) |tests? ran|tests from' "out/arm64/tests-$shard.log" || true
done

if ((${#failed[@]} > 0)); then
  printf 'failed: %s\n' "${failed[@]}"
  exit 1
fi
say "64-bit ARM: everything agrees or passes. Report: $root/out/arm64/report.txt"
