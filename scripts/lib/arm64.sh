# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
#
# Libraries for 64-bit ARM on a machine of another architecture. To be sourced, after common.sh.

# A directory with the libraries that the cross build needs, and with all that those need in turn.
# shellcheck disable=SC2154
arm64_sysroot=$root/build/arm64-sysroot

# Brought along by the cross compiler, which would be confused by a second set.
arm64_left_out='^(libc6-dev|linux-libc-dev|libcrypt-dev|libstdc\+\+-[0-9]+-dev|libgcc-[0-9]+-dev)_'

# need_arm64_sysroot: fills the directory, once. A package manager of its own does it: the system's neither sees the
# other architecture nor is changed, since the development packages of two architectures exclude each other.
need_arm64_sysroot() {
  # The libraries among the packages that any build needs.
  local -a names
  mapfile -t names < <(printf '%s\n' "${build_packages[@]}" "${test_packages[@]}" | grep -e '-dev$')
  [[ $(cat "$arm64_sysroot/complete" 2>/dev/null) != "${names[*]}" ]] || return 0
  say "Fetching the libraries for 64-bit ARM (some 420 packages, 250 MB)"
  command -v apt-get >/dev/null || fail "There is no apt here to fetch libraries for another architecture with."
  rm -rf "$arm64_sysroot"
  mkdir -p "$arm64_sysroot/apt/state/lists/partial" "$arm64_sysroot/apt/cache/archives/partial"
  touch "$arm64_sysroot/apt/status"
  local -a options=(--quiet --quiet -o APT::Architecture=arm64 -o APT::Architectures=arm64
    -o "APT::Sandbox::User=$(id -un)" -o Debug::NoLocking=true -o "Dir::State=$arm64_sysroot/apt/state"
    -o "Dir::State::status=$arm64_sysroot/apt/status" -o "Dir::Cache=$arm64_sysroot/apt/cache")
  apt-get "${options[@]}" update
  apt-get "${options[@]}" install --download-only --yes --no-install-recommends "${names[@]}" >/dev/null
  local package
  for package in "$arm64_sysroot"/apt/cache/archives/*.deb; do
    [[ $(basename "$package") =~ $arm64_left_out ]] || dpkg-deb --extract "$package" "$arm64_sysroot"
  done
  rm -rf "$arm64_sysroot/apt"
  echo "${names[*]}" >"$arm64_sysroot/complete"
}

# configure_arm64 DIRECTORY ARGUMENT…: CMake's configuration of a cross build.
configure_arm64() {
  local directory=$1
  shift
  cmake -S . -B "$directory" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARN_ARM64_SYSROOT="$arm64_sysroot" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/arm64-linux.cmake" "$@"
}

# check_page_alignment LIBRARY…: each part that is loaded may lie on memory pages of 16 KiB.
check_page_alignment() {
  local library alignment
  local -a alignments
  for library in "$@"; do
    mapfile -t alignments < <(aarch64-linux-gnu-readelf --segments --wide "$library" | awk '$1 == "LOAD" { print $NF }')
    ((${#alignments[@]} > 0)) || fail "$library: it has nothing to load."
    for alignment in "${alignments[@]}"; do
      ((alignment % 16384 == 0)) || fail "$library: a part is aligned to $alignment, no multiple of 0x4000."
    done
    say "Page size: $(basename "$library"): all ${#alignments[@]} parts that are loaded suit pages of 16 KiB (${alignments[*]})."
  done
}
