#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# docs/batch.md on the shell's loop: it stitches a folder, is killed in the middle, and goes on. Nothing is lost, and
# nothing made twice.
set -euo pipefail
# shellcheck source=tests/cmd/batch_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/batch_lib.sh"

recipe "A loop" >recipe.sh
make_folder

setsid bash recipe.sh >stdout 2>stderr &
engine=$!
wait_in_the_middle
kill -s TERM -- "-$engine"
{ wait "$engine" || true; } 2>/dev/null # the shell tells of it
while kill -0 -- "-$engine" 2>/dev/null; do :; done # nor must the program that it ran live any more
release_the_middle
keep_state
expect_no_file panoramas/sweep3.jpg

bash recipe.sh >stdout 2>stderr || fail "exit code $? when going on"
expect_panoramas
expect_nothing_left

# Once more: nothing to do.
keep_state
bash recipe.sh >stdout 2>stderr || fail "exit code $? when all is done"
expect_panoramas

echo "passed"
