#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The page of tarnstitch --report in Debian's Chromium: with and without scripts, on a desktop and a phone, light and
# dark, on paper, by keyboard, under axe-core. Pictures of it go to out/report. Not part of CI, which looks at the page
# without a browser (cmd.report).
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" nodejs npm chromium tidy

say "Building tarnstitch"
configure release -DTARN_BUILD_TESTS=OFF -DTARN_BUILD_BENCHMARKS=OFF >/dev/null
build release --target tarnstitch

say "Installing what the tests need"
mkdir -p build/report out/report
cp tests/report_page/package.json build/report
(cd build/report && npm install --no-package-lock --no-audit --no-fund --loglevel=error)

program=$(find build/release -type f -name tarnstitch -perm -u+x | head -n 1)
say "Making reports"
"$program" samples/parking_pan.mp4 --quiet --finish -o out/report/good.jpg --report out/report/good.html
code=0
"$program" samples/river_pan.mp4 --quiet --step 20 -o out/report/failed.jpg --report out/report/failed.html || code=$?
((code == 1)) || fail "exit code $code of the sweep that breaks"

node --test --test-concurrency=1 --test-reporter=spec tests/report_page/page.test.js
say "Pictures: $root/out/report"
