# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# What the scripts share: where they are, how they talk, and the packages that they need. To be sourced.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cd "$root" || exit 1

jobs=$(nproc 2>/dev/null || getconf _NPROCESSORS_ONLN 2>/dev/null || echo 2)

# By their Debian names; those of Ubuntu are the same. Used by the scripts that source this one.
# shellcheck disable=SC2034
build_packages=(g++ cmake ninja-build libopencv-dev nlohmann-json3-dev libkainjow-mustache-dev libexiv2-dev
  pkg-config libavformat-dev libavcodec-dev libswscale-dev libavutil-dev)
# shellcheck disable=SC2034
# The consumers among the tests use make and pkg-config; without the last seven some of the command-line host are skipped.
test_packages=(libgtest-dev make ffmpeg xvfb xdotool imagemagick zsh parallel tidy)
# For the tests of the Java binding, which are left out where these are missing.
java_packages=(default-jdk-headless junit5)
# For the tests of the Python package, which are left out where these are missing.
python_packages=(python3 python3-numpy python3-opencv python3-pil python3-pytest mypy python3-pip python3-venv
  python3-matplotlib)
# shellcheck disable=SC2034
web_check_packages=(nodejs openssl)
# shellcheck disable=SC2034
benchmark_packages=(libbenchmark-dev)
# shellcheck disable=SC2034
success_packages=(python3 python3-numpy python3-opencv ffmpeg hugin-tools enblend)

say() {
  printf '==> %s\n' "$*"
}

fail() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# compiles CODE: whether there is a compiler and it finds the headers that the code includes.
compiles() {
  local include
  local -a flags=(-std=c++17 -fsyntax-only -x c++)
  for include in /usr/include/opencv4 /usr/local/include /usr/local/include/opencv4 /opt/homebrew/include \
    /opt/homebrew/include/opencv4; do
    flags+=(-isystem "$include")
  done
  command -v c++ >/dev/null && c++ "${flags[@]}" - <<<"$1" >/dev/null 2>&1
}

# has_package NAME: asks dpkg; on a system without it, looks for what the package would bring.
has_package() {
  if command -v dpkg-query >/dev/null; then
    [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
    return
  fi
  case $1 in
    g++) command -v c++ >/dev/null ;;
    ninja-build) command -v ninja >/dev/null || command -v make >/dev/null ;;
    libopencv-dev) compiles '#include <opencv2/core.hpp>' ;;
    nlohmann-json3-dev) compiles '#include <nlohmann/json.hpp>' ;;
    libkainjow-mustache-dev) compiles '#include <kainjow/mustache.hpp>' ;;
    libexiv2-dev) compiles '#include <exiv2/exiv2.hpp>' ;;
    libavformat-dev) compiles 'extern "C" {
#include <libavformat/avformat.h>
}' ;;
    libavcodec-dev) compiles 'extern "C" {
#include <libavcodec/avcodec.h>
}' ;;
    libswscale-dev) compiles 'extern "C" {
#include <libswscale/swscale.h>
}' ;;
    libavutil-dev) compiles 'extern "C" {
#include <libavutil/avutil.h>
}' ;;
    xvfb) command -v Xvfb >/dev/null ;;
    libgtest-dev) compiles '#include <gtest/gtest.h>' ;;
    default-jdk-headless) command -v javac >/dev/null ;;
    junit5) compgen -G '/usr/share/java/junit-platform-console-standalone*.jar' >/dev/null ;;
    python3-venv) python3 -c 'import ensurepip' 2>/dev/null ;;
    python3-opencv) python3 -c 'import cv2' 2>/dev/null ;;
    python3-pil) python3 -c 'import PIL' 2>/dev/null ;;
    python3-*) python3 -c "import ${1#python3-}" 2>/dev/null ;;
    nodejs) command -v node >/dev/null ;;
    hugin-tools) command -v cpfind >/dev/null ;;
    libbenchmark-dev) compiles '#include <benchmark/benchmark.h>' ;;
    *) command -v "$1" >/dev/null ;;
  esac
}

# as_root COMMAND…: runs it, with sudo unless we are root. Fails where sudo would have to ask and nobody is there.
as_root() {
  if [[ $(id -u) == 0 ]]; then
    "$@"
  elif ! command -v sudo >/dev/null; then
    return 1
  elif sudo -n true 2>/dev/null; then
    sudo -n "$@"
  elif [[ -t 0 && -z ${CI:-} ]]; then
    sudo "$@"
  else
    return 1
  fi
}

