#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Every exit code that is documented, once. One argument more than the other scripts have: the code's name.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide
case $4 in
  done)
    run 0 slide
    expect_file slide-panorama.jpg
    ;;
  not_stitched)
    "$media" slide slide/9%d.png 1 480 360 30 2 # shows something else
    run 1 slide
    expect_no_file slide-panorama.jpg
    expect_file slide-panorama-partial.jpg
    expect_said "stitching failed at frame 9"
    ;;
  usage)
    expect_error 2 "--none" slide --none
    ;;
  input)
    expect_error 3 "there is no file or directory none.mp4" none.mp4
    ;;
  output)
    expect_error 4 "there is no directory none" slide -o none/a.jpg
    ;;
  stopped)
    # The program waits for the fourth picture when it is stopped.
    rm slide/4.png
    mkfifo slide/4.png
    env --default-signal=INT "$program" slide 2>stderr &
    started=$!
    exec 9>slide/4.png
    kill -s INT $started
    echo "no image" >&9
    exec 9>&-
    code=0
    wait $started || code=$?
    expect_equal "exit code" 130 $code
    expect_file slide-panorama.jpg
    expect_nothing_left
    ;;
  *)
    fail "no such exit code: $4"
    ;;
esac
echo "passed"
