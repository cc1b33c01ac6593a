#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Kinds of input: sequences, directories, single images, names of all sorts, orientation in the file.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide
preview_scale=$(awk 'BEGIN { print 300 / 360 }')

# A directory in natural order, a sequence, and a directory whose byte order is the natural one, are one sweep.
run 0 slide
expect_file slide-panorama.jpg
expect_said "8 frames, 8 taken"
mkdir "other names é"
for number in {1..8}; do
  cp -p "slide/$number.png" "other names é/$((number + 5)) x.png" # 6 to 13
  cp -p "slide/$number.png" "$(printf 'still_%04d.png' $((number * 2)))"
done
run 0 "other names é/" -o "natural order é.jpg" --preview "a b é.png"
cmp slide-panorama.jpg "natural order é.jpg"
expect_file "a b é.png"
run 0 "still_%04d.png"
cmp slide-panorama.jpg still-panorama.jpg

# JPEGs one behind the other are a video by their file's name, and one picture by another.
for number in {1..8}; do
  "$media" flat "one$number.jpg" 40 30
  cat "one$number.jpg" >>many.mjpeg
done
rm one?.jpg
code=0
"$program" many.mjpeg -o many.jpg 2>stderr || code=$?
expect_equal "exit code of flat pictures" 1 $code
expect_said "8 frames"

# What is no visible image of the directory itself is no frame.
mkdir slide/below slide/below.png
"$media" flat slide/below/9.png 10 10
"$media" flat slide/.hidden.png 10 10
echo text >slide/notes.txt
run 0 slide -o again.jpg
cmp slide-panorama.jpg again.jpg

# In the directory itself the default output is named after it, and is no frame of the next run, but a result of
# another name is, and has another size.
(
  cd slide
  "$program" . 2>../stderr || fail "first run in the directory"
  expect_file slide-panorama.jpg
  "$program" . 2>../stderr || fail "second run in the directory"
  cmp slide-panorama.jpg ../slide-panorama.jpg
  expect_said "8 frames"
  mv slide-panorama.jpg other.jpg
  code=0
  "$program" . 2>../stderr || code=$?
  expect_equal "exit code with a picture of another size" 3 $code
  rm -f other.jpg slide-panorama*.jpg
)

# Pictures of another size end the sweep, and are named; what was composed until then is kept apart.
cp -r slide sizes
"$media" flat sizes/5.png 100 360
echo kept >sizes-panorama.jpg
run 3 sizes --preview sizes.png
expect_said "sizes/5.png is of 100x360 pixels, the frames before it of 480x360; what was composed until then is in sizes-panorama-partial.jpg"
expect_said "4 frames"
expect_file sizes-panorama-partial.jpg
expect_file sizes-partial.png
expect_no_file sizes.png
expect_equal "earlier panorama" kept "$(cat sizes-panorama.jpg)"

# Pictures that cannot be read are named and left out, at both ends of the sweep, too.
cp -r slide gaps
for number in 0 5 9; do
  echo "no image" >gaps/$number.png
done
run 0 gaps
expect_said "cannot read gaps/0.png; it is left out"
expect_said "cannot read gaps/5.png; it is left out"
expect_said "cannot read gaps/9.png; it is left out"
expect_said "7 frames, 7 taken, 3 unreadable"
expect_file gaps-panorama.jpg

# One picture is none that was stitched: it is written under the partial name, upright, with a preview of it, and what
# stood there stays.
echo kept >one.jpg
run 1 slide/1.png -o one.jpg --preview one-preview.png
expect_said "1 frame, 1 taken (answer: 1 normal); 1 key frame"
expect_said "the panorama shows nothing beyond the first frame: there is no other one"
expect_equal "earlier panorama" kept "$(cat one.jpg)"
expect_equal "size of one picture" 480x360 "$("$media" size one-partial.jpg)"
expect_equal "size of its preview" 400x300 "$("$media" size one-preview-partial.png)"
expect_equal "turn of one picture" 0 "$("$media" turn slide/1.png one-partial.jpg 1)"
expect_equal "turn of its preview" 0 "$("$media" turn slide/1.png one-preview-partial.png "$preview_scale")"

# Nor are several of the same, however many.
mkdir still
for number in 1 2 3 4 5 6; do
  cp slide/1.png still/$number.png
done
run 1 still -o one.jpg
expect_said "the panorama shows nothing beyond the first frame"
expect_equal "earlier panorama" kept "$(cat one.jpg)"

# Also when there is nothing in it to track. One that is too small to be described is refused, not crashed on.
"$media" flat flat.png 900 600
run 1 flat.png --preview flat-preview.png
expect_equal "size of a flat picture" 900x600 "$("$media" size flat-panorama-partial.jpg)"
expect_equal "size of its preview" 450x300 "$("$media" size flat-preview-partial.png)"
"$media" flat dot.png 1 1
run 1 dot.png
expect_said "nothing of a panorama is left"
expect_said "1 frame, 0 taken"

# Orientation in the file is honoured, and what is written is upright.
"$media" rotate slide/1.png lying.jpg 3
"$media" exif lying.jpg exif.jpg 6
run 1 exif.jpg -o exif-upright.jpg --preview exif-upright.png
expect_equal "turn by Exif" 0 "$("$media" turn slide/1.png exif-upright-partial.jpg 1)"
expect_equal "turn of its preview" 0 "$("$media" turn slide/1.png exif-upright-partial.png "$preview_scale")"

"$media" matrix "$samples/parking_pan.mp4" "a:turned video.mp4"
"$media" frames "$samples/parking_pan.mp4" first.png 0 1 1
run 0 "a:turned video.mp4" -o turned.jpg --step 5
expect_equal "turn by the display matrix" 90 "$("$media" turn first.png turned.jpg 1)"

# A name is a file's, whatever it looks like: nothing is looked for elsewhere.
for directory in a:b http: file: concat:; do
  mkdir "$directory"
  cp "$samples/parking_pan.mp4" "$directory/clip.mp4"
  run 0 "$directory/clip.mp4" --end 0.5
  rm clip-panorama.jpg
done

# A video whose name ends in a number is a video, and one with a broken stretch does not crash the program.
cp "$samples/parking_pan.mp4" ./-shot7.mp4
run 0 --step 5 -- -shot7.mp4
expect_file ./-shot7-panorama.jpg
"$media" damage "$samples/parking_pan.mp4" damaged.mp4
expect_nothing_left
code=0
"$program" damaged.mp4 >stdout 2>stderr || code=$?
[[ $code -eq 0 || $code -eq 1 ]] || fail "exit code $code with a damaged video"
expect_said "frames"
expect_equal "standard output with a damaged video" 0 "$(wc -c <stdout)"
expect_nothing_left

# One that is cut short is stitched as far as it goes, and that it was cut is said.
head -c 100000 "$samples/parking_pan.mp4" >cut.mp4
run 0 cut.mp4
expect_said "cut.mp4 ends at frame "
expect_said " of 150"
expect_file cut-panorama.jpg

# A pattern's name is a file's name first.
cp slide/1.png "literal%d.png"
run 1 "literal%d.png"
expect_said "1 frame"
expect_file "literal%d-panorama-partial.jpg"

echo "passed"