# apt_get ARGUMENT…: apt-get that asks nothing, waits for another one to finish, and is heard only if it fails.
apt_get() {
  local log
  log=$(mktemp)
  if as_root env DEBIAN_FRONTEND=noninteractive NEEDRESTART_MODE=a \
    apt-get --quiet -o Dpkg::Use-Pty=0 -o DPkg::Lock::Timeout=300 "$@" </dev/null >"$log" 2>&1; then
    rm -f "$log"
  else
    tail -n 20 "$log" >&2
    rm -f "$log"
    return 1
  fi
}

install_packages() {
  # A bare machine has no package lists, and old ones name versions that are gone.
  if compgen -G '/var/lib/apt/lists/*_Packages*' >/dev/null \
    && apt_get install --yes --no-install-recommends "$@"; then
    return 0
  fi
  say "Updating the package lists"
  apt_get update && apt_get install --yes --no-install-recommends "$@"
}

# need_packages NAME…: installs what is missing if that is possible, says so if it is not, and goes on either
# way: the libraries may have come to the machine by another road, which the configuration will find out.
need_packages() {
  local name
  local -a missing=()
  for name in "$@"; do
    has_package "$name" || missing+=("$name")
  done
  if ((${#missing[@]} == 0)); then
    return 0
  fi
  if ! command -v apt-get >/dev/null; then
    say "Missing: ${missing[*]} (the names of the Debian packages). There is no apt here to install them; going on without."
  elif ! as_root true; then
    say "Missing: ${missing[*]}. They cannot be installed without root or sudo; going on without."
    say "To install them: apt-get install --no-install-recommends ${missing[*]}"
  else
    say "Missing: ${missing[*]}. Installing with apt; this may take some minutes."
    if install_packages "${missing[@]}"; then
      say "Installed: ${missing[*]}"
    else
      say "apt could not install them; going on without."
    fi
  fi
}

# configure PRESET ARGUMENT…: CMake's configuration of build/PRESET, with Ninja where there is one.
configure() {
  local preset=$1
  shift
  command -v cmake >/dev/null || fail "CMake is missing (3.22 or newer)."
  local -a generator=()
  if [[ ! -e build/$preset/CMakeCache.txt && -z ${CMAKE_GENERATOR:-} ]] && command -v ninja >/dev/null; then
    generator=(-G Ninja)
  fi
  cmake --preset "$preset" "${generator[@]}" "$@"
}

# build PRESET ARGUMENT…
build() {
  local preset=$1
  shift
  cmake --build --preset "$preset" --parallel "$jobs" "$@"
}

# java_option: CMake's option for the Java binding, on or off; installs what it needs if that is possible.
java_option() {
  need_packages "${java_packages[@]}" >&2
  if command -v javac >/dev/null && compgen -G '/usr/share/java/junit-platform-console-standalone*.jar' >/dev/null; then
    echo -DTARN_BUILD_JAVA=ON
  else
    say "The Java binding is left out: it needs ${java_packages[*]}." >&2
    echo -DTARN_BUILD_JAVA=OFF
  fi
}

# python_option: CMake's option for the Python package, on or off; installs what it needs if that is possible.
python_option() {
  need_packages "${python_packages[@]}" >&2
  local python=python3
  [[ ! -x /usr/bin/python3 ]] || python=/usr/bin/python3 # the one that the packages are for
  if "$python" -c 'import cv2, ensurepip, matplotlib, mypy, numpy, PIL, pip, pytest' 2>/dev/null; then
    echo -DTARN_BUILD_PYTHON=ON
  else
    say "The Python package is left out: it needs ${python_packages[*]}." >&2
    echo -DTARN_BUILD_PYTHON=OFF
  fi
}

# our_files PATTERN…: the project's own files, one per line.
our_files() {
  local pattern
  local -a names=()
  for pattern in "$@"; do
    names+=(-o -name "$pattern")
  done
  find . \( -path ./build -o -path ./out -o -path ./.git \) -prune -o -type f \( "${names[@]:1}" \) -print \
    | LC_ALL=C sort
}
