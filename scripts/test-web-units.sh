#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The library's unit tests as WebAssembly, under Node. web/test/units/left_out.txt names those that cannot run there, with
# the reason. Arguments go to the tests (--gtest_filter=…, instead of all but those).
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
# shellcheck source=scripts/lib/wasm.sh
source "$root/scripts/lib/wasm.sh"

need_packages "${wasm_packages[@]}" googletest ffmpeg
wasm_environment
need_wasm_libraries

say "Building the tests"
grep -qs "^OpenCV_DIR:.*=$(wasm_libraries)/" build/web/units/CMakeCache.txt \
  || emcmake cmake -S web/test/units -B build/web/units -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DOpenCV_DIR="$(wasm_libraries)/lib/cmake/opencv4" >/dev/null
cmake --build build/web/units --parallel "$jobs" --target tarn_tests

say "Decoding the samples"
samples=$root/build/web/units/samples
mkdir -p "$samples"
cp samples/*.csv "$samples"
for video in samples/*.mp4; do
  decoded=$samples/$(basename "$video").ppm
  [[ -e $decoded ]] && continue
  ffmpeg -v error -y -i "$video" -fps_mode passthrough -f image2pipe -c:v ppm "$decoded.part"
  mv "$decoded.part" "$decoded"
done

left_out=$(sed -n 's/^\([^# ][^ ]*\) .*/\1/p' web/test/units/left_out.txt | paste -s -d :)
say "Running them"
TARN_SAMPLES=$samples node build/web/units/tarn_tests.js --gtest_brief=1 --gtest_filter="-$left_out" "$@"
