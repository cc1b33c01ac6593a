#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Two runs on one processor agree in every line; a changed digest, a missing line and no record at all are noticed,
# a changed value of OpenCV is reported and forgiven.
# usage: processor_agreement_test.sh PROGRAM DIRECTORY
set -euo pipefail

program=$1
rm -rf "$2"
mkdir -p "$2"
cd "$2"
mkdir frames
"$program" frames frames
"$program" record frames >one
"$program" record frames >two
cmp one two
"$program" compare one two >report
grep -c '^agrees' report
if grep -v -e '^agrees' -e '^close .*: equal' -e '^library .*: equal' report; then
  echo "a run differs from another one"
  exit 1
fi

# The last digit of one line that begins so.
change() {
  sed -E "/^$1 /s/[0-9a-f]$/x/; s/x$/$2/" one
}
change 'exact optimizeSeam' 0 >two
change 'exact optimizeSeam' 1 >three
if "$program" compare two three >report; then
  echo "a changed digest was not noticed"
  exit 1
fi
grep -x 'DIFFERS  optimizeSeam' report

change 'library homography' 1 >two
change 'library homography' 2 >three
"$program" compare two three >report
grep '^library  homography: 1 of 9 values differ' report

sed -E '/^close calc_hangle /s/ [^ ]+$/ 40/' one >two
sed -E '/^close calc_hangle /s/ [^ ]+$/ 40.00001/' one >three
"$program" compare two three >report
grep '^close    calc_hangle: 1 of 5000 values differ' report
sed -E '/^close calc_hangle /s/ [^ ]+$/ 40.001/' one >three
if "$program" compare two three >report; then
  echo "an angle that is far away was not noticed"
  exit 1
fi

sed 1d one >two
for other in two no_such_file; do
  if "$program" compare one "$other" >report; then
    echo "$other was taken for a whole record"
    exit 1
  fi
done
