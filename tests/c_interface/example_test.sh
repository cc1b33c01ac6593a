#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The example host in C makes of a sample's frames the very bytes that the session makes of them, leaves nothing else
# behind, and says in one line what it cannot do.
# usage: example_test.sh HOST MEDIA SAMPLES
set -euo pipefail

host=$1
media=$2
samples=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work/tmp
mkdir "$TMPDIR"

"$media" stitch "$samples/hall_slide.mp4" "$work/expected.jpg"
"$media" frames "$samples/hall_slide.mp4" | "$host" "$work/panorama.jpg" >"$work/out"
cmp "$work/expected.jpg" "$work/panorama.jpg"
[[ ! -s $work/out ]] || { echo "it writes to standard output" && exit 1; }
# A JPEG begins with these two bytes.
[[ $(head -c 2 "$work/panorama.jpg" | od -An -tx1 | tr -d ' \n') == ffd8 ]]
[[ -z $(ls -A "$TMPDIR") ]] || { echo "left behind: $(ls -A "$TMPDIR")" && exit 1; }

# refuses CODE TEXT ARGUMENT…: with that exit code and that text in one line; standard input is the caller's.
refuses() {
  local code=0
  "$host" "${@:3}" 2>"$work/err" || code=$?
  [[ $code == "$1" && $(wc -l <"$work/err") == 1 ]] && grep -F "$2" "$work/err" || {
    echo "exit code $code instead of $1: $(cat "$work/err")"
    exit 1
  }
}
refuses 2 usage </dev/null
refuses 1 "there is no panorama" "$work/none.jpg" </dev/null
refuses 1 "there is no panorama" "$work/none.jpg" <"$0"
[[ ! -e $work/none.jpg ]]
# A stream that ends within its first frame, and one of frames that are too wide.
refuses 1 "there is no panorama" "$work/none.jpg" <<<$'P6\n64 48\n255\nshort'
refuses 1 "width" "$work/none.jpg" < <(printf 'P6\n20000 1\n255\n' && head -c 60000 /dev/zero)
# A file that cannot be written.
"$media" frames "$samples/hall_slide.mp4" | refuses 1 "$work/missing/panorama.jpg" "$work/missing/panorama.jpg"
