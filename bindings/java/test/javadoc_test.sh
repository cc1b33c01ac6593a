#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Every public name of the Java binding is documented, and the documentation is well formed.
# usage: javadoc_test.sh JAVADOC BINDING_DIRECTORY
set -euo pipefail

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$1" -quiet -Xdoclint:all -Werror --release 8 -encoding UTF-8 -d "$work" \
  -sourcepath "$2/src:$2/desktop" org.tarnstitch org.tarnstitch.desktop
