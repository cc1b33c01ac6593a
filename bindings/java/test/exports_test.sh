#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The native half exports what the virtual machine looks for, and nothing else.
# usage: exports_test.sh LIBRARY
set -euo pipefail

found=$(nm --dynamic --defined-only --format=posix "$1" | cut -d ' ' -f 1)
echo "$found"
[[ $found == JNI_OnLoad ]]
