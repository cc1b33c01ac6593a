#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# docs/batch.md on Snakemake: its line makes the panoramas of a folder, their reports and the page with all of them. It
# is killed in the middle, with all its jobs at once, and goes on. Nothing is lost, and nothing made twice, but for what
# was removed or has changed.
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

# What was removed or damaged since comes back when its summary is removed, and only that.
keep_state
sed -i '/sweep[12]\./d' kept
rm panoramas/sweep2.jpg panoramas/sweep{1,2}.summary.json
echo "damaged" >panoramas/sweep1.jpg
bash recipe.sh >stdout 2>stderr || fail "exit code $? when bringing back"
expect_all_made
! grep -qxF "damaged" panoramas/sweep1.jpg || fail "a damaged panorama stayed"
expect_file panoramas/sweep1.summary.json
expect_file panoramas/sweep2.summary.json
grep -qF "<h1>6 of 7 sweeps</h1>" panoramas/index.html || fail "not six of seven sweeps when brought back"

# Names with what means something to a shell, a page or Snakemake: its own wildcard's name, too.
odd=("q'uo\"te{x}" 'a {name} & {{b}}' '{x,[0-9]+}' '100% {input:q}')
keep_state
for name in "${odd[@]}"; do
  cp -r sweeps/sweep5 "sweeps/$name"
done
echo "no video" >'sweeps/bad {x}.mp4'
bash recipe.sh >stdout 2>stderr || fail "exit code $? with odd names"
expect_all_made
for name in "${odd[@]}"; do
  expect_file "panoramas/$name.jpg"
  expect_file "panoramas/$name-preview.jpg"
  expect_equal "frames of $name" 7 "$(wc -l <"panoramas/$name.csv")"
  grep -qF 'alt="The panorama"' "panoramas/$name.html" || fail "no panorama in the report of $name"
done
grep -qF "<h1>10 of 12 sweeps</h1>" panoramas/index.html || fail "not ten of twelve sweeps"
grep -qF '<a href="q%27uo%22te%7Bx%7D.html"><img src="q%27uo%22te%7Bx%7D-preview.jpg"' panoramas/index.html \
  || fail "no thumbnail of the sweep with quotes and braces"
grep -qF '<figcaption>q&#x27;uo&quot;te{x}</figcaption>' panoramas/index.html || fail "its name is not on the page"
grep -qF '<a href="bad%20%257Bx%257D.summary.json">' panoramas/index.html || fail "no way to the bad sweep with braces"
expect_file 'panoramas/bad %7Bx%7D.summary.json'

# They are done as others are, and again when they have changed.
bash recipe.sh >stdout 2>stderr || fail "exit code $? when odd names are done"
grep -qF "Nothing to be done" stderr || fail "something to be done with odd names"
keep_state
sed -i '/{x,/d' kept
cp sweeps/sweep5/6.png 'sweeps/{x,[0-9]+}/7.png'
bash recipe.sh >stdout 2>stderr || fail "exit code $? with a sweep of an odd name changed"
expect_all_made
expect_equal "frames of the sweep that grew" 8 "$(wc -l <'panoramas/{x,[0-9]+}.csv')"

echo "passed"
