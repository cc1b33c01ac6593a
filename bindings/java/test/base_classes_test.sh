#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The core of the Java binding depends on no module but java.base: on no desktop class, so that it runs on Android.
# usage: base_classes_test.sh JAR JDEPS
set -euo pipefail

found=$("$2" -summary "$1")
echo "$found"
[[ $found == "$(basename "$1") -> java.base" ]]
