# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the tests of consumers share. To be sourced.
set -euo pipefail

# quietly COMMAND…: its output is shown only if it fails.
quietly() {
  local log
  log=$(mktemp)
  if "$@" >"$log" 2>&1; then
    rm -f "$log"
  else
    cat "$log"
    rm -f "$log"
    return 1
  fi
}

# configure ARGUMENT…: by the CMake that configured TarnStitch, which finds the same OpenCV.
configure() {
  "$TARN_CMAKE" -DOpenCV_DIR="$TARN_OPENCV_DIR" "$@"
}

# stitches PROGRAM DIRECTORY: the program makes a panorama of the sample.
stitches() {
  rm -f "$2/panorama.jpg"
  quietly "$1" "$TARN_SAMPLE" "$2/panorama.jpg"
  # A JPEG begins with these two bytes.
  [[ $(head -c 2 "$2/panorama.jpg" | od -An -tx1 | tr -d ' \n') == ffd8 ]]
  echo "$1: panorama of $(wc -c <"$2/panorama.jpg") bytes"
}

# links_library PROGRAM KIND: the program needs the shared library at run time, or does not.
links_library() {
  local needed
  needed=$(readelf --dynamic --wide "$1" | grep -c 'NEEDED.*\[libtarnstitch\.so\.1\]' || true)
  echo "$1: $2, needs libtarnstitch.so.1 $needed times"
  case $2 in
    shared) [[ $needed == 1 ]] ;;
    static) [[ $needed == 0 ]] ;;
  esac
}
