#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Installs the packages of out/packages (scripts/package.sh) into a clean root, a minimal system made by mmdebstrap, and
# runs there: the program stitches a sample, and a project without any other library is built against the development
# package and run. Needs root. The root stays in build/package-root; --keep takes one that is there already.
# What stands in single quotes is for a shell inside the root.
# shellcheck disable=SC2016
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages mmdebstrap
command -v mmdebstrap >/dev/null || fail "mmdebstrap is missing."
[[ $(id -u) == 0 ]] || fail "Making a root and entering it needs root."
compgen -G 'out/packages/libtarnstitch1_*.deb' >/dev/null || fail "There are no packages in out/packages: run scripts/package.sh."

clean=$root/build/package-root
if [[ ${1:-} != --keep || ! -e $clean/etc/debian_version ]]; then
  say "Making a clean root"
  rm -rf "$clean"
  # The same release from the same place as this machine's own packages.
  release=$(. /etc/os-release && echo "$VERSION_CODENAME")
  mapfile -t sources < <(compgen -G '/etc/apt/sources.list' || true; compgen -G '/etc/apt/sources.list.d/*.list' || true
    compgen -G '/etc/apt/sources.list.d/*.sources' || true)
  mmdebstrap --quiet --variant=minbase "$release" "$clean" "${sources[@]}"
fi

inside() {
  chroot "$clean" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin "$@"
}
# show COMMAND…: runs it in the root, and says so first.
show() {
  printf '\n# %s\n' "$*"
  inside "$@"
}

mkdir -p "$clean/packages"
rm -rf "$clean"/packages/*
cp out/packages/*.deb samples/hall_slide.mp4 tests/consumer/library_only.cpp tests/consumer/library_only.c "$clean/packages/"

say "The program and the library alone"
install_quietly() {
  inside apt-get --quiet --quiet -o Dpkg::Use-Pty=0 install --yes --no-install-recommends "$@" >"$clean/packages/log" 2>&1 || {
    tail -n 20 "$clean/packages/log"
    fail "cannot be installed: $*"
  }
}
inside apt-get --quiet --quiet update
mapfile -t programs < <(cd "$clean" && ls packages/tarnstitch_*.deb packages/libtarnstitch1_*.deb)
install_quietly "${programs[@]/#//}"
show dpkg-query --show --showformat='${Package} ${Version} ${db:Status-Status}\n' 'libtarnstitch*' tarnstitch
show tarnstitch --version
show tarnstitch /packages/hall_slide.mp4 -o /packages/panorama.jpg --preview /packages/preview.jpg
show ls -l /packages/panorama.jpg /packages/preview.jpg
# The manual page and the completions lie where their readers look. A shell of that kind is the one to ask.
for file in /usr/share/man/man1/tarnstitch.1.gz /usr/share/bash-completion/completions/tarnstitch; do
  show dpkg-query --search "$file"
  inside test -s "$file" || fail "missing: $file"
done
install_quietly zsh
show zsh -fc 'autoload +X -Uz _tarnstitch && whence -v _tarnstitch' || fail "zsh does not find its completion"
if inside ldd /usr/bin/tarnstitch | grep 'not found'; then
  fail "the program lacks a library"
fi

say "The Python package"
mapfile -t python < <(cd "$clean" && ls packages/python3-tarnstitch_*.deb packages/libtarnstitch-finishing1_*.deb)
install_quietly "${python[@]/#//}" python3-opencv
for order in 'cv2, tarnstitch' 'tarnstitch, cv2'; do
  show python3 -c "import $order
video = cv2.VideoCapture('/packages/hall_slide.mp4')
stitched = tarnstitch.stitch(video.read()[1] for _ in range(40))
assert stitched.failed is None and stitched.panorama.pixels.shape[1] > 700
print(stitched)"
done

say "The development package"
mapfile -t development < <(cd "$clean" && ls packages/libtarnstitch-dev_*.deb)
install_quietly "${development[@]/#//}" g++ pkg-config cmake make
show sh -c 'cd /packages && g++ -std=c++17 library_only.cpp -o shared $(pkg-config --cflags --libs tarn_stitch)'
show sh -c '/packages/shared >/packages/output && tail -n 1 /packages/output'
show sh -c 'cd /packages && gcc -std=c99 -pedantic-errors -Wall -Wextra -Werror library_only.c -o shared_c $(pkg-config --cflags --libs tarn_stitch)'
show /packages/shared_c
show sh -c 'cd /packages && g++ -std=c++17 library_only.cpp -o static $(pkg-config --cflags --static --libs tarn_stitch | sed s/-ltarnstitch/-l:libtarnstitch.a/)'
show sh -c '/packages/static >/packages/output && tail -n 1 /packages/output'
printf '%s\n' 'cmake_minimum_required(VERSION 3.22)' 'project(host CXX)' \
  'find_package(TarnStitch 1.0 CONFIG REQUIRED COMPONENTS shared static)' \
  'add_executable(host library_only.cpp)' 'target_link_libraries(host TarnStitch::tarn_stitch)' \
  >"$clean/packages/CMakeLists.txt"
show sh -c 'cmake -S /packages -B /packages/build >/dev/null && cmake --build /packages/build && /packages/build/host >/packages/output && tail -n 1 /packages/output'

say "Removal"
install_quietly --purge libtarnstitch1- libtarnstitch-dev- libtarnstitch-finishing1- python3-tarnstitch- tarnstitch-
left=$(inside find /usr -name '*tarn*')
[[ -z $left ]] || fail "left behind: $left"
say "Packages: installed, run and removed in a clean root"
