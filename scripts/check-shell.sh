#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Static analysis of the shell scripts.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages shellcheck
command -v shellcheck >/dev/null || fail "shellcheck is missing."

mapfile -t files < <(our_files '*.sh')
shellcheck --external-sources --source-path=SCRIPTDIR "${files[@]}" .ci/run
say "Shell: nothing found in $((${#files[@]} + 1)) scripts."
