#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Options that no other script is about, each on a real sweep.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

video=$samples/parking_pan.mp4
bytes() {
  stat -c %s "$1"
}

# --output: without loss as PNG and TIFF; --quality and --crop cost no second sweep's result.
run 0 "$video" -o whole.png --frames frames.csv --keep-work kept/ --log library.log
short=("$video" --step 5 --end 2)
run 0 "${short[@]}" -o plain.png
run 0 "${short[@]}" -o plain.TIF --frames frames.JSONL
"$media" same plain.png plain.TIF
run 0 "${short[@]}" -o usual.jpg
run 0 "${short[@]}" -o small.jpg --quality 30
(($(bytes small.jpg) * 2 < $(bytes usual.jpg))) || fail "quality 30: $(bytes small.jpg) of $(bytes usual.jpg) bytes"
expect_equal "size at quality 30" "$("$media" size usual.jpg)" "$("$media" size small.jpg)"

(($("$media" empty plain.png) > 0)) || fail "nothing to crop"
run 0 "${short[@]}" -o cropped.png --crop
expect_equal "empty pixels after --crop" 0 "$("$media" empty cropped.png)"
expect_said "tarnstitch: cropped.png: $("$media" size cropped.png) of $("$media" size plain.png); "

# --frames: a line for each frame, in step with the summary.
expect_equal "lines of the CSV" 151 "$(wc -l <frames.csv)"
expect_equal "lines of the JSON" 10 "$(wc -l <frames.JSONL)"
expect_equal "columns" 19 "$(head -n 1 frames.csv | tr ',' '\n' | wc -l)"
expect_equal "columns everywhere" 1 "$(awk -F, '{ print NF }' frames.csv | sort -u | wc -l)"
expect_equal "first frame" "1,0.0,1,normal,1,1,none,," "$(sed -n 2p frames.csv | grep -o '^\([^,]*,\)\{8\}')"
[[ $(tail -n 1 frames.csv) == 150,5.96,1,normal,1,1,right,,* ]] || fail "last frame: $(tail -n 1 frames.csv)"
expect_equal "key frames" "$(find kept -name 'big_frame*.jpg' | wc -l)" "$(awk -F, '$6 == 1' frames.csv | wc -l)"
[[ $(sed -n 2p frames.JSONL) == '{"frame":6,"seconds":0.2,"code":1,"name":"normal","taken":true,'* ]] \
  || fail "second line: $(sed -n 2p frames.JSONL)"

# --keep-work: as the library left them, and the directory is made.
expect_file kept/big_stitch.jpg
expect_file kept/big_frame1.jpg
expect_equal "size of the library's panorama" "$("$media" size whole.png)" "$("$media" size kept/big_stitch.jpg)"

# What an earlier run has kept goes, but nothing else.
touch kept/big_frame99.jpg kept/big_frame.jpg kept/big_frame1.jpg.old kept/notes
run 0 "${short[@]}" -o kept/usual.jpg --frames frames.csv --keep-work kept
expect_no_file kept/big_frame99.jpg
expect_equal "key frames kept" "$(find kept -name 'big_frame[0-9]*.jpg' | wc -l)" "$(awk -F, '$6 == 1' frames.csv | wc -l)"
for name in big_frame.jpg big_frame1.jpg.old notes usual.jpg; do
  [[ -e kept/$name ]] || fail "kept/$name is gone"
done

# --log: the library's lines and nothing else; without it they go nowhere.
expect_equal "lines of the log" 150 "$(grep -c 'videoStitch finish' library.log)"
# In the same file as the messages neither destroys the other.
# shellcheck disable=SC2094 # nothing reads it
"$program" "${short[@]}" -o usual.jpg --log both.log 2>both.log || fail "--log to standard error's file"
expect_equal "lines of the library in both.log" 10 "$(grep -c 'videoStitch finish' both.log)"
grep -q '^tarnstitch: usual.jpg: .*; 10 frames' both.log || fail "no message in both.log"
"$program" "${short[@]}" -o usual.jpg --log /dev/stdout >library.log 2>stderr || fail "--log /dev/stdout"
expect_equal "lines of the log on standard output" 10 "$(grep -c 'videoStitch finish' library.log)"
# What was there stays where standard output is appended to a file.
echo before >appended.log
"$program" "${short[@]}" -o usual.jpg --log /dev/stdout >>appended.log 2>stderr || fail "--log /dev/stdout, appended"
expect_equal "first line of what was appended to" before "$(head -n 1 appended.log)"
expect_equal "lines of the log in it" 10 "$(grep -c 'videoStitch finish' appended.log)"

# --json: one object alone on standard output, also with --quiet and also when the run fails.
"$program" "${short[@]}" -o usual.jpg --json -q >summary.json 2>stderr || fail "--json"
expect_equal "standard error with --quiet" 0 "$(wc -c <stderr)"
expect_equal "first and last line" "{}" "$(sed -n '1p;$p' summary.json | tr -d '\n')"
for text in '"outcome": "done"' '"exit_code": 0' '"error": null' '"frames_announced": 150' '"handed_over": 10' \
  '"taken": 10' '"tries": 1' '"whole": true' '"file": "usual.jpg"' '"preview": null' '"peak_memory_bytes": '; do
  grep -qF -e "$text" summary.json || fail "the summary is without $text"
