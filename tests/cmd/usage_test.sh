#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# --help, --version and mistakes on the command line.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# Help and version go to standard output, and nothing else goes anywhere.
for option in --help -h; do
  "$program" $option >help 2>stderr || fail "$option"
  [[ ! -s stderr ]] || fail "$option on standard error"
  for text in "usage: tarnstitch" "-o, --output" --preview --turn --direction --workers --version "Examples:" "How to film:" "Turn on the spot" \
    "Exit codes:"; do
    grep -qF -e "$text" help || fail "$option does not mention $text"
  done
done
"$program" --version >version 2>stderr || fail "--version"
[[ ! -s stderr ]] || fail "--version on standard error"
grep -qE '^tarnstitch [0-9]+\.[0-9]+\.[0-9]+$' version || fail "--version: $(cat version)"
grep -qE '^TarnStitch library [0-9]+\.[0-9]+\.[0-9]+$' version || fail "--version: $(cat version)"
grep -qE '^OpenCV 4\.[0-9.]+$' version || fail "--version: $(cat version)"

# Help counts even beside other mistakes.
for mistake in --none --step=0 "-o a -o b"; do
  # shellcheck disable=SC2086 # two options
  "$program" $mistake --help >/dev/null 2>stderr || fail "$mistake --help"
done

# A full standard output is an error.
code=0
"$program" --help >/dev/full 2>stderr || code=$?
expect_equal "exit code with a full standard output" 4 $code
expect_equal "said of a full standard output" "tarnstitch: cannot write to standard output" "$(cat stderr)"

# So is none at all.
for option in --help --version; do
  code=0
  "$program" $option >&- 2>stderr || code=$?
  expect_equal "exit code of $option with a closed standard output" 4 $code
  expect_equal "said of $option" "tarnstitch: cannot write to standard output: it is closed" "$(cat stderr)"
done

# A reader that has gone is none: it has seen enough.
mkfifo unread
exec 7<>unread
exec 8>unread 7<&-
"$program" --help >&8 2>stderr || fail "--help for a reader that has gone"
exec 8>&-
expect_equal "said of a reader that has gone" "" "$(cat stderr)"

# wrong SENTENCE ARGUMENT...: the arguments, behind an input, are refused with just this sentence.
wrong() {
  local sentence=$1
  shift
  run 2 "$samples/parking_pan.mp4" "$@"
  expect_equal "said of $*" "tarnstitch: $sentence" "$(cat stderr)"
}
hint="(see tarnstitch --help)"

# An input that is missing, or has no name.
expect_error 2 "there is no INPUT: a video, a camera, or images $hint"
expect_error 2 "an INPUT needs a name, and one is empty $hint" ""

# A word that belongs to the flag before it would be taken for an input.
for word in auto full none; do
  wrong "--crop and its word are joined by \"=\": --crop=$word $hint" --crop $word
done

# Unknown options, and what may have been meant.
wrong "there is no option --ouput; do you mean --output? $hint" --ouput a.jpg
wrong "there is no option --out; do you mean --output? $hint" --out a.jpg
wrong "there is no option -x (in -qx) $hint" -qx

# Values that are missing, also where another option stands in their place.
wrong "-o needs a value: -o FILE $hint" -o
wrong "--turn needs a value: auto, ccw, cw or none $hint" --turn --crop
wrong "--crop needs a value: full, auto or none $hint" --crop=
wrong "a value follows -o without \"=\": -o out.jpg $hint" -o=out.jpg
wrong "-o needs a name: -o FILE $hint" -o ""

# Too many values.
wrong "--output is given more than once $hint" -o a.jpg --output b.jpg
wrong "--crop is full, auto or none, not yes $hint" --crop=yes

# Bad choices, bad times, bad numbers.
wrong "--direction is right, left, up, down or none, not sideways $hint" --direction sideways
wrong "--turn is auto, ccw, cw or none, not up $hint" --turn=up
wrong "--start is a time, in seconds or as h:mm:ss, not soon $hint" --start soon
wrong "--end is a time, in seconds or as h:mm:ss, not -1 $hint" --end -1
wrong "--step is a whole number from 1 to 1000000, not 1.5 $hint" --step 1.5
wrong "--quality is a whole number from 1 to 100, not 101 $hint" --quality 101
wrong "--workers is a whole number from 1 to 16, not many $hint" --workers many
wrong "--fps is a number from 0.001 to 1000, not nan $hint" --fps nan

# Options that do not go together.
wrong "--end must be later than --start $hint" --start 2 --end 1
wrong "--quality is for JPEG, and a.PNG is without loss $hint" --quality 90 -o a.PNG
wrong "-o and --preview need different names, and both would be written to ./a.jpg" -o a.jpg --preview ./a.jpg
wrong "--output's -partial file and --preview need different names, and both would be written to a-partial.jpg" \
  --output a.jpg --preview a-partial.jpg
wrong "-o and --preview's -partial file need different names, and both would be written to a-partial.jpg" \
  -o a-partial.jpg --preview a.jpg
wrong "the panorama and --log need different names, and both would be written to parking_pan-panorama.jpg" \
  --log parking_pan-panorama.jpg
wrong "--frames and --log need different names, and both would be written to ./f.csv" --frames f.csv --log ./f.csv
wrong "--json and --log cannot both write to /dev/stdout: standard output is the summary's" --json --log /dev/stdout \
  -o a.jpg
expect_no_file a.jpg

# An output must not be where a working file of the same name goes.
mkdir kept
ln -s kept/big_frame2.jpg link.jpg
for name in kept/big_stitch.jpg ./kept/../kept/big_frame12.jpg; do
  wrong "-o needs another name: in kept/, ${name##*/} is the name of a working file that --keep-work puts there" \
    -o "$name" --keep-work kept/
  expect_error 2 "--preview needs another name" "$samples/parking_pan.mp4" --preview "$name" --keep-work kept
done
expect_error 2 "-o needs another name" "$samples/parking_pan.mp4" -o link.jpg --keep-work kept
expect_error 2 "-o needs another name" "$samples/parking_pan.mp4" -o new/big_stitch.jpg --keep-work new/
expect_equal "kept" "" "$(ls -A kept)"

# Images have no times.
"$media" flat 1.png 40 30
for option in --start --end --fps; do
  expect_error 2 "$option is for videos and cameras: images have no times" 1.png $option 2
done
expect_error 2 "--realtime is for videos and cameras: images have no times" 1.png --realtime

# An option's value may look like an option, and an input like a list.
"$media" flat 1.png 400 300
mkdir "[1,2]"
cp 1.png "[1,2]/"
run 1 "[1,2]" -o -odd.jpg --log=--crop
expect_file ./-odd-partial.jpg
expect_file ./--crop

echo "passed"
