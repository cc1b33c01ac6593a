#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The example host in C makes of a sample's frames the very bytes that the one in C++ makes of the sample, leaves nothing
# else behind, and says in one line what it cannot do.
# usage: example_test.sh HOST HOST_IN_CPP MEDIA SAMPLES
set -euo pipefail

host=$1
host_in_cpp=$2
media=$3
samples=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TMPDIR=$work/tmp
mkdir "$TMPDIR"

"$host_in_cpp" "$samples/hall_slide.mp4" "$work/expected.jpg" 2>"$work/expected.err"
"$media" "$samples/hall_slide.mp4" | "$host" "$work/panorama.jpg" >"$work/out" 2>"$work/err"
cmp "$work/expected.jpg" "$work/panorama.jpg"
cmp "$work/expected.err" "$work/err"
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
refuses 1 "no stream of whole PPMs" "$work/none.jpg" <"$0"
# Frames that end too soon, that have no pixels, or of other depth; and some that are too wide.
refuses 1 "no stream of whole PPMs" "$work/none.jpg" < <(printf 'P6\n64 48\n255\nshort')
refuses 1 "no stream of whole PPMs" "$work/none.jpg" < <(printf 'P6\n64 48')
refuses 1 "no stream of whole PPMs" "$work/none.jpg" < <(printf 'P6\n0 48\n255\n')
refuses 1 "no stream of whole PPMs" "$work/none.jpg" < <(printf 'P6\n1 1\n127\nabc')
refuses 1 "width" "$work/none.jpg" < <(printf 'P6\n20000 1\n255\n' && head -c 60000 /dev/zero)
[[ ! -e $work/none.jpg ]]
# A file that cannot be written.
refuses 1 "$work/missing/panorama.jpg" "$work/missing/panorama.jpg" < <("$media" "$samples/hall_slide.mp4" 2)
