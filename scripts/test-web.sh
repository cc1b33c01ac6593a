#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the library for browsers (scripts/web.sh) and tests it: the package under Node beside the native host, the
# package as a user installs it, and the live page in Chromium, Firefox and WebKit. Arguments name the tests to run, as
# web/test/page.test.js; without, all of them. Pictures of the page go to out/web/pictures.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
# shellcheck source=scripts/lib/web.sh
source "$root/scripts/lib/web.sh"

# The last two are what WebKit plays a video with.
need_packages firefox-esr webkit2gtk-driver xvfb gstreamer1.0-plugins-good gstreamer1.0-libav
need_web_tests

tests=("$@")
((${#tests[@]} > 0)) || tests=(web/test/*.test.js web/test/plain/*.test.js)
node --test --test-concurrency=1 --test-reporter=spec "${tests[@]}"
