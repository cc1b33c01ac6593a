#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Inputs that cannot be stitched: one clear line, exit code 3, no output.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

expect_error 3 "there is no file or directory none.mp4" none.mp4
expect_error 3 "there is no file or directory no such dir/none.mp4" "no such dir/none.mp4"
expect_error 3 "there is no file or directory http://localhost/a.mp4" http://localhost/a.mp4

: >empty.mp4
expect_error 3 "empty.mp4 is empty" empty.mp4

echo "This is no video." >text.mp4
expect_error 3 "text.mp4 is neither a video nor an image" text.mp4
expect_error 3 "/dev/null is no camera" /dev/null
# The libraries that look for cameras keep what they find: nothing for a leak checker.
mkdir home
HOME=$PWD/home ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0 expect_error 3 "there is no camera:99" camera:99
[[ -z $(ls -A home) ]] || fail "looking for a camera left in the home directory: $(ls -AR home)"

"$media" noise noise.mp4 300000
expect_error 3 "noise.mp4" noise.mp4

# Cut off within its index, nothing of it can be read.
head -c 1000 "$samples/parking_pan.mp4" >truncated.mp4
expect_error 3 "truncated.mp4" truncated.mp4

echo "This is no image." >text.jpg
expect_error 3 "no frame can be read from text.jpg" text.jpg

# Decoders have words of their own for these, which would be a second line.
"$media" flat flat.png 400 300
head -c 200 flat.png >truncated.png
expect_error 3 "no frame can be read from truncated.png" truncated.png
"$media" slide slide%d.jpg 1 400 300 0 1
head -c 9000 slide1.jpg >truncated.jpg
expect_error 3 "no frame can be read from truncated.jpg" truncated.jpg

# Pictures' sizes are looked at before they are decoded, in still images and videos; what is before them is stitched.
"$media" slide wide%d.png 5 480 360 30 1
printf '\0\0\x7d\0\0\0\x7d\0' | dd of=wide5.png bs=1 seek=16 conv=notrunc status=none # width and height
run 3 wide%d.png -o wide.jpg
expect_said "wide5.png is of 32000x32000 pixels, more than --max-pixels 100000000 allows; what was composed until then is in wide-partial.jpg"
expect_said "4 frames, 4 taken"
expect_file wide-partial.jpg
expect_error 3 "wide5.png is of 32000x32000 pixels" wide5.png
rm wide-partial.jpg wide5.png
expect_error 3 "wide1.png is of 480x360 pixels, more than --max-pixels 172799 allows" wide%d.png --max-pixels 172799
run 0 wide%d.png --max-pixels 172800 -o allowed.jpg
expect_error 3 "parking_pan.mp4 is of 426x320 pixels, more than --max-pixels 136319 allows" "$samples/parking_pan.mp4" \
  --max-pixels 136319
rm allowed.jpg
for plain in ppm bmp jpg tif webp; do
  "$media" flat plain.$plain 40 30
  expect_error 3 "plain.$plain is of 40x30 pixels, more than --max-pixels 1199 allows" plain.$plain --max-pixels 1199
done

# What leads to other files is not followed.
cp "$samples/parking_pan.mp4" clip.mp4
printf '#EXTM3U\n#EXT-X-TARGETDURATION:9\n#EXTINF:6,\n%s\n#EXT-X-ENDLIST\n' "$PWD/clip.mp4" >list.mp4
expect_error 3 "list.mp4 is a list of other files (hls), which is not followed: name a video itself" list.mp4
printf 'ffconcat version 1.0\nfile %s\n' clip.mp4 >parts.mp4
expect_error 3 "parts.mp4 is a list of other files (concat), which is not followed" parts.mp4
printf '<?xml version="1.0"?>\n<MPD xmlns="urn:mpeg:dash:schema:mpd:2011" type="static"></MPD>\n' >dash.mp4
expect_error 3 "dash.mp4 is " dash.mp4
rm clip.mp4

mkdir "nothing in it"
expect_error 3 "there are no images in nothing in it" "nothing in it"
echo text >"nothing in it/notes.txt"
expect_error 3 "there are no images in nothing in it" "nothing in it"
cp "$samples/parking_pan.mp4" "nothing in it/2.mp4"
expect_error 3 "there are no images in nothing in it, but a video: name it, nothing in it/2.mp4" "nothing in it"
cp "$samples/parking_pan.mp4" "nothing in it/10.MOV"
expect_error 3 "but 2 videos, nothing in it/2.mp4 among them: a run takes one; run tarnstitch once for each" "nothing in it"
expect_error 3 "there are no files nothing in it/frame%04d.png" "nothing in it/frame%04d.png"
expect_error 3 "there is no file or directory nothing in it/frame%s.png" "nothing in it/frame%s.png"
expect_error 3 "nowhere" "nowhere/frame%04d.png"

# A name over two lines is still reported on one.
expect_error 3 "two?lines" $'two\nlines'

mkdir broken
echo "no image" >broken/1.png
echo "no image" >broken/2.png
run 3 broken
expect_said "cannot read broken/1.png; it is left out"
expect_said "no frame can be read from broken"

if [[ $(id -u) -ne 0 ]]; then
  mkdir closed
  chmod 000 closed
  code=0
  "$program" closed 2>stderr || code=$?
  chmod 700 closed
  expect_equal "exit code with a closed directory" 3 $code
  expect_said "cannot read the directory closed: Permission denied"
  cp "$samples/parking_pan.mp4" closed.mp4
  chmod 000 closed.mp4
  expect_error 3 "closed.mp4" closed.mp4
fi

expect_equal "panoramas" "" "$(find . -name '*panorama*')"
echo "passed"
