# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the tests and the benchmark of the library for browsers need beside it. To be sourced, after common.sh.

# need_web_tests: the package and the page anew, the native host, and what comes from npm.
# shellcheck disable=SC2154
need_web_tests() {
  need_packages "${build_packages[@]}" nodejs chromium ffmpeg openssl
  command -v npm >/dev/null || need_packages npm # packages of Node from elsewhere bring it along
  scripts/web.sh

  say "Building the native host"
  cmake -S web/test -B build/web/native -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
  cmake --build build/web/native --parallel "$jobs" --target native_answers

  say "Installing what the tests need"
  mkdir -p build/web/test
  cp web/test/package.json build/web/test
  (cd build/web/test && npm install --no-package-lock --no-audit --no-fund --loglevel=error)
}
