#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The sample host stitches the images of a directory and leaves both pictures, and nothing else; without images it
# says how it is called.
# usage: sample_test.sh JAVA REFERENCE_HOST VIDEO CLASS_PATH OUTPUT_DIRECTORY
set -euo pipefail

java=$1
reference_host=$2
video=$3
class_path=$4
output=$5
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/images" "$work/empty" "$work/tmp"
"$reference_host" images "$video" "$work/images"
echo "not an image" >"$work/images/notes.txt"
rm -rf "$output"

run() {
  "$java" -Xcheck:jni -Djava.io.tmpdir="$work/tmp" -cp "$class_path" StitchDirectory "$@" >"$work/log"
}

run "$work/images" "$output"
[[ $(ls "$output") == $'panorama.jpg\npreview.png' ]]
[[ -z $(ls "$work/tmp") ]]
if grep -E '^(WARNING|FATAL ERROR) in native method' "$work/log"; then
  echo "The virtual machine found fault with the native half."
  exit 1
fi

# Upright: wider than high, and wider than one frame of the sample.
file_size() {
  "$java" "$(dirname "${BASH_SOURCE[0]}")/ImageSize.java" "$1"
}
read -r width height < <(file_size "$output/panorama.jpg")
echo "panorama: $width x $height"
((width > 600 && width > height))
read -r width height < <(file_size "$output/preview.png")
echo "preview: $width x $height"
((width > height))

for bad in "$work/empty" "$work/nowhere"; do
  if run "$bad" "$work/other" 2>"$work/errors"; then
    echo "$bad was accepted"
    exit 1
  fi
  cat "$work/errors"
done
[[ ! -e $work/other/panorama.jpg ]]
[[ -z $(ls "$work/tmp") ]]
