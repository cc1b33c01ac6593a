#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# From a fresh clone to a panorama: installs what is missing, builds, stitches a real sweep into out/.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

sample=parking_pan

need_packages "${build_packages[@]}"

say "Building TarnStitch"
configure release -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_BENCHMARKS=OFF
build release --target tarnstitch

say "Stitching samples/$sample.mp4"
mkdir -p out
build/release/apps/tarnstitch/tarnstitch "samples/$sample.mp4" \
  -o "out/$sample.jpg" --finish --preview "out/$sample-preview.jpg"

say "Panorama: $root/out/$sample.jpg"
say "Finished: $root/out/$sample-finished.jpg"
say "Preview:  $root/out/$sample-preview.jpg"
