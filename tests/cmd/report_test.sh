#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --report: the page says what the program says and has the numbers that --json and --frames have, of a sweep that
# succeeds and one that breaks; it is an output like the others. scripts/test-report.sh looks at the page in a browser.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# As HTML without complaint, where there is a checker.
expect_sound() {
  if command -v tidy >/dev/null; then
    tidy -q -e "$1" >tidy.txt 2>&1 || true
    expect_equal "complaints about $1" "" "$(cat tidy.txt)"
  fi
}

# element FILE ID: what stands in the script element.
element() {
  awk -v begin="id=\"$2\">" '
    (at = index($0, begin)) && !inside { inside = 1; $0 = substr($0, at + length(begin)) }
    inside && (at = index($0, "</script>")) { print substr($0, 1, at - 1); exit }
    inside' "$1"
}

# expect_same_numbers PAGE SUMMARY FRAMES: but for the page itself among the outputs, which cannot know its own digest,
# the summary is the same; of each key frame the table has what the file on frames has.
expect_same_numbers() {
  element "$1" run | tr -d ' \n' >page.json
  tr -d ' \n' <"$2" | sed -E 's/,\{"what":"report",[^}]*\}//' >summary.json
  cmp page.json summary.json || fail "the summary in $1 is another one"
  awk -F, '
    NR == 1 { for (i = 1; i <= NF; ++i) column[$i] = i; next }
    $column["key_frame"] == 1 {
      print $column["frame"], $column["seconds"], $column["name"], $column["move_px"], $column["milliseconds"]
    }' "$3" >of_frames
  grep -E '^<tr( class="failed")?><th scope="row">[0-9]' "$1" \
    | sed -E 's/^.*<\/th>//; s/<td>([^<]*)<\/td>/\1\t/g' \
    | awk -F'\t' '{ gsub(" ", "_", $3); print $1, $2 + 0, $3, $4, $9 }' >of_page
  awk '{ $2 += 0 } 1' of_frames | diff - <(awk '{ $2 += 0 } 1' of_page) || fail "the key frames in $1 have other numbers"
  [[ -s of_page ]] || fail "no key frames in $1"
}

# expect_said_in PAGE: all that the program has said stands there.
expect_said_in() {
  local line
  while IFS= read -r line; do
    line=${line#tarnstitch: }
    [[ $line == "the report is in "* || $line == *"trying once more"* || $line == "trying whether"* ]] || grep -qF -e ">$line</bdi>" "$1" \
      || fail "$1 does not say: $line"
  done <stderr
}

# A sweep that succeeds. The page comes on top of all else, and changes none of it.
run 0 "$samples/parking_pan.mp4" -o plain.jpg
run 0 "$samples/parking_pan.mp4" -o good.jpg --report good.html
cmp plain.jpg good.jpg
expect_said "the report is in good.html"
expect_said_in good.html
expect_sound good.html
"$program" "$samples/parking_pan.mp4" -q -o good.jpg --json --report good.html --frames good.csv --preview good.png >good.json \
  2>stderr || fail "--json and --report"
expect_same_numbers good.html good.json good.csv
grep -qF '"report": "good.html"' good.json || fail "no report in the summary"
grep -qF '<strong>Stitched.</strong>' good.html || fail "no verdict"
grep -qF 'alt="The panorama"' good.html || fail "no panorama"
! grep -qF 'Where it broke' good.html || fail "it did not break"
[[ $(wc -c <good.html) -lt 1500000 ]] || fail "the page is too large"

# One that breaks: the page is at its own place, and says where and what may help.
run 1 "$samples/river_pan.mp4" --step 20 -o bad.jpg --report bad.html
expect_said_in bad.html
expect_sound bad.html
for text in 'Where it broke' 'Key frame 5 (frame 221) could not be joined to key frame 4 (frame 61): too few matches.' \
  '(20 are needed)' '<th scope="row">5 (not joined)</th>' 'not taken'; do
  grep -qF "$text" bad.html || fail "not in the page: $text"
done
code=0
"$program" "$samples/river_pan.mp4" --step 20 -q -o bad.jpg --json --report bad.html --frames bad.csv >bad.json 2>stderr || code=$?
expect_equal "exit code" 1 $code
expect_same_numbers bad.html bad.json bad.csv

# Images have no times, and one picture is a sweep, too. A name may be anything.
make_slide
mv slide '<b>"&'
run 0 '<b>"&' -o slide.jpg --report slide.HTM
grep -qF '<h1>Sweep report: <bdi>&lt;b&gt;&quot;&amp;</bdi></h1>' slide.HTM || fail "no name"
expect_sound slide.HTM
mv '<b>"&' slide
run 1 slide/1.png -o one.jpg --report one.html
expect_sound one.html

# The finished picture beside the panorama, where the program can make it.
if "$program" slide -q -o both.jpg --finish --report both.html 2>stderr; then
  grep -qF 'alt="The finished picture"' both.html || fail "no finished picture"
  expect_sound both.html
fi

# As any output: checked before, of its own name, whole or not at all, behind a link.
expect_error 2 "the name of the report must end in .html or .htm" slide --report slide.txt
expect_error 4 "cannot write missing/a.html" slide --report missing/a.html
echo old >old.html
chmod 604 old.html
ln -s old.html link.html
run 0 slide -o slide.jpg --report link.html
[[ -L link.html ]] || fail "the link is gone"
grep -qF '<!DOCTYPE html>' old.html || fail "the link's file is not the page"
expect_equal "permissions of a replaced page" 604 "$(stat -c %a old.html)"
echo kept >kept.html
expect_error 3 "" missing.mp4 --report kept.html
expect_equal "an earlier page" kept "$(cat kept.html)"

# The record of --skip-done knows it.
run 0 slide -o done.jpg --report done.html --skip-done
run 0 slide -o done.jpg --report done.html --skip-done
expect_said "nothing to do"
rm done.html
run 0 slide -o done.jpg --report done.html --skip-done
expect_file done.html
run 0 slide -o done.jpg --skip-done
expect_said "8 frames"

# After a Ctrl-C it tells of what there is.
rm -r slide
make_waiting_slide
start env --default-signal=INT "$program" slide -o stopped.jpg --report stopped.html
kill -s INT "$started"
until_said "stopping"
let_go 130
grep -qF '<strong>Stopped.</strong>' stopped.html || fail "no word on the stop"
grep -qF '3 frames' stopped.html || fail "no word on the frames until then"
expect_sound stopped.html

echo "passed"
