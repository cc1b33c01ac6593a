#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds the Debian packages libtarnstitch1, libtarnstitch-finishing1, their -dev packages, python3-tarnstitch and
# tarnstitch into out/packages, after installing what is missing, and has lintian look at them; what lintian calls an error fails.
# scripts/test-packages.sh installs them.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

need_packages "${build_packages[@]}" debhelper dh-python dpkg-dev fakeroot lintian python3
for program in dpkg-buildpackage dh lintian; do
  command -v "$program" >/dev/null || fail "$program is missing."
done

# A copy of the tree: building packages writes into the source directory.
version=$(dpkg-parsechangelog --show-field Version)
[[ $(sed -n 's/^ *VERSION \([0-9.]*\)$/\1/p' CMakeLists.txt | head -n 1) == "$version" ]] \
  || fail "debian/changelog and CMakeLists.txt have different versions."
work=build/package
rm -rf "$work"
mkdir -p "$work/tarnstitch-$version" out/packages
tar --create --exclude=./build --exclude=./out --exclude=./.git --exclude=./.cache . \
  | tar --extract --directory "$work/tarnstitch-$version"

say "Building the packages of version $version"
(cd "$work/tarnstitch-$version" && DEB_BUILD_OPTIONS="parallel=$jobs noautodbgsym" \
  dpkg-buildpackage --build=binary --no-sign >../log 2>&1) || {
  tail -n 40 "$work/log" >&2
  fail "the packages cannot be built; the whole log is $work/log."
}
rm -f out/packages/*.deb
cp "$work"/*.deb out/packages/

say "What lintian says"
lintian --fail-on error --tag-display-limit 0 "$work"/*.changes
say "Packages:"
ls -l out/packages/*.deb
