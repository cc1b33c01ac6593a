#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --finish: a second picture beside the panorama, which stays what it is; whatever else happens.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide

# width FILE, height FILE
width() {
  "$media" size "$1" | cut -dx -f1
}
height() {
  "$media" size "$1" | cut -dx -f2
}

# Without it there is one picture; with it there are two, and the first is the same.
run 0 slide -o alone.png
expect_no_file alone-finished.png
run 0 slide -o both.png --finish
cmp alone.png both.png
expect_said "; finished $("$media" size both-finished.png) in both-finished.png; "
expect_no_file both-finished-partial.png
(($(width both-finished.png) > 480 + 7 * 30 - 8)) || fail "not the whole slide: $("$media" size both-finished.png)"
(($(height both-finished.png) > 340)) || fail "not the whole height: $("$media" size both-finished.png)"
expect_equal "empty pixels" 0 "$("$media" empty both-finished.png)"
run 0 slide --finish
expect_file slide-panorama.jpg
expect_file slide-finished.jpg
run 0 slide -o generous.jpg --finish --crop=auto
expect_file generous-finished.jpg

# The summary knows of it, and of nothing of the kind where it is not asked for.
"$program" -q slide -o both.png --finish --json >summary.json
for line in '"file": "both-finished.png"' '"whole": true' '"camera_motion": "sliding"' '"projection": "plane"' \
  '"viewer_tags": false' '"pieces": 1' '"pieces": [' '"finish_error": null'; do
  grep -qF "$line" summary.json || fail "the summary is without $line"
done
"$program" -q slide -o both.png --json >summary.json
! grep -qE 'finish|pieces' summary.json || fail "the summary tells of a finished picture"

# One picture is the finished one, too, and neither is done.
run 1 slide/1.png -o one.png --finish
expect_equal "size of one" "$("$media" size slide/1.png)" "$("$media" size one-finished-partial.png)"
expect_no_file one.png

# Names that cannot be.
expect_error 2 "need different names" slide -o out.jpg --finish --preview out-finished.jpg
mkdir out-finished.jpg
expect_error 4 "cannot write out-finished.jpg" slide -o out.jpg --finish
expect_no_file out.jpg
rmdir out-finished.jpg
mkdir in
cp slide/1.png in/a-finished.png
cp slide/2.png in/b.png
expect_error 4 "cannot write in/a-finished.png: it is one of the input's files" in -o in/a.png --finish

# An input that breaks off: the part is finished, under the partial name.
cp -r slide broken
"$media" slide broken/6.png 1 640 360 30 1 2>/dev/null || cp "$samples/../docs/images/panorama.jpg" broken/6.png
echo kept >out-finished.jpg
run 3 broken -o out.jpg --finish
expect_equal "earlier picture" kept "$(cat out-finished.jpg)"
expect_file out-finished-partial.jpg
(($(width out-finished-partial.jpg) > 480)) || fail "not the part: $("$media" size out-finished-partial.jpg)"
rm out*

# Pictures between which one cannot be joined: the end of the sweep is missing, and the earlier whole picture stays.
cp -r slide apart
for i in 9 10 11; do # of another scene each
  "$media" slide apart/9%d.png 1 480 360 30 $i
  mv apart/91.png apart/$i.png
done
echo kept >apart-finished.jpg
run 1 apart --finish --no-retry
expect_said "the finished picture is without"
expect_equal "earlier picture" kept "$(cat apart-finished.jpg)"
expect_file apart-finished-partial.jpg

# Ctrl-C: what there is, finished.
rm slide/4.png
mkfifo slide/4.png
start env --default-signal=INT "$program" slide -o out.jpg --finish
kill -s INT "$started"
until_said "stopping"
let_go 130
expect_file out.jpg
expect_file out-finished.jpg

# A pipeline that fails in the middle: the library's panorama ends there, the finished picture does not. This sweep
# outgrows the largest panorama.
mkdir long
"$media" slide long/%d.jpg 140 3000 200 75 3 # 3000 + 139 * 75 = 13425 pixels in all
run 1 long -o long.jpg --finish --no-retry --frames long.csv
expect_no_file long.jpg
expect_said "stitching failed at frame"
expect_said "the library was begun 2 times, and the finished picture joins the pieces"
(($(width long-finished.jpg) > 13400)) || fail "the finished picture ends as well: $("$media" size long-finished.jpg)"

# The summary line tells the part of the panorama from what came behind it. The frame of the break counts in both.
line=$(tail -n 1 stderr)
[[ $line =~ "; up to the break "([0-9]+)" frames, "([0-9]+)" taken (answers: ".*"; from there on "([0-9]+)" frames, "([0-9]+)" taken; finished " ]] \
  || fail "the summary: $line"
expect_equal "frames of both parts" 141 $((BASH_REMATCH[1] + BASH_REMATCH[3]))
expect_equal "taken of both parts" 140 $((BASH_REMATCH[2] + BASH_REMATCH[4]))

# All pieces are told of, apart from each other: the frame taken last, and the one refused, come again.
expect_equal "last column" piece "$(head -n 1 long.csv | sed 's/.*,//')"
expect_equal "pieces in the table" "1 2" "$(tail -n +2 long.csv | sed 's/.*,//' | uniq | paste -sd ' ')"
expect_equal "frames in the table" 142 "$(tail -n +2 long.csv | wc -l)"
expect_equal "last frame" 140 "$(tail -n 1 long.csv | cut -d, -f1)"
"$program" -q long -o long.jpg --finish --no-retry --json >long.json || true
expect_equal "frames in the summary" 142 "$(sed -n '/"pieces": \[/,$p' long.json \
  | awk -F': ' '/"handed_over"/ { sum += $2 } END { print sum }')"

# A sweep that rises: of the picture's rectangle it is said what is not in it, and uncut all of it is there.
"$media" slide rising%d.png 24 480 240 30 1 20
run 0 rising%d.png -o rising.png --finish --no-retry
said=$(grep -F "the finished picture lacks both ends of the sweep: " stderr) || fail "nothing is said of what is lost"
[[ $said =~ " key frames".*" lie outside its rectangle by more than half, and "([0-9]+)" % of what was seen is cut off" ]] \
  || fail "another sentence: $said"
((BASH_REMATCH[1] > 25)) || fail "next to nothing is lost: $said"
run 0 rising%d.png -o all.png --finish --no-retry --crop=none
! grep -qF "the finished picture lacks" stderr || fail "lost where nothing is cut"
(($(width all-finished.png) > 480 + 23 * 30 - 8 && $(height all-finished.png) > 240 + 23 * 20 - 8)) \
  || fail "not all: $("$media" size all-finished.png)"
(($("$media" empty all-finished.png) > 0)) || fail "no empty corners"
"$program" -q rising%d.png -o rising.png --finish --no-retry --json >rising.json
grep -qE '"lost_at_begin": [1-9]' rising.json || fail "the summary does not tell of what is lost"
