#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# A compiler and pkg-config are enough to build against the installed library, static or shared.
# usage: pkg_config_test.sh PREFIX KIND DIRECTORY
# shellcheck source=tests/consumer/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

rm -rf "$3"
mkdir -p "$3"
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$1" -name tarn_stitch.pc)")
quietly make -C "$3" -f "$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)/pkg-config/Makefile" KIND="$2"
libraries=$(dirname "$(find "$1" -name libtarnstitch.so)")
export LD_LIBRARY_PATH=$libraries${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}
quietly "$3/library_only"
quietly "$3/library_only_c"
links_library "$3/library_only_c" "$2"
links_library "$3/library_only" "$2"
links_library "$3/sweep" "$2"
stitches "$3/sweep" "$3"
