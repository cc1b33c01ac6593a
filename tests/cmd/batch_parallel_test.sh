#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# docs/batch.md on GNU parallel: its lines stitch a folder, are killed in the middle, and go on. Nothing is lost, and
# nothing made twice.
set -euo pipefail
# shellcheck source=tests/cmd/batch_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/batch_lib.sh"

if ! parallel --version 2>/dev/null | grep -q "^GNU parallel"; then
  echo "skipped: there is no GNU parallel"
  exit 77
fi
recipe "GNU parallel" >recipe.sh
make_folder

# In the middle: sweep3 waits for its fourth picture. The first SIGTERM lets jobs end, the second ends them.
bash recipe.sh >stdout 2>stderr &
engine=$!
wait_in_the_middle
mapfile -t pids < <(pgrep -P "$engine" -f "/parallel ")
kill -s TERM "${pids[@]}"
kill -s TERM "${pids[@]}"
code=0
wait "$engine" || code=$?
((code != 0)) || fail "the engine that was killed ended well"
release_the_middle
keep_state
expect_no_file panoramas/sweep3.jpg

bash recipe.sh >stdout 2>stderr || fail "exit code $? when going on"
expect_all_made
expect_nothing_left
# The log's columns: the job's number, then the exit code as the seventh.
expect_equal "jobs that ended well, once each" "1 2 3 4 5" \
  "$(awk 'NR > 1 && $7 == 0 { print $1 }' stitch.log | sort -u | xargs)"

# Once more: nothing to do, whether the engine knows it or not.
keep_state
bash recipe.sh >stdout 2>stderr || fail "exit code $? when all is done"
expect_all_made
rm stitch.log
bash recipe.sh >stdout 2>stderr || fail "exit code $? without the log"
expect_all_made

# A sweep that cannot be read fails alone, and the line behind the recipe names it.
echo "no video" >sweeps/bad.mp4
rm stitch.log
code=0
bash recipe.sh >stdout 2>stderr || code=$?
((code != 0)) || fail "a job that failed is not told"
bash -c "$(recipe "GNU parallel" 2)" >failed
expect_equal "jobs that failed" 1 "$(wc -l <failed)"
expect_equal "exit code of the bad job" 3 "$(cut -f 7 failed)"
grep -qF "sweeps/bad.mp4" failed || fail "the failed job is not shown"
expect_all_made

echo "passed"