done
if command -v python3 >/dev/null; then
  python3 -m json.tool summary.json >/dev/null || fail "the summary is no JSON"
fi
code=0
"$program" none.mp4 --json >summary.json 2>stderr || code=$?
expect_equal "exit code" 3 $code
grep -qF '"outcome": "input_failed"' summary.json || fail "the summary of a failure"
grep -qF '"error": "there is no file or directory none.mp4"' summary.json || fail "the error in the summary"
# What a sweep failed for, where it did.
mkdir apart
"$media" slide apart/%d.png 1 480 360 30 1
"$media" slide apart/2%d.png 1 480 360 30 2
"$program" apart -o apart.jpg --no-retry --json -q >summary.json 2>stderr || true
for text in '"shown_at_frame": 2' '"key_frame": 2' '"frame_of_key_frame": 2' '"reason": "too few matches"' \
  '"reason_code": 11'; do
  grep -qF "$text" summary.json || fail "not in the summary of a failure: $text"
done
code=0
"$program" "${short[@]}" -o usual.jpg --json >/dev/full 2>stderr || code=$?
expect_equal "exit code with a full standard output" 4 $code
expect_said "cannot write the summary"

# --start, --end, --step and --fps, alone and together. Frames keep their numbers in the video.
run 0 "$video" -o part.jpg --start 1 --end 0:03.5 --frames part.csv
expect_said "63 frames, 63 taken"
expect_equal "first frame of a part" 26,1.0 "$(sed -n 2p part.csv | cut -d, -f1,2)"
expect_equal "last frame of a part" 88,3.48 "$(tail -n 1 part.csv | cut -d, -f1,2)"
run 0 "$video" -o part.jpg --step 5
expect_said "30 frames, "
run 0 "$video" -o part.jpg --fps 5 --start 0.5 --end 1.5
expect_said "5 frames, "
expect_error 3 "parking_pan.mp4 ends before --start: its last frame is at 5.96 s" "$video" --start 1:00:00
expect_error 3 "no frame of $video lies between --start and --end" "$video" --start 1.01 --end 1.03

# --realtime: no faster than the video, and every frame is accounted for.
begun=${EPOCHREALTIME/./}
run 0 "$video" -o live.jpg --realtime --end 2.4
(((${EPOCHREALTIME/./} - begun) > 2300000)) || fail "faster than real time"
frames=$(grep -oP '\K[0-9]+(?= frames?, )' stderr)
dropped=$(grep -oP '[0-9]+(?= dropped)' stderr) || fail "it is not said how many were dropped"
expect_equal "frames and dropped frames" 60 $((frames + dropped))
# Where messages go to no terminal, progress is told by a line now and then.
grep -qE '^tarnstitch: frame [0-9]+ of 60, [0-9.]+ frames/s, ' stderr.all || fail "no line on progress"

# --turn: upright whatever it is.
"$media" frames "$video" first.png 0 1 1
for turn in auto ccw cw none; do
  run 0 "$video" -o turned.png --preview turned-preview.png --step 5 --turn $turn
  expect_equal "panorama with --turn $turn" 0 "$("$media" turn first.png turned.png 1)"
  expect_equal "wide with --turn $turn" 1 "$("$media" size turned.png | awk -Fx '{ print ($1 > 1.8 * $2) }')"
  expect_equal "preview with --turn $turn" 1 "$("$media" size turned-preview.png | awk -Fx '{ print ($1 > 1.8 * $2) }')"
done

# Metadata: what made the panorama and when its input was taken.
TZ=UTC touch -d 2021-03-04T05:06:07 "$(pwd)/touched" && cp "$video" dated.mp4 && TZ=UTC touch -r touched dated.mp4
TZ=UTC run 0 dated.mp4 -o dated.jpg --step 5 --end 2
grep -qaF "tarnstitch $("$program" --version | sed -n '1s/tarnstitch //p')" dated.jpg || fail "no software in the metadata"
grep -qaF "2021:03:04 05:06:07" dated.jpg || fail "no date in the metadata"
! grep -qaiE "gpano|projection" dated.jpg || fail "a projection in the metadata"

# --quiet is silent, but for errors.
run 0 "${short[@]}" -o quiet.jpg -q
expect_equal "standard error with --quiet" 0 "$(wc -c <stderr)"
expect_error 3 "there is no file" none.mp4 --quiet

# Listed images come in natural order, whatever the shell's.
make_slide
mv slide/8.png slide/10.png
run 0 slide -o listed-directory.jpg
run 0 slide/*.png -o listed.jpg
cmp listed-directory.jpg listed.jpg
expect_error 3 "each must be an image, and $video is a video: name it alone" slide/1.png "$video"
expect_error 3 "each must be an image, and slide is a directory: name it alone" slide/1.png slide
expect_error 3 "there is no file none.png; if that is the panorama's name, it belongs behind -o" slide/1.png none.png
expect_error 3 "there is no file none.png; if that is the panorama's name, it belongs behind -o" "$video" none.png
expect_error 3 "2 videos are named, and a run takes one: run tarnstitch once for each" "$video" "$video"

echo "passed"
