#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# docs/batch.md on Slurm, for scripts/test-slurm.sh: the workflow's jobs are cancelled in the middle, their Snakemake
# killed, and it goes on. Nothing is lost, and nothing made twice.
set -euo pipefail
# shellcheck source=tests/cmd/batch_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/batch_lib.sh"

export HOME=$work XDG_CACHE_HOME=$work/cache
export PATH # jobs find the program where this finds it
recipe "Slurm" >recipe.sh
sed '$s/$/ --unlock/' recipe.sh >unlock.sh
make_folder
chmod 755 "$work"

setsid bash recipe.sh >stdout 2>stderr &
engine=$!
wait_in_the_middle
squeue
kill -s KILL -- "-$engine"
{ wait "$engine" || true; } 2>/dev/null # the shell tells of it
scancel --name tarnstitch
until [[ -z $(squeue --noheader) ]]; do sleep 0.1; done
release_the_middle
keep_state
expect_no_file panoramas/sweep3.jpg

bash unlock.sh >stdout 2>stderr || fail "exit code $? when unlocking"
bash recipe.sh >stdout 2>stderr || fail "exit code $? when going on"
expect_all_made
grep -qF "<h1>5 of 5 sweeps</h1>" panoramas/index.html || fail "not five of five sweeps"
expect_nothing_left

bash recipe.sh >stdout 2>stderr || fail "exit code $? when all is done"
grep -qF "Nothing to be done" stderr || fail "something to be done"

echo "passed"
