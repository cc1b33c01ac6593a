#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Every exit code that is documented, once. One argument more than the other scripts have: the code's name.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

case $4 in
  stopped)
    make_waiting_slide
    ;;
  *)
    make_slide
    ;;
esac
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
  short)
    if [[ -n ${ASAN_OPTIONS:-}${TSAN_OPTIONS:-} ]]; then
      echo "skipped: sanitizers need descriptors themselves"
      exit 77
    fi
    (
      ulimit -n 8
      run 5 slide
    )
    expect_said "too few files may be open at once"
    expect_no_file slide-panorama.jpg
    ;;
  stopped)
    start env --default-signal=INT "$program" slide
    kill -s INT "$started"
    until_said "stopping" # a signal is noticed by a thread of its own, which may come to it late
    let_go 130
    expect_file slide-panorama.jpg
    ;;
  *)
    fail "no such exit code: $4"
    ;;
esac
echo "passed"
