#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The long runs: 1,000 sweeps cancelled and restarted, 20,000 frames in one sweep, as many with many key frames, 500
# short sweeps, 15,000 frames of a hasty camera and of one before traffic, an hour of a slow one, each in one process
# whose memory, threads and descriptors must stay flat. Takes about twenty minutes on an idle machine. The argument is a
# factor on the numbers, by default 1; arguments after it go to CMake.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

factor=${1:-1}
[[ $factor =~ ^[0-9]+(\.[0-9]+)?$ ]] || fail "usage: scripts/soak.sh [FACTOR [CMAKE_ARGUMENT…]]"
need_packages "${build_packages[@]}" "${test_packages[@]}"
configure release --log-level=WARNING "${@:2}"
build release --target tarn_soak

times() {
  awk -v count="$1" -v factor="$factor" 'BEGIN { n = int(count * factor); print n < 2 ? 2 : n }'
}
for run in "cancel $(times 1000)" "frames $(times 20000)" "keyframes $(times 20000)" "sweeps $(times 500)" \
  "hasty $(times 15000)" "traffic $(times 15000)" "slow $(times 108000)"; do
  say "tarn_soak $run"
  read -r -a arguments <<<"$run"
  build/release/tests/soak/tarn_soak "${arguments[@]}"
done
say "Soak: memory, threads and descriptors stayed flat."
