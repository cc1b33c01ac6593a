#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the library for browsers (scripts/web.sh) and measures it: an ordinary frame beside the native host, the live
# page with a camera of 30 frames a second, and the ways in of a camera's pixels. Writes out/web/speed.md. Arguments name
# the parts to run: frames, page, ways; without, all of them.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
# shellcheck source=scripts/lib/web.sh
source "$root/scripts/lib/web.sh"

need_web_tests
node web/test/speed.mjs "$@" | tee out/web/speed.md
