#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# docs/batch.md on Snakemake: its line makes the panoramas of a folder, their reports and the page with all of them. It
# is killed in the middle, with all its jobs at once, and goes on. Nothing is lost, and nothing made twice.
set -euo pipefail
# shellcheck source=tests/cmd/batch_lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/batch_lib.sh"

if ! command -v snakemake >/dev/null; then
  echo "skipped: there is no snakemake"
  exit 77
fi
export HOME=$work XDG_CACHE_HOME=$work/cache # where it keeps files of its own
recipe "Snakemake" | sed 's/--cores all/--cores 2/' >recipe.sh # one for sweep3 to wait in
sed '$s/$/ --unlock/' recipe.sh >unlock.sh
make_folder
echo "no video" >sweeps/bad.mp4

setsid bash recipe.sh >stdout 2>stderr &
engine=$!
wait_in_the_middle
kill -s KILL -- "-$engine"
{ wait "$engine" || true; } 2>/dev/null # the shell tells of it
release_the_middle
keep_state
expect_no_file panoramas/sweep3.jpg
expect_no_file panoramas/index.html

bash unlock.sh >stdout 2>stderr || fail "exit code $? when unlocking"
bash recipe.sh >stdout 2>stderr || fail "exit code $? when going on"
expect_all_made

# The pages: each sweep's, and all of them with thumbnails; the one that cannot be read is told of.
for number in 1 2 3 4 5; do
  grep -qF 'alt="The panorama"' panoramas/sweep$number.html || fail "no panorama in the report"
  grep -qF "6 frames, 6 taken" panoramas/sweep$number.html || fail "no frames in the report"
  grep -qF "<a href=\"sweep$number.html\"><img src=\"sweep$number-preview.jpg\"" panoramas/index.html \
    || fail "no thumbnail of sweep$number"
  expect_file panoramas/sweep$number-preview.jpg
done
grep -qF "<h1>5 of 6 sweeps</h1>" panoramas/index.html || fail "not five of six sweeps"
grep -qF '<a href="bad.summary.json">' panoramas/index.html || fail "no way to the bad sweep"
grep -qF '<span class="failed">' panoramas/index.html \
  || fail "no word on the bad sweep in the index"

# Once more: nothing to do. A sweep that has come is made, and only that.
keep_state
bash recipe.sh >stdout 2>stderr || fail "exit code $? when all is done"
grep -qF "Nothing to be done" stderr || fail "something to be done"
cp -r sweeps/sweep5 sweeps/sweep6
bash recipe.sh >stdout 2>stderr || fail "exit code $? with one more"
expect_all_made
expect_file panoramas/sweep6.jpg
grep -qF "<h1>6 of 7 sweeps</h1>" panoramas/index.html || fail "not six of seven sweeps"

echo "passed"
