#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The installed package accepts the versions that it can stand for, and says in one sentence what is wrong with
# other ones, with components that do not exist, and with another major version of OpenCV.
# usage: refusal_test.sh PREFIX DIRECTORY
# shellcheck source=tests/consumer/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rm -rf "$2"
mkdir -p "$2"

# What the environment says of OpenCV would be found instead of the versions below.
unset OpenCV_DIR

# find_package FIND_PACKAGE_ARGUMENTS DIRECTORY CMAKE_ARGUMENT…: a configuration that finds the package, a new one
# unless $keep is set. Leaves its output in $output.
keep=
find_package() {
  [[ -n $keep ]] || rm -rf "$2/build"
  printf 'cmake_minimum_required(VERSION 3.22)\nproject(refusal CXX)\nfind_package(TarnStitch %s)\n' "$1" \
    >"$2/CMakeLists.txt"
  output=$(configure -S "$2" -B "$2/build" -DCMAKE_PREFIX_PATH="$prefix" "${@:3}" 2>&1)
}
prefix=$1

# refuses ARGUMENTS SENTENCE CMAKE_ARGUMENT…
refuses() {
  if find_package "$1" "$directory" "${@:3}"; then
    echo "accepted: $1"
    exit 1
  fi
  # As one line, without CMake's line breaks.
  if ! tr -s ' \n' ' ' <<<"$output" | grep -F "$2" >/dev/null; then
    echo "$1: the answer is not: $2"
    echo "$output"
    exit 1
  fi
  echo "refused: $1: $2"
}
directory=$2

for wanted in "CONFIG REQUIRED" "1 CONFIG REQUIRED" "1.0 CONFIG REQUIRED COMPONENTS static shared program"; do
  find_package "$wanted" "$directory"
  echo "accepted: $wanted"
done
for wanted in 0.9 1.9 2.0; do
  refuses "$wanted CONFIG REQUIRED" "compatible with requested version \"$wanted\""
done
refuses "CONFIG REQUIRED COMPONENTS cylinder" \
  "TarnStitch has no component cylinder; its components are shared, static, program"
# In a project that is configured once more, for another prefix, nothing is left of the first one.
cp -a "$prefix" "$directory/without_program"
rm "$directory/without_program/bin/tarnstitch"
find_package "CONFIG REQUIRED COMPONENTS program" "$directory"
package=$(dirname "$(find "$directory/without_program" -name TarnStitchConfig.cmake)")
keep=yes
refuses "CONFIG REQUIRED COMPONENTS program" "TarnStitch is installed without its component program." \
  -DTarnStitch_DIR="$package"
keep=
# One that says that it is no version 4 is passed over, so nothing else may be there to be found.
refuses "CONFIG REQUIRED" "found: 5.0.0, where modules that TarnStitch uses have been moved." \
  -DOpenCV_DIR="$here/../opencv_versions/honest" -DCMAKE_PROJECT_INCLUDE="$here/../opencv_versions/nothing_else.cmake"
refuses "CONFIG REQUIRED" "found: 5.0.0, where modules that TarnStitch uses have been moved." \
  -DOpenCV_DIR="$here/../opencv_versions/obliging"
