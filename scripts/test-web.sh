#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the library for browsers (scripts/web.sh) and tests it: the package under Node beside the native host, the
# package as a user installs it, and the live page in Chromium. Arguments name the tests to run, as web/test/page.test.js;
# without, all of them. Pictures of the page go to out/web/pictures.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" nodejs npm chromium ffmpeg openssl
scripts/web.sh

say "Building the native host"
cmake -S web/test -B build/web/native -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build/web/native --parallel "$jobs" --target native_answers

say "Installing what the tests need"
mkdir -p build/web/test
cp web/test/package.json build/web/test
(cd build/web/test && npm install --no-package-lock --no-audit --no-fund --loglevel=error)

tests=("$@")
((${#tests[@]} > 0)) || tests=(web/test/*.test.js)
node --test --test-concurrency=1 --test-reporter=spec "${tests[@]}"
