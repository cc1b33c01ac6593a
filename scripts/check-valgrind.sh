#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs a short suite under valgrind's memcheck: no error, nothing definitely lost, and no memory that grows from sweep to
# sweep. The suppressions (tests/valgrind.supp) name other people's libraries only. Takes several minutes, so it is no
# part of .ci/run. Arguments go to CMake's configuration.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" "${test_packages[@]}" valgrind libc6-dbg
command -v valgrind >/dev/null || fail "valgrind is missing."
configure dev --log-level=WARNING "$@"
build dev --target tarn_tests tarn_soak

# Every subject once; the comparisons with random input are many times the same.
filter='DeleteFile*:GetFilePath*:IsFloderexit*:RemoveLocalPath*:PictureFile*:PlantedEntries*:StitcherState*'
filter+=':ResetStitch*:VideoStitch*:Getters*:PixelExport*:WorkerTurn*:WorkerTicket*:FrameFile*:FinalImage*'
filter+=':ReplacedTask*:GetDirection*:LinePara*:IsConvex*:EdgeTilt*:OptimizeSeam*:FillContours*'
filter+=':-*Reference*:*AnyCorners*:*HundredTimes*:*DifferentSizes*'

memcheck() {
  valgrind --quiet --error-exitcode=9 --leak-check=full --show-leak-kinds=definite --errors-for-leak-kinds=definite \
    --num-callers=25 --suppressions=tests/valgrind.supp "$@"
}

say "Memcheck: the short suite"
export TARN_TEST_SCALE=${TARN_TEST_SCALE:-0.02}
memcheck build/dev/tests/tarn_tests --gtest_brief=1 --gtest_filter="$filter"

# Bytes that are held at the end of so many sweeps, in the file that the sweeps' log goes to.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
run_sweeps() {
  valgrind --leak-check=full --errors-for-leak-kinds=definite --suppressions=tests/valgrind.supp --error-exitcode=9 \
    --log-file="$log" build/dev/tests/soak/tarn_soak sweeps "$1" >/dev/null || {
    cat "$log" >&2
    fail "$1 sweeps end badly."
  }
}
held() {
  awk '/(definitely lost|indirectly lost|possibly lost|still reachable):/ {
         for (i = 2; i <= NF; i++) if ($i == "bytes") { gsub(",", "", $(i - 1)); sum += $(i - 1); found = 1 }
       } END { if (!found) exit 1; print sum }' "$log" || fail "valgrind does not say what is left."
}
say "Memcheck: what 2 and 6 sweeps leave"
run_sweeps 2
few=$(held)
run_sweeps 6
more=$(held)
say "$few bytes after 2 sweeps, $more after 6"
# A first use here and there makes some hundred bytes of difference; a leaked frame is 230,400 bytes.
((more - few < 20000)) || fail "memory grows from sweep to sweep"
say "Memcheck: nothing found."
