#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Outputs that cannot be written: one clear line, exit code 4, before the work starts; what is there stays.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide
input=slide

expect_error 4 "there is no directory none" $input -o none/a.jpg
expect_error 4 "there is no directory none" $input --preview none/a.png
echo text >file
expect_error 4 "file is not a directory" $input -o file/a.jpg
mkdir directory.jpg
expect_error 4 "it is a directory" $input -o directory.jpg
expect_error 4 "it is a directory" $input --preview directory.jpg
expect_error 4 "/proc/a.jpg" $input -o /proc/a.jpg
expect_error 4 "/proc/a.png" $input --preview /proc/a.png
mkfifo pipe.jpg
expect_error 4 "pipe.jpg: it is not a regular file" $input -o pipe.jpg
name=$(printf 'n%.0s' {1..300})
expect_error 4 "File name too long" $input -o "$name.jpg"

# Endings that cannot be written make no sense, whatever the disk holds, and are refused before anything is read.
for name in a.webp a.bmp a; do
  expect_error 2 "must end in .jpg, .jpeg, .png, .tif or .tiff" none.mp4 -o $name
done
expect_error 2 "must end in .csv or .jsonl" none.mp4 --frames a.txt
expect_error 2 ".xyz is no image format" none.mp4 --preview a.xyz
expect_error 2 "has no ending" none.mp4 --preview a

# An output must not take the place of what is read.
cp slide/1.png one.png
expect_error 4 "one of the input's files" one.png --preview one.png
"$media" rotate slide/2.png slide/3.jpg 4
expect_error 4 "one of the input's files" slide -o slide/3.jpg
expect_error 4 "one of the input's files" slide -o ./slide/../slide/3.jpg
expect_error 4 "one of the input's files" slide --preview slide/4.png
expect_file slide/4.png
rm slide/3.jpg

# A listed image is wanted, even if it is called as the panorama would be.
mkdir listed
cp slide/1.png listed/a.png
"$media" rotate slide/2.png listed/a-panorama.jpg 4
"$media" rotate slide/2.png listed/a-panorama-partial.jpg 4
cp listed/a-panorama.jpg before.jpg
for name in a-panorama.jpg a-panorama-partial.jpg; do
  (
    cd listed
    expect_error 4 "cannot write $name: it is one of the input's files; -o gives the panorama another name" a.png $name
  )
done
cmp before.jpg listed/a-panorama.jpg || fail "a listed image was overwritten by the panorama"

# Nor may the log, which is emptied when it is opened: not before everything has been checked.
cp slide/1.png before.png
expect_error 4 "one of the input's files" one.png -o a.jpg --log one.png
cmp before.png one.png || fail "the input was overwritten by the log"
ln -s one.png linked.log
expect_error 4 "one of the input's files" one.png -o a.jpg --log linked.log
cmp before.png one.png || fail "the input was overwritten by a link's log"
echo kept >old.jpg
expect_error 2 "-o and --log need different names" $input --log old.jpg -o old.jpg
expect_equal "earlier panorama named as log, too" kept "$(cat old.jpg)"
echo kept >old.log
expect_error 2 "must end in" $input -o a.bmp --log old.log
expect_error 4 "there is no directory none" $input -o none/a.jpg --log old.log
expect_equal "log of an earlier run" kept "$(cat old.log)"

(
  export TMPDIR=$work/no-such-directory
  code=0
  "$program" $input -o a.jpg 2>stderr || code=$?
  expect_equal "exit code without a temporary directory" 4 $code
  expect_said "cannot make a temporary directory: the directory $TMPDIR "
  code=0
  "$program" $input -o a.jpg --keep-work kept 2>stderr || code=$?
  expect_equal "exit code without a temporary directory for files to keep" 4 $code
  expect_said "cannot make a temporary directory in $TMPDIR"
)

if [[ $(id -u) -ne 0 ]]; then
  mkdir closed
  chmod 500 closed
  expect_error 4 "Permission denied" $input -o closed/a.jpg
  echo kept >protected.jpg
  chmod 400 protected.jpg
  expect_error 4 "Permission denied" $input -o protected.jpg
  expect_equal "protected file" kept "$(cat protected.jpg)"
fi

# A file system that is full when the results are written (here: a limit on the size of files, which a preview
# without compression exceeds and the panorama does not). One output's failure is not the other's.
echo kept >preview.bmp
code=0
(
  ulimit -f 300 # KiB
  exec "$program" $input -o small.jpg --preview preview.bmp
) >stdout 2>stderr || code=$?
expect_equal "exit code at the size limit" 4 $code
expect_said "cannot write preview.bmp: File too large"
expect_equal "preview that could not be replaced" kept "$(cat preview.bmp)"
expect_file small.jpg
expect_nothing_left

# Where several cannot be written the summary knows of each.
code=0
(
  ulimit -f 8 # KiB
  exec "$program" $input -o large.png --preview preview.bmp --json
) 2>stderr | cat >two.json || code=$?
expect_equal "exit code with two outputs at the size limit" 4 $code
expect_equal "errors in the summary" 2 "$(grep -cF 'cannot write ' two.json)"

expect_no_file a.jpg
expect_no_file slide-panorama.jpg
echo "passed"
