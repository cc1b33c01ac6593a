#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# What can be checked of the library in a browser (web/) without building it: the syntax of its scripts, its server, and
# what its files say of each other. scripts/test-web.sh tests the rest.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${web_check_packages[@]}"
command -v node >/dev/null || fail "Node is missing."

mapfile -t files < <(find web \( -name '*.js' -o -name '*.mjs' \) ! -path web/test/units/files.js | LC_ALL=C sort)
for file in "${files[@]}"; do
  node --check "$file"
done
node --test web/test/plain/*.test.js
say "Web: nothing found in ${#files[@]} scripts."
